// The library's packet-dump hook, put in the place of the library's empty one, and what its packets say.
#include "tools/exchange_log.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

namespace ipcam::tools {

namespace {

std::mutex g_mutex;
std::vector<LoggedExchange> g_exchanges;
bool g_is_logging = false;

// A process has one DspCommand at work, so its exchanges do not overlap: a reply belongs to the last command.
void log_packet(int direction, const camera::packet_info& packet) {
  const std::lock_guard lock(g_mutex);
  if (!g_is_logging) return;
  if (direction == 0) {
    g_exchanges.push_back({.command = packet, .reply = {}, .start = Clock::now(), .thread = gettid()});
  } else if (!g_exchanges.empty()) {
    g_exchanges.back().reply = packet;
  }
}

bool reports_failure(const LoggedExchange& exchange) {
  if (!exchange.reply) return true;
  constexpr std::uint8_t kSuccess = 1;
  const camera::packet_info& reply = *exchange.reply;
  int at = 0;
  for (int entry = 0; entry < reply.count; ++entry) {
    if (at + 1 >= reply.length || reply.data[at + 1] != kSuccess) return true;
    at += std::max<int>(reply.data[at], 1);
  }
  return reply.count != exchange.command.count;
}

bool same_command(const camera::packet_info& a, const camera::packet_info& b) {
  return a.count == b.count && a.length == b.length && std::memcmp(a.data, b.data, sizeof a.data) == 0;
}

}  // namespace

void start_exchange_log() {
  const std::lock_guard lock(g_mutex);
  g_exchanges.clear();
  g_is_logging = true;
}

std::vector<LoggedExchange> stop_exchange_log() {
  const std::lock_guard lock(g_mutex);
  g_is_logging = false;
  return std::move(g_exchanges);
}

std::vector<RegisterAccess> accesses(const camera::packet_info& command) {
  constexpr int kHeaderSize = 5;
  std::vector<RegisterAccess> list;
  int at = 0;
  for (int entry = 0; entry < command.count; ++entry) {
    const std::uint8_t* bytes = command.data + at;
    const int size = at < command.length ? bytes[0] : 0;
    if (size <= kHeaderSize || at + size > command.length) break;
    const auto first = static_cast<std::uint16_t>(bytes[3] << 8 | bytes[4]);
    for (int i = 0; i < size - kHeaderSize; ++i) {
      list.push_back({.is_write = bytes[1] == 2,
                      .address = {bytes[2], static_cast<std::uint16_t>(first + i)},
                      .value = bytes[kHeaderSize + i]});
    }
    at += size;
  }
  return list;
}

std::vector<RegisterWrite> carried_out_writes(const std::vector<LoggedExchange>& exchanges,
                                              std::map<Address, std::uint8_t>& registers) {
  constexpr std::size_t kReadReplySize = 3;
  std::vector<RegisterWrite> writes;
  for (const LoggedExchange& exchange : exchanges) {
    if (reports_failure(exchange)) continue;
    std::size_t entry = 0;
    for (const RegisterAccess& access : accesses(exchange.command)) {
      std::optional<std::uint8_t> old;
      if (const auto known = registers.find(access.address); known != registers.end()) old = known->second;
      std::uint8_t value = access.value;
      if (access.is_write) {
        writes.push_back({access.address, register_mask(access.address), old, value});
      } else {
        value = exchange.reply->data[kReadReplySize * entry + 2];
      }
      registers[access.address] = value;
      ++entry;
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
void DspCommand::prt_gcmdbuf(int direction, packet_info* packet) { tools::log_packet(direction, *packet); }

}  // namespace ipcam::camera
