// Runs the tests of one program in namespaces of their own: /tmp, /var/tmp, camera devices and System V objects.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// Shared names are no way out: a test that used them could meet a running simulator, or another test.
[[noreturn]] void give_up(const std::string& what) {
  std::fprintf(stderr, "tests need namespaces of their own (as root, or under unshare --map-root-user): %s: %s\n",
               what.c_str(), std::strerror(errno));
  std::exit(1);
}

void write_map(const char* path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  file.close();
  if (!file) give_up(path);
}

void enter_namespaces() {
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  if (unshare(CLONE_NEWNS | CLONE_NEWIPC | (uid != 0 ? CLONE_NEWUSER : 0)) != 0) give_up("unshare");
  if (uid != 0) {
    write_map("/proc/self/setgroups", "deny");
    write_map("/proc/self/uid_map", std::to_string(uid) + " " + std::to_string(uid) + " 1");
    write_map("/proc/self/gid_map", std::to_string(gid) + " " + std::to_string(gid) + " 1");
  }
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) give_up("private mounts");
}

bool is_below(const fs::path& path, const fs::path& directory) {
  const fs::path relative = path.lexically_relative(directory);
  return !relative.empty() && *relative.begin() != ".." && *relative.begin() != ".";
}

// Puts an empty directory over a shared one; folders below it that the tests need stay where they are.
void cover(const fs::path& directory) {
  struct Kept {
    fs::path path;
    int fd;
  };
  std::vector<Kept> kept;
  for (const fs::path& path : {fs::path(TEST_SOURCE_DIR), fs::path(TEST_BINARY_DIR), fs::current_path()}) {
    if (is_below(path, directory)) kept.push_back({path, open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)});
  }
  if (mount("tests", directory.c_str(), "tmpfs", 0, "mode=1777") != 0) give_up(directory);
  for (const Kept& folder : kept) {
    fs::create_directories(folder.path);
    const std::string source = "/proc/self/fd/" + std::to_string(folder.fd);
    if (mount(source.c_str(), folder.path.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) give_up(folder.path);
    close(folder.fd);
  }
}

// The stand-ins take these names before they reach the system; real hardware must be out of reach all the same.
void hide_devices() {
  for (const char* device : {"/dev/gpio-0", "/dev/gpio-4", "/dev/corvo2_gpio-0", "/dev/mtdblock3", "/dev/mem"}) {
    if (access(device, F_OK) == 0 && mount("/dev/null", device, nullptr, MS_BIND, nullptr) != 0) give_up(device);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const fs::path here = fs::current_path();
  enter_namespaces();
  cover("/tmp");
  cover("/var/tmp");
  hide_devices();
  fs::current_path(here);  // the working directory may have been covered
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
