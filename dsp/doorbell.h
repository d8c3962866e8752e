// The doorbell: signal 10, by which a requester and the comm application call each other.
#pragma once

#include <atomic>
#include <csignal>
#include <cstdint>

#include "dsp/locking.h"

namespace ipcam::camera {

// What the process knows of its doorbell, beside g_signal_flg:
// g_doorbell is the only one. Any thread.
//
// The signal is sent to the process. A thread of the host program that does not block it may take
// it instead of the one that waits; then g_signal_flg alone tells, and the wait looks at it.
class Doorbell {
 public:
  constexpr Doorbell() = default;

  // The signal as a set. While a thread is inside the library, it is for the thread that waits for
  // a reply.
  static sigset_t signals();

  // Installs sigusr2_handle() and clears g_signal_flg, unless an exchange
  // needs it. Returns false on failure.
  bool install() IPCAM_EXCLUDES(expected_lock_);

  // Rings at a process. Returns false when that cannot be done.
  bool ring(std::int32_t pid) const;

  // Before a request is posted in the record of this segment: takes the doorbells of earlier
  // exchanges, so that none is taken for the reply, and leaves the signal blocked in the
  // calling thread. From here until end_exchange(), when the reply has been fetched or nobody
  // will, no new object clears g_signal_flg.
  void begin_exchange(std::int32_t segment) IPCAM_EXCLUDES(expected_lock_);
  void end_exchange(std::int32_t segment);

  // Waits for the signal, at most this long, and leaves it blocked in the calling thread.
  // Returns the signal; -1 at the limit, on failure, or when the signal has reached the
  // handler instead and none is pending.
  int wait(std::int64_t limit_ns);
  int wait_without_limit();
  // Waits for the reply that a request was posted for. Returns false when it did not come in time.
  bool wait_for_reply();
  // Waits a moment for the doorbell of a reply that came too late. Only while the semaphore is
  // held: later, the doorbell that comes may be another object's.
  void wait_for_late_one() const;

 private:
  // Segment of the exchange that is under way, -1 for none. Of two, the newer one: the
  // comm application of the other has gone.
  std::atomic<std::int32_t> expected_{-1};
  // No exchange begins between the look at it and the clearing of g_signal_flg.
  LibraryMutex expected_lock_;
  // Whether the last doorbell that was waited for was taken by a thread that did not wait for it.
  std::atomic<bool> strays_{false};
};

extern Doorbell g_doorbell;

}  // namespace ipcam::camera
