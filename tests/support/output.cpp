// Catches standard output and standard error in files of memory.
#include "tests/support/output.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace ipcam::test {
namespace {

constexpr int kStreams[] = {STDOUT_FILENO, STDERR_FILENO};

}  // namespace

CaughtStreams::CaughtStreams() {
  std::fflush(nullptr);
  for (const int i : {0, 1}) {
    saved_[i] = dup(kStreams[i]);
    caught_[i] = memfd_create("caught", MFD_CLOEXEC);
    dup2(caught_[i], kStreams[i]);
  }
}

CaughtStreams::~CaughtStreams() {
  std::fflush(nullptr);
  for (const int i : {0, 1}) {
    dup2(saved_[i], kStreams[i]);
    close(saved_[i]);
    close(caught_[i]);
  }
}

Output CaughtStreams::take() {
  std::fflush(stdout);
  std::string texts[2];
  for (const int i : {0, 1}) {
    struct stat state {};
    fstat(caught_[i], &state);
    texts[i].resize(static_cast<std::size_t>(state.st_size - taken_[i]));
    const ssize_t count = pread(caught_[i], texts[i].data(), texts[i].size(), taken_[i]);
    texts[i].resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    taken_[i] = state.st_size;
  }
  return {texts[0], texts[1]};
}

Output capture(const std::function<void()>& code) {
  CaughtStreams streams;
  code();
  return streams.take();
}

}  // namespace ipcam::test
