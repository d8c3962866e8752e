// Files of registers: one REGISTER=VALUE a line.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "registers/register_names.h"

namespace ipcam::sim {

using RegisterMap = std::map<registers::Address, std::uint8_t>;

// Registers are addresses or names; blank lines and what follows a '#' are skipped. Throws
// UsageError.
RegisterMap read_register_file(const std::string& path);

// In ascending order, with the name behind it: "10/0x09=0x80  # saturation".
std::string register_file_text(const RegisterMap& registers);

}  // namespace ipcam::sim
