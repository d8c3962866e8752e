// What a session did, in parts that can be compared: without times and the numbers of threads.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/commands.h"
#include "tools/recording.h"

namespace ipcam::tools {

// A start-up, a request or a run of a worker, or the stored settings at an end.
struct Part {
  std::int64_t t_us = 0;
  std::int64_t end_us = 0;
  std::optional<RecordedRequest> request = {};
  std::vector<RecordedExchange> exchanges = {};
  std::optional<RecordedAnswer> answer = {};
  std::string settings = {};  // lines, at the ends only
};
using Session = std::map<Place, Part>;

Session session_of(const Recording& recording);

// "saturation=4", "wb=outdoor", "code 99=1", or the text of a raw register command.
std::string request_text(const RecordedRequest& request);
// As camsim --trace has it, or with "no reply".
std::string exchange_text(const LoggedExchange& exchange);
// "result 0, answer 60".
std::string answer_text(const RecordedAnswer& answer);
// "start-up", "request 17", "one-push measurement 1".
std::string place_text(const Place& place);
// The stored record as lines.
std::string settings_text(const MaybeRecord& stored);

bool is_same(const Part& a, const Part& b);
// Shows whether both are the same, or else the lines around the first difference, side by side
// under these names. Returns the exit code.
ExitCode show_difference(Output& out, const Session& a, const Session& b, const std::string& left,
                         const std::string& right);

// What commands of recordings share: commands_recording.cpp.

// Tells on standard error which lines cannot be used. Throws CommandError without any that can.
Recording load_recording(Context& context, const std::string& file);
// Ends the results. Returns `code`, but throws CommandError for a recording with faults.
int finish_recording(Context& context, const std::string& file, const Recording& recording,
                     int code);

}  // namespace ipcam::tools
