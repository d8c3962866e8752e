// Files of registers: one REGISTER=VALUE a line.
#include "sim/register_file.h"

#include <cctype>
#include <cstdio>
#include <fstream>
#include <vector>

#include "sim/input_text.h"
#include "sim/replace_file.h"

namespace ipcam::sim {

void load_registers(Switchboard& board, const std::string& path) {
  std::vector<RegisterValues> registers;
  for_each_line(path, [&](const std::string& where, std::string line) {
    std::erase_if(line, [](unsigned char c) { return std::isspace(c) != 0; });
    registers.push_back(parse_register_value(where, line));
  });
  for (const RegisterValues& row : registers)
    board.set_reg(row.address.category, row.address.byte, row.values[0]);
}

void save_registers(const Switchboard& board, const std::string& path) {
  const SharedSwitchboard fresh;
  replace_file(path, [&](const std::string& temporary) {
    std::ofstream file(temporary);
    for (std::uint32_t category = 0; category < std::size(board.registers); ++category) {
      for (std::uint32_t byte = 0; byte < std::size(board.registers[0]); ++byte) {
        const std::uint8_t value = board.reg(category, byte);
        if (value == 0 && fresh->reg(category, byte) == 0) continue;
        const registers::Address address{static_cast<std::uint8_t>(category),
                                         static_cast<std::uint16_t>(byte)};
        const std::string name = registers::register_name(address);
        char text[8];
        std::snprintf(text, sizeof(text), "=0x%02x", value);
        file << registers::address_text(address) << text << (name.empty() ? "" : "  # ") << name
             << '\n';
      }
    }
    file.close();
    if (!file) throw std::runtime_error(path + ": cannot be written");
  });
}

}  // namespace ipcam::sim
