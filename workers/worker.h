// A worker of the control thread: one run at a time, started, stopped and waited for.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>

#include "dsp/cancellation.h"
#include "dsp/locking.h"
#include "ipcam/comm/mutex.h"
#include "ipcam/thread.h"

namespace ipcam::camera {

// ipcam::Thread offers no join, does not say whether a start has led to a run, and does not know
// when that takes its first step. So a worker keeps for itself:
// - Runs take turns: a second start_thread() waits until the first has left.
// - A stop counts for every run that had been started by then, also
//   when its thread has not yet arrived.
// - The worker is idle only when no run is in progress, waiting for its turn, or on its way.
// - A run that has been waited for in vain is given up. If it comes after all, it ends at once.
//
// The control thread starts and stops runs; start_thread() and what it calls run on the
// worker's thread. A worker that has been stopped writes nothing more once its run has ended.
// What the run itself still writes is each worker's own: OnepushWB looks at the stop before
// every write, EVRControl finishes the pass that it is in.
//
// A worker ends by stop_thread(), wait_until_idle(), dispose().
class Worker : public ipcam::Thread {
 public:
  // Stops the runs started so far; a later one is not concerned. Returns 0 at once; the run in
  // progress ends after its current sleep. Control thread only.
  int stop_thread() override;

  // Starts a run on a thread of its own. Returns 0, or -1 when the worker is not idle or the thread
  // library throws; then no run follows. A start may also fail unseen: the next wait_until_idle()
  // finds out, and prints it, as a -1 is printed here. Control thread only.
  int start();
  // Waits until the worker is idle: at most 5 seconds for a run to arrive, without limit for one
  // that has arrived; its steps wake it. Call stop_thread() first. Not on the worker's thread.
  void wait_until_idle();
  // Destroys an idle worker, unless a run that was given up may still come: such a worker is left
  // alive for good. Control thread only.
  static void dispose(std::unique_ptr<Worker> worker);

  // The active flag, without which a run ends. Any thread.
  void setActive();
  void setInactive();

 protected:
  // One run, from the first line of start_thread() to its last; its thread cannot be cancelled
  // meanwhile. Its end is the run's last touch of the worker: as soon as wait_until_idle() sees it,
  // the worker may be destroyed. A run without a turn was given up and must do nothing.
  class Turn {
   public:
    explicit Turn(Worker& worker) : worker_(worker), is_mine_(worker.begin()) {}
    ~Turn() noexcept(false) {
      if (is_mine_) worker_.end();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    bool is_mine() const { return is_mine_; }

   private:
    CancellationBlock cancellation_block_;
    Worker& worker_;
    const bool is_mine_;
  };

  // `name`: of the class, a literal, for its messages.
  explicit Worker(const char* name) : ipcam::Thread(THREAD_PRIORITY_DEFAULT, false), name_(name) {}

  // True when the run in progress has been stopped.
  bool is_stopped();
  // False once the run has been stopped or is inactive.
  bool may_go_on() { return active_.load() != 0 && !is_stopped(); }

 private:
  using ipcam::Thread::execute_process;  // start() is the one way to start a thread

  bool launch();
  bool begin();
  void end();
  void give_up() IPCAM_REQUIRES(run_mutex_);
  bool has_lost_run();
  void report_failed_start() const;

  const char* const name_;
  std::atomic<std::uint8_t> active_{
      0};  // 1 while a run may go on; written under active_mutex_ only
  ipcam::comm::Mutex active_mutex_;

  std::atomic<std::uint32_t> stops_{0};
  LibraryMutex run_mutex_;  // innermost: nothing else is taken while it is held
  std::condition_variable_any changed_;
  bool on_its_way_ IPCAM_GUARDED_BY(run_mutex_) = false;  // started, its thread has not arrived
  bool in_progress_ IPCAM_GUARDED_BY(run_mutex_) = false;
  int arrived_ IPCAM_GUARDED_BY(run_mutex_) = 0;  // in progress or waiting for their turn
  int lost_ IPCAM_GUARDED_BY(run_mutex_) = 0;     // given up, their threads may still come
  std::uint32_t stops_at_start_ IPCAM_GUARDED_BY(run_mutex_) = 0;  // of the run on its way
  std::uint32_t stops_of_run_ IPCAM_GUARDED_BY(run_mutex_) = 0;    // of the one in progress

  Worker* next_kept_ = nullptr;  // of those that are left alive; control thread only
};

}  // namespace ipcam::camera
