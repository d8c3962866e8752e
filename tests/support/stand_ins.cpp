// Functions of the C library's own names, which the dynamic linker prefers over libc's in the library under test too.

// The names below are defined here, so libc's inline versions of them must not be.
#undef _FORTIFY_SOURCE
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include "tests/support/stand_ins.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <mutex>
#include <new>

#define STAND_IN extern "C" __attribute__((visibility("default")))

// The function that the stand-in hides: a sanitizer's version of it if there is one, else libc's.
#define REAL(name)                                                                                     \
  ([] {                                                                                                \
    static auto* const kReal = reinterpret_cast<decltype(&::name)>(ipcam::test::real_function(#name)); \
    return kReal;                                                                                      \
  }())

namespace ipcam::test {
namespace {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;
constexpr std::int64_t kNsPerMs = 1'000'000;

void* real_function(const char* name) {
  void* const intercepted = dlsym(RTLD_DEFAULT, (std::string("__interceptor_") + name).c_str());
  return intercepted != nullptr ? intercepted : dlsym(RTLD_NEXT, name);
}

struct Failure {
  std::string name;
  int error;
  int nth;
  long result;
};

struct HeldWait {
  bool held = false;
  int blocked = 0;
  int released = 0;
};

// What the stand-ins share. Never destroyed: threads may still be inside when the program ends.
struct State {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> waits;
  std::map<std::string, HeldWait> held;
  // A mutex of their own: memory allocated under the other one may be told to fail.
  std::mutex failures_mutex;
  std::vector<Failure> failures;
};

State& state() {
  static auto* const kState = new State;
  return *kState;
}

// Looked at first by every stand-in, so that one without a task costs next to nothing and takes no lock.
constinit std::atomic<bool> g_clock_on{false};
constinit std::atomic<std::size_t> g_failures{0};
constinit std::atomic<const sim::Devices*> g_devices{nullptr};
constinit std::atomic<sim::Switchboard*> g_camera{nullptr};
constinit std::atomic<std::int64_t> g_advanced_ns{0};
constinit std::atomic<std::int64_t> g_start_ns[2] = {};  // CLOCK_REALTIME, CLOCK_MONOTONIC
constinit std::atomic<std::int64_t> g_posted_real_ns{0};
constinit std::atomic<std::int64_t> g_silent_ns{0};  // waited in vain for the reply of the last request posted
thread_local constinit bool t_inside_stand_in = false;

std::int64_t real_now_ns(clockid_t clock = CLOCK_MONOTONIC) {
  timespec now{};
  REAL(clock_gettime)(clock, &now);
  return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

// The simulated camera's child comes from a fork of the test program and must see the world as it is.
const int kSwitchedOffInChildren = pthread_atfork(nullptr, nullptr, [] {
  g_clock_on = false;
  g_failures = 0;
  g_devices = nullptr;
  g_camera = nullptr;
});

bool fails(const char* name, long& result) {
  if (g_failures == 0 || t_inside_stand_in) return false;
  std::lock_guard lock(state().failures_mutex);
  auto& failures = state().failures;
  for (auto failure = failures.begin(); failure != failures.end(); ++failure) {
    if (failure->name != name || failure->nth-- != 0) continue;
    errno = failure->error;
    result = failure->result;
    failures.erase(failure);
    g_failures = failures.size();
    return true;
  }
  return false;
}

// Returns false when no clock is faked; the wait is then still to be made.
bool faked_wait(const std::string& text, std::int64_t ns) {
  if (!g_clock_on) return false;
  {
    std::unique_lock lock(state().mutex);
    state().waits.push_back(text);
    HeldWait& wait = state().held[text];
    if (wait.held) {
      ++wait.blocked;
      state().changed.wait(lock, [&] { return !wait.held || wait.released > 0 || !g_clock_on; });
      --wait.blocked;
      if (wait.released > 0) --wait.released;
    }
  }
  g_advanced_ns += ns;
  sched_yield();  // a thread that sleeps in a loop must not keep the others from running
  return true;
}

bool faked_wait(const char* name, std::int64_t seconds, long ns) {
  if (!g_clock_on) return false;
  return faked_wait(std::string(name) + "(" + std::to_string(seconds) + "," + std::to_string(ns) + ")",
                    seconds * kNsPerSecond + ns);
}

// True when the camera's doorbell is not going to ring for the request posted last.
bool camera_is_silent(const sim::Switchboard& camera) {
  const std::uint32_t posted = camera.posted;
  if (camera.running == 0 || (posted != 0 && camera.silent_for == posted)) return true;
  // The camera is done with the request: the doorbell is here, or on its way through another thread's handler.
  const std::int64_t patience = camera.posted_seen == posted ? 100 * kNsPerMs : 10 * kNsPerSecond;
  return real_now_ns() - g_posted_real_ns > patience;
}

int wait_for_signal(const sigset_t* set, siginfo_t* info, const timespec& limit) {
  std::int64_t left = limit.tv_sec * kNsPerSecond + limit.tv_nsec;
  sim::Switchboard* const camera = g_camera;
  if (!g_clock_on || camera == nullptr || left == 0) return REAL(sigtimedwait)(set, info, &limit);

  for (;;) {
    const bool silent = camera_is_silent(*camera);  // before the look: a doorbell rung meanwhile must be seen
    const std::int64_t look = silent ? 0 : std::min(left, 5 * kNsPerMs);
    const timespec look_time{.tv_sec = 0, .tv_nsec = static_cast<long>(look)};
    const int signal = REAL(sigtimedwait)(set, info, &look_time);
    if (signal >= 0 || errno != EAGAIN) return signal;
    if (silent) break;
    left -= look;
    if (left == 0) return -1;
  }

  g_advanced_ns += left;
  if ((g_silent_ns += left) >= kNsPerSecond) camera->gave_up_for = camera->posted.load();
  errno = EAGAIN;
  return -1;
}

int open_file(const char* path, int flags, mode_t mode) {
  long result = 0;
  if (fails("open", result)) return static_cast<int>(result);
  const sim::Devices* const devices = g_devices;
  const std::string file = devices != nullptr && path != nullptr ? devices->redirect(path) : "";
  return REAL(open)(file.empty() ? path : file.c_str(), flags, mode);
}

int control_device(int fd, unsigned long request, void* argument) {
  long failed = 0;
  if (fails("ioctl", failed)) return static_cast<int>(failed);
  const sim::Devices* const devices = g_devices;
  int result = 0;
  t_inside_stand_in = true;
  const bool done = devices != nullptr && devices->ioctl(fd, request, argument, result);
  t_inside_stand_in = false;
  return done ? result : REAL(ioctl)(fd, request, argument);
}

int operate_semaphore(int id, sembuf* operations, std::size_t count, const timespec* limit) {
  long result = 0;
  if (operations->sem_op < 0 && fails("lock", result)) return -1;
  const int done = REAL(semtimedop)(id, operations, count, limit);
  if (done == 0 && operations->sem_op > 0 && fails("unlock", result)) return -1;
  return done;
}

mode_t mode_argument(int flags, va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
}

// The time record of 32-bit programs that are built for 64-bit time; the upper half of the nanoseconds is padding.
struct Time64 {
  std::int64_t sec;
  std::int32_t nsec;
  std::int32_t padding;
};

timespec to_timespec(const Time64& time) {
  timespec converted{};
  converted.tv_sec = static_cast<decltype(converted.tv_sec)>(time.sec);
  converted.tv_nsec = time.nsec;
  return converted;
}

}  // namespace

FakeClock::FakeClock(sim::Switchboard* camera) {
  g_camera = camera;
  g_advanced_ns = 0;
  g_posted_real_ns = real_now_ns();
  for (const clockid_t clock : {CLOCK_REALTIME, CLOCK_MONOTONIC}) g_start_ns[clock] = real_now_ns(clock);
  clear_waits();
  g_clock_on = true;
}

FakeClock::~FakeClock() {
  g_clock_on = false;
  release_all();
  g_camera = nullptr;
}

std::vector<std::string> FakeClock::waits() const {
  std::lock_guard lock(state().mutex);
  return state().waits;
}

void FakeClock::clear_waits() {
  std::lock_guard lock(state().mutex);
  state().waits.clear();
}

std::int64_t FakeClock::advanced_us() const { return g_advanced_ns / 1000; }

void FakeClock::hold(const std::string& wait) {
  std::lock_guard lock(state().mutex);
  state().held[wait].held = true;
}

void FakeClock::release(const std::string& wait, int times) {
  std::lock_guard lock(state().mutex);
  state().held[wait].released += times;
  state().changed.notify_all();
}

void FakeClock::release_all() {
  std::lock_guard lock(state().mutex);
  for (auto& [text, wait] : state().held) {
    wait.held = false;
    wait.released = 0;
  }
  state().changed.notify_all();
}

bool FakeClock::wait_until_held(const std::string& wait) {
  return eventually([&] {
    std::lock_guard lock(state().mutex);
    const HeldWait& held = state().held[wait];
    return held.blocked > held.released;
  });
}

void real_pause_ms(int milliseconds) { poll(nullptr, 0, milliseconds); }

void use_devices(const sim::Devices* devices) { g_devices = devices; }

void fail_next(const std::string& name, int error, int nth, long result) {
  std::lock_guard lock(state().failures_mutex);
  t_inside_stand_in = true;  // the list's own memory does not fail
  state().failures.push_back({name, error, nth, result});
  t_inside_stand_in = false;
  g_failures = state().failures.size();
}

void clear_failures() {
  std::lock_guard lock(state().failures_mutex);
  state().failures.clear();
  g_failures = 0;
}

int failures_left() { return static_cast<int>(g_failures.load()); }

}  // namespace ipcam::test

using namespace ipcam::test;  // NOLINT: what follows must be global, and is this file's own

// --- Waits ---

STAND_IN int usleep(useconds_t us) {
  return g_clock_on && faked_wait("usleep(" + std::to_string(us) + ")", std::int64_t{us} * 1000) ? 0 : REAL(usleep)(us);
}

STAND_IN unsigned sleep(unsigned seconds) {
  return g_clock_on && faked_wait("sleep(" + std::to_string(seconds) + ")", seconds * kNsPerSecond)
             ? 0
             : REAL(sleep)(seconds);
}

STAND_IN int nanosleep(const timespec* time, timespec* left) {
  return faked_wait("nanosleep", time->tv_sec, time->tv_nsec) ? 0 : REAL(nanosleep)(time, left);
}

STAND_IN int __nanosleep64(const Time64* time, Time64* /*left*/) {
  const timespec converted = to_timespec(*time);
  return nanosleep(&converted, nullptr);
}

STAND_IN int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* left) {
  // A wait until a point of the faked time: only what is still missing counts.
  timespec now{};
  if ((flags & TIMER_ABSTIME) != 0) clock_gettime(clock, &now);
  const std::int64_t ns = (time->tv_sec - now.tv_sec) * kNsPerSecond + time->tv_nsec - now.tv_nsec;
  return faked_wait("clock_nanosleep", ns / kNsPerSecond, static_cast<long>(ns % kNsPerSecond))
             ? 0
             : REAL(clock_nanosleep)(clock, flags, time, left);
}

STAND_IN int __clock_nanosleep_time64(clockid_t clock, int flags, const Time64* time, Time64* /*left*/) {
  const timespec converted = to_timespec(*time);
  return clock_nanosleep(clock, flags, &converted, nullptr);
}

STAND_IN int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (!g_clock_on || (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC)) return REAL(clock_gettime)(clock, time);
  const std::int64_t now = g_start_ns[clock] + g_advanced_ns;
  time->tv_sec = static_cast<decltype(time->tv_sec)>(now / kNsPerSecond);
  time->tv_nsec = static_cast<decltype(time->tv_nsec)>(now % kNsPerSecond);
  return 0;
}

STAND_IN int __clock_gettime64(clockid_t clock, Time64* time) noexcept {
  timespec now{};
  const int result = clock_gettime(clock, &now);
  *time = {.sec = now.tv_sec, .nsec = static_cast<std::int32_t>(now.tv_nsec), .padding = 0};
  return result;
}

// --- Signals and threads ---

STAND_IN int sigtimedwait(const sigset_t* set, siginfo_t* info, const timespec* limit) {
  long result = 0;
  if (fails("sigtimedwait", result)) return static_cast<int>(result);
  return limit == nullptr ? REAL(sigtimedwait)(set, info, limit) : wait_for_signal(set, info, *limit);
}

STAND_IN int __sigtimedwait64(const sigset_t* set, siginfo_t* info, const Time64* limit) {
  if (limit == nullptr) return sigtimedwait(set, info, nullptr);
  const timespec converted = to_timespec(*limit);
  return sigtimedwait(set, info, &converted);
}

STAND_IN int sigwaitinfo(const sigset_t* set, siginfo_t* info) {
  long result = 0;
  return fails("sigwaitinfo", result) ? static_cast<int>(result) : REAL(sigwaitinfo)(set, info);
}

STAND_IN int kill(pid_t pid, int signal) noexcept {
  ipcam::sim::Switchboard* const camera = g_camera;
  long result = 0;
  if (signal != ipcam::sim::kDoorbell) return REAL(kill)(pid, signal);
  if (fails("kill", result)) return static_cast<int>(result);
  if (camera != nullptr && pid > 0 && static_cast<std::uint32_t>(pid) == camera->comm_pid) {
    g_silent_ns = 0;
    g_posted_real_ns = real_now_ns();
    ++camera->posted;
  }
  return REAL(kill)(pid, signal);
}

STAND_IN sighandler_t signal(int number, sighandler_t handler) noexcept {
  long result = 0;
  return fails("signal", result) ? SIG_ERR : REAL(signal)(number, handler);
}

STAND_IN int sigprocmask(int how, const sigset_t* set, sigset_t* old) noexcept {
  long result = 0;
  return fails("sigprocmask", result) ? -1 : REAL(sigprocmask)(how, set, old);
}

STAND_IN int pthread_sigmask(int how, const sigset_t* set, sigset_t* old) noexcept {
  long result = 0;
  return fails("sigprocmask", result) ? errno : REAL(pthread_sigmask)(how, set, old);
}

STAND_IN int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                            void* argument) noexcept {
  long result = 0;
  return fails("pthread_create", result) ? errno : REAL(pthread_create)(thread, attributes, start, argument);
}

