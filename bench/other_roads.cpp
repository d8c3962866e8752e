// The same request by other roads between two processes, for
// comparison: a Unix socket and a private D-Bus.
#include "bench/other_roads.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "ipcam/camera/dsp_command.h"

namespace ipcam::bench {

namespace {

constexpr char kPath[] = "/camera";
constexpr char kInterface[] = "camera.Registers";
constexpr char kMethod[] = "Exchange";

void demand(bool holds, const char* what) {
  if (holds) return;
  std::perror(what);
  std::exit(1);
}

// Forks a child that runs `serve` on one end of a socket pair of this type, and
// returns the child and the other end.
template <class Serve>
std::pair<pid_t, int> start_peer(int type, Serve serve) {
  int ends[2];
  demand(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends) == 0, "camera_bench: socketpair");
  const pid_t child = fork();
  demand(child >= 0, "camera_bench: fork");
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    close(ends[0]);
    serve(ends[1]);
    _exit(0);
  }
  close(ends[1]);
  return {child, ends[0]};
}

void end_peer(pid_t child) {
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

void echo(int socket) {
  camera::packet_info packet;
  while (read(socket, &packet, sizeof packet) == sizeof packet &&
         write(socket, &packet, sizeof packet) > 0) {
  }
}

int answer(sd_bus_message* call, void* /*data*/, sd_bus_error* /*error*/) {
  const void* bytes = nullptr;
  std::size_t size = 0;
  if (const int failed = sd_bus_message_read_array(call, 'y', &bytes, &size); failed < 0)
    return failed;
  sd_bus_message* reply = nullptr;
  if (const int failed = sd_bus_message_new_method_return(call, &reply); failed < 0) return failed;
  sd_bus_message_append_array(reply, 'y', bytes, size);
  const int sent = sd_bus_send(nullptr, reply, nullptr);
  sd_bus_message_unref(reply);
  return sent;
}

void serve_bus(int socket) {
  static constexpr sd_bus_vtable kTable[] = {
      SD_BUS_VTABLE_START(0),
      SD_BUS_METHOD(kMethod, "ay", "ay", answer, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};
  sd_id128_t id{};
  sd_bus* bus = nullptr;
  if (sd_id128_randomize(&id) < 0 || sd_bus_new(&bus) < 0 ||
      sd_bus_set_fd(bus, socket, socket) < 0 || sd_bus_set_server(bus, 1, id) < 0 ||
      sd_bus_add_object_vtable(bus, nullptr, kPath, kInterface, kTable, nullptr) < 0 ||
      sd_bus_start(bus) < 0) {
    return;
  }
  int done = 0;
  while ((done = sd_bus_process(bus, nullptr)) >= 0) {
    if (done == 0 && sd_bus_wait(bus, UINT64_MAX) < 0) return;
  }
}

}  // namespace

SocketPeer::SocketPeer() {
  const auto [child, socket] = start_peer(SOCK_SEQPACKET, echo);
  child_ = child;
  socket_ = socket;
}

SocketPeer::~SocketPeer() {
  close(socket_);
  end_peer(child_);
}

bool SocketPeer::exchange() {
  camera::packet_info packet{};
  return write(socket_, &packet, sizeof packet) == sizeof packet &&
         read(socket_, &packet, sizeof packet) == sizeof packet;
}

BusPeer::BusPeer() {
  const auto [child, socket] = start_peer(SOCK_STREAM, serve_bus);
  child_ = child;
  demand(
      sd_bus_new(&bus_) >= 0 && sd_bus_set_fd(bus_, socket, socket) >= 0 && sd_bus_start(bus_) >= 0,
      "camera_bench: private bus");
}

BusPeer::~BusPeer() {
  sd_bus_close_unref(bus_);
  end_peer(child_);
}

bool BusPeer::exchange() {
  const camera::packet_info packet{};
  sd_bus_message* call = nullptr;
  sd_bus_message* reply = nullptr;
  const void* bytes = nullptr;
  std::size_t size = 0;
  const bool is_answered =
      sd_bus_message_new_method_call(bus_, &call, nullptr, kPath, kInterface, kMethod) >= 0 &&
      sd_bus_message_append_array(call, 'y', &packet, sizeof packet) >= 0 &&
      sd_bus_call(bus_, call, 0, nullptr, &reply) >= 0 &&
      sd_bus_message_read_array(reply, 'y', &bytes, &size) >= 0 && size == sizeof packet;
  sd_bus_message_unref(reply);
  sd_bus_message_unref(call);
  return is_answered;
}

}  // namespace ipcam::bench
