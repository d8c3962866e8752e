// The surroundings of a benchmark.
#include "bench/isolate.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "sim/namespaces.h"

namespace ipcam::bench {

void isolate() {
  try {
    sim::enter_own_namespaces();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench: %s\n", error.what());
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
