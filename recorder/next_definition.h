// What a name stands for without the recorder.
#pragma once

#include <dlfcn.h>

namespace ipcam::recorder {

// The definition behind the recorder's in the order of the dynamic linker, or that of a camera
// library which a program has loaded by itself, for itself. Null when there is none.
template <class Function>
Function next_definition(const char* symbol) {
  void* found = dlsym(RTLD_NEXT, symbol);
  if (found == nullptr) {
    void* const library = dlopen(CAMERA_CTRL_LIBRARY, RTLD_LAZY | RTLD_NOLOAD);
    if (library != nullptr) found = dlsym(library, symbol);
  }
  return reinterpret_cast<Function>(found);
}

}  // namespace ipcam::recorder
