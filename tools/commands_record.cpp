// camctl record: a program in this one's place, with the recorder preloaded.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "ipcam/camera/camera_request.h"
#include "tools/commands.h"
#include "workstation/programs.h"

namespace ipcam::tools {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& what, const std::string& reason) {
  throw CommandError(kUsage, "record: " + what + ": " + reason);
}

// Lies in a folder beside the library.
std::string recorder_path() {
  Dl_info library = {};
  if (dladdr(reinterpret_cast<const void*>(&camera::cam_cgi_command), &library) == 0)
    fail("recorder", "the library cannot be found");
  std::string path =
      fs::canonical(library.dli_fname).replace_filename("camctl/libcamera_ctrl_recorder.so");
  if (access(path.c_str(), R_OK) != 0) fail(path, std::strerror(errno));
  return path;
}

// Tries what the recorder will do at the program's first request.
void check_file(const std::string& file) {
  const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) fail(file, errno == EEXIST ? "there already" : std::strerror(errno));
  close(fd);
  unlink(file.c_str());
}

}  // namespace

void record(const std::string& file, int limit, const Words& command) {
  const std::string path = fs::absolute(file);
  const std::string recorder = recorder_path();
  check_file(path);
  workstation::preload(recorder);
  setenv("CAMERA_CTRL_RECORD_FILE", path.c_str(), 1);
  setenv("CAMERA_CTRL_RECORD_LIMIT", std::to_string(limit).c_str(), 1);
  fail(command[0], std::strerror(workstation::execute(command)));
}

}  // namespace ipcam::tools
