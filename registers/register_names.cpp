// Symbolic names of the image processor's registers, from the rows of registers.def.
#include "registers/register_names.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "registers/words.h"

namespace ipcam::registers {

namespace {

constexpr std::uint8_t TABLE = 0;

constexpr RegisterGroup kGroups[] = {
#define REGISTERS(category, byte, count, mask, name, meaning) {{category, byte}, count, mask, name, meaning},
#include "tools/registers.def"
#undef REGISTERS
};

constexpr std::uint16_t end_of(const RegisterGroup& group) {
  return static_cast<std::uint16_t>(group.first.byte + group.count);
}

static_assert(std::adjacent_find(std::begin(kGroups), std::end(kGroups),
                                 [](const RegisterGroup& a, const RegisterGroup& b) {
                                   return a.first >= b.first ||
                                          (a.first.category == b.first.category && end_of(a) > b.first.byte);
                                 }) == std::end(kGroups),
              "ascending, and no register twice");

std::string name_in_group(const RegisterGroup& group, int index) {
  std::string name(group.name);
  if (group.count == 2) return name + (index == 0 ? "_lo" : "_hi");
  if (group.count > 2) return name + "_" + std::to_string(index);
  return name;
}

Address address_in_group(const RegisterGroup& group, int index) {
  return {group.first.category, static_cast<std::uint16_t>(group.first.byte + index)};
}

std::optional<Address> parse_numbers(std::string_view text) {
  const std::size_t slash = text.find('/');
  if (slash == std::string_view::npos) return std::nullopt;
  const auto category = parse_number(text.substr(0, slash));
  const auto byte = parse_number(text.substr(slash + 1));
  if (!category || !byte || *category < 0 || *category > 0xff || *byte < 0 || *byte > 0xffff) return std::nullopt;
  return Address{static_cast<std::uint8_t>(*category), static_cast<std::uint16_t>(*byte)};
}

}  // namespace

std::span<const RegisterGroup> register_groups() { return kGroups; }

const RegisterGroup* group_of(Address address) {
  const auto* group = std::find_if(std::begin(kGroups), std::end(kGroups), [&](const RegisterGroup& row) {
    return row.first.category == address.category && row.first.byte <= address.byte && address.byte < end_of(row);
  });
  return group == std::end(kGroups) ? nullptr : group;
}

std::string register_name(Address address) {
  const RegisterGroup* group = group_of(address);
  return group == nullptr ? "" : name_in_group(*group, address.byte - group->first.byte);
}

std::string address_text(Address address) {
  char text[16];
  std::snprintf(text, sizeof text, "%d/0x%02x", address.category, address.byte);
  return text;
}

std::optional<Address> parse_address(std::string_view text) {
  if (const auto address = parse_numbers(text)) return address;
  for (const RegisterGroup& group : kGroups) {
    if (!text.starts_with(group.name.substr(0, 1))) continue;
    if (same_name(text, group.name)) return group.first;
    for (int i = 0; i < group.count; ++i) {
      if (same_name(text, name_in_group(group, i))) return address_in_group(group, i);
    }
  }
  return std::nullopt;
}

std::vector<std::string> register_names() {
  std::vector<std::string> names;
  for (const RegisterGroup& group : kGroups) {
    for (int i = 0; i < group.count; ++i) names.push_back(name_in_group(group, i));
  }
  return names;
}

}  // namespace ipcam::registers
