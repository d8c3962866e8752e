// Stand-ins for waits, devices and failing system calls, by functions of the C library's own names.
#pragma once

#include <cerrno>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "sim/devices.h"
#include "sim/switchboard.h"

namespace ipcam::test {

// Called with the text of a wait, or with an empty text for a doorbell.
using StepObserver = std::function<void(const std::string& wait)>;

// While one is alive, usleep, sleep, nanosleep and clock_nanosleep of every thread return at once,
// and CLOCK_MONOTONIC and CLOCK_REALTIME of a thread move only by what it has waited. A wait for
// the doorbell is real, but ends at once, as if its limit had passed, when the camera will not ring
// in time; so does one for the semaphore when the camera is stopped. One at a time. Any thread.
// A limited wait on a condition variable is real too, with a tenth of its limit. Not faked: time().
class FakeClock {
 public:
  explicit FakeClock(sim::Switchboard* camera = nullptr);
  ~FakeClock();  // waits that are held go on
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;

  // Every wait, oldest first, as it was called: "usleep(200000)", "sleep(1)", "nanosleep(0,5000)".
  // Waits for doorbells are only in advanced_us().
  std::vector<std::string> waits() const;
  void clear_waits();
  std::int64_t advanced_us() const;
  // From now on called by each thread before it waits or rings the comm
  // application's doorbell, one thread at a time.
  void observe_steps(StepObserver observer);

  // From now on a wait of this text blocks its thread until release() or the end of the clock.
  // It is in the journal when it blocks.
  void hold(const std::string& wait);
  void release(const std::string& wait);
  void release_all();  // and hold nothing any more
  // Waits (at most 10 real seconds) until a thread is blocked in this
  // wait. Returns false when none came.
  bool wait_until_held(const std::string& wait);
};

// A pause that no FakeClock shortens, for tests that must give other threads time.
void real_pause_ms(int milliseconds);

// Waits until `condition()` is true, at most 10 real seconds. Returns its last value.
template <class Condition>
bool eventually(Condition condition) {
  for (int i = 0; i < 10000 && !condition(); ++i) real_pause_ms(1);
  return condition();
}

// Opens of the device paths go to `devices` and ioctls on them are
// carried out, until it is called with null.
void use_devices(const sim::Devices* devices);

inline constexpr long kThrows = 777;

// The `nth` call (0: the next) of the function `name` from now on is not made; it fails with
// `error`, or gives `result` instead, in whatever thread it happens. Functions: "open", "read",
// "write", "fsync", "lseek", "ioctl", "fopen", "fread", "ftok", "semget", "shmget", "shmat",
// "kill", "signal", "sigprocmask" (pthread_sigmask too), "sigtimedwait", "sigwaitinfo",
// "pthread_create" (gives `error`), "new" (throws std::bad_alloc), "lock" (a semaphore operation
// -1). These are made, but fail: "unlock" (+1), "shmdt", "read_record". Those of the camera's own
// libraries, by their names, throw for the result kThrows. Several may be waiting at a time.
void fail_next(const std::string& name, int error, int nth = 0, long result = -1);
void clear_failures();
// Failures that have not happened yet.
int failures_left();

// Until it is called with 0, threads are delayed at random when they take a mutex, operate or wait
// on a semaphore, send the doorbell or wait for it. Each seed gives delays of its own.
void vary_schedules(std::uint32_t seed);

// Called with every message of a request before it is queued; null: nobody.
using MessageObserver = void (*)(int type, void* message);
void observe_messages(MessageObserver observer);

}  // namespace ipcam::test
