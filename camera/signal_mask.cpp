// Keeps signals out of a thread for the length of a scope.
#include "camera/signal_mask.h"

#include <initializer_list>

namespace ipcam::camera {

sigset_t all_but_fault_signals() {
  sigset_t signals;
  sigfillset(&signals);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
    sigdelset(&signals, fault);
  return signals;
}

SignalBlock::SignalBlock(const sigset_t& signals) {
  blocked_ = sigprocmask(SIG_BLOCK, &signals, &previous_) == 0;
}

SignalBlock::~SignalBlock() {
  if (blocked_) sigprocmask(SIG_SETMASK, &previous_, nullptr);
}

}  // namespace ipcam::camera
