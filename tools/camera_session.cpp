// The library's control thread, held for one command or for a whole shell.
#include "tools/camera_session.h"

#include <dirent.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <thread>

#include "ipcam/camera/camera_interface.h"
#include "ipcam/camera/parameter_tables.h"
#include "ipcam/comm/port_inf.h"
#include "tools/link_state.h"
#include "tools/register_masks.h"
#include "tools/stored_record.h"

namespace ipcam::tools {

namespace {

using namespace std::chrono_literals;

ipcam::comm::s_port_inf g_port = {};

camera::s_cam_cgi_cmd send(std::int32_t code, int value) {
  camera::s_cam_cgi_cmd request = {};
  request.code = code;
  request.value = value;
  camera::cam_cgi_command(&request);
  return request;
}

// A code without a handler: answered when all that was queued before, and the start-up, is done.
bool control_thread_serves() { return send(0, 0).result == 0; }

std::set<int> threads() {
  std::set<int> ids;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir("/proc/self/task"), closedir);
  while (const dirent* entry = directory != nullptr ? readdir(directory.get()) : nullptr) {
    if (entry->d_name[0] != '.') ids.insert(static_cast<int>(std::strtol(entry->d_name, nullptr, 10)));
  }
  return ids;
}

// The one-push worker runs on a thread that its trigger starts, and which the library does not show.
void wait_until_ended(const std::set<int>& before, const std::string& tried) {
  constexpr auto kLimit = 60s;  // 30 readings, each as slow as an exchange that times out and is waited for
  const auto deadline = std::chrono::steady_clock::now() + kLimit;
  std::set<int> started = threads();
  for (const int id : before) started.erase(id);
  const auto has_ended = [&] {
    const std::set<int> now = threads();
    return std::none_of(started.begin(), started.end(), [&](int id) { return now.contains(id); });
  };
  while (!has_ended()) {
    check_for_stop();
    if (std::chrono::steady_clock::now() > deadline) throw CommandError(kTimedOut, tried + ": does not end");
    std::this_thread::sleep_for(20ms);
  }
}

// A measurement with a result ends in preset 1.
bool selects_preset(const std::vector<RegisterWrite>& writes) {
  constexpr std::uint8_t kPreset1 = 5;
  const Address mode = address_of(camera::g_whitebalance_mode[0]);
  const std::uint8_t mask = camera::g_whitebalance_mode[0].mask;
  return std::any_of(writes.begin(), writes.end(), [&](const RegisterWrite& write) {
    return write.address == mode && (write.value & mask) == kPreset1;
  });
}

}  // namespace

CameraSession::CameraSession(const std::string& tried) {
  if (!read_stored_record()) throw CommandError(kUsage, tried + ": the stored settings cannot be read");
  require_link(tried);
  if (camera::new_camera_ctrl(&g_port) != 0) throw CommandError(kRefused, tried + ": the control thread did not start");
  try {
    if (!control_thread_serves()) {
      throw CommandError(kRefused, tried + ": the control thread refused the stored settings, see camctl config show");
    }
    control_thread_ = find_control_thread(tried);
  } catch (...) {
    camera::delete_camera_IF(nullptr);
    throw;
  }
}

// A raw command is carried out on the control thread. This one is like none that a worker sends.
int CameraSession::find_control_thread(const std::string& tried) {
  const std::vector<Address> marker(3, *parse_address("sensor_mode"));
  start_exchange_log();
  port_.read(marker, tried);
  for (const LoggedExchange& exchange : stop_exchange_log()) {
    if (static_cast<std::size_t>(exchange.command.count) == marker.size()) return exchange.thread;
  }
  throw CommandError(kRefused, tried + ": the control thread cannot be told from the others");
}

CameraSession::~CameraSession() { camera::delete_camera_IF(nullptr); }

RequestOutcome CameraSession::request(const Setting& setting, int value, const std::string& tried) {
  const std::set<int> threads_before = threads();
  start_exchange_log();
  const int result = send(setting.code, value).result;
  if (result == 0 && setting.code == camera::REQUEST_ONE_PUSH_TRG) wait_until_ended(threads_before, tried);
  std::vector<LoggedExchange> exchanges = stop_exchange_log();
  // A worker that runs all the time goes on meanwhile.
  std::erase_if(exchanges, [&](const LoggedExchange& exchange) {
    return exchange.thread != control_thread_ && threads_before.contains(exchange.thread);
  });

  if (const auto elapsed = unrepaired_failure(exchanges, Clock::now())) fail_exchange(tried, *elapsed);
  if (result != 0) {
    const std::string reason = setting.depends.empty() ? "" : " (" + std::string(setting.depends) + ")";
    throw CommandError(kRefused, tried + ": refused" + reason);
  }
  RequestOutcome outcome{carried_out_writes(exchanges)};
  if (setting.code == camera::REQUEST_ONE_PUSH_TRG && !selects_preset(outcome.writes)) {
    throw CommandError(kTimedOut, tried + ": the measurement found no gains");
  }
  check_registers(outcome.writes, tried);
  return outcome;
}

int CameraSession::query(const Setting& setting, const std::string& tried) {
  const camera::s_cam_cgi_cmd request = send(setting.code, 0);
  if (request.result != 0) throw CommandError(kRefused, tried + ": refused");
  return request.inq_value;
}

void CameraSession::check_registers(const std::vector<RegisterWrite>& writes, const std::string& tried) {
  std::map<Address, std::uint8_t> last;
  for (const RegisterWrite& write : writes) last[write.address] = write.value;
  std::vector<Address> addresses;
  for (const auto& [address, value] : last) addresses.push_back(address);
  const std::vector<std::uint8_t> held = port_.read(addresses, tried);
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    const int sent = last[addresses[i]];
    if (((held[i] ^ sent) & register_mask(addresses[i])) == 0) continue;
    throw CommandError(kRefused, tried + ": register " + address_text(addresses[i]) + " holds " +
                                     std::to_string(held[i]) + ", not " + std::to_string(sent));
  }
}

}  // namespace ipcam::tools
