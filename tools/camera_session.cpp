// The library's control thread, held for one command or for a whole shell.
#include "tools/camera_session.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <set>
#include <thread>

#include "ipcam/camera/camera_interface.h"
#include "ipcam/comm/port_inf.h"
#include "registers/register_values.h"
#include "tools/link_state.h"
#include "tools/record_text.h"

namespace ipcam::tools {

namespace {

using namespace std::chrono_literals;

ipcam::comm::s_port_inf g_port = {};

// A measurement with a result ends in preset 1.
bool selects_preset(const std::vector<RegisterWrite>& writes) {
  constexpr registers::Bits kMode = registers::bits("wb_mode");
  return std::ranges::any_of(writes, [&](const RegisterWrite& write) {
    return write.address == kMode.address && (write.value & kMode.mask) == registers::kWbPreset1;
  });
}

std::set<Address> registers_in(const std::vector<RegisterWrite>& writes) {
  std::set<Address> addresses;
  for (const RegisterWrite& write : writes) addresses.insert(write.address);
  return addresses;
}

}  // namespace

camera::s_cam_cgi_cmd send_request(std::int32_t code, int value) {
  camera::s_cam_cgi_cmd request = {};
  request.code = code;
  request.value = value;
  camera::cam_cgi_command(&request);
  return request;
}

CameraSession::CameraSession(Output& out, const std::string& tried)
    : port_(out, RegisterPort::Road::kControlThread) {
  if (!read_stored_record())
    throw CommandError(kUsage, tried + ": the stored settings cannot be read");
  require_link(tried);
  // Start-up would wait for each of a dozen replies of a camera that does not answer.
  RegisterPort(out, RegisterPort::Road::kOwn).read(registers::address("sensor_mode"), tried);
  const ExchangeLog log;
  if (camera::new_camera_ctrl(&g_port) != 0)
    throw CommandError(kRefused, tried + ": the control thread did not start");
  // A code without a handler: answered when the start-up is done.
  if (send_request(0, 0).result != 0) {
    camera::delete_camera_IF(nullptr);
    throw CommandError(
        kRefused,
        tried + ": the control thread refused the stored settings, see camctl config show");
  }
  // Start-up sets the colour before any worker runs, so the first exchange shows
  // which thread is the control thread. Later that tells a request's exchanges from
  // those of workers that run all the time.
  control_thread_ = log.exchanges().at(0).thread;
}

CameraSession::~CameraSession() { camera::delete_camera_IF(nullptr); }

// The library does not show the thread that a measurement runs on. It is the one that sets the
// white-balance mode, while the control thread has nothing to do.
int CameraSession::wait_for_measurement(const ExchangeLog& log, const std::string& tried) const {
  // 30 readings, each as slow as an exchange that times out and is waited for.
  constexpr auto kLimit = 60s;
  const auto deadline = Clock::now() + kLimit;
  constexpr Address kMode = registers::address("wb_mode");
  const auto is_measurement = [&](const LoggedExchange& exchange) {
    const std::vector<wire::CommandEntry> entries = wire::decode_command(exchange.command).entries;
    return exchange.thread != control_thread_ && !entries.empty() &&
           address_in(entries[0], 0) == kMode;
  };
  int worker = 0;
  while (worker == 0 || tgkill(getpid(), worker, 0) == 0) {
    if (stop_requested()) break;
    if (Clock::now() > deadline) throw CommandError(kTimedOut, tried + ": does not end");
    std::this_thread::sleep_for(20ms);
    const std::vector<LoggedExchange> exchanges = log.exchanges();
    const auto found = std::ranges::find_if(exchanges, is_measurement);
    if (found != exchanges.end()) worker = found->thread;
  }
  return worker;
}

std::vector<RegisterWrite> CameraSession::request(const Setting& setting, int value,
                                                  const std::string& tried) {
  const bool measures = setting.code == camera::REQUEST_ONE_PUSH_TRG;
  const ExchangeLog log;
  const int result = send_request(setting.code, value).result;
  const int worker = result == 0 && measures ? wait_for_measurement(log, tried) : control_thread_;
  std::vector<LoggedExchange> exchanges = log.exchanges();
  // Workers that run all the time go on meanwhile.
  std::erase_if(exchanges, [&](const LoggedExchange& exchange) {
    return exchange.thread != control_thread_ && exchange.thread != worker;
  });

  std::vector<RegisterWrite> writes = carried_out_writes(exchanges);
  check_for_stop(writes, tried);
  if (const auto elapsed = unrepaired_failure(exchanges, Clock::now()))
    throw exchange_failure(tried, *elapsed);
  if (result != 0) {
    const std::string reason =
        setting.depends.empty() ? "" : " (" + std::string(setting.depends) + ")";
    throw CommandError(kRefused, tried + ": refused" + reason);
  }
  if (measures && !selects_preset(writes))
    throw CommandError(kTimedOut, tried + ": the measurement found no gains");
  check_registers(writes, tried);
  return writes;
}

// What is asked for is known to be set only when it has been read back.
void CameraSession::check_for_stop(const std::vector<RegisterWrite>& writes,
                                   const std::string& tried) {
  if (!stop_requested()) return;
  std::string text;
  for (const Address& address : registers_in(writes))
    text += (text.empty() ? "; may be half set: " : ", ") + register_text(address);
  throw CommandError(kRefused, tried + ": stopped by a signal" + text);
}

int CameraSession::query(const Setting& setting, const std::string& tried) {
  const camera::s_cam_cgi_cmd request = send_request(setting.code, 0);
  if (request.result != 0) throw CommandError(kRefused, tried + ": refused");
  return request.inq_value;
}

void CameraSession::check_registers(const std::vector<RegisterWrite>& writes,
                                    const std::string& tried) {
  sim::RegisterMap sent;
  for (const RegisterWrite& write : writes) sent[write.address] = write.value;
  for (const auto& [address, held] : port_.read_map(registers_in(writes), tried)) {
    const int wanted = sent.at(address);
    if (((held ^ wanted) & register_mask(address)) == 0) continue;
    throw CommandError(kRefused, tried + ": register " + address_text(address) + " holds " +
                                     std::to_string(held) + ", not " + std::to_string(wanted));
  }
}

}  // namespace ipcam::tools
