// A server program that holds the library, and waits where its process is worth a look.
#include <cstdio>

#include "ipcam/camera/camera_interface.h"
#include "ipcam/camera/camera_request.h"
#include "ipcam/comm/port_inf.h"

namespace {

using ipcam::camera::CameraInterface;

constexpr int kRestarts = 100;

CameraInterface* camera = nullptr;

bool start() {
  ipcam::comm::s_port_inf port{};
  if (ipcam::camera::new_camera_ctrl(&port) != 0) return false;
  camera = ipcam::camera::create_camera_IF(nullptr, nullptr);
  int icr = 0;
  return camera->Saturation(3) == 0 && camera->GetICR(&icr) == 0;
}

void stop() { ipcam::camera::delete_camera_IF(camera); }

// Waits for a line.
void show(const char* moment) {
  std::printf("holder: %s\n", moment);
  std::fflush(stdout);
  while (std::getchar() != '\n' && std::feof(stdin) == 0) {
  }
}

}  // namespace

int main() {
  show("not started");
  if (!start()) return 1;
  show("started");
  for (int i = 0; i < kRestarts; ++i) {
    stop();
    if (!start()) return 1;
  }
  show("restarted");
  stop();
}
