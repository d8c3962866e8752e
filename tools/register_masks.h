// The bits of registers that the library uses, as its exported parameter tables have them.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "ipcam/camera/dsp_command.h"
#include "registers/register_names.h"

namespace ipcam::tools {

using registers::Address;

struct ParameterTable {
  std::string_view name;
  std::span<const camera::param_info> rows;
};

// Every exported parameter table.
std::vector<ParameterTable> parameter_tables();

// Bits in use of a register: of its name's row, else of all tables with it, else all.
std::uint8_t register_mask(Address address);

inline Address address_of(const camera::param_info& row) {
  return {row.category, static_cast<std::uint16_t>(row.byte)};
}

}  // namespace ipcam::tools