STAND_IN int pthread_join(pthread_t thread, void** value) {
  long result = 0;
  const int joined = REAL(pthread_join)(thread, value);
  return fails("pthread_join", result) ? errno : joined;
}

// --- Shared record ---

STAND_IN key_t ftok(const char* path, int project) noexcept {
  long result = 0;
  return fails("ftok", result) ? static_cast<key_t>(result) : REAL(ftok)(path, project);
}

STAND_IN int semget(key_t key, int count, int flags) noexcept {
  long result = 0;
  return fails("semget", result) ? static_cast<int>(result) : REAL(semget)(key, count, flags);
}

STAND_IN int shmget(key_t key, std::size_t size, int flags) noexcept {
  long result = 0;
  return fails("shmget", result) ? static_cast<int>(result) : REAL(shmget)(key, size, flags);
}

STAND_IN void* shmat(int id, const void* address, int flags) noexcept {
  long result = 0;
  return fails("shmat", result) ? reinterpret_cast<void*>(result) : REAL(shmat)(id, address, flags);
}

STAND_IN int shmdt(const void* address) noexcept {
  long result = 0;
  return fails("shmdt", result) ? static_cast<int>(result) : REAL(shmdt)(address);
}

STAND_IN int semop(int id, sembuf* operations, std::size_t count) noexcept {
  return operate_semaphore(id, operations, count, nullptr);
}

