// Run state of a worker: which run may go on, and when none is left.
#include "workers/run_state.h"

namespace ipcam::camera {

int WorkerRun::start(ipcam::Thread& worker) {
  {
    LockGuard lock(mutex_);
    if (on_its_way_ || arrived_ > 0) return -1;
    // Registered before the thread exists: from here on a stop reaches the run, and the worker is not idle.
    on_its_way_ = true;
    stops_at_start_ = stops_.load();
  }
  int failed = -1;
  try {
    failed = worker.execute_process();
  } catch (...) {
    // Out of memory: no thread either.
  }
  if (failed == 0) return 0;

  LockGuard lock(mutex_);
  on_its_way_ = false;
  run_ended_.notify_all();
  return -1;
}

bool WorkerRun::stopped() {
  LockGuard lock(mutex_);
  return in_progress_ && stops_.load() != stops_of_run_;
}

void WorkerRun::wait_until_idle() {
  LockGuard lock(mutex_);
  while (on_its_way_ || arrived_ > 0) run_ended_.wait(mutex_);
}

void WorkerRun::begin() {
  LockGuard lock(mutex_);
  const std::uint32_t stops = on_its_way_ ? stops_at_start_ : stops_.load();
  on_its_way_ = false;
  ++arrived_;
  while (in_progress_) run_ended_.wait(mutex_);
  in_progress_ = true;
  stops_of_run_ = stops;
}

void WorkerRun::end() {
  // Notified under the lock: a waiter that destroys the worker cannot return before this thread has let go of it.
  LockGuard lock(mutex_);
  in_progress_ = false;
  --arrived_;
  run_ended_.notify_all();
}

}  // namespace ipcam::camera
