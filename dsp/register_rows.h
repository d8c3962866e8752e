// Rows of parameter tables by the names of the register map, and reads and writes by such rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "ipcam/camera/dsp_command.h"
#include "registers/register_map.h"

namespace ipcam::camera {

// A row that reads a register.
consteval param_info read_row(std::string_view name) {
  const registers::Bits bits = registers::bits(name);
  return {.category = bits.address.category, .byte = bits.address.byte, .mask = bits.mask};
}

void register_is_read_only();  // never defined: where the compiler reports a row that writes such a register

// A row that writes a register, or the part of one that has the name.
consteval param_info row(std::string_view name, std::uint8_t data = 0) {
  if (registers::bits(name).is_read_only) register_is_read_only();
  param_info entry = read_row(name);
  entry.data = data;
  return entry;
}

}  // namespace ipcam::camera
