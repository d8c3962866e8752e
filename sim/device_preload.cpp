// Puts the device stand-ins between a program and libc: open and ioctl, loaded with LD_PRELOAD.
#include <dlfcn.h>
#include <fcntl.h>

#include <cstdarg>
#include <cstdlib>

#include "sim/devices.h"

#define EXPORTED extern "C" __attribute__((visibility("default")))

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
  const std::string file =
      path != nullptr && std::getenv("CAMSIM_DEVICES_DIR") != nullptr ? devices().redirect(path) : "";
  return real_open(file.empty() ? path : file.c_str(), flags, mode);
}

int redirected_ioctl(int fd, unsigned long request, void* argument) {
  static auto* const real_ioctl = reinterpret_cast<IoctlFunction*>(dlsym(RTLD_NEXT, "ioctl"));
  int result = 0;
  // Other requests are none of a device's, and must not cost a look at its files.
  if ((request >> 8 & 0xff) == 0xb4 && devices().ioctl(fd, request, argument, result)) return result;
  return real_ioctl(fd, request, argument);
}

mode_t mode_argument(int flags, va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
}

}  // namespace

EXPORTED int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_argument(flags, arguments);
  va_end(arguments);
  return redirected_open(path, flags, mode);
}

EXPORTED int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = mode_argument(flags, arguments);
  va_end(arguments);
  return redirected_open(path, flags | O_LARGEFILE, mode);
}

EXPORTED int __open_2(const char* path, int flags) { return redirected_open(path, flags, 0); }
EXPORTED int __open64_2(const char* path, int flags) { return redirected_open(path, flags | O_LARGEFILE, 0); }

EXPORTED int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return redirected_ioctl(fd, request, argument);
}

EXPORTED int __ioctl_time64(int fd, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return redirected_ioctl(fd, request, argument);
}
