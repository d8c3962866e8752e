// A recording of a server program's session, as docs/recording.md has it: its lines, and where each
// exchange in them belongs.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "ipcam/camera/settings_record.h"
#include "tools/exchange_log.h"

namespace ipcam::tools {

using FileBytes = std::vector<std::uint8_t>;
using MaybeBytes = std::optional<FileBytes>;  // none: could not be read
using MaybeRecord = std::optional<camera::SettingsRecord>;

// Start-ups, requests and runs of the library's own workers, each with exchanges of its own.
// In this order they are compared; the stored record has its places at both ends.
struct Place {
  enum class Kind { kBefore, kStartUp, kRequest, kOnepush, kEvr, kAfter };
  Kind kind;
  int number;  // of the request; start-ups and runs are counted from 0
  auto operator<=>(const Place&) const = default;
};

struct StoredChange {
  std::size_t offset;
  MaybeBytes bytes;
};
struct FileChange {
  std::string path;
  MaybeBytes bytes;
};
struct RecordedStart {
  std::string program;
  std::string wall;
  StoredChange stored;
  std::vector<FileChange> files;
};
struct RecordedRequest {
  int number;
  int thread;
  std::int32_t code = 0;
  std::int32_t value = 0;
  std::optional<std::string> raw = {};  // register command; then there is no code
  std::int32_t raw_length = 0;
};
struct RecordedAnswer {
  int number;
  std::int32_t result;
  std::optional<std::int32_t> value = {};  // of a query
  MaybeBytes reply = {};                   // of a raw register command
  bool is_served = true;                   // not when the control thread has ended before
};
struct RecordedExchange : LoggedExchange {
  int request;  // that the thread served; 0: none
  std::int64_t took_us;
  std::optional<Place> place = {};  // none: of a thread that is not the library's
  bool is_loose = false;            // whether it happens is a matter of time
};
struct LostLines {
  std::int64_t count;
};
struct RecordedEnd {};

struct Event {
  std::int64_t t_us;
  std::int64_t order_us;  // never less than that of the event before
  std::variant<RecordedStart, RecordedRequest, RecordedAnswer, RecordedExchange, StoredChange,
               FileChange, LostLines, RecordedEnd>
      what;

  template <class Kind>
  const Kind* as() const {
    return std::get_if<Kind>(&what);
  }
};

struct Recording {
  std::vector<Event> events;
  std::vector<std::string> faults;  // "line 7: not JSON": those that could not be used

  // Null without one.
  const RecordedStart* start() const;
};

// What can be used of any text.
Recording read_recording(std::string_view text);

// Numbers the runs of workers, each on a thread of its own: measurements as they were triggered,
// since one that is ended at once may do nothing.
class WorkerRuns {
 public:
  // It is about to be served.
  void follow(const RecordedRequest& request);
  // None: of another thread. The first command of a thread says which worker it is.
  std::optional<Place> place(int thread, const wire::Packet& command);
  // What the worker does there may come a moment too late.
  bool is_loose(const Place& place) const;
  void ignore(int thread) { by_thread_[thread] = std::nullopt; }

 private:
  std::map<int, std::optional<Place>> by_thread_;
  int evr_runs_ = 0;
  int triggers_ = 0;
  bool is_measuring_ = false;  // since the last of them
};

// A one-push measurement goes on until a request with such a code is served.
bool ends_measurement(std::int32_t code);

// The stored record after a change.
MaybeRecord changed(const StoredChange& change, MaybeRecord stored);

}  // namespace ipcam::tools
