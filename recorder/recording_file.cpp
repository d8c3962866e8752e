// The file of a recording: nobody else's, of a limited size, and never in the program's way.
#include "recorder/recording_file.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace ipcam::recorder {

namespace {

constexpr int kMostFiles = 9;
constexpr mode_t kMode = 0644;

bool is_same_file(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace

bool RecordingFile::create(const char* path, off_t limit) {
  limit_ = limit;
  for (int number = 1; number <= kMostFiles; ++number) {
    const char suffix[] = {'-', static_cast<char>('0' + number), '\0'};
    std::snprintf(path_, sizeof path_, "%s%s", path, number == 1 ? "" : suffix);
    if (create_here()) return true;
    if (errno != EEXIST) break;
  }
  std::snprintf(path_, sizeof path_, "%s", path);
  return false;
}

bool RecordingFile::create_here() {
  const int created = open(path_, O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, kMode);
  if (created < 0) return false;
  // A program that has closed its standard output prints to whatever takes that number.
  const int fd = fcntl(created, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(created);
  if (fd < 0) return false;
  if (is_at_hand()) close(fd_);
  fd_ = fd;
  size_ = 0;
  return fstat(fd_, &identity_) == 0;
}

bool RecordingFile::begin_anew() {
  char kept[PATH_MAX + sizeof ".1"];
  std::snprintf(kept, sizeof kept, "%s.1", path_);
  if (rename(path_, kept) != 0 && errno != ENOENT) return false;
  return create_here();
}

// A line beyond the process's own limit of a file's size would raise SIGXFSZ.
bool RecordingFile::has_room(std::size_t size) const {
  rlimit most{};
  if (getrlimit(RLIMIT_FSIZE, &most) != 0) return false;
  const auto end = static_cast<rlim_t>(size_) + size;
  return end <= std::min(most.rlim_cur, static_cast<rlim_t>(limit_));
}

// The program may have closed the descriptor, and opened a file of its own under the number.
bool RecordingFile::is_at_hand() {
  struct stat found {};
  if (fstat(fd_, &found) == 0 && is_same_file(found, identity_)) return true;
  const int fd = open(path_, O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd < 0) return false;
  if (fd <= STDERR_FILENO || fstat(fd, &found) != 0 || !is_same_file(found, identity_)) {
    close(fd);
    return false;
  }
  fd_ = fd;
  return true;
}

bool RecordingFile::append(std::string_view line) {
  if (!has_room(line.size()) || !is_at_hand()) return false;
  ssize_t written = -1;
  do {
    written = write(fd_, line.data(), line.size());
  } while (written < 0 && errno == EINTR);
  if (written == static_cast<ssize_t>(line.size())) {
    size_ += written;
    return true;
  }
  // The rest of the disk has taken a part of the line.
  if (written > 0 && ftruncate(fd_, size_) != 0) size_ += written;
  return false;
}

}  // namespace ipcam::recorder
