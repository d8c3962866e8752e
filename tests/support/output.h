// What a piece of code writes to standard output and standard error.
#pragma once

#include <functional>
#include <string>

namespace ipcam::test {

struct Output {
  std::string out;
  std::string err;
};

// Runs `code` with both streams of the whole process caught, other threads' output included.
Output capture(const std::function<void()>& code);

}  // namespace ipcam::test
