// Any bytes as the stored settings record: start-up, the requests that read it, and the stop.
#include "fuzz/fake_camera.h"
#include "ipcam/camera/camera_interface.h"
#include "ipcam/camera/camera_request.h"
#include "ipcam/comm/port_inf.h"

using ipcam::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ipcam::fuzz::set_settings(data, size);
  ipcam::comm::s_port_inf port{};
  require(ipcam::camera::new_camera_ctrl(&port) == 0, "the control thread starts");
  for (const int code : {62, 31, 33, 71, 77}) {
    ipcam::camera::s_cam_cgi_cmd command{};
    command.code = code;
    command.value = size == 0 ? 0 : data[size - 1];
    const int returned = ipcam::camera::cam_cgi_command(&command);
    require(returned == 0 || (returned == -1 && command.result == -1),
            "a request is served, or refused as such");
  }
  ipcam::camera::delete_camera_IF(nullptr);
  return 0;
}
