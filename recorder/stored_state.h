// What the library reads beside its requests: the stored record and the factory adjustment files.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <bit>

#include "camera/factory_adjustment.h"
#include "recorder/line.h"
#include "recorder/next_definition.h"
#include "settings/settings_record.h"

namespace ipcam::recorder {

inline constexpr std::array<std::string_view, 3> kAdjustmentFiles = {
    camera::kCameraFile, camera::kAllPixelWbFile, camera::kHalfPixelWbFile};

// The camera's own ConfigFile, as the library has it, for the whole life of the process; null when
// there is none. Its constructor is looked up, not linked: a program without the camera's
// libraries must start with the recorder too.
inline config::ConfigFile* make_config_file() {
  alignas(config::ConfigFile) static unsigned char storage[sizeof(config::ConfigFile)];
  const auto construct =
      next_definition<void (*)(void*, char*)>("_ZN5ipcam6config10ConfigFileC1EPc");
  if (construct == nullptr) return nullptr;
  construct(storage, camera::g_settings_file);
  return reinterpret_cast<config::ConfigFile*>(storage);
}

inline Contents read_stored(config::ConfigFile* config) {
  camera::SettingsRecord record{};
  if (config == nullptr || !camera::read_settings(*config, record)) return std::nullopt;
  const auto bytes = std::bit_cast<std::array<std::uint8_t, sizeof record>>(record);
  return std::vector(bytes.begin(), bytes.end());
}

// Of an adjustment file the library reads 48 bytes at most.
inline Contents read_file(std::string_view path) {
  const int fd = open(path.data(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::array<std::uint8_t, 256> bytes{};
  const ssize_t size = read(fd, bytes.data(), bytes.size());
  close(fd);
  return size < 0 ? std::nullopt : Contents({bytes.begin(), bytes.begin() + size});
}

}  // namespace ipcam::recorder
