// camctl set --dry-run: the requests against a private simulated camera that holds the real one's register values.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>

#include "sim/simulated_camera.h"
#include "tools/commands.h"
#include "tools/link_state.h"
#include "tools/stored_record.h"

namespace ipcam::tools {

namespace {

constexpr char kTried[] = "dry run";

using Registers = std::map<Address, std::uint8_t>;

Registers read_named_registers(Context& context) {
  std::vector<Address> addresses;
  for (const registers::RegisterGroup& group : registers::register_groups()) {
    for (int i = 0; i < group.count; ++i) {
      addresses.push_back({group.first.category, static_cast<std::uint16_t>(group.first.byte + i)});
    }
  }
  context.out.progress("dry run: reading registers");
  const LibraryMute mute;
  const std::vector<std::uint8_t> values = BorrowedPort(context, kTried)->read(addresses, kTried);
  context.out.progress("");
  Registers registers;
  for (std::size_t i = 0; i < addresses.size(); ++i) registers[addresses[i]] = values[i];
  return registers;
}

void require(bool is_done, const std::string& step) {
  if (is_done) return;
  throw CommandError(kUsage, std::string(kTried) + ": " + step + ": " + std::strerror(errno));
}

void write_file(const char* path, const std::string& text) {
  const int file = open(path, O_WRONLY | O_CLOEXEC);
  const bool is_written = file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  const int reason = errno;
  if (file >= 0) close(file);
  errno = reason;
  require(is_written, path);
}

// System V objects, /tmp and the stored settings of this process's own, and the camera's GPIO devices out of reach:
// nothing that the requests do gets to the real camera.
void enter_private_world(const camera::SettingsRecord& settings) {
  const bool is_root = geteuid() == 0;
  const std::string uid = std::to_string(geteuid());
  const std::string gid = std::to_string(getegid());
  require(unshare(CLONE_NEWNS | CLONE_NEWIPC | (is_root ? 0 : CLONE_NEWUSER)) == 0, "namespaces");
  if (!is_root) {
    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/uid_map", uid + " " + uid + " 1");
    write_file("/proc/self/gid_map", gid + " " + gid + " 1");
  }
  require(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
  require(mount("none", "/tmp", "tmpfs", 0, nullptr) == 0, "private /tmp");
  for (const char* device : {"/dev/gpio-0", "/dev/gpio-4"}) {
    if (access(device, F_OK) == 0) require(mount("/dev/null", device, nullptr, MS_BIND, nullptr) == 0, device);
  }
  unsetenv("CAMSIM_DEVICES_DIR");
  setenv("IPCAM_CONFIG_DIR", "/tmp", 1);
  write_stored_record(settings, kTried);
}

int run_in_private_world(Context& context, const std::vector<Request>& requests, const Registers& registers,
                         const camera::SettingsRecord& settings) try {
  enter_private_world(settings);
  sim::SimulatedCamera camera;
  camera.start();
  for (const auto& [address, value] : registers) camera.set_reg(address.category, address.byte, value);
  CameraSession session(kTried);
  Context inner{context.out, &session};
  run_requests(inner, requests);
  context.out.finish();
  return kDone;
} catch (const CommandError& error) {
  context.out.fail(error);
  return error.code();
} catch (const std::exception& error) {
  context.out.fail(CommandError(kUsage, std::string(kTried) + ": " + error.what()));
  return kUsage;
}

int exit_code_of(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : static_cast<int>(kRefused);
}

// A process with a control thread has no use for a fork alone: its thread would be missing in the child.
int run_own_program(Context& context, const Words& command_line) {
  std::vector<char*> arguments;
  Words copy = command_line;
  copy.insert(copy.begin(), "camctl");
  if (context.out.is_json()) copy.push_back("--json");
  for (std::string& word : copy) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const pid_t child = fork();
  require(child >= 0, "fork");
  if (child == 0) {
    dup2(context.out.results_fd(), STDOUT_FILENO);
    execv("/proc/self/exe", arguments.data());
    context.out.fail(CommandError(kUsage, std::string(kTried) + ": camctl: " + std::strerror(errno)));
    _exit(kUsage);
  }
  return exit_code_of(child);
}

}  // namespace

int run_dry(Context& context, const std::vector<Request>& requests, const Words& command_line) {
  if (context.session != nullptr) return run_own_program(context, command_line);
  const auto settings = read_stored_record();
  if (!settings) throw CommandError(kUsage, std::string(kTried) + ": the stored settings cannot be read");
  const Registers registers = read_named_registers(context);
  const pid_t child = fork();
  require(child >= 0, "fork");
  if (child == 0) _exit(run_in_private_world(context, requests, registers, *settings));
  return exit_code_of(child);
}

}  // namespace ipcam::tools
