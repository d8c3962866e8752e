// Waits that return at once and a clock that moves by them: the C library's
// functions, and the FakeClock behind them.
#include <pthread.h>
#include <sched.h>
#include <sys/sem.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <ctime>
#include <map>
#include <mutex>

#include "tests/support/interpose.h"
#include "tests/support/stand_ins.h"

namespace ipcam::test {
namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;
constexpr std::int64_t kNsPerMs = 1'000'000;

struct HeldWait {
  bool held = false;
  int entered = 0;   // threads that have been blocked so far
  int released = 0;  // of them, those that may leave
};

struct Waits {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> journal;
  std::map<std::string, HeldWait> held;
  StepObserver observer;
};

// Never destroyed: threads may still be inside when the program ends.
Waits& all_waits() {
  static auto* const kWaits = new Waits;
  return *kWaits;
}

constinit std::atomic<bool> g_clock_on{false};
constinit std::atomic<sim::Switchboard*> g_camera{nullptr};
constinit std::atomic<std::int64_t> g_advanced_ns{0};
constinit std::atomic<int> g_clocks{0};  // made so far

// Each thread has a time of its own: while one waits for a reply, the sleep
// of another must not use up its limit.
struct ThreadTime {
  int clock = 0;  // the one that it belongs to
  std::int64_t advanced_ns = 0;
};
thread_local constinit ThreadTime t_time;

std::int64_t& advanced_here() {
  if (t_time.clock != g_clocks) t_time = {.clock = g_clocks, .advanced_ns = 0};
  return t_time.advanced_ns;
}
constinit std::atomic<std::int64_t> g_start_ns[2] = {};  // CLOCK_REALTIME, CLOCK_MONOTONIC
constinit std::atomic<std::int64_t> g_posted_real_ns{0};
constinit std::atomic<std::int64_t> g_silent_ns{
    0};  // waited in vain for the reply to the last request posted

// The simulated camera's child comes from a fork of the test program and must see time as it is.
[[maybe_unused]] const int kSwitchedOffInChildren = pthread_atfork(nullptr, nullptr, [] {
  g_clock_on = false;
  g_camera = nullptr;
});

std::int64_t in_ns(const timespec& time) { return time.tv_sec * kNsPerSecond + time.tv_nsec; }

timespec from_ns(std::int64_t ns) {
  timespec time{};
  time.tv_sec = static_cast<decltype(time.tv_sec)>(ns / kNsPerSecond);
  time.tv_nsec = static_cast<decltype(time.tv_nsec)>(ns % kNsPerSecond);
  return time;
}

std::int64_t real_now_ns(clockid_t clock = CLOCK_MONOTONIC) {
  timespec now{};
  REAL(clock_gettime)(clock, &now);
  return in_ns(now);
}

void advance(std::int64_t ns) {
  g_advanced_ns += ns;
  advanced_here() += ns;
}

void wait_in_fake_time(const std::string& text, std::int64_t ns) {
  const Unfailing unfailing;
  Waits& waits = all_waits();
  {
    std::unique_lock lock(waits.mutex);
    waits.journal.push_back(text);
    if (waits.observer) waits.observer(text);
    HeldWait& wait = waits.held[text];
    if (wait.held) {
      const int number = ++wait.entered;
      waits.changed.wait(lock, [&] { return number <= wait.released; });
    }
  }
  advance(ns);
  sched_yield();  // a thread that sleeps in a loop must not keep the others from running
}

void ring_in_fake_time() {
  const Unfailing unfailing;
  std::lock_guard lock(all_waits().mutex);
  if (all_waits().observer) all_waits().observer("");
}

std::string pair_text(const char* name, std::int64_t ns) {
  return std::string(name) + "(" + std::to_string(ns / kNsPerSecond) + "," +
         std::to_string(ns % kNsPerSecond) + ")";
}

// True when the camera's doorbell is not going to ring for the request posted last.
bool camera_is_silent(const sim::Switchboard& camera) {
  const std::uint32_t posted = camera.posted;
  if (camera.running == 0 || (posted != 0 && camera.silent_for == posted)) return true;
  // When the camera is done with the request, the doorbell is here, or on its
  // way through another thread's handler.
  const std::int64_t patience = camera.posted_seen == posted ? 2 * kNsPerSecond : 10 * kNsPerSecond;
  return real_now_ns() - g_posted_real_ns > patience;
}

int wait_for_doorbell(sim::Switchboard& camera, const sigset_t* set, siginfo_t* info,
                      std::int64_t left) {
  for (;;) {
    // Before the look: a doorbell rung in between must be seen.
    const bool silent = camera_is_silent(camera);
    // It may fall silent at any time.
    const std::int64_t look = silent ? 0 : std::min(left, kNsPerMs / 5);
    const timespec look_time = from_ns(look);
    const int signal = REAL(sigtimedwait)(set, info, &look_time);
    if (signal >= 0 || errno != EAGAIN) return signal;
    if (silent) break;
    left -= look;
    if (left == 0) return -1;
  }

  advance(left);
  if ((g_silent_ns += left) >= kNsPerSecond) camera.gave_up_for = camera.posted.load();
  errno = EAGAIN;
  return -1;
}

}  // namespace

