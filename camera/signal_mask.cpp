// Keeps the doorbell signal out of a thread for the length of a scope.
#include "camera/signal_mask.h"

namespace ipcam::camera {

DoorbellBlock::DoorbellBlock() {
  sigset_t doorbell;
  sigemptyset(&doorbell);
  sigaddset(&doorbell, SIGUSR1);
  blocked_ = sigprocmask(SIG_BLOCK, &doorbell, &previous_) == 0;
}

DoorbellBlock::~DoorbellBlock() {
  if (blocked_) sigprocmask(SIG_SETMASK, &previous_, nullptr);
}

}  // namespace ipcam::camera
