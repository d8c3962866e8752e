// Exchanges and fault names as text.
#include "sim/exchange_text.h"

#include <cstdio>

#include "wire/packet_entries.h"

namespace ipcam::sim {
namespace {

// A byte, or an address of two numbers, by a format of printf.
template <class... Numbers>
std::string formatted(const char* format, Numbers... numbers) {
  char text[16];
  std::snprintf(text, sizeof text, format, numbers...);
  return text;
}

std::string hex_bytes(Bytes bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) text += formatted(text.empty() ? "%02x" : " %02x", byte);
  return text;
}

}  // namespace

std::string command_text(const Exchange& exchange) {
  const Command command = decode_command(exchange.command);
  std::string text(1, "rwbx"[static_cast<std::size_t>(command.access)]);
  if (command.access == Access::other) {
    const std::string bytes = hex_bytes(used_bytes(exchange.command));
    text += (bytes.empty() ? "" : " ") + bytes;
  } else {
    for (const CommandEntry& entry : command.entries) {
      text += formatted(" %d/0x%02x", entry.category, entry.byte);
      if (command.access == Access::read) continue;
      for (std::size_t i = 0; i < entry.values.size(); ++i) {
        text += formatted(i == 0 ? "=0x%02x" : " 0x%02x", entry.values[i]);
      }
    }
  }
  if (exchange.fault != Fault::none) text += " !" + std::string(fault_name(exchange.fault));
  return text;
}

std::string reply_text(const Exchange& exchange) { return hex_bytes(used_bytes(exchange.reply)); }

std::string_view fault_name(Fault fault) { return kFaultNames.at(static_cast<std::size_t>(fault)); }

}  // namespace ipcam::sim
