// Programs that take this one's place.
#pragma once

#include <string>
#include <vector>

namespace ipcam::workstation {

// Has a library loaded ahead of all others into the programs that are started from now on.
void preload(const std::string& library);

// Starts a program in this one's place, and returns only when that fails: the error number.
int execute(std::vector<std::string> command);

}  // namespace ipcam::workstation
