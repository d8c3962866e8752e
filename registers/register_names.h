// Symbolic names of the image processor's registers.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "registers/register_map.h"

namespace ipcam::registers {

// The row of the map that a register stands in under a name of its own; null when it has none.
const Register* group_of(Address address);

// "saturation", "fixed_gain_lo", "cgamma_3"; empty when the register has no name.
std::string register_name(Address address);
// With what kind of register it is.
std::string meaning_of(const Register& row);
// Bits in use of a register; all of one without a name.
std::uint8_t register_mask(Address address);
// "10/0x09".
std::string address_text(Address address);
// "10/0x09 saturation", or the address alone.
std::string register_text(Address address);

// "10/0x09", "10/9" or a name. A group's name stands for its first register.
std::optional<Address> parse_address(std::string_view text);
// All registers that have a name, in ascending order, and their names.
std::set<Address> named_registers();
std::vector<std::string> register_names();

}  // namespace ipcam::registers
