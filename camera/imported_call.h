// Calls of the camera's own libraries whose exceptions must go no further.
#pragma once

namespace ipcam::camera {

// What `call` returns, or -1 when it throws. For a thread that cannot be cancelled meanwhile: the unwinding of a
// cancelled one would not get through here.
template <class Call>
int result_of(Call call) {
  try {
    return call();
  } catch (...) {
    return -1;
  }
}

}  // namespace ipcam::camera
