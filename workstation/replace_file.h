// Files that are replaced as a whole.
#pragma once

#include <string>

namespace ipcam::workstation {

// Throws std::runtime_error when `path` is there and no file, or
// when its folder takes no new files.
void check_replaceable(const std::string& path);

// A reader finds the old content or the new, never a part. Throws std::runtime_error, the file as
// it was, when check_replaceable() does or the new content cannot be written.
void replace_file(const std::string& path, const std::string& content);

}  // namespace ipcam::workstation
