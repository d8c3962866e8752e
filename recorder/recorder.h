// What a program asks of the library, and what comes of it, as lines of a file.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "ipcam/camera/camera_request.h"
#include "recorder/lines.h"
#include "recorder/recording_file.h"
#include "wire/packet_entries.h"

namespace ipcam::recorder {

using Contents = std::optional<std::vector<std::uint8_t>>;  // none: it cannot be read

// A call of the library's with a request. It lies in its caller's frame and is known to the
// recorder from the queue up to the answer: as long as that, the caller's record is there.
struct Asked {
  const camera::s_cam_cgi_cmd* setting;  // or else
  const camera::s_ccdlsi_dbg* raw;
  const void* record = setting != nullptr ? static_cast<const void*>(setting) : raw;
  int thread = 0;
  std::int64_t queued_us = 0;
  std::int64_t number = 0;  // once the control thread has taken it, which serves it then
  std::atomic<bool> is_refused = false;  // by the queue, or perhaps: it has not said yet
  // Set when the recorder is done with it; until then it looks into it with the lock only.
  std::atomic<bool> is_answered = false;
};

// One thread at a time.
class Recorder {
 public:
  // Throws std::runtime_error, with the reason as its text, when there can be no file.
  Recorder(const std::string& path, int limit);
  // The last lines.
  void end();

  // The library may be about to read the stored record and the adjustment files.
  void tell_changes();

  // A line has come to nothing for want of memory.
  void lose() { ++lost_; }

  // It is about to be queued.
  void queue(Asked& asked);
  // The calling thread, which is the control thread, has taken a message with this record.
  void take(const void* record, const void* queue);
  // It has answered, as it is about to wait for another message of that queue.
  void finish(const void* queue);
  // The caller goes on.
  void leave(Asked& asked);

  // The calling thread sends a command (direction 0), or has got its reply.
  void exchange(int direction, const wire::Packet& packet);

 private:
  struct Exchange {
    int thread;
    std::int64_t request;
    std::int64_t begin_us;
    wire::Packet command;
  };

  std::int64_t now_us() const;
  void tell_request(Asked& asked);
  void answer(Asked& asked);
  void tell_exchange(int thread, const wire::Packet* reply);
  void look_for_changes();
  void tell_stored();
  bool write();
  bool write_lines();
  void put_start(Lines& line) const;

  RecordingFile file_;
  std::int64_t begin_us_ = 0;
  std::int64_t lost_ = 0;
  Lines lines_;
  std::int64_t written_us_ = 0;

  Contents stored_;
  std::array<Contents, 3> files_;
  std::int64_t looks_ = 0;
  std::int64_t look_took_us_ = INT64_MAX;  // one of them

  std::vector<Asked*> under_way_;
  Asked* served_ = nullptr;      // has its number
  const void* queue_ = nullptr;  // from which it was taken
  int control_thread_ = 0;
  std::int64_t last_number_ = 0;
  std::vector<Exchange> exchanges_;  // under way, one of a thread
};

}  // namespace ipcam::recorder
