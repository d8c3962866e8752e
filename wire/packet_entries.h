// The entries of command and reply packets. The one place that takes packets apart: for the comm
// application, for traces and for whoever watches the link from the requester's side.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "wire/wire_format.h"

namespace ipcam::wire {

using Bytes = std::span<const std::uint8_t>;

inline constexpr std::uint8_t kReadEntry = 1;
inline constexpr std::uint8_t kWriteEntry = 2;
inline constexpr std::uint8_t kSuccess = 1;  // status of a reply entry

// Points into its packet.
struct CommandEntry {
  std::uint8_t type;  // kReadEntry, kWriteEntry, or one of the all-to-SDRAM request
  std::uint8_t category = 0;
  std::uint16_t byte = 0;
  Bytes values = {};  // for the registers from `byte` on; of a read one byte without a meaning;
                      // empty: no registers
};

// What a command packet does as a whole.
enum class Access {
  read,
  write,
  block,  // one entry that writes registers that follow one another
  other,  // not of the three kinds above, or not whole
};

struct Command {
  Access access;
  std::vector<CommandEntry> entries;  // up to the first one that is not whole
};

struct ReplyEntry {
  std::uint8_t status;
  std::optional<std::uint8_t> value;  // of a read
};

// The bytes of `data` in use.
Bytes used_bytes(const Packet& packet);
// The first entry of what is left of a packet's bytes, which is taken away from them; none, and
// nothing taken, when they do not begin with a whole one of that kind.
std::optional<CommandEntry> take_command_entry(Bytes& rest);
std::optional<ReplyEntry> take_reply_entry(Bytes& rest);

// All of them.
Command decode_command(const Packet& packet);
std::vector<ReplyEntry> decode_reply(const Packet& packet);

}  // namespace ipcam::wire
