// saturation_requests N: starts the library, asks for a saturation, then N times more, and ends.
// For counting instructions. Says on standard error how many microseconds each of the N took.
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "bench/comm_peer.h"
#include "bench/isolate.h"
#include "ipcam/camera/camera_interface.h"
#include "ipcam/camera/camera_request.h"
#include "ipcam/comm/port_inf.h"

namespace {

bool ask() {
  ipcam::camera::s_cam_cgi_cmd command{};
  command.code = ipcam::camera::REQUEST_SATURATION;
  command.value = 3;
  return ipcam::camera::cam_cgi_command(&command) == 0 && command.result == 0;
}

}  // namespace

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
  if (!ask()) return 1;  // it waits for the start-up, and perhaps for what begins once
  const auto begin = std::chrono::steady_clock::now();
  for (long i = 0; i < requests; ++i) {
    if (!ask()) return 1;
  }
  const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - begin;
  std::fprintf(stderr, "%.3f\n", took.count() / static_cast<double>(requests));
  ipcam::camera::delete_camera_IF(nullptr);
  return 0;
}
