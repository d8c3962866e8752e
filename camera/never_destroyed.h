// Storage of objects that live as long as the process.
#pragma once

namespace ipcam::camera {

// An object that is there before any code runs and is never destroyed: its first use needs no memory and no guard, and
// threads may still be inside it while the process exits. Defined as `constinit`.
template <class T>
class NeverDestroyed {
 public:
  constexpr NeverDestroyed() : object_() {}
  constexpr ~NeverDestroyed() {
    // Leaves the object as it is.
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
