// Register access for commands.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "ipcam/camera/dsp_command.h"
#include "registers/register_names.h"
#include "sim/register_file.h"
#include "tools/output.h"

namespace ipcam::tools {

using registers::Address;

inline Address address_of(const camera::param_info& entry) {
  return {entry.category, static_cast<std::uint16_t>(entry.byte)};
}

// Failures throw CommandError; `tried` leads their text. One thread at a time.
class RegisterPort {
 public:
  // Through a DspCommand of the tool's own; or, in a process that runs the control thread, through
  // that: two objects would refuse each other's exchanges as busy.
  enum class Road { kOwn, kControlThread };
  RegisterPort(Output& out, Road road);

  std::vector<std::uint8_t> read(std::span<const Address> addresses, const std::string& tried);
  std::uint8_t read(Address address, const std::string& tried) {
    return read(std::span(&address, 1), tried)[0];
  }
  sim::RegisterMap read_map(const std::set<Address>& addresses, const std::string& tried);
  // Returns the values before.
  std::vector<std::uint8_t> write(std::span<const camera::param_info> entries,
                                  const std::string& tried) {
    return run_all('w', entries, tried);
  }

 private:
  std::vector<std::uint8_t> run_all(char access, std::span<const camera::param_info> entries,
                                    const std::string& tried);
  // Runs a register command text and returns what DspCommand::do_debug() does: -1 on failure.
  int run(std::string text, unsigned char* result);
  void run_or_fail(const std::string& text, unsigned char* result, const std::string& tried);

  Output& out_;  // where repeats are announced
  std::optional<camera::DspCommand> own_;
};

}  // namespace ipcam::tools
