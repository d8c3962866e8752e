// `camsim run`: a comm application with whatever its options bring about.
#include "sim/run_command.h"

#include <unistd.h>

#include <cstdio>
#include <optional>

#include "sim/comm_application.h"
#include "sim/input_text.h"
#include "sim/register_file.h"
#include "sim/trace_line.h"

namespace ipcam::sim {
namespace {

class Run {
 public:
  explicit Run(const RunOptions& options);
  void serve();

 private:
  void begin_to_serve();
  void print(const Exchange& exchange) const;

  const RunOptions& options_;
  SharedSwitchboard board_;
  std::optional<CommApplication> application_;
};

Run::Run(const RunOptions& options) : options_(options) {
  if (!options.registers.empty()) load_registers(*board_, options.registers);
  for (const std::string& text : options.settings) {
    const RegisterValues row = parse_register_value("--set", text);
    board_->set_reg(row.address.category, row.address.byte, row.values[0]);
  }
  for (const std::string& text : options.faults) {
    const FaultText fault = parse_fault("--fault", text);
    if (board_->arm(fault.fault, fault.plan)) continue;
    throw UsageError("--fault: too many faults (at most " + std::to_string(Switchboard::kFaultSlots) + ")");
  }
}

void Run::begin_to_serve() {
  application_.emplace(*board_);
  if (options_.keep) application_->leave_objects();
  if (options_.trace || options_.json) {
    application_->on_exchange([this](const Exchange& exchange) { print(exchange); });
  }
  std::fprintf(stderr, "camsim: serving requests, process %d\n", static_cast<int>(getpid()));
}

void Run::print(const Exchange& exchange) const {
  const std::uint32_t number = board_->trace_end - 1;
  std::printf("%s\n", (options_.json ? trace_json(exchange, number) : trace_line(exchange)).c_str());
  std::fflush(stdout);
}

void Run::serve() {
  begin_to_serve();
  application_->run();
  application_.reset();
  if (!options_.save_registers.empty()) save_registers(*board_, options_.save_registers);
}

}  // namespace

void run(const RunOptions& options) { Run(options).serve(); }

}  // namespace ipcam::sim
