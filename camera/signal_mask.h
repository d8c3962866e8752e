// Keeps signals out of a thread for the length of a scope.
#pragma once

#include <csignal>

namespace ipcam::camera {

// Every signal but those that a thread raises itself by a fault or by giving up: for the library's
// own threads, where a handler of the host program would shorten a pulse or a pause.
sigset_t all_but_fault_signals();

// Blocks signals in the calling thread and gives the thread its mask back at the end of the scope;
// threads created inside the scope inherit the block.
class SignalBlock {
 public:
  explicit SignalBlock(const sigset_t& signals);
  ~SignalBlock();
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;

 private:
  sigset_t previous_ = {};
  bool blocked_;
};

}  // namespace ipcam::camera
