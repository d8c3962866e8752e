// Numbers written as text: decimal, hexadecimal ("0x") or octal (leading
// "0"), as strtol with base 0 reads them.
#pragma once

#include <cstdint>

namespace ipcam::camera {

// Reads the whole of `text` as one number, with leading white space and a sign accepted.
// The result is that of a 32-bit `long` whatever the build's is: a number beyond the 32-bit range
// becomes the nearest end of the range. Returns false, with `value` unchanged, for a null or empty
// text and for one that holds anything but the number.
bool parse_number(const char* text, std::int32_t& value);

}  // namespace ipcam::camera
