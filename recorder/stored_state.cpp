// What the library reads beside its requests: the stored record and the factory adjustment files.
#include "recorder/stored_state.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "recorder/next_definition.h"

namespace ipcam::recorder {

namespace {

bool is_same(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool looks_same(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         is_same(a.st_mtim, b.st_mtim) && is_same(a.st_ctim, b.st_ctim);
}

// For the whole life of the process. The constructor is called as the linker finds it: a program
// without the camera's libraries must start with the recorder too.
config::ConfigFile* make_config_file() {
  alignas(config::ConfigFile) static unsigned char storage[sizeof(config::ConfigFile)];
  const auto construct =
      next_definition<void (*)(void*, char*)>("_ZN5ipcam6config10ConfigFileC1EPc");
  if (construct == nullptr) return nullptr;
  construct(storage, camera::g_settings_file);
  return reinterpret_cast<config::ConfigFile*>(storage);
}

}  // namespace

bool WatchedFile::has_changed() {
  struct stat now {};
  if (stat(path_, &now) != 0) now = {};
  if (size_ != kUnknown && looks_same(now, seen_)) return false;

  const WatchedFile before = *this;
  seen_ = now;
  const int fd = open(path_, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  size_ = fd < 0 ? kUnreadable : read(fd, bytes_.data(), bytes_.size());
  if (fd >= 0) close(fd);
  return size_ != before.size_ || (is_readable() && !std::ranges::equal(bytes(), before.bytes()));
}

bool StoredRecord::has_changed() {
  if (config_ == nullptr) config_ = make_config_file();
  const StoredRecord before = *this;
  camera::SettingsRecord record{};
  size_ = kUnreadable;
  if (config_ != nullptr && camera::read_settings(*config_, record)) size_ = sizeof record;
  if (!is_readable()) return size_ != before.size_;

  std::memcpy(bytes_.data(), &record, sizeof record);
  first_ = 0;
  last_ = bytes_.size();
  if (!before.is_readable()) return true;
  while (first_ < last_ && bytes_[first_] == before.bytes_[first_]) ++first_;
  while (first_ < last_ && bytes_[last_ - 1] == before.bytes_[last_ - 1]) --last_;
  return first_ < last_;
}

}  // namespace ipcam::recorder
