// What the library reads beside its requests: the stored record and the factory adjustment files.
#pragma once

#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "settings/settings_record.h"

namespace ipcam::recorder {

using Bytes = std::span<const std::uint8_t>;

inline constexpr ssize_t kUnreadable = -1;
inline constexpr ssize_t kUnknown = -2;

// A factory adjustment file, of which the library reads 48 bytes at most.
class WatchedFile {
 public:
  constexpr explicit WatchedFile(const char* path) : path_(path) {}

  // Reads it, if it looks different from the last time. Returns true when it is.
  bool has_changed();
  // What was known of it is to be told again.
  void forget() { *this = WatchedFile(path_); }

  const char* path() const { return path_; }
  bool is_readable() const { return size_ >= 0; }
  Bytes bytes() const { return {bytes_.data(), static_cast<std::size_t>(size_)}; }

 private:
  const char* path_;
  struct stat seen_ {};
  ssize_t size_ = kUnknown;
  std::array<std::uint8_t, 256> bytes_{};
};

// The stored record, read as the library does it: through the camera's own ConfigFile.
class StoredRecord {
 public:
  constexpr StoredRecord() = default;

  // Reads it. Returns true when it is another than the last time.
  bool has_changed();
  void forget() { size_ = kUnknown; }

  bool is_readable() const { return size_ >= 0; }
  Bytes bytes() const { return bytes_; }
  // The range that was different, all of it when it could not be read before.
  std::int64_t offset() const { return first_; }
  Bytes changed() const { return bytes().subspan(first_, last_ - first_); }

 private:
  config::ConfigFile* config_ = nullptr;
  ssize_t size_ = kUnknown;
  std::array<std::uint8_t, sizeof(camera::SettingsRecord)> bytes_{};
  std::size_t first_ = 0;
  std::size_t last_ = 0;
};

}  // namespace ipcam::recorder
