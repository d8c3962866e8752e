// Keeps the doorbell signal out of a thread for the length of a scope.
#pragma once

#include <csignal>

namespace ipcam::camera {

// Blocks signal 10 in the calling thread and gives the thread its mask back at the end of the scope. While a
// thread is inside the library, the doorbell is for the thread that waits for a reply; threads created inside the
// scope inherit the block.
class DoorbellBlock {
 public:
  DoorbellBlock();
  ~DoorbellBlock();
  DoorbellBlock(const DoorbellBlock&) = delete;
  DoorbellBlock& operator=(const DoorbellBlock&) = delete;

 private:
  sigset_t previous_ = {};
  bool blocked_;
};

}  // namespace ipcam::camera
