// Register access for commands.
#include "tools/register_port.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>

#include "ipcam/camera/camera_request.h"
#include "tools/link_state.h"

namespace ipcam::tools {

namespace {

// A write entry takes up to 18 characters of the 255 that both ways accept.
constexpr std::size_t kEntriesPerRead = 16;
constexpr std::size_t kEntriesPerWrite = 14;

}  // namespace

RegisterPort::RegisterPort(Output& out, Road road) : out_(out) {
  if (road == Road::kOwn) own_.emplace();
}

std::vector<std::uint8_t> RegisterPort::read(std::span<const Address> addresses,
                                             const std::string& tried) {
  std::vector<camera::param_info> entries;
  for (const Address& address : addresses)
    entries.push_back({.category = address.category, .byte = address.byte});
  return run_all('r', entries, tried);
}

sim::RegisterMap RegisterPort::read_map(const std::set<Address>& addresses,
                                        const std::string& tried) {
  const std::vector<std::uint8_t> values =
      read(std::vector(addresses.begin(), addresses.end()), tried);
  sim::RegisterMap registers;
  auto value = values.begin();
  for (const Address& address : addresses) registers[address] = *value++;
  return registers;
}

std::vector<std::uint8_t> RegisterPort::run_all(char access,
                                                std::span<const camera::param_info> entries,
                                                const std::string& tried) {
  const std::size_t at_a_time = access == 'r' ? kEntriesPerRead : kEntriesPerWrite;
  std::vector<std::uint8_t> values;
  while (!entries.empty()) {
    const auto batch = entries.first(std::min(entries.size(), at_a_time));
    std::string text = std::string(1, access) + ",";
    for (const camera::param_info& entry : batch) {
      text += std::to_string(entry.category) + "," + std::to_string(entry.byte);
      if (access == 'w')
        text += "," + std::to_string(entry.mask) + "," + std::to_string(entry.data);
      text += ";";
    }
    std::array<unsigned char, kEntriesPerRead> result{};
    run_or_fail(text, result.data(), tried);
    values.insert(values.end(), result.begin(),
                  result.begin() + static_cast<std::ptrdiff_t>(batch.size()));
    entries = entries.subspan(batch.size());
  }
  return values;
}

// Another process's exchange in the way fails a text at once, and so does a reply that reports a
// failure. Running it again is harmless: a write sets the same bits once more. A camera that does
// not answer at all is not asked again.
void RegisterPort::run_or_fail(const std::string& text, unsigned char* result,
                               const std::string& tried) {
  constexpr int kAttempts = 3;
  constexpr auto kAtOnce = std::chrono::milliseconds(500);
  for (int attempt = 1;; ++attempt) {
    check_for_stop();
    const auto start = std::chrono::steady_clock::now();
    if (run(text, result) > 0) return;
    const auto elapsed = std::chrono::steady_clock::now() - start;
    if (attempt == kAttempts || elapsed > kAtOnce || !out_.modes().retry)
      throw exchange_failure(tried, elapsed);
    out_.note(std::string(exchange_failure(tried, elapsed).what()) + "; repeating it, " +
              std::to_string(attempt + 1) + " of " + std::to_string(kAttempts));
    require_link(tried);
  }
}

int RegisterPort::run(std::string text, unsigned char* result) {
  // It splits the text in place.
  if (own_) return own_->do_debug(reinterpret_cast<unsigned char*>(text.data()), result);
  camera::s_ccdlsi_dbg request = {};
  if (text.size() >= sizeof request.cmd) return -1;
  std::memcpy(request.cmd, text.data(), text.size());
  request.cmd_len = static_cast<std::int32_t>(text.size());
  if (camera::cam_ccd_debug(&request) != 0 || request.reply_len == 0) return -1;
  // A write is answered with length 1, however many registers it
  // had; the bytes are there all the same.
  std::memcpy(result, request.reply, kEntriesPerRead);
  return request.reply_len;
}

}  // namespace ipcam::tools
