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
#include <string_view>

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
  bool has_room(std::size_t size) const { return size_ + size <= limit_; }
  // Appends the whole line, or nothing.
  bool append(std::string_view line) {
    if (!has_room(line.size())) return false;
    ssize_t written = write_to(fd_, line);
    if (written < 0 && errno == EBADF && reopen()) written = write_to(fd_, line);
    const bool is_whole = written == static_cast<ssize_t>(line.size());
    // Otherwise the last room on the disk has taken a part of it.
    if (is_whole || (written > 0 && ftruncate(fd_, static_cast<off_t>(size_)) != 0))
      size_ += static_cast<std::size_t>(written);
    return is_whole;
  }

 private:
  bool create_here() {
    const int created =
        open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (created < 0) return false;
    if (is_ours(fd_)) close(fd_);
    fd_ = to_high_number(created);
    size_ = 0;
    // A line beyond the process's own limit of a file's size would raise SIGXFSZ.
    rlimit most{};
    if (getrlimit(RLIMIT_FSIZE, &most) == 0) limit_ = std::min(limit_, most.rlim_cur);
    return fstat(fd_, &identity_) == 0;
  }
  // Programs close what they do not know, and take the lowest numbers for files of their own. So a
  // high one that has been closed stays free, and nobody else's file is ever written to.
  static int to_high_number(int fd) {
    rlimit most{};
    getrlimit(RLIMIT_NOFILE, &most);
    const auto number = static_cast<int>(std::min<rlim_t>(most.rlim_cur, 1024)) - 1;
    const int high = fcntl(fd, F_DUPFD_CLOEXEC, number);
    if (high < 0) return fd;
    close(fd);
    return high;
  }
  bool is_ours(int fd) const {
    struct stat found {};
    return fstat(fd, &found) == 0 && found.st_dev == identity_.st_dev &&
           found.st_ino == identity_.st_ino;
  }
  bool reopen() {
    const int fd = open(path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (is_ours(fd)) {
      fd_ = to_high_number(fd);
      return true;
    }
    if (fd >= 0) close(fd);
    return false;
  }
  static ssize_t write_to(int fd, std::string_view line) {
    ssize_t written = -1;
    do {
      written = write(fd, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    return written;
  }

  std::string path_;
  rlim_t limit_;
  int fd_ = -1;
  rlim_t size_ = 0;
  struct stat identity_ {};
};

}  // namespace ipcam::recorder
