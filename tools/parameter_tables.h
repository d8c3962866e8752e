// Every exported parameter table of the library, by its name.
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

std::vector<ParameterTable> parameter_tables();

inline Address address_of(const camera::param_info& row) {
  return {row.category, static_cast<std::uint16_t>(row.byte)};
}

}  // namespace ipcam::tools
