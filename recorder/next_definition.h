// What a name stands for without the recorder.
#pragma once

#include <dlfcn.h>

namespace ipcam::recorder {

// The definition behind the recorder's in the order of the dynamic linker, or that of a camera
// library which a program has loaded by itself, for itself. Null when there is none.
inline void* find_next(const char* symbol) {
  void* const found = dlsym(RTLD_NEXT, symbol);
  if (found != nullptr) return found;
  void* const library = dlopen(CAMERA_CTRL_LIBRARY, RTLD_LAZY | RTLD_NOLOAD);
  return library != nullptr ? dlsym(library, symbol) : nullptr;
}

// Looked up once for each function, which `kName` tells apart where their types are the same.
template <auto kName, class Function = decltype(kName)>
Function next(const char* symbol) {
  static const auto found = reinterpret_cast<Function>(find_next(symbol));
  return found;
}

}  // namespace ipcam::recorder
