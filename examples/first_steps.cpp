// The smallest server program: starts, sets the saturation, asks for the IR-cut filter, stops.
#include <ipcam/camera/camera_interface.h>
#include <ipcam/camera/camera_request.h>
#include <ipcam/comm/port_inf.h>

#include <cstdio>

int main() {
  ipcam::comm::s_port_inf port{};
  if (ipcam::camera::new_camera_ctrl(&port) != 0) return 1;
  ipcam::camera::CameraInterface* camera = ipcam::camera::create_camera_IF(nullptr, nullptr);

  int icr = 0;
  const int saturation = camera->Saturation(3);  // 0 (least) to 6 (most)
  const int inquiry = camera->GetICR(&icr);
  std::printf("Saturation(3): %d, GetICR(): %d, IR-cut filter: %d\n", saturation, inquiry, icr);

  ipcam::camera::delete_camera_IF(camera);  // also ends the control thread
  return saturation == 0 && inquiry == 0 ? 0 : 1;
}
