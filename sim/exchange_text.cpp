// Exchanges and fault names as text.
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

std::string address(Bytes entry) {
  char word[16];
  std::snprintf(word, sizeof(word), " %d/0x%02x", entry[2], entry[3] << 8 | entry[4]);
  return word;
}

std::string value(const char* format, std::uint8_t byte) {
  char word[8];
  std::snprintf(word, sizeof(word), format, byte);
  return word;
}

std::string entries_text(Bytes bytes) {
  if (all_single(bytes, kRead)) {
    std::string text = "r";
    for (std::size_t i = 0; i < bytes.size(); i += kSingleEntryBytes) text += address(bytes.subspan(i));
    return text;
  }
  if (all_single(bytes, kWrite)) {
    std::string text = "w";
    for (std::size_t i = 0; i < bytes.size(); i += kSingleEntryBytes) {
      text += address(bytes.subspan(i)) + value("=0x%02x", bytes[i + 5]);
    }
    return text;
  }
  if (bytes.size() > kSingleEntryBytes && bytes[0] == bytes.size() && bytes[1] == kWrite) {
    std::string text = "b" + address(bytes) + value("=0x%02x", bytes[5]);
    for (const std::uint8_t byte : bytes.subspan(kSingleEntryBytes)) text += value(" 0x%02x", byte);
    return text;
  }
  return bytes.empty() ? "x" : "x " + hex_bytes(bytes);
}

}  // namespace

std::string command_text(const Exchange& exchange) {
  std::string text = entries_text(used_bytes(exchange.command));
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
