// The library's packet-dump hook, put in the place of the library's empty one, and what its packets say.
#include "tools/exchange_log.h"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <map>
#include <mutex>

#include "ipcam/camera/dsp_command.h"

namespace ipcam::tools {

namespace {

std::mutex g_mutex;
std::vector<LoggedExchange> g_exchanges;
bool g_is_logging = false;

// A process has one DspCommand at work, so its exchanges do not overlap: a reply belongs to the last command.
void log_packet(int direction, const sim::Packet& packet) {
  const std::lock_guard lock(g_mutex);
  if (!g_is_logging) return;
  if (direction == 0) {
    g_exchanges.push_back({.command = packet, .reply = {}, .start = Clock::now(), .thread = gettid()});
  } else if (!g_exchanges.empty()) {
    g_exchanges.back().reply = packet;
  }
}

bool reports_failure(const LoggedExchange& exchange) {
  if (!exchange.reply || exchange.reply->count != exchange.command.count) return true;
  const std::vector<sim::ReplyEntry> entries = sim::decode_reply(*exchange.reply);
  const auto succeeded = std::ranges::count(entries, sim::kSuccess, &sim::ReplyEntry::status);
  return succeeded != exchange.command.count;
}

bool same_command(const sim::Packet& a, const sim::Packet& b) {
  return a.count == b.count && a.length == b.length && std::memcmp(a.data, b.data, sizeof a.data) == 0;
}

}  // namespace

ExchangeLog::ExchangeLog() {
  const std::lock_guard lock(g_mutex);
  g_exchanges.clear();
  g_is_logging = true;
}

ExchangeLog::~ExchangeLog() {
  const std::lock_guard lock(g_mutex);
  g_is_logging = false;
}

std::vector<LoggedExchange> ExchangeLog::exchanges() const {
  const std::lock_guard lock(g_mutex);
  return g_exchanges;
}

std::vector<RegisterWrite> carried_out_writes(const std::vector<LoggedExchange>& exchanges) {
  std::map<Address, std::uint8_t> known;
  std::vector<RegisterWrite> writes;
  for (const LoggedExchange& exchange : exchanges) {
    if (reports_failure(exchange)) continue;
    const std::vector<sim::CommandEntry> entries = sim::decode_command(exchange.command).entries;
    const std::vector<sim::ReplyEntry> reply = sim::decode_reply(*exchange.reply);
    for (std::size_t i = 0; i < std::min(entries.size(), reply.size()); ++i) {
      const sim::CommandEntry& entry = entries[i];
      for (std::size_t n = 0; n < entry.values.size(); ++n) {
        const Address address = address_in(entry, n);
        const bool is_write = entry.type == sim::kWriteEntry;
        const std::uint8_t value = is_write ? entry.values[n] : reply[i].value.value_or(0);
        const auto old = known.find(address);
        if (is_write) {
          writes.push_back({.address = address,
                            .mask = register_mask(address),
                            .old = old == known.end() ? std::nullopt : std::optional(old->second),
                            .value = value});
        }
        known[address] = value;
      }
    }
  }
  return writes;
}

std::optional<Clock::duration> unrepaired_failure(const std::vector<LoggedExchange>& exchanges, Clock::time_point end) {
  const auto repaired = [&](std::size_t failed) {
    return std::any_of(exchanges.begin() + static_cast<std::ptrdiff_t>(failed), exchanges.end(),
                       [&](const LoggedExchange& later) {
                         return !reports_failure(later) && same_command(later.command, exchanges[failed].command);
                       });
  };
  for (std::size_t i = exchanges.size(); i-- > 0;) {
    if (reports_failure(exchanges[i]) && !repaired(i)) return end - exchanges[i].start;
    end = exchanges[i].start;
  }
  return std::nullopt;
}

}  // namespace ipcam::tools

namespace ipcam::camera {

// Comes before the library's hook of the same name, which does nothing.
void DspCommand::prt_gcmdbuf(int direction, packet_info* packet) {
  tools::log_packet(direction, std::bit_cast<sim::Packet>(*packet));
}

}  // namespace ipcam::camera
