// Base class of the camera's worker threads.
#pragma once

#include <memory>

namespace ipcam {

enum e_thread_priority : int { THREAD_PRIORITY_DEFAULT = 0 };

class ThreadRuns;

// A worker: execute_process() runs start_thread() on a new thread of its own, stop_thread() asks
// that run to end. There is no join: a derived class knows for itself when its run is over, and
// must have ended its run before it is destroyed. That holds from the return of execute_process()
// on: until its thread has taken its first step, a run needs the object as much as later.
class Thread {
 public:
  // A workstation has no use for the priority and the real-time flag.
  Thread(e_thread_priority priority, bool realtime);
  // Does not end a run: the derived class has done that.
  virtual ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  // One run, from its first step to its last, on the calling thread.
  // The result is the derived class's own.
  virtual int start_thread() = 0;
  // Asks the run to end; the derived class says when it does. The
  // result is the derived class's own.
  virtual int stop_thread() = 0;

  // Starts a thread that runs start_thread() and ends with it; returns at once. The thread has the
  // caller's signal mask, and does not touch the object any more once start_thread() has returned.
  // Any thread. Returns 0, or -1 when no thread could be created (start_thread() is then not run).
  int execute_process();

 private:
  friend class ThreadRuns;
  std::shared_ptr<ThreadRuns> runs_;
};

}  // namespace ipcam
