// Catches standard output and standard error in files of memory.
#include "tests/support/output.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace ipcam::test {

Output capture(const std::function<void()>& code) {
  constexpr int kStreams[] = {STDOUT_FILENO, STDERR_FILENO};
  int saved[2], caught[2];
  std::fflush(nullptr);
  for (const int i : {0, 1}) {
    saved[i] = dup(kStreams[i]);
    caught[i] = memfd_create("caught", MFD_CLOEXEC);
    dup2(caught[i], kStreams[i]);
  }
  code();
  std::fflush(nullptr);
  std::string texts[2];
  for (const int i : {0, 1}) {
    dup2(saved[i], kStreams[i]);
    struct stat state {};
    fstat(caught[i], &state);
    texts[i].resize(static_cast<std::size_t>(state.st_size));
    texts[i].resize(
        static_cast<std::size_t>(std::max<ssize_t>(pread(caught[i], texts[i].data(), texts[i].size(), 0), 0)));
    close(saved[i]);
    close(caught[i]);
  }
  return {texts[0], texts[1]};
}

}  // namespace ipcam::test
