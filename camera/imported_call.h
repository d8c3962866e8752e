// Calls of the camera's own libraries whose exceptions must go no further.
#pragma once

#include <type_traits>

namespace ipcam::camera {

// What `call` returns, 0 when that is nothing, -1 when it throws. For a thread that cannot be
// cancelled meanwhile: the unwinding of a cancelled one would not get through here.
template <class Call>
int result_of(Call call) {
  try {
    if constexpr (std::is_void_v<std::invoke_result_t<Call>>) {
      call();
      return 0;
    } else {
      return call();
    }
  } catch (...) {
    return -1;
  }
}

}  // namespace ipcam::camera
