// Stand-ins for the camera's GPIO, flash and memory devices: files in a
// directory, and the meaning of their ioctls.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ipcam::sim {

struct DeviceFile {
  std::string_view path;
  off_t size;  // of its stand-in
  bool gpio;
};

// The camera's devices that the library opens.
inline constexpr DeviceFile kDeviceFiles[] = {
    {"/dev/gpio-0", 1, true},
    {"/dev/gpio-4", 1, true},
    {"/dev/corvo2_gpio-0", 1, true},
    {"/dev/mtdblock3", 0x80000, false},
    {"/dev/mem", 0x1FFC000 + 0x3F00, false},
};

// Stands in for these devices. All state is in the files, so that any number of processes may
// share a directory, and a fresh object finds it again: the first byte of a GPIO file is its level
// (for corvo2_gpio-0 the value that the camera reads from it), the flash and memory files are what
// has been stored. Holds no descriptors. Any thread.
class Devices {
 public:
  // `directory` must exist; files that are missing in it are created by create().
  explicit Devices(std::string directory) : directory_(std::move(directory)) {}

  // Creates the files. Returns false, with errno set, when one could not be made.
  bool create() const;

  // The file that stands in for `path`, or an empty text when the path is none of the devices.
  std::string redirect(std::string_view path) const;

  // Carries out an ioctl if `fd` is open on one of the GPIO files: returns true with `result` 0, or
  // -1 and errno set. Any other descriptor: false, nothing done.
  bool ioctl(int fd, unsigned long request, void* argument, int& result) const;

  // Every GPIO ioctl carried out, oldest first: "gpio-0 direction c0/c0", "gpio-0 write 80/c0"
  // (value/mask), "corvo2_gpio-0 out 0", "corvo2_gpio-0 in 1f/1f".
  std::vector<std::string> journal() const;
  void clear_journal() const;

 private:
  std::string file(std::string_view name) const { return directory_ + "/" + std::string(name); }
  // Returns 0 or the error number.
  int gpio_request(const std::string& name, unsigned long request, void* argument) const;
  void note(const std::string& line) const;

  std::string directory_;
};

}  // namespace ipcam::sim
