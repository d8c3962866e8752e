// The stored configuration: one record in one file, replaced as a whole.
#include "ipcam/config/config_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "journal_note.h"

namespace ipcam::config {
namespace {

constexpr int kSettingsKind = 3;
constexpr std::size_t kRecordSize = 880;
constexpr mode_t kNewFileMode = 0644;

// Another writer needs milliseconds; after the limit it is stuck.
constexpr int kLockLimit_ms = 5000;
constexpr int kLockPause_ms = 10;

// Paths have a fixed size, so that no read or write can fail for want of memory.
using Path = std::array<char, PATH_MAX>;

// Returns false when the path is too long.
bool join(Path& path, const char* directory, const char* name, const char* suffix) {
  const int length = std::snprintf(path.data(), path.size(), "%s/%s%s", directory, name, suffix);
  return length > 0 && static_cast<std::size_t>(length) < path.size();
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  bool is_open() const { return fd_ >= 0; }
  int get() const { return fd_; }

 private:
  int fd_;
};

bool read_all(int fd, unsigned char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t count = read(fd, bytes, size);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

bool write_all(int fd, const unsigned char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t count = write(fd, bytes, size);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

// A reader takes no lock: the file that it has opened is never
// written to, only replaced by another.
bool read_file(const char* directory, const char* name, void* record) {
  Path path;
  if (!join(path, directory, name, "")) return false;
  // Not blocking: opening a pipe of that name would hang.
  const Descriptor file(open(path.data(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file.is_open()) return false;
  struct stat status {};
  if (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  if (status.st_size != static_cast<off_t>(kRecordSize)) return false;
  std::array<unsigned char, kRecordSize> bytes;
  if (!read_all(file.get(), bytes.data(), bytes.size())) return false;
  std::memcpy(record, bytes.data(), bytes.size());
  return true;
}

// A file of its own, because the record's file is another one after each write. Released by hand
// and not by closing it: a process that was forked meanwhile has the descriptor open as well.
class WriterLock {
 public:
  explicit WriterLock(const Path& path)
      : file_(open(path.data(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kNewFileMode)) {
    if (!file_.is_open()) return;
    for (int left_ms = kLockLimit_ms;; left_ms -= kLockPause_ms) {
      is_held_ = flock(file_.get(), LOCK_EX | LOCK_NB) == 0;
      if (is_held_ || errno != EWOULDBLOCK || left_ms == 0) return;
      usleep(useconds_t{kLockPause_ms} * 1000);
    }
  }
  ~WriterLock() {
    if (is_held_) flock(file_.get(), LOCK_UN);
  }
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;

  bool is_held() const { return is_held_; }

 private:
  Descriptor file_;
  bool is_held_ = false;
};

// Puts the record on the disk under another name. The permissions of the
// file that it is to replace are kept.
bool write_copy(const Path& copy, const Path& original, const void* record) {
  unlink(copy.data());
  const Descriptor file(open(copy.data(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kNewFileMode));
  if (!file.is_open()) return false;
  struct stat status {};
  if (stat(original.data(), &status) == 0 && fchmod(file.get(), status.st_mode & 0777) != 0)
    return false;
  return write_all(file.get(), static_cast<const unsigned char*>(record), kRecordSize) &&
         fsync(file.get()) == 0;
}

bool write_file(const char* directory, const char* name, const void* record) {
  Path path;
  Path copy;
  Path lock_path;
  if (!join(path, directory, name, "") || !join(copy, directory, name, ".new")) return false;
  if (!join(lock_path, directory, name, ".lock")) return false;
  const Descriptor folder(open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder.is_open()) return false;
  // One writer at a time, so the copy can always have the same name, and what an
  // interrupted writer left is swept up.
  const WriterLock lock(lock_path);
  if (!lock.is_held()) return false;
  if (!write_copy(copy, path, record) || rename(copy.data(), path.data()) != 0) {
    unlink(copy.data());
    return false;
  }
  // The new name is on the disk only when its directory is.
  return fsync(folder.get()) == 0;
}

// Copies a text that fits; returns false and leaves an empty one otherwise.
template <std::size_t size>
bool copy_text(char (&to)[size], const char* from) {
  to[0] = '\0';
  const std::size_t length = std::strlen(from);
  if (length >= size) return false;
  std::memcpy(to, from, length + 1);
  return true;
}

}  // namespace

ConfigFile::ConfigFile(char* path) {
  const char* directory = std::getenv("IPCAM_CONFIG_DIR");
  if (directory == nullptr || directory[0] == '\0') directory = ".";
  is_usable_ = copy_text(name_, path == nullptr ? "" : path) && copy_text(directory_, directory) &&
               name_[0] != '\0';
  platform::note("ConfigFile::ConfigFile", {}, name_);
}

ConfigFile::~ConfigFile() { platform::note("ConfigFile::~ConfigFile", {}, name_); }

int ConfigFile::read_record(void* record, int kind) {
  const bool done = is_usable_ && record != nullptr && kind == kSettingsKind &&
                    read_file(directory_, name_, record);
  const int result = done ? 0 : -1;
  platform::note("ConfigFile::read_record", {kind}, name_, result);
  return result;
}

int ConfigFile::write_record(void* record, int kind) {
  const bool done = is_usable_ && record != nullptr && kind == kSettingsKind &&
                    write_file(directory_, name_, record);
  const int result = done ? 0 : -1;
  platform::note("ConfigFile::write_record", {kind}, name_, result);
  return result;
}

}  // namespace ipcam::config
