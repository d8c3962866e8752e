// Symbolic names of the image processor's registers.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ipcam::registers {

struct Address {
  std::uint8_t category = 0;
  std::uint16_t byte = 0;
  auto operator<=>(const Address&) const = default;
};

// Registers that follow one another and belong together; a row of the data file.
struct RegisterGroup {
  Address first;
  std::uint16_t count;
  std::uint8_t mask;  // bits in use; 0: see the parameter tables
  std::string_view name;
  std::string_view meaning;
};

// In ascending order of addresses.
std::span<const RegisterGroup> register_groups();
// Null when the register has no name.
const RegisterGroup* group_of(Address address);

// "saturation", "fixed_gain_lo", "cgamma_3"; empty when the register has no name.
std::string register_name(Address address);
// "10/0x09".
std::string address_text(Address address);

// "10/0x09", "10/9" or a name. A group's name stands for its first register.
std::optional<Address> parse_address(std::string_view text);
// Names of all registers, one by one.
std::vector<std::string> register_names();

}  // namespace ipcam::registers
