// Exchanges as lines of a trace, with the names of registers.
#include "sim/trace_line.h"

#include <nlohmann/json.hpp>
#include <span>
#include <vector>

#include "registers/register_names.h"
#include "sim/exchange_text.h"
#include "wire/packet_entries.h"

namespace ipcam::sim {
namespace {

using Json = nlohmann::ordered_json;
using registers::Address;

constexpr const char* kAccessNames[] = {"read", "write", "block", "other"};
static_assert(std::size(kAccessNames) == static_cast<std::size_t>(Access::other) + 1);

bool begins_with(std::span<const Address> addresses, const registers::Register& group) {
  std::size_t i = 0;
  while (i < group.count && i < addresses.size() && addresses[i] == group.first + i) ++i;
  return i == group.count;
}

// Empty when no register has a name.
std::string names_of(std::span<const Address> addresses) {
  std::string names;
  while (!addresses.empty()) {
    const registers::Register* group = registers::group_of(addresses[0]);
    const bool whole = group != nullptr && begins_with(addresses, *group);
    names += names.empty() ? "" : " ";
    names += whole              ? std::string(group->name)
             : group != nullptr ? registers::register_name(addresses[0])
                                : "-";
    addresses = addresses.subspan(whole ? group->count : 1);
  }
  return names.find_first_not_of("- ") == names.npos ? "" : names;
}

}  // namespace

std::string trace_line(const Exchange& exchange) {
  const Command command = decode_command(exchange.command);
  std::vector<Address> addresses;
  for (const CommandEntry& entry : command.entries) {
    for (std::size_t i = 0; i < entry.values.size(); ++i)
      addresses.push_back(Address{entry.category, entry.byte} + i);
  }
  const std::string names = command.access == Access::other ? "" : names_of(addresses);
  return command_text(exchange) + " -> " + reply_text(exchange) + (names.empty() ? "" : "  # ") +
         names;
}

std::string trace_json(const Exchange& exchange, std::uint32_t number) {
  const Command command = decode_command(exchange.command);
  const std::vector<ReplyEntry> reply = decode_reply(exchange.reply);

  Json registers = Json::array();
  for (std::size_t i = 0; i < command.entries.size() && command.access != Access::other; ++i) {
    const CommandEntry& entry = command.entries[i];
    const Json read =
        i < reply.size() && reply[i].value.has_value() ? Json(*reply[i].value) : Json();
    for (std::size_t n = 0; n < entry.values.size(); ++n) {
      const Address address = Address{entry.category, entry.byte} + n;
      const Json value = entry.type == kWriteEntry ? Json(entry.values[n]) : read;
      registers.push_back({{"category", address.category},
                           {"byte", address.byte},
                           {"name", registers::register_name(address)},
                           {"value", value}});
    }
  }
  Json status = Json::array();
  Json values = Json::array();
  for (const ReplyEntry& entry : reply) {
    status.push_back(entry.status);
    if (entry.value) values.push_back(*entry.value);
  }
  const Json line = {
      {"exchange", number},
      {"access", kAccessNames[static_cast<std::size_t>(command.access)]},
      {"command", command_text({exchange.command, {}, Fault::none})},
      {"entries", registers},
      {"reply", {{"bytes", reply_text(exchange)}, {"status", status}, {"values", values}}},
      {"fault", fault_name(exchange.fault)}};
  return line.dump();
}

}  // namespace ipcam::sim
