// Files that are replaced as a whole.
#include "workstation/replace_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace ipcam::workstation {

void check_replaceable(const std::string& path) {
  std::error_code ignored;
  if (std::filesystem::exists(path, ignored) && !std::filesystem::is_regular_file(path, ignored)) {
    throw std::runtime_error(path + ": cannot be written: not a file");
  }
  const std::string folder = std::filesystem::path(path).parent_path().string();
  if (access(folder.empty() ? "." : folder.c_str(), W_OK) != 0) {
    throw std::runtime_error(path + ": cannot be written: " + std::strerror(errno));
  }
}

void replace_file(const std::string& path, const std::string& content) {
  check_replaceable(path);
  const std::string temporary = path + "." + std::to_string(getpid());
  std::ofstream file(temporary, std::ios::binary);
  file << content << std::flush;
  if (file && std::rename(temporary.c_str(), path.c_str()) == 0) return;
  const std::string reason = file ? std::string(": ") + std::strerror(errno) : "";
  unlink(temporary.c_str());
  throw std::runtime_error(path + ": cannot be written" + reason);
}

}  // namespace ipcam::workstation
