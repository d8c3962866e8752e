// camctl reg: raw registers, by number or by name.
#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "tools/commands.h"

namespace ipcam::tools {

namespace {

Address parse_register(const std::string& text, const std::string& tried) {
  if (const auto address = registers::parse_address(text)) return *address;
  throw CommandError(kUsage, tried + ": no register " + text +
                                 did_you_mean(text, registers::register_names()) +
                                 " (CATEGORY/BYTE or a name of camctl reg list)");
}

std::vector<Address> parse_registers(const Words& registers, const std::string& tried) {
  std::vector<Address> addresses;
  for (const std::string& text : registers) {
    const Address first = parse_register(text, tried);
    const registers::Register* group = registers::group_of(first);
    const bool is_group = group != nullptr && same_name(group->name, text);
    for (int i = 0; i < (is_group ? group->count : 1); ++i) addresses.push_back(first + i);
  }
  return addresses;
}

std::uint8_t parse_byte(const std::string& text, const std::string& what,
                        const std::string& tried) {
  const auto value = parse_number(text);
  if (value && *value >= 0 && *value <= 0xff) return static_cast<std::uint8_t>(*value);
  throw CommandError(kUsage, tried + ": " + what + " " + text + " is not 0 to 0xff");
}

// REGISTER=VALUE or REGISTER=VALUE:MASK.
camera::param_info parse_write(const std::string& text, bool force) {
  const std::string tried = "reg write " + text;
  const auto [name, value] = split_assignment(text, tried, "REGISTER=VALUE[:MASK]");
  const Address address = parse_register(name, tried);
  if (registers::is_read_only(address) && !force)
    throw CommandError(kUsage, tried + ": the register can only be read, or use --force");
  const std::size_t colon = value.find(':');

  camera::param_info entry;
  entry.category = address.category;
  entry.byte = address.byte;
  entry.data = parse_byte(value.substr(0, colon), "value", tried);
  entry.mask = colon == std::string::npos ? register_mask(address)
                                          : parse_byte(value.substr(colon + 1), "mask", tried);
  return entry;
}

// Sleeps, but ends early when the process is to stop. Returns false then.
bool pause_between_reads(std::chrono::milliseconds interval) {
  constexpr std::chrono::milliseconds kStep{20};
  for (; interval > std::chrono::milliseconds::zero() && !stop_requested(); interval -= kStep) {
    std::this_thread::sleep_for(std::min(interval, kStep));
  }
  return !stop_requested();
}

// A line of a watch: at once, not at the end of the command.
void print_state(Output& out, Address address, std::optional<std::uint8_t> old_value,
                 std::uint8_t value) {
  Json json = register_json(address, Json::object());
  if (old_value) json["old"] = *old_value;
  json["value"] = value;
  const std::string change = old_value ? " " + hex(*old_value) + " -> " : " = ";
  out.line(out.modes().json ? json_text(json) : register_text(address) + change + hex(value));
}

}  // namespace

void reg_read(Context& context, const Words& registers) {
  const std::string tried = "reg read";
  const std::vector<Address> addresses = parse_registers(registers, tried);
  const std::vector<std::uint8_t> values = port_of(context, tried)->read(addresses, tried);
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    context.out.result(register_json(addresses[i], {{"value", values[i]}}),
                       register_text(addresses[i]) + " = " + hex(values[i]));
  }
}

Json register_json(Address address, const Json& more) {
  Json json = {
      {"category", address.category}, {"byte", address.byte}, {"name", register_name(address)}};
  json.update(more);
  return json;
}

void show_write(Output& out, const camera::param_info& entry, std::uint8_t before,
                std::uint8_t after) {
  const Address address = address_of(entry);
  out.result(register_json(address, {{"mask", entry.mask}, {"old", before}, {"new", after}}),
             register_text(address) + " mask " + hex(entry.mask) + "  " + hex(before) + " -> " +
                 hex(after));
}

