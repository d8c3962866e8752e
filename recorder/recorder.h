// What a program asks of the library, and what comes of it, as lines of a file.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <vector>

#include "ipcam/camera/camera_request.h"
#include "recorder/line.h"
#include "recorder/recording_file.h"
#include "recorder/stored_state.h"
#include "wire/packet_entries.h"

namespace ipcam::recorder {

// A request that has been queued. It lies in its caller's frame and is known to the recorder up to
// its return: as long as that, the caller's record is there.
struct Asked {
  const camera::s_cam_cgi_cmd* setting;  // or else
  const camera::s_ccdlsi_dbg* raw;
  int thread = 0;
  std::int64_t queued_us = 0;
  std::int64_t number = 0;  // once the control thread has taken it

  const void* record() const {
    return setting != nullptr ? static_cast<const void*>(setting) : raw;
  }
  int semaphore() const { return setting != nullptr ? setting->reply_slot : raw->reply_slot; }
};

// One thread at a time.
class Recorder {
 public:
  Recorder(const std::string& path, int limit);
  // Why there is no file; 0 when there is one.
  int error() const { return error_; }
  // The last lines.
  void end();

  // A line has come to nothing for want of memory.
  void lose() { ++lost_; }

  void queue(Asked& asked);
  // It has not been queued after all.
  void forget(const Asked& asked);
  // The calling thread, which is the control thread, has taken a message with this record.
  void take(const void* record);
  // It posts a reply semaphore.
  void post(int semaphore);
  // The caller goes on. A request without an answer has not been served.
  void leave(Asked& asked);

  void begin_exchange(const wire::Packet& command);
  void end_exchange(const wire::Packet& reply);

 private:
  struct Exchange {
    std::int64_t request;
    std::int64_t begin_us;
    wire::Packet command;
  };

  std::int64_t now_us() const;
  void tell_request(Asked& asked);
  void answer(Asked& asked);
  void tell_exchange(int thread, const wire::Packet* reply);
  void tell_changes();
  bool write();
  bool write_start();
  bool write_lost();

  RecordingFile file_;
  const std::int64_t begin_us_;
  const int error_;
  bool has_start_ = false;  // the file that is open now
  std::int64_t lost_ = 0;
  Line line_;
  Line line_in_front_;  // of the one that is being put together

  config::ConfigFile* const config_ = make_config_file();
  Contents stored_ = read_stored(config_);
  std::array<Contents, 3> files_ = {read_file(kAdjustmentFiles[0]), read_file(kAdjustmentFiles[1]),
                                    read_file(kAdjustmentFiles[2])};

  std::int64_t looked_us_ = 0;  // at them
  std::int64_t look_took_us_ = 0;

  std::vector<Asked*> under_way_;
  Asked* served_ = nullptr;
  int control_thread_ = 0;
  std::int64_t last_number_ = 0;
  std::map<int, Exchange> exchanges_;  // under way, by their threads
};

}  // namespace ipcam::recorder
