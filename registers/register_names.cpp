// Symbolic names of the image processor's registers, from the rows of the register map.
#include "registers/register_names.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

#include "registers/words.h"

namespace ipcam::registers {

namespace {

constexpr bool is_group(const Register& row) { return row.kind != Kind::kBits; }

constexpr auto kGroups = [] {
  constexpr auto kCount = std::count_if(std::begin(kRegisters), std::end(kRegisters), is_group);
  std::array<Register, kCount> groups;
  std::copy_if(std::begin(kRegisters), std::end(kRegisters), groups.begin(), is_group);
  return groups;
}();

std::string name_in_group(const Register& group, int index) {
  std::string name(group.name);
  if (group.count == 2) return name + (index == 0 ? "_lo" : "_hi");
  if (group.count > 2) return name + "_" + std::to_string(index);
  return name;
}

std::optional<Address> parse_numbers(std::string_view text) {
  const std::size_t slash = text.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const auto category = parse_number(text.substr(0, slash));
  const auto byte = parse_number(text.substr(slash + 1));
  if (!category || !byte || *category < 0 || *category > 0xff || *byte < 0 || *byte > 0xffff)
    return std::nullopt;
  return Address{static_cast<std::uint8_t>(*category), static_cast<std::uint16_t>(*byte)};
}

}  // namespace

const Register* group_of(Address address) {
  const auto* group =
      std::find_if(std::begin(kGroups), std::end(kGroups), [&](const Register& row) {
        return row.first.category == address.category && row.first.byte <= address.byte &&
               address.byte < row.first.byte + row.count;
      });
  return group == std::end(kGroups) ? nullptr : group;
}

std::string register_name(Address address) {
  const Register* group = group_of(address);
  return group == nullptr ? "" : name_in_group(*group, address.byte - group->first.byte);
}

std::uint8_t register_mask(Address address) {
  const Register* group = group_of(address);
  return group == nullptr ? std::uint8_t{0xff} : mask_of(*group, address.byte - group->first.byte);
}

std::string meaning_of(const Register& row) {
  return std::string(row.meaning) + (row.kind == Kind::kReadOnly ? "; read only" : "");
}

std::string address_text(Address address) {
  char text[16];
  std::snprintf(text, sizeof text, "%d/0x%02x", address.category, address.byte);
  return text;
}

std::string register_text(Address address) {
  const std::string name = register_name(address);
  return address_text(address) + (name.empty() ? "" : " " + name);
}

std::optional<Address> parse_address(std::string_view text) {
  if (const auto address = parse_numbers(text)) return address;
  std::string name(text);
  std::replace(name.begin(), name.end(), '-', '_');  // as in names of settings
  for (const Register& group : kGroups) {
    if (name == group.name) return group.first;
    if (const int index = index_of(group, name); index >= 0) return group.first + index;
  }
  return std::nullopt;
}

std::set<Address> named_registers() {
  std::set<Address> addresses;
  for (const Register& group : kGroups) {
    for (int i = 0; i < group.count; ++i) addresses.insert(group.first + i);
  }
  return addresses;
}

std::vector<std::string> register_names() {
  std::vector<std::string> names;
  for (const Address& address : named_registers()) names.push_back(register_name(address));
  return names;
}

}  // namespace ipcam::registers
