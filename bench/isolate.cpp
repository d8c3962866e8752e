// The surroundings of a benchmark.
#include "bench/isolate.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace ipcam::bench {

void isolate() {
  const uid_t user = getuid();
  if (unshare(CLONE_NEWNS | CLONE_NEWIPC | (user == 0 ? 0 : CLONE_NEWUSER)) != 0 ||
      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", "/tmp", "tmpfs", 0, nullptr) != 0) {
    std::perror("bench: namespaces");
    std::exit(1);
  }
  std::array<unsigned char, 880> settings{};
  settings[68] = 1;
  settings[140] = 1;
  const int file = open("/tmp/all.conf", O_CREAT | O_WRONLY, 0600);
  if (file < 0 || write(file, settings.data(), settings.size()) != static_cast<ssize_t>(settings.size())) {
    std::perror("bench: /tmp/all.conf");
    std::exit(1);
  }
  close(file);
  setenv("IPCAM_CONFIG_DIR", "/tmp", 1);
}

}  // namespace ipcam::bench