STAND_IN int semtimedop(int id, sembuf* operations, std::size_t count, const timespec* limit) noexcept {
  return operate_semaphore(id, operations, count, limit);
}

STAND_IN int __semtimedop64(int id, sembuf* operations, std::size_t count, const Time64* limit) noexcept {
  if (limit == nullptr) return operate_semaphore(id, operations, count, nullptr);
  const timespec converted = to_timespec(*limit);
  return operate_semaphore(id, operations, count, &converted);
}

// --- Files and devices ---

STAND_IN int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_argument(flags, arguments);
  va_end(arguments);
  return open_file(path, flags, mode);
}

STAND_IN int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_argument(flags, arguments);
  va_end(arguments);
  return open_file(path, flags | O_LARGEFILE, mode);
}

STAND_IN int __open_2(const char* path, int flags) { return open_file(path, flags, 0); }
STAND_IN int __open64_2(const char* path, int flags) { return open_file(path, flags | O_LARGEFILE, 0); }

STAND_IN int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return control_device(fd, request, argument);
}

STAND_IN int __ioctl_time64(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return control_device(fd, request, argument);
}

STAND_IN ssize_t read(int fd, void* buffer, std::size_t size) {
  long result = 0;
  return fails("read", result) ? result : REAL(read)(fd, buffer, size);
}