void write_and_show(Context& context, std::span<const camera::param_info> entries,
                    const std::string& tried) {
  std::vector<Address> addresses;
  for (const camera::param_info& entry : entries) addresses.push_back(address_of(entry));
  const auto port = port_of(context, tried);
  const std::vector<std::uint8_t> before = port->write(entries, tried);
  const std::vector<std::uint8_t> after = port->read(addresses, tried);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    show_write(context.out, entries[i], before[i], after[i]);
    if (((after[i] ^ entries[i].data) & entries[i].mask) == 0) continue;
    throw CommandError(kRefused, tried + ": register " + address_text(addresses[i]) + " holds " +
                                     hex(after[i]) + ", not " + hex(entries[i].data) +
                                     " under mask " + hex(entries[i].mask));
  }
}

void reg_write(Context& context, const Words& assignments, bool force) {
  std::vector<camera::param_info> entries;
  for (const std::string& text : assignments) entries.push_back(parse_write(text, force));
  write_and_show(context, entries, "reg write");
}

void reg_dump(Context& context, const DumpRange& range) {
  constexpr int kColumns = 16;
  const std::string tried = "reg dump " + std::to_string(range.category);
  if (range.first > range.last) {
    throw CommandError(kUsage, tried + ": no range " + hex(range.first) + " to " + hex(range.last));
  }
  const auto port = port_of(context, tried);
  std::vector<std::uint8_t> values;
  const Address start{static_cast<std::uint8_t>(range.category), 0};
  for (int byte = range.first; byte <= range.last; byte += kColumns) {
    std::vector<Address> row;
    for (int i = byte; i <= std::min(byte + kColumns - 1, range.last); ++i)
      row.push_back(start + i);
    context.out.progress(tried + ": " + hex(byte));
    const std::vector<std::uint8_t> read = port->read(row, tried);
    values.insert(values.end(), read.begin(), read.end());
  }

  std::string grid = "      ";
  for (int column = 0; column < kColumns; ++column) grid += "  " + hex(column).substr(3);
  std::string names;
  for (int byte = range.first - range.first % kColumns; byte <= range.last; ++byte) {
    if (byte % kColumns == 0) grid += "\n" + padded(hex(byte), 6);
    if (byte < range.first) grid += "   ";
    if (byte < range.first) continue;
    const std::string value = hex(values[static_cast<std::size_t>(byte - range.first)]);
    grid += " " + value.substr(2);
    if (!register_name(start + byte).empty())
      names += "\n" + register_text(start + byte) + " = " + value;
  }
  context.out.result({{"category", range.category}, {"first", range.first}, {"values", values}},
                     grid + names);
}

void reg_watch(Context& context, const Words& registers, const WatchLimits& limits) {
  const std::string tried = "reg watch";
  const std::vector<Address> addresses = parse_registers(registers, tried);
  const auto port = port_of(context, tried);
  const auto end = Clock::now() + std::chrono::seconds(limits.timeout_s);

  std::vector<std::uint8_t> known = port->read(addresses, tried);
  for (std::size_t i = 0; i < addresses.size(); ++i)
    print_state(context.out, addresses[i], {}, known[i]);
  for (int changes = 0; limits.count == 0 || changes < limits.count;) {
    auto pause = std::chrono::milliseconds(limits.interval_ms);
    if (limits.timeout_s != 0)
      pause = std::min(pause, std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()));
    if (!pause_between_reads(pause)) return;
    const std::vector<std::uint8_t> values = port->read(addresses, tried);
    for (std::size_t i = 0; i < addresses.size(); ++i) {
      if (values[i] == known[i]) continue;
      print_state(context.out, addresses[i], known[i], values[i]);
      if (++changes == limits.count) return;
    }
    known = values;
    if (limits.timeout_s == 0 || Clock::now() < end) continue;
    if (limits.count == 0) return;
    throw CommandError(kTimedOut, tried + ": " + std::to_string(changes) + " of " +
                                      std::to_string(limits.count) + " changes seen");
  }
}

void reg_list(Context& context) {
  for (const Address& address : registers::named_registers()) {
    const std::string meaning = meaning_of(*group_of(address));
    const std::uint8_t mask = register_mask(address);
    context.out.result(register_json(address, {{"mask", mask}, {"meaning", meaning}}),
                       register_columns(address) + "mask " + hex(mask) + "  " + meaning);
  }
}

}  // namespace ipcam::tools
