// Run state of a worker: which run may go on, and when none is left.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>

#include "dsp/locking.h"
#include "ipcam/thread.h"

namespace ipcam::camera {

// ipcam::Thread offers no join and does not know when its thread takes the first step, so a worker keeps for itself:
// - Runs take turns: a second start_thread() waits until the first has left.
// - A stop counts for every run that had been started by then, also when its thread has not yet arrived.
// - The worker is idle only when no run is in progress, waiting for its turn, or on its way.
//
// stop() never blocks and may be called from any thread; so may the others. The mutex is innermost: nothing else is
// taken while it is held.
class WorkerRun {
 public:
  WorkerRun() = default;
  WorkerRun(const WorkerRun&) = delete;
  WorkerRun& operator=(const WorkerRun&) = delete;

  // One run, from the first line of start_thread() to its last. Its end is the run's last touch of the worker: as
  // soon as wait_until_idle() sees it, the worker may be destroyed.
  class Turn {
   public:
    explicit Turn(WorkerRun& run) : run_(run) { run_.begin(); }
    ~Turn() { run_.end(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

   private:
    WorkerRun& run_;
  };

  // Starts a run of `worker` on a thread of its own. Returns 0, or -1 when the worker is not idle or no thread could
  // be created; then no run follows.
  int start(ipcam::Thread& worker);

  // Stops the runs started so far; a later one is not concerned.
  void stop() { stops_.fetch_add(1); }

  // True when the run in progress has been stopped.
  bool stopped();

  // Waits without limit until the worker is idle; the end of a run wakes it. Call stop() first.
  void wait_until_idle();

 private:
  void begin();
  void end();

  std::atomic<std::uint32_t> stops_{0};
  LibraryMutex mutex_;
  std::condition_variable_any run_ended_;
  bool on_its_way_ IPCAM_GUARDED_BY(mutex_) = false;  // started, its thread has not arrived
  bool in_progress_ IPCAM_GUARDED_BY(mutex_) = false;
  int arrived_ IPCAM_GUARDED_BY(mutex_) = 0;                   // in progress or waiting for their turn
  std::uint32_t stops_at_start_ IPCAM_GUARDED_BY(mutex_) = 0;  // of the run on its way
  std::uint32_t stops_of_run_ IPCAM_GUARDED_BY(mutex_) = 0;    // of the run in progress, when it was started
};

}  // namespace ipcam::camera
