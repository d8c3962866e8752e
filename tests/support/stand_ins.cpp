// System calls that go to the device stand-ins, or fail when a test wants them to.
#include "tests/support/stand_ins.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>
#include <stdexcept>

#include "ipcam/camera/auto_daynight.h"
#include "ipcam/comm/mutex.h"
#include "ipcam/comm/thd_if.h"
#include "ipcam/comm/wit_end.h"
#include "ipcam/config/config_file.h"
#include "ipcam/system.h"
#include "tests/support/interpose.h"

namespace ipcam::test {
namespace {

struct Failure {
  std::string name;
  int error;
  int nth;
  long result;
};

struct Failures {
  std::mutex mutex;
  std::vector<Failure> waiting;
};

// Never destroyed: threads may still be inside when the program ends.
Failures& all_failures() {
  static auto* const kFailures = new Failures;
  return *kFailures;
}

// Looked at first, so that a call without a task costs next to nothing and takes no lock.
constinit std::atomic<std::size_t> g_failures{0};
constinit std::atomic<const sim::Devices*> g_devices{nullptr};
thread_local constinit bool t_unfailing = false;

// The simulated camera's child comes from a fork of the test program
// and must see the system as it is.
[[maybe_unused]] const int kSwitchedOffInChildren = pthread_atfork(nullptr, nullptr, [] {
  g_failures = 0;
  g_devices = nullptr;
});

// Always for large files, which makes no difference but to 32-bit
// programs that do not ask for them.
int open_file(const char* path, int flags, mode_t mode) {
  long result = 0;
  if (fails("open", result)) return static_cast<int>(result);
  const Unfailing unfailing;
  const sim::Devices* const devices = g_devices;
  const std::string file = devices != nullptr && path != nullptr ? devices->redirect(path) : "";
  return REAL(open)(file.empty() ? path : file.c_str(), flags | O_LARGEFILE, mode);
}

bool control_device(int fd, unsigned long request, void* argument, int& result) {
  const sim::Devices* const devices = g_devices;
  if (devices == nullptr) return false;
  const Unfailing unfailing;
  return devices->ioctl(fd, request, argument, result);
}

}  // namespace

void* real_function(const char* name) {
  const Unfailing unfailing;
  void* const intercepted = dlsym(RTLD_DEFAULT, (std::string("__interceptor_") + name).c_str());
  return intercepted != nullptr ? intercepted : dlsym(RTLD_NEXT, name);
}

bool fails(const char* name, long& result) {
  if (g_failures == 0 || t_unfailing) return false;
  const Unfailing unfailing;
  std::lock_guard lock(all_failures().mutex);
  auto& waiting = all_failures().waiting;
  for (auto failure = waiting.begin(); failure != waiting.end(); ++failure) {
    if (failure->name != name || failure->nth-- != 0) continue;
    errno = failure->error;
    result = failure->result;
    waiting.erase(failure);
    g_failures = waiting.size();
    return true;
  }
  return false;
}

Unfailing::Unfailing() : before_(t_unfailing) { t_unfailing = true; }
Unfailing::~Unfailing() { t_unfailing = before_; }

void fail_next(const std::string& name, int error, int nth, long result) {
  const Unfailing unfailing;
  std::lock_guard lock(all_failures().mutex);
  all_failures().waiting.push_back({name, error, nth, result});
  g_failures = all_failures().waiting.size();
}

void clear_failures() {
  const Unfailing unfailing;
  std::lock_guard lock(all_failures().mutex);
  all_failures().waiting.clear();
  g_failures = 0;
}

int failures_left() { return static_cast<int>(g_failures.load()); }

void use_devices(const sim::Devices* devices) { g_devices = devices; }

void real_pause_ms(int milliseconds) { poll(nullptr, 0, milliseconds); }

}  // namespace ipcam::test

// What follows has libc's names, so it must be global.
using namespace ipcam::test;

// --- Signals, threads and the shared record ---

FAILING(int, sigwaitinfo, "sigwaitinfo", (const sigset_t* set, siginfo_t* info), (set, info),
        static_cast<int>(result))
FAILING(sighandler_t, signal, "signal", (int number, sighandler_t handler) noexcept,
        (number, handler), SIG_ERR)
FAILING(int, sigprocmask, "sigprocmask", (int how, const sigset_t* set, sigset_t* old) noexcept,
        (how, set, old), -1)
FAILING(int, pthread_sigmask, "sigprocmask", (int how, const sigset_t* set, sigset_t* old) noexcept,
        (how, set, old), errno)
