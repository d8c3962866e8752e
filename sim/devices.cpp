// Stand-ins for the camera's GPIO, flash and memory devices.
#include "sim/devices.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>

#include "registers/gpio.h"

namespace ipcam::sim {
namespace {

constexpr std::string_view kVariantPin = "corvo2_gpio-0";

std::string_view base_name(std::string_view path) { return path.substr(path.rfind('/') + 1); }

std::uint8_t load_level(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  char level = 0;
  stream.get(level);
  return static_cast<std::uint8_t>(level);
}

void store_level(const std::string& file, int level) {
  std::ofstream(file, std::ios::binary).put(static_cast<char>(level));
}

}  // namespace

bool Devices::create() const {
  for (const DeviceFile& device : kDeviceFiles) {
    const int fd = open(file(base_name(device.path)).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    struct stat state {};
    const bool made =
        fstat(fd, &state) == 0 && (state.st_size >= device.size || ftruncate(fd, device.size) == 0);
    close(fd);
    if (!made) return false;
  }
  return true;
}

std::string Devices::redirect(std::string_view path) const {
  for (const DeviceFile& device : kDeviceFiles) {
    if (device.path == path) return file(base_name(path));
  }
  return {};
}

bool Devices::ioctl(int fd, unsigned long request, void* argument, int& result) const {
  struct stat opened {};
  if (fstat(fd, &opened) != 0) return false;
  for (const DeviceFile& device : kDeviceFiles) {
    const std::string name(base_name(device.path));
    struct stat state {};
    if (!device.gpio || stat(file(name).c_str(), &state) != 0) continue;
    if (state.st_ino != opened.st_ino || state.st_dev != opened.st_dev) continue;
    // A request number has 32 bits, but arrives sign-extended where it was kept in an int.
    const int error = gpio_request(name, request & 0xffffffff, argument);
    result = error == 0 ? 0 : -1;
    if (error != 0) errno = error;
    return true;
  }
  return false;
}

int Devices::gpio_request(const std::string& name, unsigned long request, void* argument) const {
  if (name == kVariantPin && request == gpio::kDirection) {  // the argument is a plain number here
    note(name + " out " + std::to_string(reinterpret_cast<std::uintptr_t>(argument)));
    return 0;
  }
  const bool variant_read = name == kVariantPin && request == gpio::kRead;
  const bool line_request =
      name != kVariantPin && (request == gpio::kDirection || request == gpio::kWrite);
  if (!variant_read && !line_request) return ENOTTY;
  if (argument == nullptr) return EFAULT;

  auto* record = static_cast<gpio::Record*>(argument);
  const char* verb = variant_read ? "in" : request == gpio::kDirection ? "direction" : "write";
  char line[64];
  std::snprintf(line, sizeof(line), "%s %s %02x/%02x", name.c_str(), verb, record->bits,
                record->mask);
  note(line);
  if (variant_read) record->bits = load_level(file(name));
  if (request == gpio::kWrite) {
    store_level(file(name),
                (load_level(file(name)) & ~record->mask) | (record->bits & record->mask));
  }
  return 0;
}

std::vector<std::string> Devices::journal() const {
  std::vector<std::string> lines;
  std::ifstream stream(file("journal"));
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

void Devices::clear_journal() const { std::ofstream(file("journal")); }

void Devices::note(const std::string& line) const {
  std::ofstream(file("journal"), std::ios::app) << line + "\n";
}

}  // namespace ipcam::sim
