// The file of a recording: nobody else's, of a limited size, and never in the program's way.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>

namespace ipcam::recorder {

// A regular file that this process has created, so that neither another process nor an earlier one
// writes to it, and that writing neither waits for a reader nor raises a signal.
class RecordingFile {
 public:
  RecordingFile(std::string path, rlim_t limit) : path_(std::move(path)), limit_(limit) {}

  // Creates the file, as PATH-2 to PATH-9 when there is one already. Returns false, with errno set,
  // when it is not to be had.
  bool create() {
    const std::string wanted = path_;
    for (char number = '2'; !create_here(); ++number) {
      if (errno != EEXIST || number > '9') return false;
      path_ = wanted + '-' + number;
    }
    return true;
  }
  // Keeps the file as PATH.1 and creates it anew.
  bool begin_anew() {
    const bool is_kept = rename(path_.c_str(), (path_ + ".1").c_str()) == 0 || errno == ENOENT;
    return is_kept && create_here();
  }
  // A line beyond the process's own limit of a file's size would raise SIGXFSZ.
  bool has_room(std::size_t size) const {
    rlimit most{};
    getrlimit(RLIMIT_FSIZE, &most);
    return static_cast<rlim_t>(size_) + size <= std::min(most.rlim_cur, limit_);
  }
  // Appends the whole line, or nothing.
  bool append(const std::string& line) {
    if (!has_room(line.size()) || !is_at_hand()) return false;
    ssize_t written = -1;
    do {
      written = write(fd_, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    const bool is_whole = written == static_cast<ssize_t>(line.size());
    // Otherwise the last room on the disk has taken a part of it.
    if (is_whole || (written > 0 && ftruncate(fd_, size_) != 0)) size_ += written;
    return is_whole;
  }

 private:
  bool create_here() {
    const int created =
        open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (created < 0) return false;
    // A program that has closed its standard output prints to whatever takes that number.
    const int fd = fcntl(created, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(created);
    if (fd < 0) return false;
    if (is_ours(fd_)) close(fd_);
    fd_ = fd;
    size_ = 0;
    return fstat(fd_, &identity_) == 0;
  }
  bool is_ours(int fd) const {
    struct stat found {};
    return fstat(fd, &found) == 0 && found.st_dev == identity_.st_dev &&
           found.st_ino == identity_.st_ino;
  }
  // The program may have closed the descriptor, and opened a file of its own under the number.
  bool is_at_hand() {
    if (is_ours(fd_)) return true;
    const int fd = open(path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (is_ours(fd)) {
      fd_ = fd;
    } else if (fd >= 0) {
      close(fd);
    }
    return fd_ == fd && fd >= 0;
  }

  std::string path_;
  const rlim_t limit_;
  int fd_ = -1;
  off_t size_ = 0;
  struct stat identity_ {};
};

}  // namespace ipcam::recorder
