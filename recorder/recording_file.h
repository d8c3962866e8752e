// The file of a recording: nobody else's, of a limited size, and never in the program's way.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ipcam::recorder {

// A regular file that this process has created, so that neither another process nor an earlier one
// writes to it, and that writing neither waits for a reader nor raises a signal.
class RecordingFile {
 public:
  // Creates the file, as PATH-2 to PATH-9 when there is one already. Throws std::runtime_error,
  // with the reason as its text, when it is not to be had.
  RecordingFile(const std::string& path, rlim_t limit) : path_(path), limit_(limit) {
    for (char number = '2'; !create(); ++number) {
      if (errno != EEXIST || number > '9') throw std::runtime_error(std::strerror(errno));
      path_ = path + '-' + number;
    }
  }
  // Keeps the file as PATH.1 and creates it anew.
  void begin_anew() {
    if (rename(path_.c_str(), (path_ + ".1").c_str()) == 0 || errno == ENOENT) create();
  }
  // Not once the program has closed the descriptor.
  bool is_open() const { return fd_ >= 0; }
  bool is_empty() const { return size_ == 0; }
  bool has_room(std::size_t size) const { return size_ + size <= limit_; }
  // Appends all of these lines, or nothing.
  bool append(std::string_view lines) {
    if (lines.empty()) return true;
    if (!has_room(lines.size())) return false;
    const ssize_t written = TEMP_FAILURE_RETRY(write(fd_, lines.data(), lines.size()));
    if (written < 0 && errno == EBADF) fd_ = -1;
    const bool is_whole = written == static_cast<ssize_t>(lines.size());
    // Otherwise the last room on the disk has taken a part of it.
    if (is_whole || (written > 0 && ftruncate(fd_, static_cast<off_t>(size_)) != 0))
      size_ += static_cast<std::size_t>(written);
    return is_whole;
  }

 private:
  bool create() {
    const int created =
        open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (created < 0) return false;
    if (fd_ >= 0) close(fd_);
    // Programs close what they do not know, and take the lowest numbers for files of their own. So
    // a high one that has been closed stays free, and nobody else's file is ever written to.
    const int high = static_cast<int>(std::min(sysconf(_SC_OPEN_MAX), 1024L)) - 1;
    fd_ = fcntl(created, F_DUPFD_CLOEXEC, high);
    if (fd_ >= 0) close(created);
    if (fd_ < 0) fd_ = created;
    size_ = 0;
    // A line beyond the process's own limit of a file's size would raise SIGXFSZ.
    rlimit most{};
    if (getrlimit(RLIMIT_FSIZE, &most) == 0) limit_ = std::min(limit_, most.rlim_cur);
    return true;
  }

  std::string path_;
  rlim_t limit_;
  int fd_ = -1;
  rlim_t size_ = 0;
};

}  // namespace ipcam::recorder
