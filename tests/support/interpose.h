// What the stand-in functions share: how they are exported, how they reach
// the real function, whether they fail.
#pragma once

#include <sys/sem.h>

#include <cstddef>
#include <ctime>
#include <string>

#define STAND_IN extern "C" __attribute__((visibility("default")))

// The function that the stand-in hides: a sanitizer's version of it if there is one, else libc's.
#define REAL(name)                                                              \
  ([] {                                                                         \
    static auto* const kReal =                                                  \
        reinterpret_cast<decltype(&::name)>(ipcam::test::real_function(#name)); \
    return kReal;                                                               \
  }())

// A stand-in that does nothing but fail when a test wants it to.
// `failure` may use `result`, the test's own.
#define FAILING(type, name, label, parameters, arguments, failure)                 \
  STAND_IN type name parameters {                                                  \
    long result = 0;                                                               \
    return ipcam::test::fails(label, result) ? (failure) : (REAL(name) arguments); \
  }

namespace ipcam::test {

void* real_function(const char* name);

// True, with errno and `result` set, when this call of the function
// is one that a test wants to fail.
bool fails(const char* name, long& result);

// While one is alive, nothing fails on this thread: a stand-in's own
// memory and files are not the library's.
class Unfailing {
 public:
  Unfailing();
  ~Unfailing();
  Unfailing(const Unfailing&) = delete;
  Unfailing& operator=(const Unfailing&) = delete;

 private:
  bool before_;
};

// semtimedop(), but what a stopped camera holds comes back soon, as when it is dying, or never: on
// a faked clock the limit has passed after two seconds.
int wait_for_semaphore(int id, sembuf* operations, std::size_t count, const timespec* limit);

// A delay of the calling thread, when schedules vary.
void delay_at_random();

}  // namespace ipcam::test
