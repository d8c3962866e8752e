// Register access for commands: through a DspCommand of the tool's
// own, or through the control thread's.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "ipcam/camera/dsp_command.h"
#include "registers/register_names.h"
#include "sim/register_file.h"
#include "tools/output.h"

namespace ipcam::tools {

using registers::Address;

// Failures throw CommandError; `tried` leads their text. One thread at a time.
class RegisterPort {
 public:
  explicit RegisterPort(Output& out) : out_(out) {}
  virtual ~RegisterPort() = default;

  std::vector<std::uint8_t> read(std::span<const Address> addresses, const std::string& tried);
  std::uint8_t read(Address address, const std::string& tried) {
    return read(std::span(&address, 1), tried)[0];
  }
  sim::RegisterMap read_map(std::span<const Address> addresses, const std::string& tried);
  // Returns the values before.
  std::vector<std::uint8_t> write(std::span<const camera::param_info> entries,
                                  const std::string& tried) {
    return run_all('w', entries, tried);
  }

 private:
  std::vector<std::uint8_t> run_all(char access, std::span<const camera::param_info> entries,
                                    const std::string& tried);
  // Runs a register command text and returns what DspCommand::do_debug() does: -1 on failure.
  virtual int run(const std::string& text, unsigned char* result) = 0;
  void run_or_fail(const std::string& text, unsigned char* result, const std::string& tried);

  Output& out_;  // where repeats are announced
};

// Never starts a control thread.
class OwnPort : public RegisterPort {
 public:
  using RegisterPort::RegisterPort;

 private:
  int run(const std::string& text, unsigned char* result) override;

  camera::DspCommand dsp_;
};

// For a process that runs the control thread: two objects would
// refuse each other's exchanges as busy.
class ControlThreadPort : public RegisterPort {
 public:
  using RegisterPort::RegisterPort;

 private:
  int run(const std::string& text, unsigned char* result) override;
};

}  // namespace ipcam::tools
