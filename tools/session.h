// What a session did, as lines that can be compared: without times and the numbers of threads.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "tools/recording.h"

namespace ipcam::tools {

struct SessionLine {
  std::string text;      // for a reader
  std::string identity;  // all that counts
  bool is_loose;         // may be missing
};
using Session = std::map<Place, std::vector<SessionLine>>;

// "saturation=4", "wb=outdoor", "code 99=1", or the text of a raw register command.
std::string request_text(const RecordedRequest& request);
// As camsim --trace has it, or with "no reply".
std::string exchange_text(const LoggedExchange& exchange);
// "start-up", "request 17", "one-push measurement 1".
std::string place_text(const Place& place);

void add(Session& session, const RecordedRequest& request);
void add(Session& session, const RecordedAnswer& answer);
void add(Session& session, const Place& place, const LoggedExchange& exchange, bool is_loose);
void add_stored(Session& session, Place::Kind when, const MaybeBytes& stored);

Session session_of(const Recording& recording);

// One place of two sessions; `first` is the number of the first line that differs.
struct Difference {
  Place place;
  std::size_t first;
  std::vector<SessionLine> lines[2];
};
std::optional<Difference> difference_at(const Place& place, const Session& a, const Session& b);
std::optional<Difference> first_difference(const Session& a, const Session& b);

// What commands of recordings share: commands_recording.cpp.

// Tells on standard error which lines cannot be used. Throws CommandError without any that can.
Recording load_recording(Context& context, const std::string& file);
// The lines around the difference, side by side under these names.
void show_difference(Output& out, const Difference& difference, const std::string& left,
                     const std::string& right);
// Ends the results. Returns `code`, but throws CommandError for a recording with faults.
int finish_recording(Context& context, const std::string& file, const Recording& recording,
                     int code);

}  // namespace ipcam::tools
