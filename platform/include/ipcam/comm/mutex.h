// Mutual exclusion between the threads of one process.
#pragma once

#include <pthread.h>

#if defined(__clang__)
#define IPCAM_MUTEX_ATTRIBUTE(x) __attribute__((x))
#else
#define IPCAM_MUTEX_ATTRIBUTE(x)
#endif

namespace ipcam::comm {

// A plain, not recursive mutex. Any thread may lock it; the thread that locked it unlocks it.
class IPCAM_MUTEX_ATTRIBUTE(capability("mutex")) Mutex {
 public:
  // Not locked.
  Mutex();
  // Nobody holds it or waits for it.
  ~Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  // Waits until the mutex is free and takes it. Returns 0.
  int lock() IPCAM_MUTEX_ATTRIBUTE(acquire_capability());
  // Gives the mutex back. Returns 0.
  int unlock() IPCAM_MUTEX_ATTRIBUTE(release_capability());

 private:
  pthread_mutex_t mutex_;
};

}  // namespace ipcam::comm
