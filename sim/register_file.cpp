// Files of registers: one REGISTER=VALUE a line.
#include "sim/register_file.h"

#include <cctype>
#include <cstdio>

#include "sim/input_text.h"

namespace ipcam::sim {

RegisterMap read_register_file(const std::string& path) {
  RegisterMap registers;
  for_each_line(path, [&](const std::string& where, std::string line) {
    std::erase_if(line, [](unsigned char c) { return std::isspace(c) != 0; });
    const RegisterValues row = parse_register_value(where, line);
    registers[row.address] = row.values[0];
  });
  return registers;
}

std::string register_file_text(const RegisterMap& registers) {
  std::string text;
  for (const auto& [address, value] : registers) {
    const std::string name = registers::register_name(address);
    char number[8];
    std::snprintf(number, sizeof number, "=0x%02x", value);
    text += registers::address_text(address) + number + (name.empty() ? "" : "  # ") + name + "\n";
  }
  return text;
}

}  // namespace ipcam::sim
