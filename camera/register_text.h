// Texts of register writes by the names of the register map, for commands
// that are printed before they are run.
#pragma once

#include <string_view>

#include "dsp/register_rows.h"

namespace ipcam::camera {

// A write up to its data, category, byte number and mask: behind "w," at the beginning of a
// command, behind ";" after other writes.
struct WritePrefix {
  char text[16] = {};  // one that is longer does not compile
};

consteval WritePrefix write_prefix(std::string_view start, std::string_view name) {
  WritePrefix prefix;
  char* end = prefix.text;
  const auto put = [&end](std::string_view text) {
    for (const char letter : text) *end++ = letter;
  };
  const auto put_decimal = [&end](int number) {
    int unit = 1;
    while (number / unit >= 10) unit *= 10;
    for (; unit > 0; unit /= 10) *end++ = static_cast<char>('0' + number / unit % 10);
  };
  const param_info entry = row(name);
  constexpr char kDigits[] = "0123456789abcdef";
  const char mask[] = {kDigits[entry.mask >> 4], kDigits[entry.mask & 0xf]};
  put(start);
  put_decimal(entry.category);
  put(",");
  put_decimal(entry.byte);
  put(",0x");
  put({mask, 2});
  put(",");
  return prefix;
}
consteval WritePrefix first_write(std::string_view name) { return write_prefix("w,", name); }
consteval WritePrefix next_write(std::string_view name) { return write_prefix(";", name); }

}  // namespace ipcam::camera
