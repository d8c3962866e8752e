// Bookkeeping of a worker's runs: which were started, which were told to stop, and which are over.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include "ipcam/thread.h"

namespace ipcam {

// Shared by a Thread object and its runs' threads, because a thread reports the end of its run when the object may
// be gone already.
//
// Runs count from 1, in the order in which they enter idle_until_stopped(); threads may get there in another order
// than they were started in, which makes no difference, since all runs of one worker do the same.
//
// All operations: any thread.
class ThreadRuns : public std::enable_shared_from_this<ThreadRuns> {
 public:
  static ThreadRuns& of(const Thread& thread) { return *thread.runs_; }

  // Runs thread.start_thread() on a detached thread. Returns 0, or -1 when there is none to be had.
  int start(Thread& thread);

  // The run of a worker that has nothing to do: sleeps until it is stopped. A run that was stopped before its first
  // step, or that meets one which goes on, returns at once; one that meets a stopped one waits for its end first.
  void idle_until_stopped();

  // Stops every run that was started before, those included whose thread has not taken its first step; a run that is
  // started afterwards is not affected. Does not wait.
  void stop();

  // Waits until every run that was started is over.
  void wait_until_over();

 private:
  struct Launch;
  static void* run(void* launch);

  std::mutex mutex_;
  std::condition_variable changed_;
  // All protected by mutex_.
  std::uint64_t started_ = 0;  // threads created
  std::uint64_t over_ = 0;     // threads that have returned from start_thread()
  std::uint64_t entered_ = 0;  // runs that have their number
  std::uint64_t stopped_ = 0;  // runs up to this number are to end
  std::uint64_t current_ = 0;  // the run that sleeps, 0 for none
};

}  // namespace ipcam
