// The doorbell: signal 10, by which a requester and the comm application call each other.
#include "dsp/doorbell.h"

#include <algorithm>
#include <cerrno>
#include <csignal>

#include "dsp/deadline.h"
#include "ipcam/camera/dsp_command.h"

namespace ipcam::camera {

extern "C" {
constinit std::atomic<unsigned char> g_signal_flg{0};

void sigusr2_handle(int /*signal*/) { g_signal_flg.store(1); }
}

constinit Doorbell g_doorbell;

namespace {

constexpr int kSignal = 10;
static_assert(SIGUSR1 == kSignal);

constexpr std::int64_t kReplyLimitNs = kNsPerSecond;

// Between two looks at g_signal_flg: never so long that a doorbell taken by another thread costs
// the caller a noticeable delay. Short only while that happens: a timer that is due before the
// kernel's next tick must be set up and taken back in hardware, which costs more than all else
// that the library adds to an exchange.
constexpr std::int64_t kLongestLookNs = 5'000'000;
constexpr std::int64_t kFirstLookWhileStrayingNs = 100'000;

// After a reply that came too late its doorbell is still due: the comm application rings
// when it has given the semaphore back. Waiting this long for it costs a request that has
// failed already, and saves the next one.
constexpr timespec kLateLimit = to_timespec(10'000'000);

sigset_t block_signal() {
  const sigset_t set = Doorbell::signals();
  sigprocmask(SIG_BLOCK, &set, nullptr);
  return set;
}

}  // namespace

sigset_t Doorbell::signals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, kSignal);
  return set;
}

bool Doorbell::install() {
  {
    const LockGuard lock(expected_lock_);
    if (expected_.load() == -1) g_signal_flg.store(0);
  }
  return std::signal(kSignal, sigusr2_handle) != SIG_ERR;
}

bool Doorbell::ring(std::int32_t pid) const {
  // 0 and below name process groups, which must never be signalled.
  return pid > 0 && kill(pid, kSignal) == 0;
}

void Doorbell::begin_exchange(std::int32_t segment) {
  {
    const LockGuard lock(expected_lock_);
    expected_.store(segment);
  }
  const sigset_t set = block_signal();
  const timespec at_once{};
  // At most one is pending for the thread and one for the process.
  for (int pending = 0; pending < 2; ++pending) {
    if (sigtimedwait(&set, nullptr, &at_once) < 0) break;
  }
  g_signal_flg.store(0);
}

void Doorbell::end_exchange(std::int32_t segment) {
  expected_.compare_exchange_strong(segment, -1);
}

int Doorbell::wait(std::int64_t limit_ns) {
  const sigset_t set = block_signal();
  const Deadline deadline(limit_ns);
  std::int64_t look_ns = strays_.load() ? kFirstLookWhileStrayingNs : kLongestLookNs;
  for (std::int64_t left_ns = limit_ns;; left_ns = deadline.remaining_ns()) {
    // Also with the flag set one look, without waiting: a signal that is
    // pending would be taken for the next reply.
    const bool has_strayed = g_signal_flg.load() != 0;
    const timespec look = to_timespec(has_strayed ? 0 : std::min(look_ns, left_ns));
    const int signal = sigtimedwait(&set, nullptr, &look);
    if (signal >= 0 || has_strayed) {
      strays_.store(signal < 0);
      return signal;
    }
    // Other signals that interrupt the wait do not shorten it.
    if (left_ns == 0 || (errno != EAGAIN && errno != EINTR)) return -1;
    look_ns = std::min(2 * look_ns, kLongestLookNs);
  }
}

int Doorbell::wait_without_limit() {
  const sigset_t set = block_signal();
  return sigwaitinfo(&set, nullptr);
}

bool Doorbell::wait_for_reply() {
  return wait(kReplyLimitNs) >= 0 || g_signal_flg.exchange(0) != 0;
}

void Doorbell::wait_for_late_one() const {
  const sigset_t set = signals();
  sigtimedwait(&set, nullptr, &kLateLimit);
}

}  // namespace ipcam::camera
