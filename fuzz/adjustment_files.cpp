// Any bytes as the factory adjustment files: the first byte says how many belong to the first one.
#include <algorithm>
#include <string>

#include "fuzz/fake_camera.h"
#include "ipcam/camera/camera_interface.h"
#include "ipcam/camera/camera_request.h"
#include "ipcam/comm/port_inf.h"

using ipcam::fuzz::require;
using ipcam::fuzz::set_file;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::size_t camera_size = size == 0 ? 0 : std::min<std::size_t>(data[0], size - 1);
  set_file("/var/tmp/AdjCamera.txt", bytes.substr(std::min<std::size_t>(1, size), camera_size));
  const std::string wb = bytes.substr(std::min(camera_size + 1, size));
  set_file("/var/tmp/AdjWbHalfPixels.txt", wb);
  set_file("/var/tmp/AdjWbAllPixels.txt", wb);

  std::uint8_t settings[880] = {};
  settings[68] = 1;
  settings[140] = 1;
  ipcam::fuzz::set_settings(settings, sizeof settings);
  ipcam::comm::s_port_inf port{};
  require(ipcam::camera::new_camera_ctrl(&port) == 0, "the control thread starts");
  ipcam::camera::s_cam_cgi_cmd command{};
  command.code = 74;
  require(ipcam::camera::cam_cgi_command(&command) == 0, "the binning request is served");
  ipcam::camera::delete_camera_IF(nullptr);
  return 0;
}
