// What a program asks of the library, and what comes of it, as lines of a file.
#pragma once

#include <cstdint>

#include "ipcam/camera/camera_request.h"
#include "wire/wire_format.h"

namespace ipcam::recorder {

// All of these: any thread. They wait for nothing but another thread's line, throw nothing, leave
// errno alone, and do nothing while nothing is recorded.

// A request from its caller's point of view. It exists in the caller's frame, from the call to its
// return: what is on the list of requests under way has a record that is still there.
class Asked {
 public:
  explicit Asked(const camera::s_cam_cgi_cmd* setting) : Asked(setting, nullptr) {}
  explicit Asked(const camera::s_ccdlsi_dbg* raw) : Asked(nullptr, raw) {}
  // A request that was queued, and not answered by the control thread, was not served.
  ~Asked();
  Asked(const Asked&) = delete;
  Asked& operator=(const Asked&) = delete;

  const void* record() const {
    return setting_ != nullptr ? static_cast<const void*>(setting_) : raw_;
  }

 private:
  friend class Recorder;
  friend void note_failed_send(const void* message);
  Asked(const camera::s_cam_cgi_cmd* setting, const camera::s_ccdlsi_dbg* raw);

  const camera::s_cam_cgi_cmd* const setting_;  // or else
  const camera::s_ccdlsi_dbg* const raw_;
  int semaphore() const { return setting_ != nullptr ? setting_->reply_slot : raw_->reply_slot; }

  int thread_ = 0;
  std::int64_t queued_us_ = 0;
  std::int64_t number_ = 0;  // of those that the control thread has taken
  bool is_under_way_ = false;
  Asked* next_ = nullptr;
};

// A message is about to be queued. It is this thread's request, or none of the library's.
void note_send(const void* message);
// It could not be queued.
void note_failed_send(const void* message);
// This thread has taken a message from a queue.
void note_receive(const void* message);
// This thread is about to post a reply semaphore.
void note_post(int semaphore);
// This thread begins an exchange (direction 0), or has its reply (1).
void note_packet(int direction, const wire::Packet& packet);

}  // namespace ipcam::recorder
