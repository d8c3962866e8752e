// Exchanges taken apart, and exchanges and fault names as text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/switchboard.h"

namespace ipcam::sim {

enum class Access {
  read,
  write,
  block,  // one entry that writes registers that follow one another
  other,  // not of the three kinds above, or not whole
};

struct CommandEntry {
  std::uint8_t category;
  std::uint16_t byte;
  std::uint8_t value;  // written; 0 for a read
};

struct Command {
  Access access = Access::other;
  std::vector<CommandEntry> entries = {};  // one per register; none for Access::other
};
Command decode_command(const Packet& command);

struct ReplyEntry {
  std::uint8_t status;
  std::optional<std::uint8_t> value;  // of a read
};
// The entries up to the first one that is not a reply's.
std::vector<ReplyEntry> decode_reply(const Packet& reply);

// One line for the command of an exchange, categories in decimal, everything else in hexadecimal:
// reads "r 10/0x09 12/0x7c", writes "w 10/0x09=0x80 12/0x7d=0x0e", a block write "b 91/0x06=0x38 0x48", any other
// packet its bytes "x 06 00 50 52"; an exchange with a fault ends in " !no_reply" or the like.
std::string command_text(const Exchange& exchange);

// The data bytes of the reply, "03 01 7f"; empty when nothing was answered.
std::string reply_text(const Exchange& exchange);

std::string_view fault_name(Fault fault);
std::optional<Fault> fault_from_name(std::string_view name);

}  // namespace ipcam::sim
