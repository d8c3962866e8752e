// Every exchange of this process with the comm application, taken down through the library's packet-dump hook.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "ipcam/camera/dsp_command.h"
#include "tools/register_names.h"

namespace ipcam::tools {

using Clock = std::chrono::steady_clock;

struct LoggedExchange {
  camera::packet_info command;
  std::optional<camera::packet_info> reply;  // none: the exchange failed
  Clock::time_point start;
  int thread;  // id of the thread that asked for it
};

// One register write as it was sent.
struct RegisterWrite {
  Address address;
  std::uint8_t mask;                // bits in use of the register
  std::optional<std::uint8_t> old;  // none: the register has not been read before
  std::uint8_t value;
};

struct RegisterAccess {
  bool is_write;
  Address address;
  std::uint8_t value;  // of a write
};

// The accesses of a command packet, block writes register by register; bytes that are no entry end the list.
std::vector<RegisterAccess> accesses(const camera::packet_info& command);

// Exchanges are taken down between the two calls only. Any thread.
void start_exchange_log();
std::vector<LoggedExchange> stop_exchange_log();

// The writes among `exchanges` that were carried out, in the order sent; `registers` are the values known before
// them, and are kept up to date.
std::vector<RegisterWrite> carried_out_writes(const std::vector<LoggedExchange>& exchanges,
                                              std::map<Address, std::uint8_t>& registers);

// How long the last exchange took that failed, or whose reply reports a failure, and that was not repeated with
// success; none when there is no such exchange. `end` is when the log was stopped.
std::optional<Clock::duration> unrepaired_failure(const std::vector<LoggedExchange>& exchanges, Clock::time_point end);

}  // namespace ipcam::tools
