// Puts the device stand-ins between a program and libc: open and ioctl, loaded with
// LD_PRELOAD. The library opens the camera's devices under fixed names, and a program under
// test is to be the one that is shipped.
#include <dlfcn.h>
#include <fcntl.h>

#include <cstdlib>

#include "sim/devices.h"

namespace {

using OpenFunction = int(const char*, int, ...);
using IoctlFunction = int(int, unsigned long, ...);

// Never destroyed: the program may open files until its very end.
const ipcam::sim::Devices& devices() {
  static const auto* const kDevices = [] {
    const char* directory = std::getenv("CAMSIM_DEVICES_DIR");
    return new ipcam::sim::Devices(directory != nullptr ? directory : "");
  }();
  return *kDevices;
}

int redirected_open(const char* path, int flags, mode_t mode) {
  static auto* const real_open = reinterpret_cast<OpenFunction*>(dlsym(RTLD_NEXT, "open"));
  const std::string file = path != nullptr && std::getenv("CAMSIM_DEVICES_DIR") != nullptr
                               ? devices().redirect(path)
                               : "";
  return real_open(file.empty() ? path : file.c_str(), flags, mode);
}

int redirected_ioctl(int fd, unsigned long request, void* argument) {
  static auto* const real_ioctl = reinterpret_cast<IoctlFunction*>(dlsym(RTLD_NEXT, "ioctl"));
  int result = 0;
  // Other requests are none of a device's, and must not cost a look at its files.
  if ((request >> 8 & 0xff) == 0xb4 && devices().ioctl(fd, request, argument, result))
    return result;
  return real_ioctl(fd, request, argument);
}

}  // namespace

// They get libc's names from the assembler, since libc declares them with "..." where
// a mode or a pointer is passed. These arrive in the same registers, and libc does
// not look at one that was not passed.
#define NAMED(name) __asm__(name) __attribute__((visibility("default")))
int open_file(const char* path, int flags, mode_t mode) NAMED("open");
int open_file_2(const char* path, int flags) NAMED("__open_2");
int open_large_file(const char* path, int flags, mode_t mode) NAMED("open64");
int open_large_file_2(const char* path, int flags) NAMED("__open64_2");
int control_device(int fd, unsigned long request, void* argument) NAMED("ioctl");
int control_device_time64(int fd, unsigned long request, void* argument) NAMED("__ioctl_time64");

int open_file(const char* path, int flags, mode_t mode) {
  return redirected_open(path, flags, mode);
}
int open_file_2(const char* path, int flags) { return redirected_open(path, flags, 0); }
int open_large_file(const char* path, int flags, mode_t mode) {
  return redirected_open(path, flags | O_LARGEFILE, mode);
}
int open_large_file_2(const char* path, int flags) {
  return redirected_open(path, flags | O_LARGEFILE, 0);
}
int control_device(int fd, unsigned long request, void* argument) {
  return redirected_ioctl(fd, request, argument);
}
int control_device_time64(int fd, unsigned long request, void* argument) {
  return redirected_ioctl(fd, request, argument);
}