int wait_for_semaphore(int id, sembuf* operations, std::size_t count, const timespec* limit) {
  const sim::Switchboard* const camera = g_camera;
  if (!g_clock_on || camera == nullptr || limit == nullptr)
    return REAL(semtimedop)(id, operations, count, limit);

  // One that is dying gives it back, but may take long to die on a busy machine.
  constexpr int kLooksAtStopped = 20;
  std::int64_t left = in_ns(*limit);
  for (int looks = 0; left > 0 && looks < kLooksAtStopped;) {
    if (camera->running == 0) ++looks;
    const std::int64_t look = std::min(left, 100 * kNsPerMs);
    const timespec look_time = from_ns(look);
    const int done = REAL(semtimedop)(id, operations, count, &look_time);
    if (done == 0 || errno != EAGAIN) return done;
    left -= look;
  }
  advance(left);
  errno = EAGAIN;
  return -1;
}

namespace {

// The time record of 32-bit programs that are built for 64-bit time; the upper
// half of the nanoseconds is padding.
struct Time64 {
  std::int64_t sec;
  std::int32_t nsec;
  std::int32_t padding;

  timespec plain() const { return from_ns(sec * kNsPerSecond + nsec); }
};

}  // namespace

FakeClock::FakeClock(sim::Switchboard* camera) {
  g_camera = camera;
  g_advanced_ns = 0;
  ++g_clocks;
  g_posted_real_ns = real_now_ns();
  for (const clockid_t clock : {CLOCK_REALTIME, CLOCK_MONOTONIC})
    g_start_ns[clock] = real_now_ns(clock);
  clear_waits();
  g_clock_on = true;
}

FakeClock::~FakeClock() {
  g_clock_on = false;
  release_all();
  g_camera = nullptr;
}

std::vector<std::string> FakeClock::waits() const {
  std::lock_guard lock(all_waits().mutex);
  return all_waits().journal;
}

void FakeClock::clear_waits() {
  std::lock_guard lock(all_waits().mutex);
  all_waits().journal.clear();
}

void FakeClock::observe_steps(StepObserver observer) {
  std::lock_guard lock(all_waits().mutex);
  all_waits().observer = std::move(observer);
}

std::int64_t FakeClock::advanced_us() const { return g_advanced_ns / 1000; }

void FakeClock::hold(const std::string& wait) {
  std::lock_guard lock(all_waits().mutex);
  all_waits().held[wait].held = true;
}

void FakeClock::release(const std::string& wait) {
  std::lock_guard lock(all_waits().mutex);
  ++all_waits().held[wait].released;
  all_waits().changed.notify_all();
}

void FakeClock::release_all() {
  std::lock_guard lock(all_waits().mutex);
  for (auto& [text, wait] : all_waits().held) {
    wait.held = false;
    wait.released = wait.entered;
  }
  all_waits().changed.notify_all();
}

bool FakeClock::wait_until_held(const std::string& wait) {
  return eventually([&] {
    std::lock_guard lock(all_waits().mutex);
    const HeldWait& held = all_waits().held[wait];
    return held.entered > held.released;
  });
}

}  // namespace ipcam::test

// What follows has libc's names, so it must be global.
using namespace ipcam;
using namespace ipcam::test;

STAND_IN int usleep(useconds_t us) {
  if (!g_clock_on) return REAL(usleep)(us);
  wait_in_fake_time("usleep(" + std::to_string(us) + ")", std::int64_t{us} * 1000);
  return 0;
}

STAND_IN unsigned sleep(unsigned seconds) {
  if (!g_clock_on) return REAL(sleep)(seconds);
  wait_in_fake_time("sleep(" + std::to_string(seconds) + ")", seconds * kNsPerSecond);
  return 0;
}

