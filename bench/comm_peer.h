// A comm application that costs as little as possible, for measuring what the library adds.
#pragma once

#include <sys/ipc.h>
#include <sys/types.h>

#include "ipcam/camera/dsp_command.h"

namespace ipcam::bench {

// Key of the library's link; makes its file.
key_t make_link_key();

// The shared objects of a key and a child process that answers every request with success
// for each entry. A request without entries is answered without touching the data: what is
// left is the cost of the primitives. With IPC_PRIVATE nobody else reaches the objects, so
// that a camera's own link can be in use.
class CommPeer {
 public:
  explicit CommPeer(key_t key);  // throws std::system_error
  ~CommPeer();
  CommPeer(const CommPeer&) = delete;
  CommPeer& operator=(const CommPeer&) = delete;

  // One exchange on the bare primitives: lock, block and drain signal 10, post, doorbell,
  // unlock, wait, lock, check, clear, unlock. Signal 10 must be blocked in all other
  // threads. Returns whether it was answered.
  bool bare_exchange();

 private:
  int sem_ = -1;
  int shm_ = -1;
  camera::shm_info* record_ = nullptr;
  pid_t child_ = -1;
};

}  // namespace ipcam::bench
