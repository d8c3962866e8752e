// Namespaces of the simulator's own: /tmp, /var/tmp and System V objects that nobody else on the machine sees.
#include "sim/namespaces.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "sim/devices.h"

namespace ipcam::sim {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error("namespaces: " + what + ": " + std::strerror(errno));
}

void write_map(const char* path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  file.close();
  if (!file) fail(path);
}

// The user stays who it is.
void map_user(uid_t user, gid_t group) {
  write_map("/proc/self/setgroups", "deny");
  write_map("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1");
  write_map("/proc/self/gid_map", std::to_string(group) + " " + std::to_string(group) + " 1");
}

void mount_over(const std::string& source, const fs::path& target) {
  if (mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) fail(target);
}

// Puts an empty folder over a shared one. An open folder can be bound to its place again when its path no longer leads
// to it.
void cover(const fs::path& folder, const Paths& kept) {
  std::vector<std::pair<fs::path, int>> below;
  for (const fs::path& path : kept) {
    if (!path.string().starts_with(folder.string() + "/")) continue;
    below.emplace_back(path, open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  if (mount("camsim", folder.c_str(), "tmpfs", 0, "mode=1777") != 0) fail(folder);
  for (const auto& [path, descriptor] : below) {
    fs::create_directories(path);
    mount_over("/proc/self/fd/" + std::to_string(descriptor), path);
    close(descriptor);
  }
}

// "ipc:[4026531839]"; empty for a process that is gone, or another user's.
std::string namespace_of(const std::string& process, const char* kind) {
  std::error_code error;
  return fs::read_symlink("/proc/" + process + "/ns/" + kind, error).string();
}

// Whether the process has come from the caller's namespaces into its own: such a simulator keeps the ones it left open.
bool is_simulator_from_here(const fs::path& process, const std::string& here) {
  std::ifstream file(process / "comm");
  std::string name;
  if (!std::getline(file, name) || name != "camsim") return false;
  std::error_code error;
  for (const fs::directory_entry& descriptor : fs::directory_iterator(process / "fd", error)) {
    if (fs::read_symlink(descriptor.path(), error).string() == here) return true;
  }
  return false;
}

}  // namespace

void enter_own_namespaces(const Paths& covered, const Paths& kept) {
  const fs::path here = fs::current_path();
  const uid_t user = geteuid();
  const gid_t group = getegid();
  // Stays open as long as the process lives: `camsim exec` knows by it which simulator is meant.
  if (open("/proc/self/ns/ipc", O_RDONLY | O_CLOEXEC) < 0) fail("/proc/self/ns/ipc");
  // A user namespace gives anybody the right to make the others; root has it, and stays root of the machine.
  if (unshare(CLONE_NEWNS | CLONE_NEWIPC | (user != 0 ? CLONE_NEWUSER : 0)) != 0) fail("unshare");
  if (user != 0) map_user(user, group);
  // Without this the machine would see the mounts below as well.
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) fail("private mounts");
  Paths in_place = kept;
  in_place.push_back(here);
  // Beside bin/ there is lib/, which the program and what it starts need.
  in_place.push_back(fs::read_symlink("/proc/self/exe").parent_path().parent_path());
  for (const fs::path& folder : covered) cover(folder, in_place);
  fs::current_path(here);
}

void hide_devices() {
  for (const DeviceFile& device : kDeviceFiles) {
    if (fs::exists(device.path)) mount_over("/dev/null", device.path);
  }
}

void join_namespaces(pid_t pid) {
  const fs::path here = fs::current_path();
  const bool same_user = namespace_of(std::to_string(pid), "user") == namespace_of("self", "user");
  const auto process = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  if (process < 0) fail("process " + std::to_string(pid));
  const std::string tried = "joining process " + std::to_string(pid);
  if (setns(process, CLONE_NEWNS | CLONE_NEWIPC | (same_user ? 0 : CLONE_NEWUSER)) != 0) fail(tried);
  close(process);
  // That leads to the root of the whole mount namespace, which is not the process's own where it runs under chroot.
  if (chroot(("/proc/" + std::to_string(pid) + "/root").c_str()) != 0) fail(tried);
  fs::current_path(here);
}

std::optional<pid_t> find_own_simulator() {
  const std::string here = namespace_of("self", "ipc");
  std::optional<pid_t> found;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
    const std::string process = entry.path().filename();
    if (process.find_first_not_of("0123456789") != process.npos || namespace_of(process, "ipc") == here ||
        !is_simulator_from_here(entry.path(), here)) {
      continue;
    }
    if (found) {
      throw std::runtime_error("namespaces: several simulators (processes " + std::to_string(*found) + " and " +
                               process + "): choose one with --camera");
    }
    found = static_cast<pid_t>(std::stol(process));
  }
  return found;
}

}  // namespace ipcam::sim
