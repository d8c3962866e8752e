// What a piece of code writes to standard output and standard error.
#pragma once

#include <functional>
#include <string>

namespace ipcam::test {

struct Output {
  std::string out;
  std::string err;
};

// Catches both streams of the whole process, other threads' output included, while it is alive.
class CaughtStreams {
 public:
  CaughtStreams();
  ~CaughtStreams();
  CaughtStreams(const CaughtStreams&) = delete;
  CaughtStreams& operator=(const CaughtStreams&) = delete;

  // What has been written since the last call.
  Output take();

 private:
  int saved_[2], caught_[2];
  off_t taken_[2] = {};
};

// Runs `code` with both streams caught.
Output capture(const std::function<void()>& code);

}  // namespace ipcam::test
