// Locks of the library, as classes that clang's thread-safety analysis can follow.
#pragma once

#include <mutex>

#include "dsp/cancellation.h"
#include "ipcam/camera/export.h"
#include "ipcam/comm/mutex.h"

namespace ipcam::camera {

// A mutex of the library's own, for state that lives as long as the library: it needs no
// destruction, so no thread can meet a destroyed one at process exit.
class IPCAM_CAPABILITY("mutex") LibraryMutex {
 public:
  constexpr LibraryMutex() = default;
  LibraryMutex(const LibraryMutex&) = delete;
  LibraryMutex& operator=(const LibraryMutex&) = delete;

  void lock() IPCAM_ACQUIRE() { mutex_.lock(); }
  void unlock() IPCAM_RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

// Holds a mutex from construction to the end of the scope; its
// thread cannot be cancelled meanwhile.
template <class M>
class IPCAM_SCOPED_CAPABILITY LockGuard {
 public:
  explicit LockGuard(M& mutex) IPCAM_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~LockGuard() noexcept(false) IPCAM_RELEASE() { mutex_.unlock(); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  CancellationBlock cancellation_block_;
  M& mutex_;
};

}  // namespace ipcam::camera
