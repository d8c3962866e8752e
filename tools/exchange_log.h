// Every exchange of this process with the comm application, taken down through the
// library's packet-dump hook. A request's result says neither what was sent nor whether it
// arrived; both packets of its exchanges do.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "registers/register_names.h"
#include "wire/packet_entries.h"

namespace ipcam::tools {

using Clock = std::chrono::steady_clock;
using registers::Address;

struct LoggedExchange {
  wire::Packet command;
  std::optional<wire::Packet> reply;  // none: the exchange failed
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

// The register of an entry, or the one so many behind it.
inline Address address_in(const wire::CommandEntry& entry, std::size_t index) {
  return Address{entry.category, entry.byte} + index;
}

// Takes exchanges down while it exists, of all threads. One at a time.
class ExchangeLog {
 public:
  // Called, if there is one, with each command (direction 0) before it is sent and with each reply,
  // on the thread that exchanges.
  using Watch = std::function<void(int direction, const wire::Packet&)>;
  explicit ExchangeLog(Watch watch = {});
  ~ExchangeLog();
  ExchangeLog(const ExchangeLog&) = delete;
  ExchangeLog& operator=(const ExchangeLog&) = delete;

  std::vector<LoggedExchange> exchanges() const;
};

// True without a reply, and with one that does not report success for every entry.
bool reports_failure(const LoggedExchange& exchange);

// The writes among `exchanges` that were carried out, in the order sent.
std::vector<RegisterWrite> carried_out_writes(const std::vector<LoggedExchange>& exchanges);

// How long the last exchange waited for a reply in vain that failed and was not repeated with
// success, 0 when its reply reports the failure; none when there is no such exchange. `end` is when
// the last one ended, or what followed it.
std::optional<Clock::duration> unrepaired_failure(const std::vector<LoggedExchange>& exchanges,
                                                  Clock::time_point end);

}  // namespace ipcam::tools