STAND_IN int nanosleep(const timespec* time, timespec* left) {
  if (!g_clock_on) return REAL(nanosleep)(time, left);
  wait_in_fake_time(pair_text("nanosleep", in_ns(*time)), in_ns(*time));
  return 0;
}

STAND_IN int __nanosleep64(const Time64* time, Time64* /*left*/) {
  const timespec plain = time->plain();
  return nanosleep(&plain, nullptr);
}

STAND_IN int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (!g_clock_on || (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC))
    return REAL(clock_gettime)(clock, time);
  *time = from_ns(g_start_ns[clock] + advanced_here());
  return 0;
}

STAND_IN int __clock_gettime64(clockid_t clock, Time64* time) noexcept {
  timespec now{};
  const int result = clock_gettime(clock, &now);
  *time = {.sec = now.tv_sec, .nsec = static_cast<std::int32_t>(now.tv_nsec), .padding = 0};
  return result;
}

STAND_IN int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left) {
  if (!g_clock_on) return REAL(clock_nanosleep)(clock, flags, time, left);
  // Of a wait until a point of the faked time only what is still missing counts.
  timespec start{};
  if ((flags & TIMER_ABSTIME) != 0) clock_gettime(clock, &start);
  const std::int64_t ns = std::max<std::int64_t>(in_ns(*time) - in_ns(start), 0);
  wait_in_fake_time(pair_text("clock_nanosleep", ns), ns);
  return 0;
}

STAND_IN int __clock_nanosleep_time64(clockid_t clock, int flags, const Time64* time,
                                      Time64* /*left*/) {
  const timespec plain = time->plain();
  return clock_nanosleep(clock, flags, &plain, nullptr);
}

// A limit of the faked time passes ten times as fast as it would, so that
// a wait in vain costs a test little.
STAND_IN int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                    clockid_t clock, const timespec* limit) {
  if (!g_clock_on) return REAL(pthread_cond_clockwait)(condition, mutex, clock, limit);
  timespec now{};
  clock_gettime(clock, &now);
  const std::int64_t left = std::max<std::int64_t>(in_ns(*limit) - in_ns(now), 0);
  const timespec real_limit = from_ns(real_now_ns(clock) + left / 10);
  const int error = REAL(pthread_cond_clockwait)(condition, mutex, clock, &real_limit);
  if (error == ETIMEDOUT) advance(left);
  return error;
}

STAND_IN int __pthread_cond_clockwait64(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                        clockid_t clock, const Time64* limit) {
  const timespec plain = limit->plain();
  return pthread_cond_clockwait(condition, mutex, clock, &plain);
}

STAND_IN int sigtimedwait(const sigset_t* set, siginfo_t* info, const timespec* limit) {
  long result = 0;
  delay_at_random();
  if (fails("sigtimedwait", result)) return static_cast<int>(result);
  sim::Switchboard* const camera = g_camera;
  if (!g_clock_on || camera == nullptr || limit == nullptr || in_ns(*limit) == 0) {
    return REAL(sigtimedwait)(set, info, limit);
  }
  return wait_for_doorbell(*camera, set, info, in_ns(*limit));
}

STAND_IN int __sigtimedwait64(const sigset_t* set, siginfo_t* info, const Time64* limit) {
  const timespec plain = limit != nullptr ? limit->plain() : timespec{};
  return sigtimedwait(set, info, limit != nullptr ? &plain : nullptr);
}

STAND_IN int __semtimedop64(int id, sembuf* operations, std::size_t count,
                            const Time64* limit) noexcept {
  const timespec plain = limit != nullptr ? limit->plain() : timespec{};
  return semtimedop(id, operations, count, limit != nullptr ? &plain : nullptr);
}

STAND_IN int kill(pid_t pid, int signal) noexcept {
  if (signal != sim::kDoorbell) return REAL(kill)(pid, signal);
  delay_at_random();
  if (g_clock_on) ring_in_fake_time();
  long result = 0;
  if (fails("kill", result)) return static_cast<int>(result);
  sim::Switchboard* const camera = g_camera;
  if (camera != nullptr && pid > 0 && static_cast<std::uint32_t>(pid) == camera->comm_pid) {
    g_silent_ns = 0;
    g_posted_real_ns = real_now_ns();
    ++camera->posted;
  }
  return REAL(kill)(pid, signal);
}
