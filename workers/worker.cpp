// A worker of the control thread: one run at a time, started, stopped and waited for.
#include "workers/worker.h"

#include <chrono>
#include <cstdio>

namespace ipcam::camera {

namespace {

// A thread that has not taken its first step by then is not expected any more.
constexpr std::chrono::seconds kArrivalLimit{5};

// Workers that are left alive. A list of their own, so that nothing can fail for want of memory.
constinit Worker* g_kept = nullptr;

}  // namespace

int Worker::start() {
  if (launch()) return 0;
  report_failed_start();
  return -1;
}

bool Worker::launch() {
  {
    LockGuard lock(run_mutex_);
    if (on_its_way_ || arrived_ > 0) return false;
    // Registered before the thread exists: from here on a stop reaches
    // the run, and the worker is not idle.
    on_its_way_ = true;
    stops_at_start_ = stops_.load();
  }
  try {
    execute_process();  // its result says nothing
    return true;
  } catch (...) {
    LockGuard lock(run_mutex_);
    if (!on_its_way_) return true;  // its thread has come all the same
    give_up();
    return false;
  }
}

int Worker::stop_thread() {
  // The flag alone would miss a run whose thread has not yet set it.
  stops_.fetch_add(1);
  if (active_.load() != 0) setInactive();
  return 0;
}

void Worker::wait_until_idle() {
  bool is_lost = false;
  {
    LockGuard lock(run_mutex_);
    const auto limit = std::chrono::steady_clock::now() + kArrivalLimit;
    while (on_its_way_ && changed_.wait_until(run_mutex_, limit) == std::cv_status::no_timeout) {
    }
    is_lost = on_its_way_;
    if (is_lost) give_up();
    while (arrived_ > 0) changed_.wait(run_mutex_);
  }
  if (is_lost) report_failed_start();
}

void Worker::dispose(std::unique_ptr<Worker> worker) {
  if (worker == nullptr || !worker->has_lost_run()) return;
  worker->next_kept_ = g_kept;
  g_kept = worker.release();
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

bool Worker::begin() {
  LockGuard lock(run_mutex_);
  // All runs of a worker do the same, so whoever comes takes the start that is outstanding. A
  // thread for which there is none left belongs to a run that was given up.
  if (!on_its_way_ && lost_ > 0) {
    --lost_;
    return false;
  }
  const std::uint32_t stops = on_its_way_ ? stops_at_start_ : stops_.load();
  on_its_way_ = false;
  ++arrived_;
  changed_.notify_all();
  while (in_progress_) changed_.wait(run_mutex_);
  in_progress_ = true;
  stops_of_run_ = stops;
  return true;
}

void Worker::end() {
  // Notified under the lock: a waiter that destroys the worker cannot return
  // before this thread has let go of it.
  LockGuard lock(run_mutex_);
  in_progress_ = false;
  --arrived_;
  changed_.notify_all();
}

void Worker::give_up() {
  on_its_way_ = false;
  ++lost_;
}

bool Worker::has_lost_run() {
  LockGuard lock(run_mutex_);
  return lost_ > 0;
}

void Worker::report_failed_start() const {
  std::fprintf(stderr, "%d@%s#%s: -%s- : couldn't start a run.\n", 45, name_, "start", name_);
}

}  // namespace ipcam::camera
