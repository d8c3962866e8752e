// The library's control thread, held for one command or for a whole shell.
#pragma once

#include <string>
#include <vector>

#include "tools/exchange_log.h"
#include "tools/output.h"
#include "tools/register_port.h"
#include "tools/settings_table.h"

namespace ipcam::tools {

// A request of the library's: what is left in its record.
camera::s_cam_cgi_cmd send_request(std::int32_t code, int value);

// One per process at a time. The control thread applies the stored settings when it starts; when it
// ends, an iris hold and a running one-push measurement are lost.
class CameraSession {
 public:
  // Starts the control thread and waits until it serves requests. Throws CommandError.
  CameraSession(Output& out, const std::string& tried);
  ~CameraSession();
  CameraSession(const CameraSession&) = delete;
  CameraSession& operator=(const CameraSession&) = delete;

  RegisterPort& port() { return port_; }

  // Sends the request of a setting or a trigger, waits until a measurement that it started has
  // ended, and makes sure that the registers hold what was sent: a request's own result says
  // nothing about that. Returns the writes that were carried out, in the order sent. Throws
  // CommandError when the value was refused or the registers could not be set.
  std::vector<RegisterWrite> request(const Setting& setting, int value, const std::string& tried);

  // Answer of the iris hold query.
  int query(const Setting& setting, const std::string& tried);

 private:
  int wait_for_measurement(const ExchangeLog& log, const std::string& tried) const;
  static void check_for_stop(const std::vector<RegisterWrite>& writes, const std::string& tried);
  void check_registers(const std::vector<RegisterWrite>& writes, const std::string& tried);

  RegisterPort port_;
  int control_thread_ = 0;  // its id
};

}  // namespace ipcam::tools
