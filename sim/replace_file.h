// Files that are replaced as a whole.
#pragma once

#include <functional>
#include <string>

namespace ipcam::sim {

// Throws std::runtime_error when `path` is there and no file, or
// when its folder takes no new files.
void check_replaceable(const std::string& path);

// Lets `write` fill a temporary file, whose path it gets, and gives that file the name `path`: a
// reader finds the old content or the new, never a part. Throws std::runtime_error, the file as it
// was, when check_replaceable() or `write` does.
void replace_file(const std::string& path, const std::function<void(const std::string&)>& write);

}  // namespace ipcam::sim
