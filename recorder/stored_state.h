// What the library reads beside its requests: the stored record and the factory adjustment files.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <cstdlib>
#include <string>

#include "recorder/line.h"
#include "recorder/next_definition.h"
#include "settings/settings_record.h"

namespace ipcam::recorder {

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

// Where the record is on a workstation. A camera has no such file.
inline std::string workstation_record() {
  const char* const directory = std::getenv("IPCAM_CONFIG_DIR");
  const bool is_named = directory != nullptr && *directory != '\0';
  return std::string(is_named ? directory : ".") + '/' + camera::g_settings_file;
}

inline Contents read_stored(config::ConfigFile* config) {
  camera::SettingsRecord record{};
  if (config == nullptr || !camera::read_settings(*config, record)) return std::nullopt;
  const auto bytes = std::bit_cast<std::array<std::uint8_t, sizeof record>>(record);
  return std::vector(bytes.begin(), bytes.end());
}

// A factory adjustment file, of which the library reads 48 bytes at most.
struct AdjustmentFile {
  const char* path;
  struct stat seen = {};
  Contents bytes = {};
};

// Looks as it did when it was seen last: the same file, with the same times.
inline bool looks_same(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
         a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

inline AdjustmentFile look_at(const AdjustmentFile& before) {
  AdjustmentFile now{.path = before.path};
  if (stat(now.path, &now.seen) != 0) now.seen = {};
  if (looks_same(now.seen, before.seen)) return before;
  const int fd = open(now.path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return now;
  std::array<std::uint8_t, 256> bytes{};
  const ssize_t size = read(fd, bytes.data(), bytes.size());
  close(fd);
  if (size >= 0) now.bytes.emplace(bytes.begin(), bytes.begin() + size);
  return now;
}

}  // namespace ipcam::recorder