FAILING(int, pthread_create, "pthread_create",
        (pthread_t * thread, const pthread_attr_t* attributes, void* (*start)(void*),
         void* argument) noexcept,
        (thread, attributes, start, argument), errno)
FAILING(key_t, ftok, "ftok", (const char* path, int project) noexcept, (path, project),
        static_cast<key_t>(result))
FAILING(int, semget, "semget", (key_t key, int count, int flags) noexcept, (key, count, flags),
        static_cast<int>(result))
FAILING(int, shmget, "shmget", (key_t key, std::size_t size, int flags) noexcept,
        (key, size, flags), static_cast<int>(result))
FAILING(void*, shmat, "shmat", (int id, const void* address, int flags) noexcept,
        (id, address, flags), reinterpret_cast<void*>(result))

STAND_IN int shmdt(const void* address) noexcept {
  const int detached = REAL(shmdt)(address);
  long result = 0;
  return fails("shmdt", result) ? static_cast<int>(result) : detached;
}

STAND_IN int semtimedop(int id, sembuf* operations, std::size_t count,
                        const timespec* limit) noexcept {
  delay_at_random();
  long result = 0;
  if (operations->sem_op < 0 && fails("lock", result)) return -1;
  const int done = wait_for_semaphore(id, operations, count, limit);
  return done == 0 && operations->sem_op > 0 && fails("unlock", result) ? -1 : done;
}

STAND_IN int semop(int id, sembuf* operations, std::size_t count) noexcept {
  return semtimedop(id, operations, count, nullptr);
}

// --- Queues and reply semaphores of the camera's own libraries ---

namespace {

std::atomic<MessageObserver> g_message_observer{nullptr};

void* observed(int type, void* message) {
  if (const MessageObserver observer = g_message_observer; observer != nullptr)
    observer(type, message);
  return message;
}

}  // namespace

void ipcam::test::observe_messages(MessageObserver observer) { g_message_observer = observer; }

namespace {

int failed_call(long result) {
  if (result == kThrows) throw std::runtime_error("wanted by a test");
  return static_cast<int>(result);
}

}  // namespace

// What the platform's library would be asked for by this name.
#define FAILING_PLATFORM_CALL(name, symbol, parameters, arguments)             \
  __attribute__((visibility("default"))) int ipcam::comm::name parameters {    \
    static auto* const kReal =                                                 \
        reinterpret_cast<decltype(&ipcam::comm::name)>(real_function(symbol)); \
    long result = 0;                                                           \
    return fails(#name, result) ? failed_call(result) : kReal arguments;       \
  }

FAILING_PLATFORM_CALL(ThdIf_new, "_ZN5ipcam4comm9ThdIf_newEPvjPFiiS1_ES3_PNS0_11s_thdIf_ctlE",
                      (void* storage, unsigned int size, int (*first)(int, void*),
                       int (*second)(int, void*), s_thdIf_ctl* ctl),
                      (storage, size, first, second, ctl))
FAILING_PLATFORM_CALL(ThdIf_send, "_ZN5ipcam4comm10ThdIf_sendEiPvPNS0_11s_thdIf_ctlE",
                      (int type, void* message, s_thdIf_ctl* ctl),
                      (type, observed(type, message), ctl))
FAILING_PLATFORM_CALL(ThdIf_delete, "_ZN5ipcam4comm12ThdIf_deleteEPNS0_11s_thdIf_ctlE",
                      (s_thdIf_ctl * ctl), (ctl))
FAILING_PLATFORM_CALL(WitEnd_new,
                      "_ZN5ipcam4comm10WitEnd_newEPNS0_12s_witEnd_semEiPNS0_12s_witEnd_ctlE",
                      (s_witEnd_sem * sems, int count, s_witEnd_ctl* ctl), (sems, count, ctl))
FAILING_PLATFORM_CALL(WitEnd_get, "_ZN5ipcam4comm10WitEnd_getEPiPNS0_12s_witEnd_ctlE",
                      (int* number, s_witEnd_ctl* ctl), (number, ctl))
FAILING_PLATFORM_CALL(ThdIf_timed_receive,
                      "_ZN5ipcam4comm19ThdIf_timed_receiveEPiPvPjPNS0_11s_thdIf_ctlE",
                      (int* type, void* message, unsigned int* limit, s_thdIf_ctl* ctl),
                      (type, message, limit, ctl))
FAILING_PLATFORM_CALL(WitEnd_post, "_ZN5ipcam4comm11WitEnd_postEiPNS0_12s_witEnd_ctlE",
                      (int number, s_witEnd_ctl* ctl), (number, ctl))
FAILING_PLATFORM_CALL(WitEnd_wait_put, "_ZN5ipcam4comm15WitEnd_wait_putEiPNS0_12s_witEnd_ctlE",
                      (int number, s_witEnd_ctl* ctl), (number, ctl))
FAILING_PLATFORM_CALL(WitEnd_delete, "_ZN5ipcam4comm13WitEnd_deleteEPNS0_12s_witEnd_ctlE",
                      (s_witEnd_ctl * ctl), (ctl))

__attribute__((visibility("default"))) int ipcam::comm::Mutex::lock() {
  static auto* const kReal =
      reinterpret_cast<int (*)(Mutex*)>(real_function("_ZN5ipcam4comm5Mutex4lockEv"));
  long result = 0;
  return fails("Mutex::lock", result) ? failed_call(result) : kReal(this);
}

STAND_IN void staticsInfoUpdate(int item, int value) {
  long result = 0;
  if (fails("staticsInfoUpdate", result)) failed_call(result);
  REAL(staticsInfoUpdate)(item, value);
}

__attribute__((visibility("default"))) int ipcam::config::ConfigFile::read_record(void* record,
                                                                                  int kind) {
  static auto* const kReal = reinterpret_cast<int (*)(ConfigFile*, void*, int)>(
      real_function("_ZN5ipcam6config10ConfigFile11read_recordEPvi"));
  const int done = kReal(this, record, kind);
  long result = 0;
  return fails("read_record", result) ? failed_call(result) : done;
}

__attribute__((visibility("default"))) int ipcam::camera::AutoDaynight::setCameraReady() {
  static auto* const kReal = reinterpret_cast<int (*)(AutoDaynight*)>(
      real_function("_ZN5ipcam6camera12AutoDaynight14setCameraReadyEv"));
  long result = 0;
  return fails("setCameraReady", result) ? failed_call(result) : kReal(this);
}

// --- Files and devices ---

STAND_IN int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
  va_end(arguments);
  return open_file(path, flags, mode);
}
STAND_IN int open64(const char* path, int flags, ...) __attribute__((alias("open")));

