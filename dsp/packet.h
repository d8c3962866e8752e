// Limits and reply checks of command and reply packets.
#pragma once

#include <cstddef>

#include "ipcam/camera/dsp_command.h"

namespace ipcam::camera {

inline constexpr int kMaxCommands = 16;  // command entries in one packet
// Bytes in use; the 128-byte area is never filled to its last byte.
inline constexpr int kMaxCommandBytes = 127;
inline constexpr int kCommandSize = 6;     // register read or write
inline constexpr int kReadReplySize = 3;   // length, status, value
inline constexpr int kWriteReplySize = 2;  // length, status
inline constexpr std::uint8_t kReplySuccess = 1;

enum e_access : std::uint8_t { ACCESS_READ = 1, ACCESS_WRITE = 2 };

// A reply comes from another process: before a table's reply is looked at, it must hold exactly as
// many entries as there were commands, all of them inside its length.
inline bool reply_matches(const packet_info& reply, int commands, int entry_size) {
  return reply.count == commands && reply.length >= commands * entry_size;
}

// Entry `index` of a reply whose entries have `entry_size` bytes; null
// when it is not within count and length.
inline const std::uint8_t* reply_entry(const packet_info& reply, int index, int entry_size) {
  if (index >= reply.count || (index + 1) * entry_size > reply.length) return nullptr;
  return &reply.data[static_cast<std::size_t>(index * entry_size)];
}

inline bool is_success(const std::uint8_t* entry, int entry_size) {
  return entry != nullptr && entry[0] == entry_size && entry[1] == kReplySuccess;
}

// The status that is reported of a failed entry: 0 when the reply does not hold it.
inline std::uint8_t status_of(const std::uint8_t* entry) {
  return entry != nullptr ? entry[1] : std::uint8_t{0};
}

// The value to write: the new bits under the mask, the register's current bits elsewhere.
inline std::uint8_t merge(const param_info& entry, std::uint8_t current) {
  return static_cast<std::uint8_t>((current & ~entry.mask) | (entry.data & entry.mask));
}

}  // namespace ipcam::camera
