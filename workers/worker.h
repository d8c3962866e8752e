// A worker of the control thread: one run at a time, started, stopped and waited for.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>

#include "dsp/locking.h"
#include "ipcam/comm/mutex.h"
#include "ipcam/thread.h"

namespace ipcam::camera {

// ipcam::Thread offers no join and does not know when its thread takes the first step, so a worker keeps for itself:
// - Runs take turns: a second start_thread() waits until the first has left.
// - A stop counts for every run that had been started by then, also when its thread has not yet arrived.
// - The worker is idle only when no run is in progress, waiting for its turn, or on its way.
//
// The control thread starts and stops runs; start_thread() and what it calls run on the worker's thread. A run that has
// been stopped writes no further register and no record: it looks at the stop before each.
//
// Before a worker is destroyed, its last run must have ended: stop_thread(), wait_until_idle().
class Worker : public ipcam::Thread {
 public:
  // Stops the runs started so far; a later one is not concerned. Returns 0 at once; the run in progress ends after its
  // current sleep. Any thread.
  int stop_thread() override;

  // Starts a run on a thread of its own. Returns 0, or -1 when the worker is not idle or no thread could be created;
  // then no run follows. Control thread only.
  int start();
  // Waits without limit until the worker is idle; the end of a run wakes it. Call stop_thread() first. Not on the
  // worker's thread.
  void wait_until_idle();

  void setActive();
  void setInactive();

 protected:
  // One run, from the first line of start_thread() to its last. Its end is the run's last touch of the worker: as soon
  // as wait_until_idle() sees it, the worker may be destroyed.
  class Turn {
   public:
    explicit Turn(Worker& worker) : worker_(worker) { worker_.begin(); }
    ~Turn() { worker_.end(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

   private:
    Worker& worker_;
  };

  Worker() : ipcam::Thread(THREAD_PRIORITY_DEFAULT, false) {}

  // True when the run in progress has been stopped.
  bool is_stopped();
  // False once the run has been stopped or is inactive.
  bool may_go_on() { return active_.load() != 0 && !is_stopped(); }

 private:
  using ipcam::Thread::execute_process;  // start() is the one way to start a thread

  void begin();
  void end();

  std::atomic<std::uint8_t> active_{0};  // 1 while a run may go on; written under active_mutex_ only
  ipcam::comm::Mutex active_mutex_;

  std::atomic<std::uint32_t> stops_{0};
  LibraryMutex run_mutex_;  // innermost: nothing else is taken while it is held
  std::condition_variable_any run_ended_;
  bool on_its_way_ IPCAM_GUARDED_BY(run_mutex_) = false;  // started, its thread has not arrived
  bool in_progress_ IPCAM_GUARDED_BY(run_mutex_) = false;
  int arrived_ IPCAM_GUARDED_BY(run_mutex_) = 0;                   // in progress or waiting for their turn
  std::uint32_t stops_at_start_ IPCAM_GUARDED_BY(run_mutex_) = 0;  // of the run on its way
  std::uint32_t stops_of_run_ IPCAM_GUARDED_BY(run_mutex_) = 0;    // of the run in progress, when it was started
};

}  // namespace ipcam::camera
