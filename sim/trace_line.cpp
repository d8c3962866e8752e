// Exchanges as lines of a trace, with the names of registers.
#include "sim/trace_line.h"

#include <nlohmann/json.hpp>
#include <span>
#include <vector>

#include "sim/exchange_text.h"
#include "tools/register_names.h"

namespace ipcam::sim {
namespace {

using Json = nlohmann::ordered_json;
using Entries = std::span<const CommandEntry>;

constexpr const char* kAccessNames[] = {"read", "write", "block", "other"};
static_assert(std::size(kAccessNames) == static_cast<std::size_t>(Access::other) + 1);

tools::Address address_of(const CommandEntry& entry) { return {entry.category, entry.byte}; }

bool begins_with(Entries entries, const tools::RegisterGroup& group) {
  if (entries.size() < group.count) return false;
  for (std::uint16_t i = 0; i < group.count; ++i) {
    const auto byte = static_cast<std::uint16_t>(group.first.byte + i);
    if (address_of(entries[i]) != tools::Address{group.first.category, byte}) return false;
  }
  return true;
}

std::string names_of(Entries entries) {
  std::string names;
  bool any = false;
  while (!entries.empty()) {
    const tools::RegisterGroup* group = tools::group_of(address_of(entries[0]));
    const bool whole = group != nullptr && begins_with(entries, *group);
    any = any || group != nullptr;
    names += names.empty() ? "" : " ";
    names += whole ? std::string(group->name) : group != nullptr ? tools::register_name(address_of(entries[0])) : "-";
    entries = entries.subspan(whole ? group->count : 1);
  }
  return any ? names : "";
}

}  // namespace

std::string trace_line(const Exchange& exchange) {
  const std::string names = names_of(decode_command(exchange.command).entries);
  return command_text(exchange) + " -> " + reply_text(exchange) + (names.empty() ? "" : "  # ") + names;
}

std::string trace_json(const Exchange& exchange, std::uint32_t number) {
  const Command command = decode_command(exchange.command);
  const std::vector<ReplyEntry> reply = decode_reply(exchange.reply);

  Json entries = Json::array();
  for (std::size_t i = 0; i < command.entries.size(); ++i) {
    const CommandEntry& entry = command.entries[i];
    Json value = entry.value;
    if (command.access == Access::read) {
      const bool answered = i < reply.size() && reply[i].value.has_value();
      value = answered ? Json(*reply[i].value) : Json(nullptr);
    }
    entries.push_back({{"category", entry.category},
                       {"byte", entry.byte},
                       {"name", tools::register_name(address_of(entry))},
                       {"value", value}});
  }
  Json status = Json::array();
  Json values = Json::array();
  for (const ReplyEntry& entry : reply) {
    status.push_back(entry.status);
    if (entry.value) values.push_back(*entry.value);
  }
  const Json line = {{"exchange", number},
                     {"access", kAccessNames[static_cast<std::size_t>(command.access)]},
                     {"command", command_text({exchange.command, {}, Fault::none})},
                     {"entries", entries},
                     {"reply", {{"bytes", reply_text(exchange)}, {"status", status}, {"values", values}}},
                     {"fault", fault_name(exchange.fault)}};
  return line.dump();
}

}  // namespace ipcam::sim
