// What the commands of camctl share.
#include "tools/commands.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "sim/devices.h"
#include "tools/link_state.h"

namespace ipcam::tools {

std::pair<std::string, std::string> split_assignment(const std::string& text,
                                                     const std::string& tried,
                                                     std::string_view form) {
  const std::size_t equals = text.find('=');
  if (equals != std::string::npos) return {text.substr(0, equals), text.substr(equals + 1)};
  throw CommandError(kUsage, tried + ": no value (" + std::string(form) + ")");
}

int accepted_value(const Values& values, Form form, const std::string& text,
                   const std::string& tried) {
  if (const auto number = parse_value(values, form, text)) return *number;
  throw CommandError(kUsage, tried + ": " + refusal(values, form, text));
}

std::string register_columns(Address address) {
  return padded(address_text(address), 9) + padded(register_name(address), 24);
}

void enter_sandbox(const workstation::Paths& covered) {
  workstation::enter_own_namespaces(covered);
  for (const sim::DeviceFile& device : sim::kDeviceFiles) workstation::hide(device.path);
  unsetenv("CAMSIM_DEVICES_DIR");
  setenv("IPCAM_CONFIG_DIR", "/tmp", 1);
}

void save_text(Context& context, const std::string& tried, const std::string& file,
               const std::string& text) {
  if (file == "-") return context.out.result({{"text", text}}, text);
  std::ofstream stream(file);
  stream << text << std::flush;
  if (!stream) throw CommandError(kUsage, tried + ": " + std::strerror(errno));
  context.out.result({{"file", file}}, "saved in " + file);
}

std::shared_ptr<RegisterPort> port_of(const Context& context, const std::string& tried) {
  if (context.session != nullptr) return {context.session, &context.session->port()};
  require_link(tried);
  return std::make_shared<RegisterPort>(context.out, RegisterPort::Road::kOwn);
}

std::shared_ptr<CameraSession> session_of(const Context& context) {
  if (context.session != nullptr) return context.session;
  const std::string tried = "start the control thread";
  require_link(tried);
  context.out.detail(
      "starting a control thread for this call; it applies the stored settings first");
  return std::make_shared<CameraSession>(context.out, tried);
}

}  // namespace ipcam::tools
