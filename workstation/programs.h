// Programs that take this one's place.
#pragma once

#include <string>
#include <vector>

namespace ipcam::workstation {

// Has a library loaded ahead of all others into the programs that are started from now on. Throws
// std::runtime_error when its path is none for the dynamic linker.
void preload(const std::string& library);

// Starts a program in this one's place, and returns only when that fails: the error number.
int execute(std::vector<std::string> command);

}  // namespace ipcam::workstation
