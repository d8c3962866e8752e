// A worker of the control thread: one run at a time, started, stopped and waited for.
#include "workers/worker.h"

namespace ipcam::camera {

int Worker::start() {
  {
    LockGuard lock(run_mutex_);
    if (on_its_way_ || arrived_ > 0) return -1;
    // Registered before the thread exists: from here on a stop reaches the run, and the worker is not idle.
    on_its_way_ = true;
    stops_at_start_ = stops_.load();
  }
  int failed = -1;
  try {
    failed = execute_process();
  } catch (...) {
    // Out of memory: no thread either.
  }
  if (failed == 0) return 0;

  LockGuard lock(run_mutex_);
  on_its_way_ = false;
  run_ended_.notify_all();
  return -1;
}

int Worker::stop_thread() {
  // The flag alone would miss a run whose thread has not yet set it.
  stops_.fetch_add(1);
  if (active_.load() != 0) setInactive();
  return 0;
}

void Worker::wait_until_idle() {
  LockGuard lock(run_mutex_);
  while (on_its_way_ || arrived_ > 0) run_ended_.wait(run_mutex_);
}

void Worker::setActive() {
  LockGuard lock(active_mutex_);
  active_.store(1);
}

void Worker::setInactive() {
  LockGuard lock(active_mutex_);
  active_.store(0);
}

bool Worker::is_stopped() {
  LockGuard lock(run_mutex_);
  return in_progress_ && stops_.load() != stops_of_run_;
}

void Worker::begin() {
  LockGuard lock(run_mutex_);
  const std::uint32_t stops = on_its_way_ ? stops_at_start_ : stops_.load();
  on_its_way_ = false;
  ++arrived_;
  while (in_progress_) run_ended_.wait(run_mutex_);
  in_progress_ = true;
  stops_of_run_ = stops;
}

void Worker::end() {
  // Notified under the lock: a waiter that destroys the worker cannot return before this thread has let go of it.
  LockGuard lock(run_mutex_);
  in_progress_ = false;
  --arrived_;
  run_ended_.notify_all();
}

}  // namespace ipcam::camera