STAND_IN ssize_t __read_chk(int fd, void* buffer, std::size_t size, std::size_t /*room*/) {
  return read(fd, buffer, size);
}

STAND_IN ssize_t write(int fd, const void* buffer, std::size_t size) {
  long result = 0;
  return fails("write", result) ? result : REAL(write)(fd, buffer, size);
}

STAND_IN off_t lseek(int fd, off_t offset, int whence) noexcept {
  long result = 0;
  return fails("lseek", result) ? result : REAL(lseek)(fd, offset, whence);
}

STAND_IN off64_t lseek64(int fd, off64_t offset, int whence) noexcept {
  long result = 0;
  return fails("lseek", result) ? result : REAL(lseek64)(fd, offset, whence);
}

STAND_IN int close(int fd) {
  long result = 0;
  const int closed = REAL(close)(fd);
  return fails("close", result) ? static_cast<int>(result) : closed;
}

STAND_IN FILE* fopen(const char* path, const char* mode) {
  long result = 0;
  return fails("fopen", result) ? nullptr : REAL(fopen)(path, mode);
}

STAND_IN FILE* fopen64(const char* path, const char* mode) { return fopen(path, mode); }

STAND_IN std::size_t fread(void* buffer, std::size_t size, std::size_t count, FILE* file) {
  long result = 0;
  return fails("fread", result) ? static_cast<std::size_t>(std::max(result, 0L))
                                : REAL(fread)(buffer, size, count, file);
}

STAND_IN std::size_t __fread_chk(void* buffer, std::size_t /*room*/, std::size_t size, std::size_t count, FILE* file) {
  return fread(buffer, size, count, file);
}

// --- Memory ---

__attribute__((visibility("default"))) void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  long result = 0;
  return fails("new", result) ? nullptr : std::malloc(size != 0 ? size : 1);
}
__attribute__((visibility("default"))) void* operator new(std::size_t size) {
  void* const memory = operator new(size, std::nothrow);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
__attribute__((visibility("default"))) void operator delete(void* memory) noexcept { std::free(memory); }
__attribute__((visibility("default"))) void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
