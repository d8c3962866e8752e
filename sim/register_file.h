// Files of registers: one REGISTER=VALUE a line.
#pragma once

#include <string>

#include "sim/switchboard.h"

namespace ipcam::sim {

// Registers are addresses or names; blank lines and what follows a '#' are skipped. A bad line
// throws UsageError, and no register is changed.
void load_registers(Switchboard& board, const std::string& path);

// Writes every register that is not 0, or not as a new switchboard has it, in ascending order and
// with its name behind it: "10/0x09=0x80  # saturation". Loaded into a new switchboard, the file
// gives the same registers. Throws std::runtime_error.
void save_registers(const Switchboard& board, const std::string& path);

}  // namespace ipcam::sim
