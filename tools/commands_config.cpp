// camctl config: the stored settings record.
#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tools/commands.h"
#include "tools/record_text.h"
#include "tools/settings_table.h"

namespace ipcam::tools {

namespace {

camera::SettingsRecord stored_record(const std::string& tried) {
  if (const auto record = read_stored_record()) return *record;
  throw CommandError(
      kUsage,
      tried + ": the stored settings cannot be read (all.conf in the configuration directory)");
}

void store(const camera::SettingsRecord& record, const std::string& tried) {
  if (workstation::write_stored_record(record)) return;
  throw CommandError(kUsage, tried + ": the stored settings cannot be written");
}

std::string stored_text(const Field& field, int value) {
  return value_text(field.values, Form::kStored, value);
}

// What makes the camera take a stored value at once.
std::string applied_by(const Field& field) {
  const Setting* setting = find_setting_of(field.name);
  if (setting == nullptr) return "";
  if (setting->kind == Kind::kStored) return "; do exposure applies it";
  return "; set " + std::string(setting->name) + "=... changes it now";
}

}  // namespace

void config_init(Context& context, bool over_what_is_there) {
  const std::filesystem::path path = workstation::stored_record_path();
  const bool is_there =
      read_stored_record() || std::filesystem::exists(std::filesystem::symlink_status(path));
  if (is_there && !over_what_is_there) {
    throw CommandError(kUsage, "config init: " + path.string() + " is there already, use --force");
  }
  store(workstation::sample_record(), "config init");
  context.out.result({{"file", path.string()}}, "sample settings in " + path.string());
}

void config_show(Context& context, const Words& names) {
  for (const std::string& name : names) known_field(name, "config show " + name);
  const camera::SettingsRecord record = stored_record("config show");
  for (const Field& field : stored_fields()) {
    const auto is_it = [&](const std::string& name) { return find_field(name) == &field; };
    if (!names.empty() && std::ranges::none_of(names, is_it)) continue;
    const int value = field_value(record, field);
    context.out.result({{"name", field.name},
                        {"offset", field.offset},
                        {"width", field.width},
                        {"value", value},
                        {"text", stored_text(field, value)},
                        {"meaning", field.meaning}},
                       padded(std::string(field.name) + " = " + stored_text(field, value), 36) +
                           "# " + std::string(field.meaning) + applied_by(field));
  }
}

void config_set(Context& context, const Words& assignments) {
  std::vector<std::pair<const Field*, int>> changes;
  for (const std::string& text : assignments) {
    const std::string tried = "config set " + text;
    const auto [name, value] = split_assignment(text, tried, "FIELD=VALUE");
    const Field& field = known_field(name, tried);
    changes.emplace_back(&field, accepted_value(field.values, Form::kStored, value, tried));
  }

  camera::SettingsRecord record = stored_record("config set");
  const camera::SettingsRecord before = record;
  for (const auto& [field, value] : changes) set_field(record, *field, value);
  store(record, "config set");
  for (const auto& [field, value] : changes) {
    const int old_value = field_value(before, *field);
    context.out.result({{"name", field->name}, {"old", old_value}, {"new", value}},
                       std::string(field->name) + ": " + stored_text(*field, old_value) + " -> " +
                           stored_text(*field, value) + applied_by(*field));
  }
}

void config_save(Context& context, const std::string& file) {
  const std::string tried = "config save " + file;
  save_text(context, tried, file, record_text(stored_record(tried)));
}

void config_restore(Context& context, const std::string& file) {
  const std::string tried = "config restore " + file;
  camera::SettingsRecord record{};
  if (const auto stored = read_stored_record()) {
    record = *stored;
  } else {
    context.out.note(tried +
                     ": no stored settings could be read, what the file leaves out becomes 0");
  }
  apply_record_file(file, record);
  store(record, tried);
  context.out.result({{"file", file}}, "restored from " + file);
}

int config_diff(Context& context, const std::string& file) {
  const std::string tried = "config diff " + file;
  const camera::SettingsRecord stored = stored_record(tried);
  camera::SettingsRecord other = stored;
  apply_record_file(file, other);
  int code = kDone;
  // Line by line: both texts have the same lines in the same order.
  std::istringstream ours(record_text(stored));
  std::istringstream theirs(record_text(other));
  for (std::string our, their; std::getline(ours, our) && std::getline(theirs, their);) {
    if (our == their) continue;
    if (code == kDone && !context.out.modes().json)
      context.out.line("# - stored settings, + " + file);
    code = kDiffer;
    context.out.result({{"stored", our}, {"file", their}},
                       context.out.styled(Output::Style::kBad, "- " + our) + "\n" +
                           context.out.styled(Output::Style::kGood, "+ " + their));
  }
  context.out.finish();
  return code;
}

}  // namespace ipcam::tools
