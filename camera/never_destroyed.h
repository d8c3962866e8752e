// Storage of objects that live as long as the process.
#pragma once

#include <type_traits>

namespace ipcam::camera {

// An object that is there before any code runs and is never destroyed: its first
// use needs no memory and no guard, and threads may still be inside it while the
// process exits. Defined as `constinit`.
template <class T>
class NeverDestroyed {
 public:
  constexpr NeverDestroyed() : object_() {}
  // Leaves the object as it is.
  constexpr ~NeverDestroyed() {
    static_assert(!std::is_trivially_destructible_v<T>, "needs no holder");
  }
  NeverDestroyed(const NeverDestroyed&) = delete;
  NeverDestroyed& operator=(const NeverDestroyed&) = delete;

  T& operator*() { return object_; }

 private:
  union {
    T object_;
  };
};

}  // namespace ipcam::camera
