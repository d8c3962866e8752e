// Files that are replaced as a whole.
#pragma once

#include <functional>
#include <string>

namespace ipcam::sim {

// Lets `write` fill a temporary file, whose path it gets, and gives that file the name `path`: a reader finds the old
// content or the new, never a part. Throws std::runtime_error, the file as it was, when `path` is something other
// than a file, or when `write` throws.
void replace_file(const std::string& path, const std::function<void(const std::string&)>& write);

}  // namespace ipcam::sim
