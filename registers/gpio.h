// Requests to the GPIO devices, and the record that goes with them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ipcam::gpio {

inline constexpr unsigned long kDirection = 0x4004B401;
inline constexpr unsigned long kWrite = 0x4004B402;
inline constexpr unsigned long kRead = 0xC004B403;

struct Record {
  std::uint8_t bits;  // levels of the lines; for the direction request the lines to make outputs
  std::uint8_t mask;  // lines concerned
  std::uint8_t reserved2[2] = {};
};
static_assert(sizeof(Record) == 4);
static_assert(offsetof(Record, bits) == 0 && offsetof(Record, mask) == 1 &&
              offsetof(Record, reserved2) == 2);

}  // namespace ipcam::gpio
