// Exchanges taken apart, and exchanges and fault names as text.
#include "sim/exchange_text.h"

#include <algorithm>
#include <cstdio>
#include <span>

namespace ipcam::sim {
namespace {

constexpr std::uint8_t kRead = 1;
constexpr std::uint8_t kWrite = 2;
constexpr std::size_t kSingleEntryBytes = 6;

using Bytes = std::span<const std::uint8_t>;

Bytes used_bytes(const Packet& packet) {
  const auto length = std::clamp<std::int32_t>(packet.length, 0, kDataBytes);
  return {packet.data, static_cast<std::size_t>(length)};
}

std::string hex_bytes(Bytes bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    char word[8];
    std::snprintf(word, sizeof(word), text.empty() ? "%02x" : " %02x", byte);
    text += word;
  }
  return text;
}

// True when the packet is nothing but 6-byte entries of one access type.
bool all_single(Bytes bytes, std::uint8_t type) {
  if (bytes.empty() || bytes.size() % kSingleEntryBytes != 0) return false;
  for (std::size_t i = 0; i < bytes.size(); i += kSingleEntryBytes) {
    if (bytes[i] != kSingleEntryBytes || bytes[i + 1] != type) return false;
  }
  return true;
}

std::vector<CommandEntry> single_entries(Bytes bytes, bool written) {
  std::vector<CommandEntry> entries;
  for (std::size_t i = 0; i < bytes.size(); i += kSingleEntryBytes) {
    const auto byte = static_cast<std::uint16_t>(bytes[i + 3] << 8 | bytes[i + 4]);
    entries.push_back({bytes[i + 2], byte, written ? bytes[i + 5] : std::uint8_t{0}});
  }
  return entries;
}

std::vector<CommandEntry> block_entries(Bytes bytes) {
  std::vector<CommandEntry> entries;
  auto byte = static_cast<std::uint16_t>(bytes[3] << 8 | bytes[4]);
  for (const std::uint8_t value : bytes.subspan(kSingleEntryBytes - 1)) entries.push_back({bytes[2], byte++, value});
  return entries;
}

std::string address(const CommandEntry& entry) {
  char word[16];
  std::snprintf(word, sizeof(word), " %d/0x%02x", entry.category, entry.byte);
  return word;
}

std::string value(const char* format, std::uint8_t byte) {
  char word[8];
  std::snprintf(word, sizeof(word), format, byte);
  return word;
}

}  // namespace

Command decode_command(const Packet& command) {
  const Bytes bytes = used_bytes(command);
  if (all_single(bytes, kRead)) return {Access::read, single_entries(bytes, false)};
  if (all_single(bytes, kWrite)) return {Access::write, single_entries(bytes, true)};
  if (bytes.size() > kSingleEntryBytes && bytes[0] == bytes.size() && bytes[1] == kWrite) {
    return {Access::block, block_entries(bytes)};
  }
  return {};
}

std::vector<ReplyEntry> decode_reply(const Packet& reply) {
  std::vector<ReplyEntry> entries;
  for (Bytes bytes = used_bytes(reply); !bytes.empty(); bytes = bytes.subspan(bytes[0])) {
    if ((bytes[0] != 2 && bytes[0] != 3) || bytes[0] > bytes.size()) break;
    entries.push_back({bytes[1], bytes[0] == 3 ? std::optional(bytes[2]) : std::nullopt});
  }
  return entries;
}

std::string command_text(const Exchange& exchange) {
  const Command command = decode_command(exchange.command);
  std::string text(1, "rwbx"[static_cast<std::size_t>(command.access)]);
  for (std::size_t i = 0; i < command.entries.size(); ++i) {
    const CommandEntry& entry = command.entries[i];
    const bool follows = command.access == Access::block && i > 0;
    if (!follows) text += address(entry);
    if (command.access != Access::read) text += value(follows ? " 0x%02x" : "=0x%02x", entry.value);
  }
  if (const Bytes bytes = used_bytes(exchange.command); command.access == Access::other && !bytes.empty()) {
    text += " " + hex_bytes(bytes);
  }
  if (exchange.fault != Fault::none) text += " !" + std::string(fault_name(exchange.fault));
  return text;
}

std::string reply_text(const Exchange& exchange) { return hex_bytes(used_bytes(exchange.reply)); }

std::string_view fault_name(Fault fault) { return kFaultNames.at(static_cast<std::size_t>(fault)); }

std::optional<Fault> fault_from_name(std::string_view name) {
  const auto found = std::ranges::find(kFaultNames, name);
  if (found == kFaultNames.end()) return std::nullopt;
  return static_cast<Fault>(found - kFaultNames.begin());
}

}  // namespace ipcam::sim
