// camctl list, set, do and get: the camera's settings.
#include <algorithm>

#include "ipcam/camera/camera_request.h"
#include "tools/commands.h"
#include "tools/link_state.h"
#include "tools/parameter_tables.h"
#include "tools/settings_table.h"

namespace ipcam::tools {

namespace {

const Values& values_of(const Setting& setting) {
  return setting.kind == Kind::kStored ? find_field(setting.field)->values : setting.values;
}

Form form_of(const Setting& setting) {
  return setting.kind == Kind::kStored ? Form::kStored : Form::kRequest;
}

bool takes_value(const Setting& setting) {
  return setting.kind == Kind::kSetting || setting.kind == Kind::kStored;
}

std::string command_of(const Setting& setting) {
  const std::string name(setting.name);
  if (setting.kind == Kind::kSetting) return "camctl set " + name + "=VALUE";
  if (setting.kind == Kind::kTrigger) return "camctl do " + name;
  if (setting.kind == Kind::kQuery) return "camctl get " + name;
  return "camctl config set " + std::string(setting.field) + "=VALUE, then camctl do exposure";
}

std::vector<Address> registers_of(const Setting& setting) {
  std::vector<Address> addresses;
  for (const auto& table : setting.tables) {
    for (const camera::param_info& row : table) addresses.push_back(address_of(row));
  }
  std::sort(addresses.begin(), addresses.end());
  addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
  return addresses;
}

Json setting_json(const Setting& setting) {
  const Values& values = values_of(setting);
  Json json = {{"name", setting.name}, {"code", setting.code}, {"kind", kind_name(setting.kind)}};
  if (takes_value(setting)) {
    if (values.words.empty()) json["range"] = {values.min, values.max};
    for (const Word& word : values.words) {
      json["words"][std::string(word.word)] =
          form_of(setting) == Form::kRequest ? word.request : word.stored;
    }
    if (!values.unit.empty()) json["unit"] = values.unit;
  }
  json["meaning"] = setting.meaning;
  if (!setting.depends.empty()) json["depends"] = setting.depends;
  if (!setting.field.empty()) json["field"] = setting.field;
  json["registers"] = Json::array();
  for (const Address& address : registers_of(setting))
    json["registers"].push_back(address_text(address));
  json["command"] = command_of(setting);
  return json;
}

std::string setting_text(const Output& out, const Setting& setting) {
  constexpr std::size_t kIndent = 20;
  const std::string indent(kIndent, ' ');
  std::string text = out.styled(Output::Style::kName, padded(setting.name, kIndent));
  text += std::to_string(setting.code) + "  " + std::string(kind_name(setting.kind));
  if (takes_value(setting)) text += "  " + describe(values_of(setting), form_of(setting));
  text += "\n" + indent + std::string(setting.meaning);
  if (!setting.depends.empty()) text += "\n" + indent + std::string(setting.depends);
  if (setting.kind == Kind::kStored) text += "\n" + indent + command_of(setting);
  return text;
}

Request parse_assignment(const std::string& text) {
  const std::string tried = "set " + text;
  const auto [name, value] = split_assignment(text, tried, "NAME=VALUE");
  const Setting* setting = find_setting(Kind::kSetting, name);
  if (setting == nullptr) {
    if (const Setting* stored = find_setting(Kind::kStored, name)) {
      throw CommandError(
          kUsage, tried + ": only its stored value has an effect, use " + command_of(*stored));
    }
    throw CommandError(
        kUsage, tried + ": no setting " + name + did_you_mean(name, setting_names(Kind::kSetting)));
  }
  const auto number = parse_value(setting->values, Form::kRequest, value);
  if (!number) {
    std::vector<std::string> words;
    for (const Word& word : setting->values.words) words.emplace_back(word.word);
    throw CommandError(kUsage, tried + ": no value " + value + did_you_mean(value, words) + " (" +
                                   describe(setting->values, Form::kRequest) + ")");
  }
  return {setting, *number,
          std::string(setting->name) + "=" + value_text(setting->values, Form::kRequest, *number)};
}

Json write_json(const RegisterWrite& write) {
  return {{"category", write.address.category},           {"byte", write.address.byte},
          {"name", register_name(write.address)},         {"mask", write.mask},
          {"old", write.old ? Json(*write.old) : Json()}, {"new", write.value}};
}

std::string write_text(const RegisterWrite& write) {
  return "  " + register_columns(write.address) + "mask " + hex(write.mask) + "  " +
         (write.old ? hex(*write.old) : "block") + " -> " + hex(write.value);
}

// The registers as they are, where a request had nothing to send.
std::string unsent_text(CameraSession& session, const Setting& setting, const std::string& tried) {
  std::string text = "  nothing sent";
  if (!setting.depends.empty()) text += " (" + std::string(setting.depends) + ")";
  const std::vector<Address> addresses = registers_of(setting);
  const std::vector<std::uint8_t> values = session.port().read(addresses, tried);
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    text += "\n  " + register_columns(addresses[i]) + "holds " + hex(values[i]);
  }
  return text;
}

void run_request(Output& out, CameraSession& session, const Request& request) {
  const std::string tried =
      (request.setting->kind == Kind::kSetting ? "set " : "do ") + request.text;
  const std::vector<RegisterWrite> writes = session.request(*request.setting, request.value, tried);

  Json json = {{"name", request.setting->name}};
  if (request.setting->kind == Kind::kSetting) json["value"] = request.value;
  json["registers"] = Json::array();
  std::string text = request.text;
  for (const RegisterWrite& write : writes) {
    json["registers"].push_back(write_json(write));
    text += "\n" + write_text(write);
  }
  if (writes.empty()) text += "\n" + unsent_text(session, *request.setting, tried);
  out.result(json, text);
}

}  // namespace

