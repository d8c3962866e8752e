// The entries of command and reply packets.
#include "wire/packet_entries.h"

#include <algorithm>
#include <utility>

namespace ipcam::wire {
namespace {

// Length, type, category, byte number high, byte number low.
constexpr std::size_t kHeaderBytes = 5;

Access access_of(const std::vector<CommandEntry>& entries) {
  const auto all_are = [&](std::uint8_t type) {
    return std::ranges::all_of(entries, [&](const CommandEntry& entry) {
      return entry.type == type && entry.values.size() == 1;
    });
  };
  if (entries.empty()) return Access::other;
  if (all_are(kReadEntry)) return Access::read;
  if (all_are(kWriteEntry)) return Access::write;
  const bool is_block =
      entries.size() == 1 && entries[0].type == kWriteEntry && !entries[0].values.empty();
  return is_block ? Access::block : Access::other;
}

}  // namespace

Bytes used_bytes(const Packet& packet) {
  return {packet.data,
          static_cast<std::size_t>(std::clamp<std::int32_t>(packet.length, 0, kDataBytes))};
}

std::optional<CommandEntry> take_command_entry(Bytes& rest) {
  if (rest.size() < 2 || rest[0] < 2 || rest[0] > rest.size()) return std::nullopt;
  const Bytes entry = rest.first(rest[0]);
  rest = rest.subspan(entry.size());
  if (entry.size() <= kHeaderBytes) return CommandEntry{.type = entry[1]};
  return CommandEntry{.type = entry[1],
                      .category = entry[2],
                      .byte = static_cast<std::uint16_t>(entry[3] << 8 | entry[4]),
                      .values = entry.subspan(kHeaderBytes)};
}

std::optional<ReplyEntry> take_reply_entry(Bytes& rest) {
  if (rest.empty() || (rest[0] != 2 && rest[0] != 3) || rest[0] > rest.size()) return std::nullopt;
  const Bytes entry = rest.first(rest[0]);
  rest = rest.subspan(entry.size());
  return ReplyEntry{entry[1], entry.size() == 3 ? std::optional(entry[2]) : std::nullopt};
}

Command decode_command(const Packet& packet) {
  std::vector<CommandEntry> entries;
  Bytes rest = used_bytes(packet);
  while (const auto entry = take_command_entry(rest)) entries.push_back(*entry);
  const Access access = rest.empty() ? access_of(entries) : Access::other;
  return {access, std::move(entries)};
}

std::vector<ReplyEntry> decode_reply(const Packet& packet) {
  std::vector<ReplyEntry> entries;
  Bytes rest = used_bytes(packet);
  while (const auto entry = take_reply_entry(rest)) entries.push_back(*entry);
  return entries;
}

}  // namespace ipcam::wire
