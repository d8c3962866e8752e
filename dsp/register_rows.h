// Rows of parameter tables by the names of the register map, and reads and writes by such rows.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "dsp/packet.h"
#include "ipcam/camera/dsp_command.h"
#include "registers/register_map.h"

namespace ipcam::camera {

// A row that reads a register.
consteval param_info read_row(std::string_view name) {
  const registers::Bits bits = registers::bits(name);
  return {.category = bits.address.category, .byte = bits.address.byte, .mask = bits.mask};
}

void register_is_read_only();  // never defined: where the compiler reports a row that writes such a
                               // register

// A row that writes a register, or the part of one that has the name.
consteval param_info row(std::string_view name, std::uint8_t data = 0) {
  if (registers::bits(name).is_read_only) register_is_read_only();
  param_info entry = read_row(name);
  entry.data = data;
  return entry;
}

// Puts 16-bit values into two rows each, low byte first.
inline void fill_words(param_info* rows, std::span<const std::uint16_t> words) {
  for (const std::uint16_t word : words) {
    (rows++)->data = static_cast<std::uint8_t>(word & 0xff);
    (rows++)->data = static_cast<std::uint8_t>(word >> 8);
  }
}

// What a read gave: one byte per row, zero where nothing was read.
struct RegisterReply {
  int result = 0;  // as DspCommand::do_debug() returns it; -1 when the command failed
  unsigned char bytes[kMaxCommands] = {};
};

// Neither changes the rows, although do_debug() takes them as those of a table.
inline RegisterReply read_registers(DspCommand& dsp, std::span<const param_info> rows) {
  RegisterReply reply;
  reply.result = dsp.do_debug(const_cast<param_info*>(rows.data()), reply.bytes, ACCESS_READ,
                              static_cast<int>(rows.size()));
  return reply;
}
inline int write_registers(DspCommand& dsp, std::span<const param_info> rows) {
  RegisterReply before;
  return dsp.do_debug(const_cast<param_info*>(rows.data()), before.bytes, ACCESS_WRITE,
                      static_cast<int>(rows.size()));
}

// The bits of one row's register, zero also when it could not be read.
inline unsigned int read_register(DspCommand& dsp, const param_info& row) {
  return read_registers(dsp, {&row, 1}).bytes[0] & row.mask;
}
inline int write_register(DspCommand& dsp, const param_info& row) {
  return write_registers(dsp, {&row, 1});
}

}  // namespace ipcam::camera