STAND_IN int __open_2(const char* path, int flags) { return open_file(path, flags, 0); }
STAND_IN int __open64_2(const char* path, int flags) { return open_file(path, flags, 0); }

STAND_IN int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  long failed = 0;
  if (fails("ioctl", failed)) return static_cast<int>(failed);
  int result = 0;
  return control_device(fd, request, argument, result) ? result
                                                       : REAL(ioctl)(fd, request, argument);
}
STAND_IN int __ioctl_time64(int fd, unsigned long request, ...) noexcept
    __attribute__((alias("ioctl")));

FAILING(ssize_t, read, "read", (int fd, void* buffer, std::size_t size), (fd, buffer, size), result)
FAILING(ssize_t, write, "write", (int fd, const void* buffer, std::size_t size), (fd, buffer, size),
        result)
FAILING(int, fsync, "fsync", (int fd), (fd), static_cast<int>(result))
FAILING(off_t, lseek, "lseek", (int fd, off_t offset, int whence) noexcept, (fd, offset, whence),
        result)
FAILING(off64_t, lseek64, "lseek", (int fd, off64_t offset, int whence) noexcept,
        (fd, offset, whence), result)
FAILING(FILE*, fopen, "fopen", (const char* path, const char* mode), (path, mode), nullptr)
FAILING(std::size_t, fread, "fread",
        (void* buffer, std::size_t size, std::size_t count, FILE* file),
        (buffer, size, count, file), result < 0 ? 0 : static_cast<std::size_t>(result))

STAND_IN FILE* fopen64(const char* path, const char* mode) __attribute__((alias("fopen")));

STAND_IN ssize_t __read_chk(int fd, void* buffer, std::size_t size, std::size_t /*room*/) {
  return read(fd, buffer, size);
}

STAND_IN std::size_t __fread_chk(void* buffer, std::size_t /*room*/, std::size_t size,
                                 std::size_t count, FILE* file) {
  return fread(buffer, size, count, file);
}

// --- Memory ---

__attribute__((visibility("default"))) void* operator new(std::size_t size) {
  long result = 0;
  void* const memory = fails("new", result) ? nullptr : std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
// The library's own nothrow version would call AddressSanitizer's own
// allocator, which these do not belong to.
__attribute__((visibility("default"))) void* operator new(std::size_t size,
                                                          const std::nothrow_t&) noexcept try {
  return operator new(size);
} catch (...) {
  return nullptr;
}
__attribute__((visibility("default"))) void operator delete(void* memory) noexcept {
  std::free(memory);
}
__attribute__((visibility("default"))) void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
