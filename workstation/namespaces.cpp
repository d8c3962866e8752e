// Namespaces of a process's own: a /tmp and System V objects that nobody else on the machine sees.
#include "workstation/namespaces.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace ipcam::workstation {
namespace {

namespace fs = std::filesystem;

void write_map(const char* path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  file.close();
  if (!file) fail_in_namespaces(path);
}

// The user stays who it is.
void map_user(uid_t user, gid_t group) {
  write_map("/proc/self/setgroups", "deny");
  write_map("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1");
  write_map("/proc/self/gid_map", std::to_string(group) + " " + std::to_string(group) + " 1");
}

void mount_over(const std::string& source, const fs::path& target) {
  if (mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
    fail_in_namespaces(target);
}

// Puts an empty folder over a shared one. An open folder can be bound to its place again
// when its path no longer leads to it.
void cover(const fs::path& folder, const Paths& kept) {
  std::vector<std::pair<fs::path, int>> below;
  for (const fs::path& path : kept) {
    if (!path.string().starts_with(folder.string() + "/")) continue;
    below.emplace_back(path, open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
  if (mount("tmpfs", folder.c_str(), "tmpfs", 0, "mode=1777") != 0) fail_in_namespaces(folder);
  for (const auto& [path, descriptor] : below) {
    fs::create_directories(path);
    mount_over("/proc/self/fd/" + std::to_string(descriptor), path);
    close(descriptor);
  }
}

}  // namespace

void fail_in_namespaces(const std::string& tried) {
  throw std::runtime_error("namespaces: " + tried + ": " + std::strerror(errno));
}

void enter_own_namespaces(const Paths& covered, const Paths& kept) {
  const fs::path here = fs::current_path();
  const uid_t user = geteuid();
  const gid_t group = getegid();
  // A user namespace gives anybody the right to make the others; root
  // has it, and stays root of the machine.
  if (unshare(CLONE_NEWNS | CLONE_NEWIPC | (user != 0 ? CLONE_NEWUSER : 0)) != 0)
    fail_in_namespaces("unshare");
  if (user != 0) map_user(user, group);
  // Without this the machine would see the mounts below as well.
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    fail_in_namespaces("private mounts");
  Paths in_place = kept;
  in_place.push_back(here);
  // Beside bin/ there is lib/, which the program and what it starts need.
  in_place.push_back(fs::read_symlink("/proc/self/exe").parent_path().parent_path());
  for (const fs::path& folder : covered) cover(folder, in_place);
  fs::current_path(here);
}

void hide(const fs::path& file) {
  if (fs::exists(file)) mount_over("/dev/null", file);
}

}  // namespace ipcam::workstation
