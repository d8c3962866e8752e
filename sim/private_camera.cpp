// A camera in namespaces of its own, and the commands that are brought to it.
#include "sim/private_camera.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "workstation/stored_record.h"

namespace ipcam::sim {
namespace {

namespace fs = std::filesystem;
using workstation::fail_in_namespaces;

// In the camera's namespaces; for callers who have no stored settings, or cannot see them there.
constexpr char kSampleFolder[] = "/tmp";

// "ipc:[4026531839]"; empty for a process that is gone, or another user's.
std::string namespace_of(const std::string& process, const char* kind) {
  std::error_code error;
  return fs::read_symlink("/proc/" + process + "/ns/" + kind, error).string();
}

// Whether the process has come from the caller's namespaces into its own: such a
// camera keeps the ones it left open.
bool is_camera_from_here(const fs::path& process, const std::string& here) {
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

void enter_sandbox(const workstation::Paths& kept) {
  // Stays open as long as the process lives: `camsim exec` knows by it which camera is meant.
  if (open("/proc/self/ns/ipc", O_RDONLY | O_CLOEXEC) < 0) fail_in_namespaces("/proc/self/ns/ipc");
  workstation::enter_own_namespaces({"/tmp", "/var/tmp"}, kept);
  setenv("IPCAM_CONFIG_DIR", kSampleFolder, 1);
  if (workstation::write_stored_record(workstation::sample_record())) return;
  throw std::runtime_error("sample settings: cannot be written");
}

void join_private_camera(pid_t camera) {
  const fs::path here = fs::current_path();
  const std::string process = std::to_string(camera);
  const bool same_user = namespace_of(process, "user") == namespace_of("self", "user");
  const std::string tried = "joining process " + process;
  const auto descriptor = static_cast<int>(syscall(SYS_pidfd_open, camera, 0));
  if (descriptor < 0) fail_in_namespaces("process " + process);
  if (setns(descriptor, CLONE_NEWNS | CLONE_NEWIPC | (same_user ? 0 : CLONE_NEWUSER)) != 0)
    fail_in_namespaces(tried);
  close(descriptor);
  // That leads to the root of the whole mount namespace, which is not the
  // process's own where it runs under chroot.
  if (chroot(("/proc/" + process + "/root").c_str()) != 0) fail_in_namespaces(tried);
  fs::current_path(here);
  if (!fs::exists(workstation::stored_record_path())) setenv("IPCAM_CONFIG_DIR", kSampleFolder, 1);
}

std::optional<pid_t> find_private_camera() {
  const std::string here = namespace_of("self", "ipc");
  std::optional<pid_t> found;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
    const std::string process = entry.path().filename();
    if (process.find_first_not_of("0123456789") != process.npos ||
        namespace_of(process, "ipc") == here || !is_camera_from_here(entry.path(), here)) {
      continue;
    }
    if (found) {
      throw std::runtime_error("namespaces: several simulators (processes " +
                               std::to_string(*found) + " and " + process +
                               "): choose one with --camera");
    }
    found = static_cast<pid_t>(std::stol(process));
  }
  return found;
}

}  // namespace ipcam::sim
