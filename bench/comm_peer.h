// A comm application that costs as little as possible, for measuring what the library adds.
#pragma once

#include <sys/types.h>

#include "ipcam/camera/dsp_command.h"

namespace ipcam::bench {

// The shared objects and a child process that answers every request with success for each entry. A request without
// entries is answered without touching the data: what is left is the cost of the primitives.
class CommPeer {
 public:
  CommPeer();  // exits the process with a message when something cannot be had
  ~CommPeer();
  CommPeer(const CommPeer&) = delete;
  CommPeer& operator=(const CommPeer&) = delete;

  // One exchange on the bare primitives: lock, block and drain signal 10, post, doorbell, unlock, wait, lock, check,
  // clear, unlock. Signal 10 must be blocked in all other threads. Returns whether it was answered.
  bool bare_exchange();

 private:
  int sem_ = -1;
  int shm_ = -1;
  camera::shm_info* record_ = nullptr;
  pid_t child_ = -1;
};

}  // namespace ipcam::bench
