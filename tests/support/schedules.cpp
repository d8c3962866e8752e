// Random delays where threads meet: at mutexes, semaphores and doorbells.
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>

#include <atomic>

#include "tests/support/interpose.h"
#include "tests/support/stand_ins.h"

namespace ipcam::test {
namespace {

constinit std::atomic<std::uint32_t> g_seed{0};
constinit std::atomic<std::uint32_t> g_threads{0};  // each thread has delays of its own
thread_local constinit std::uint32_t t_random = 0;

}  // namespace

void vary_schedules(std::uint32_t seed) { g_seed = seed; }

void delay_at_random() {
  if (g_seed == 0) return;
  if (t_random == 0) t_random = g_seed + ++g_threads * 0x9e3779b9u;
  t_random = t_random * 1664525u + 1013904223u;
  if (t_random >> 29 == 0) sched_yield();
  const timespec pause{.tv_sec = 0, .tv_nsec = static_cast<long>(t_random >> 8 & 0xff) * 1000};
  if (t_random >> 27 == 31) REAL(nanosleep)(&pause, nullptr);
}

}  // namespace ipcam::test

// What follows has libc's names, so it must be global.
using ipcam::test::delay_at_random;

STAND_IN int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  delay_at_random();
  return REAL(pthread_mutex_lock)(mutex);
}

STAND_IN int sem_wait(sem_t* semaphore) {
  delay_at_random();
  return REAL(sem_wait)(semaphore);
}

STAND_IN int sem_post(sem_t* semaphore) noexcept {
  delay_at_random();
  const int result = REAL(sem_post)(semaphore);
  delay_at_random();
  return result;
}
