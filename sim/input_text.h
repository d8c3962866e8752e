// What users of the simulated camera write: numbers, registers and faults.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "registers/register_names.h"
#include "sim/switchboard.h"

namespace ipcam::sim {

// "what was tried: what was wrong (value, what is allowed)".
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// All of them throw UsageError; `tried` leads its text.

// Calls `use` with the lines of a file and their places, "FILE line 7". Blank lines and what
// follows a '#' are skipped; a file without any other line is an error.
void for_each_line(
    const std::string& path,
    const std::function<void(const std::string& where, const std::string& line)>& use);

// A number from 0, in decimal or in hexadecimal with "0x".
std::uint32_t parse_number(const std::string& tried, std::string_view text, std::uint32_t maximum);

// "saturation=0x40" or "10/0x09=64,65,66": the register and its values,
// of which there must be one or more.
struct RegisterValues {
  registers::Address address;
  std::vector<std::uint8_t> values;
};
RegisterValues parse_register_values(const std::string& tried, std::string_view text);
// The same with exactly one value.
RegisterValues parse_register_value(const std::string& tried, std::string_view text);
registers::Address parse_register(const std::string& tried, std::string_view text);

// "NAME[:EXCHANGE[:COUNT[:ENTRY]]]"
PlannedFault parse_fault(const std::string& tried, std::string_view text);

}  // namespace ipcam::sim
