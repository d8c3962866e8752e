// Keeps a thread from being cancelled for the length of a scope.
#pragma once

#include <pthread.h>

#include <exception>

namespace ipcam::camera {

// A thread that was cancelled while it holds a lock, a reply slot or the record would leave them
// as they are, for everyone and for ever. A cancellation that arrives inside the scope takes
// effect at its end: declare the block before everything that must be given back first. Blocks
// may be nested; only the outermost one lets a cancellation through. Never in a destructor or
// another function that must not unwind.
class CancellationBlock {
 public:
  CancellationBlock() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous_); }
  // Unwinds when the thread has been cancelled meanwhile, but never on top of
  // an exception that is on its way out.
  ~CancellationBlock() noexcept(false) {
    if (previous_ == PTHREAD_CANCEL_DISABLE) return;
    pthread_setcancelstate(previous_, nullptr);
    if (!leaves_pending_ && std::uncaught_exceptions() == 0) pthread_testcancel();
  }
  CancellationBlock(const CancellationBlock&) = delete;
  CancellationBlock& operator=(const CancellationBlock&) = delete;

  // For a scope that returns with something taken: a cancellation waits for the thread's next
  // cancellation point, so that the caller can give it back.
  void leave_pending() { leaves_pending_ = true; }

 private:
  int previous_ = PTHREAD_CANCEL_ENABLE;
  bool leaves_pending_ = false;
};

}  // namespace ipcam::camera
