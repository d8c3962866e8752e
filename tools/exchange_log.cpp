// The library's packet-dump hook, put in the place of the library's
// empty one, and what its packets say.
#include "tools/exchange_log.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "ipcam/camera/dsp_command.h"

namespace ipcam::tools {

namespace {

std::mutex g_mutex;
std::vector<LoggedExchange> g_exchanges;
ExchangeLog::Watch g_watch;
bool g_is_logging = false;

// A process has one DspCommand at work, so its exchanges do not overlap:
// a reply belongs to the last command.
void log_packet(int direction, const wire::Packet& packet) {
  const std::lock_guard lock(g_mutex);
  if (!g_is_logging) return;
  if (g_watch) g_watch(direction, packet);
  if (direction == 0) {
    g_exchanges.push_back(
        {.command = packet, .reply = {}, .start = Clock::now(), .thread = gettid()});
  } else if (!g_exchanges.empty()) {
    g_exchanges.back().reply = packet;
  }
}

}  // namespace

ExchangeLog::ExchangeLog(Watch watch) {
  const std::lock_guard lock(g_mutex);
  g_watch = std::move(watch);
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

bool reports_failure(const LoggedExchange& exchange) {
  if (!exchange.reply || exchange.reply->count != exchange.command.count) return true;
  const std::vector<wire::ReplyEntry> entries = wire::decode_reply(*exchange.reply);
  const auto succeeded = std::ranges::count(entries, wire::kSuccess, &wire::ReplyEntry::status);
  return succeeded != exchange.command.count;
}

std::vector<RegisterWrite> carried_out_writes(const std::vector<LoggedExchange>& exchanges) {
  std::map<Address, std::optional<std::uint8_t>> known;
  std::vector<RegisterWrite> writes;
  for (const LoggedExchange& exchange : exchanges) {
    if (reports_failure(exchange)) continue;
    const std::vector<wire::CommandEntry> entries = wire::decode_command(exchange.command).entries;
    const std::vector<wire::ReplyEntry> reply = wire::decode_reply(*exchange.reply);
    for (std::size_t i = 0; i < std::min(entries.size(), reply.size()); ++i) {
      const bool is_write = entries[i].type == wire::kWriteEntry;
      for (std::size_t n = 0; n < entries[i].values.size(); ++n) {
        const Address address = address_in(entries[i], n);
        const std::uint8_t value = is_write ? entries[i].values[n] : reply[i].value.value_or(0);
        std::optional<std::uint8_t>& held = known[address];
        if (is_write) writes.push_back({address, register_mask(address), held, value});
        held = value;
      }
    }
  }
  return writes;
}

std::optional<Clock::duration> unrepaired_failure(const std::vector<LoggedExchange>& exchanges,
                                                  Clock::time_point end) {
  std::vector<const wire::Packet*> carried_out;  // later than the one that is looked at
  for (std::size_t i = exchanges.size(); i-- > 0;) {
    const LoggedExchange& exchange = exchanges[i];
    const auto is_same = [&](const wire::Packet* later) {
      return std::memcmp(later, &exchange.command, sizeof *later) == 0;
    };
    if (!reports_failure(exchange)) {
      carried_out.push_back(&exchange.command);
    } else if (std::ranges::none_of(carried_out, is_same)) {
      return exchange.reply ? Clock::duration::zero() : end - exchange.start;
    }
    end = exchange.start;
  }
  return std::nullopt;
}

}  // namespace ipcam::tools

namespace ipcam::camera {

// The library calls its hook through the dynamic linker, which finds this definition in the
// program before the library's own, which does nothing. So exchanges can be watched in any library
// that exports the hook, on a camera too. It goes on to the next one: a recorder may be preloaded.
void DspCommand::prt_gcmdbuf(int direction, packet_info* packet) {
  using Hook = void (*)(DspCommand*, int, packet_info*);
  static const auto next = reinterpret_cast<Hook>(
      dlsym(RTLD_NEXT, "_ZN5ipcam6camera10DspCommand11prt_gcmdbufEiPNS0_11packet_infoE"));
  tools::log_packet(direction, std::bit_cast<wire::Packet>(*packet));
  next(this, direction, packet);
}

}  // namespace ipcam::camera
