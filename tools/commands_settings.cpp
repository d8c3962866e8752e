// camctl list, set, do and get: the camera's settings.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "ipcam/camera/camera_request.h"
#include "registers/register_values.h"
#include "tools/commands.h"
#include "tools/held_values.h"
#include "tools/link_state.h"
#include "tools/record_text.h"
#include "tools/settings_table.h"

namespace ipcam::tools {

namespace {

bool takes_value(const Setting& setting) {
  return setting.kind == Kind::kSetting || setting.kind == Kind::kStored;
}

std::string command_of(const Setting& setting) {
  const std::string name(setting.name);
  if (setting.kind == Kind::kSetting) return "camctl set " + name + "=VALUE";
  if (setting.kind == Kind::kAction) return "camctl do " + name;
  if (setting.kind == Kind::kQuery) return "camctl get " + name;
  return "camctl config set " + std::string(setting.field) + "=VALUE, then camctl do exposure";
}

Json setting_json(const Setting& setting) {
  const Values& values = values_of(setting);
  Json json = {{"name", setting.name}, {"code", setting.code}, {"kind", kind_name(setting.kind)}};
  if (takes_value(setting)) {
    if (values.words.empty()) json["range"] = {values.min, values.max};
    for (const Word& word : values.words) {
      json["words"][std::string(word.word)] = number_of(word, form_of(setting));
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
  if (!setting.field.empty()) text += "\n" + indent + "stored as " + std::string(setting.field);
  if (setting.kind == Kind::kStored) text += ": " + command_of(setting);
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
    refuse_name(tried, "setting", name, setting_names(Kind::kSetting));
  }
  return {setting, accepted_value(setting->values, Form::kRequest, value, tried)};
}

Json write_json(const RegisterWrite& write) {
  const Json old = write.old ? Json(*write.old) : Json();
  return register_json(write.address, {{"mask", write.mask}, {"old", old}, {"new", write.value}});
}

std::string write_text(const RegisterWrite& write) {
  return "  " + register_columns(write.address) + "mask " + hex(write.mask) + "  " +
         (write.old ? hex(*write.old) : "block") + " -> " + hex(write.value);
}

// The registers as they are, where a request had nothing to send.
std::string unsent_text(const Setting& setting, const sim::RegisterMap& registers) {
  std::string text = "\n  nothing sent";
  if (!setting.depends.empty()) text += " (" + std::string(setting.depends) + ")";
  for (const Address& address : registers_of(setting))
    text += "\n  " + register_columns(address) + "holds " + hex(registers.at(address));
  return text;
}

void run_request(Context& context, CameraSession& session, const Request& request, bool strict) {
  const Setting& setting = *request.setting;
  const bool is_setting = setting.kind == Kind::kSetting;
  const std::string wanted = value_text(setting.values, Form::kRequest, request.value);
  std::string text = std::string(setting.name) + (is_setting ? "=" + wanted : "");
  const std::string tried = (is_setting ? "set " : "do ") + text;
  sim::RegisterMap held = session.port().read_map(registers_around(setting), tried);
  const auto before = held_text(setting, held, wanted);
  const std::vector<RegisterWrite> writes = session.request(setting, request.value, tried);
  for (const RegisterWrite& write : writes) held[write.address] = write.value;

  Json json = {{"name", setting.name}};
  if (is_setting) json["value"] = request.value;
  if (const auto after = held_text(setting, held, wanted); before && after) {
    json["old"] = *before;
    json["new"] = *after;
    text = std::string(setting.name) + ": " + *before + " -> " + *after;
  }
  json["registers"] = Json::array();
  for (const RegisterWrite& write : writes) {
    json["registers"].push_back(write_json(write));
    text += "\n" + write_text(write);
  }
  if (writes.empty()) text += unsent_text(setting, held);
  context.out.result(json, text);

  // What has been let go stays so without a control thread too.
  const bool lasts = context.is_shell || wanted == "off";
  if (has_effect(setting, held, !writes.empty(), lasts)) return;
  const std::string reason = tried + ": no effect now: " + std::string(setting.depends);
  if (strict) throw CommandError(kRefused, reason);
  context.out.note(reason);
}

// As the control thread's handler answers, but without one.
int icr_answer(Context& context, const std::string& tried) {
  constexpr registers::Bits kState = registers::bits("icr_state");
  const bool is_set = (port_of(context, tried)->read(kState.address, tried) & kState.mask) != 0;
  return is_set ? registers::kFilterStateSet : registers::kFilterStateClear;
}

void get_query(Context& context, const Setting& setting) {
  const std::string tried = "get " + std::string(setting.name);
  const bool is_icr = setting.code == camera::REQUEST_GET_ICR;
  if (!is_icr && context.session == nullptr) return;  // a thread of its own would hold no iris
  const int answer = is_icr ? icr_answer(context, tried) : context.session->query(setting, tried);
  const std::string text = value_text(setting.values, Form::kRequest, answer);
  context.out.result(
      {{"name", setting.name}, {"value", answer}, {"text", text}},
      std::string(setting.name) + " = " + std::to_string(answer) + " (" + text + ")");
}

std::string stored_text(const Setting& setting) {
  const Field* field = find_field(setting.field);
  const auto record = read_stored_record();
  if (!record) return "unreadable";
  return value_text(field->values, Form::kStored, field_value(*record, *field));
}

void get_setting(Context& context, const Setting& setting) {
  const std::string tried = "get " + std::string(setting.name);
  Json json = {{"name", setting.name}};
  std::string text = context.out.styled(Output::Style::kName, padded(setting.name, 20));
  std::string stored;
  if (!setting.field.empty()) {
    stored = stored_text(setting);
    json["stored"] = stored;
    text += padded("stored " + stored, 24);
  } else {
    text += std::string(24, ' ');
  }
  if (!setting.tables[0].empty()) {
    const sim::RegisterMap held =
        port_of(context, tried)->read_map(registers_around(setting), tried);
    if (const auto value = held_text(setting, held, stored)) {
      json["registers"] = *value;
      text += "registers " + *value;
    }
  }
  if (json.size() == 1) text += "no register shows it";
  text.erase(text.find_last_not_of(' ') + 1);
  context.out.result(json, text);
}

// All but those `without` that have one of the names, or any. Throws CommandError for a name that
// none has.
std::vector<const Setting*> chosen(const Words& names, const std::string& command,
                                   const std::string& kind, std::optional<Kind> without = {}) {
  std::vector<const Setting*> rows;
  for (const Setting& setting : settings()) {
    const auto is_it = [&](const std::string& name) { return same_name(setting.name, name); };
    const bool is_wanted = names.empty() || std::ranges::any_of(names, is_it);
    if (is_wanted && setting.kind != without) rows.push_back(&setting);
  }
  for (const std::string& name : names) {
    const auto is_it = [&](const Setting* row) { return same_name(row->name, name); };
    if (std::ranges::none_of(rows, is_it))
      refuse_name(command + " " + name, kind, name, setting_names());
  }
  return rows;
}

}  // namespace

void list_settings(Context& context, const Words& names) {
  for (const Setting* setting : chosen(names, "list", "setting"))
    context.out.result(setting_json(*setting), setting_text(context.out, *setting));
}

std::vector<Request> parse_assignments(const Words& assignments) {
  std::vector<Request> requests;
  for (const std::string& text : assignments) requests.push_back(parse_assignment(text));
  return requests;
}

Request parse_action(const std::string& name) {
  const Setting* setting = find_setting(Kind::kAction, name);
  if (setting != nullptr) return {setting};
  refuse_name("do " + name, "action", name, setting_names(Kind::kAction));
}

void run_requests(Context& context, const std::vector<Request>& requests, bool strict) {
  const auto session = session_of(context);
  for (const Request& request : requests) run_request(context, *session, request, strict);
}

void get_settings(Context& context, const Words& names) {
  auto rows = chosen(names, "get", "setting or query", Kind::kAction);
  const auto is_query = [](const Setting* row) { return row->kind == Kind::kQuery; };
  std::stable_partition(rows.begin(), rows.end(), is_query);
  for (const Setting* row : rows)
    is_query(row) ? get_query(context, *row) : get_setting(context, *row);
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
