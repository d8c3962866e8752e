// camctl reg save, diff and restore: all named registers, of the camera or of a file.
#include <nlohmann/json.hpp>

#include "tools/commands.h"

namespace ipcam::tools {

using sim::RegisterMap;

RegisterMap read_registers(Context& context, const std::string& tried,
                           const std::set<Address>& addresses) {
  context.out.progress(tried + ": reading registers");
  RegisterMap registers = port_of(context, tried)->read_map(addresses, tried);
  context.out.progress("");
  return registers;
}

void reg_save(Context& context, const std::string& file) {
  const std::string tried = "reg save " + file;
  save_text(context, tried, file,
            sim::register_file_text(read_registers(context, tried, registers::named_registers())));
}

int reg_diff(Context& context, const std::string& file, const std::string& other) {
  RegisterMap before = sim::read_register_file(file);
  std::set<Address> addresses = registers::named_registers();
  for (const auto& [address, value] : before) addresses.insert(address);
  RegisterMap after = other.empty() ? read_registers(context, "reg diff " + file, addresses)
                                    : sim::read_register_file(other);
  for (const auto& [address, value] : after) addresses.insert(address);

  int code = kDone;
  for (const Address& address : addresses) {
    const std::uint8_t old_value = before[address];  // 0 where a file leaves it out
    const std::uint8_t value = after[address];
    if (((old_value ^ value) & register_mask(address)) == 0) continue;
    if (code == kDone && !context.out.modes().json)
      context.out.line("# " + file + " -> " + (other.empty() ? "camera" : other));
    code = kDiffer;
    context.out.result(register_json(address, {{"old", old_value}, {"new", value}}),
                       register_columns(address) + hex(old_value) + " -> " + hex(value));
  }
  context.out.finish();
  return code;
}

void reg_restore(Context& context, const std::string& file, bool dry_run) {
  const std::string tried = "reg restore " + file;
  const RegisterMap wanted = sim::read_register_file(file);
  std::set<Address> addresses;
  for (const auto& [address, value] : wanted) {
    if (!registers::is_read_only(address)) addresses.insert(address);
  }
  std::vector<camera::param_info> entries;
  std::vector<std::uint8_t> before;
  for (const auto& [address, value] : read_registers(context, tried, addresses)) {
    const std::uint8_t mask = register_mask(address);
    if (((wanted.at(address) ^ value) & mask) == 0) continue;
    entries.push_back(
        {.category = address.category,
         .byte = address.byte,
         .mask = mask,
         .data = static_cast<std::uint8_t>((value & ~mask) | (wanted.at(address) & mask))});
    before.push_back(value);
  }
  if (!dry_run) return write_and_show(context, entries, tried);
  for (std::size_t i = 0; i < entries.size(); ++i)
    show_write(context.out, entries[i], before[i], entries[i].data);
}

}  // namespace ipcam::tools