void list_settings(Context& context, const Words& names) {
  for (const std::string& name : names) {
    const auto is_known = [&](const Setting& setting) { return same_name(setting.name, name); };
    if (std::ranges::any_of(settings(), is_known)) continue;
    throw CommandError(
        kUsage, "list " + name + ": no setting " + name + did_you_mean(name, setting_names()));
  }
  for (const Setting& setting : settings()) {
    if (is_wanted(setting.name, names))
      context.out.result(setting_json(setting), setting_text(context.out, setting));
  }
}

std::vector<Request> parse_assignments(const Words& assignments) {
  std::vector<Request> requests;
  for (const std::string& text : assignments) requests.push_back(parse_assignment(text));
  return requests;
}

Request parse_trigger(const std::string& name) {
  const Setting* setting = find_setting(Kind::kTrigger, name);
  if (setting != nullptr) return {setting, 0, std::string(setting->name)};
  throw CommandError(kUsage, "do " + name + ": no trigger " + name +
                                 did_you_mean(name, setting_names(Kind::kTrigger)));
}

void run_requests(Context& context, const std::vector<Request>& requests) {
  BorrowedSession session(context);
  for (const Request& request : requests) run_request(context.out, *session, request);
}

void get_query(Context& context, const std::string& name) {
  const std::string tried = "get " + name;
  const Setting* setting = find_setting(Kind::kQuery, name);
  if (setting == nullptr) {
    throw CommandError(
        kUsage, tried + ": no query " + name + did_you_mean(name, setting_names(Kind::kQuery)));
  }
  int answer = 0;
  if (setting->code == camera::REQUEST_GET_ICR) {
    // As the control thread's handler answers, but without one.
    constexpr int kSet = 59;
    constexpr int kClear = 60;
    const Address state = registers::address("icr_state");
    const bool is_set =
        (BorrowedPort(context, tried)->read(state, tried) & register_mask(state)) != 0;
    answer = is_set ? kSet : kClear;
  } else if (context.session == nullptr) {
    throw CommandError(
        kUsage, tried + ": a control thread of this call's own holds no iris, ask in camctl shell");
  } else {
    answer = context.session->query(*setting, tried);
  }
  context.out.result({{"name", setting->name}, {"value", answer}},
                     std::string(setting->name) + " = " + std::to_string(answer));
}

std::string man_settings() {
  std::string page;
  for (const Setting& setting : settings()) {
    page += "*" + command_of(setting) + "*\n\t" + std::string(setting.meaning);
    if (takes_value(setting)) page += ": " + describe(values_of(setting), form_of(setting));
    if (!setting.depends.empty()) page += "; " + std::string(setting.depends);
    page += ". Request code " + std::to_string(setting.code) + ".\n\n";
  }
  return page;
}

}  // namespace ipcam::tools
