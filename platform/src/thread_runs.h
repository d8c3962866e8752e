// Bookkeeping of a worker's runs: which were started, which were told to stop, and which are over.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include "ipcam/thread.h"

namespace ipcam {

// Shared by a Thread object and its runs' threads, because a thread reports the end of its run
// when the object may be gone already.
//
// A stop counts for the runs that were started before it. So each run knows how many stops there
// had been by then, and goes on for as long as there are no more.
//
// All operations: any thread.
class ThreadRuns : public std::enable_shared_from_this<ThreadRuns> {
 public:
  static ThreadRuns& of(const Thread& thread) { return *thread.runs_; }

  // Runs thread.start_thread() on a detached thread. Returns 0, or -1 when there is none to be had.
  int start(Thread& thread);

  // The run of a worker that has nothing to do: sleeps until it is stopped. A run that was stopped
  // before its first step, or that meets one which goes on, returns at once; one that meets a
  // stopped one waits for its end first.
  void idle_until_stopped();

  // Stops every run that was started before, those included whose thread has not taken its first
  // step; a run that is started afterwards is not affected. Does not wait.
  void stop();

  // Waits until every run that was started is over.
  void wait_until_over();

 private:
  struct Launch;
  static void* run(void* launch);

  // Of the calling thread, if execute_process() made it.
  static thread_local const Launch* launch_here_;

  std::mutex mutex_;
  std::condition_variable changed_;
  // All protected by mutex_.
  int threads_ = 0;                     // created, and not yet back from start_thread()
  std::uint64_t stops_ = 0;             // so far
  bool is_asleep_ = false;              // a run sleeps
  std::uint64_t stops_of_sleeper_ = 0;  // before that run was started
};

}  // namespace ipcam
