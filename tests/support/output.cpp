// Catches standard output and standard error in files of memory.
#include "tests/support/output.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

namespace ipcam::test {
namespace {

class CaughtStream {
 public:
  explicit CaughtStream(int fd) : fd_(fd), saved_(dup(fd)), caught_(memfd_create("caught", MFD_CLOEXEC)) {
    dup2(caught_, fd_);
  }
  ~CaughtStream() {
    dup2(saved_, fd_);
    close(saved_);
    close(caught_);
  }
  CaughtStream(const CaughtStream&) = delete;
  CaughtStream& operator=(const CaughtStream&) = delete;

  std::string text() const {
    std::string all;
    char part[4096];
    ssize_t size = 0;
    while ((size = pread(caught_, part, sizeof(part), static_cast<off_t>(all.size()))) > 0) {
      all.append(part, static_cast<std::size_t>(size));
    }
    return all;
  }

 private:
  int fd_;
  int saved_;
  int caught_;
};

}  // namespace

Output capture(const std::function<void()>& code) {
  std::fflush(nullptr);
  CaughtStream out(STDOUT_FILENO);
  CaughtStream err(STDERR_FILENO);
  code();
  std::fflush(nullptr);
  return {out.text(), err.text()};
}

}  // namespace ipcam::test
