// saturation_requests N: starts the library, asks N times for a saturation,
// and ends. For counting instructions.
#include <cstdio>
#include <cstdlib>

#include "bench/comm_peer.h"
#include "bench/isolate.h"
#include "ipcam/camera/camera_interface.h"
#include "ipcam/camera/camera_request.h"
#include "ipcam/comm/port_inf.h"

int main(int argc, char** argv) {
  const long requests = argc == 2 ? std::strtol(argv[1], nullptr, 10) : 0;
  if (requests <= 0) {
    std::fprintf(stderr, "usage: saturation_requests N\n");
    return 2;
  }
  ipcam::bench::isolate();
  const ipcam::bench::CommPeer peer(ipcam::bench::make_link_key());
  ipcam::comm::s_port_inf port{};
  if (ipcam::camera::new_camera_ctrl(&port) != 0) return 1;
  for (long i = 0; i < requests; ++i) {
    ipcam::camera::s_cam_cgi_cmd command{};
    command.code = ipcam::camera::REQUEST_SATURATION;
    command.value = 3;
    if (ipcam::camera::cam_cgi_command(&command) != 0 || command.result != 0) return 1;
  }
  ipcam::camera::delete_camera_IF(nullptr);
  return 0;
}
