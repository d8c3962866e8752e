// Runs a command in a sandbox of its own: /tmp, /var/tmp, camera devices and System V objects.
// Shared ones are no way out: a test that used them could meet a running simulator, or another
// test. The source and build folders stay in place.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "sim/devices.h"
#include "workstation/namespaces.h"

int main(int argc, char** argv) try {
  if (argc < 2) {
    std::fprintf(stderr, "usage: test_sandbox COMMAND [ARGUMENT...]\n");
    return 2;
  }
  ipcam::workstation::enter_own_namespaces({"/tmp", "/var/tmp"}, {TEST_SOURCE_DIR});
  // The tests' stand-ins take these names before they reach the system;
  // hardware must be out of reach all the same.
  for (const ipcam::sim::DeviceFile& device : ipcam::sim::kDeviceFiles)
    ipcam::workstation::hide(device.path);
  setenv("CAMERA_TEST_SANDBOX", "entered", 1);
  execvp(argv[1], argv + 1);
  std::perror(argv[1]);
  return 127;
} catch (const std::exception& error) {
  std::fprintf(stderr, "test_sandbox: %s\n", error.what());
  return 1;
}
