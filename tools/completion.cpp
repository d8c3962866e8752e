// Candidates for the word that is being typed in a command line.
#include "tools/completion.h"

#include <CLI/CLI.hpp>
#include <set>

#include "registers/register_names.h"
#include "tools/settings_table.h"

namespace ipcam::tools {

namespace {

using Words = std::vector<std::string>;

Words with_equals(Words names) {
  for (std::string& name : names) name += '=';
  return names;
}

// NAME=VALUE for each value, as far as they can be listed.
Words assignments(std::string_view name, const Values& values, Form form) {
  Words words;
  for (const Word& word : values.words) words.emplace_back(word.word);
  const bool is_short = values.words.empty() && values.min == 0 && values.max <= 18;
  for (int i = 0; is_short && i <= values.max; ++i) words.push_back(value_text(values, form, i));
  for (std::string& word : words) word = std::string(name) + "=" + word;
  return words;
}

Words gettable_names() {
  std::set<std::string> names;
  for (const Setting& setting : settings()) {
    if (setting.kind != Kind::kAction) names.emplace(setting.name);
  }
  return {names.begin(), names.end()};
}

// What the arguments of a command can be.
Words arguments(const std::string& family, const std::string& command, const std::string& typed) {
  if (family == "reg" && (command == "read" || command == "watch"))
    return registers::register_names();
  if (family == "reg" && command == "write") return with_equals(registers::register_names());
  if (family == "config" && command == "show") return field_names();
  const std::size_t equals = typed.find('=');
  const std::string name = equals == typed.npos ? "" : typed.substr(0, equals);
  if (family == "config" && command == "set") {
    const Field* field = find_field(name);
    return field == nullptr ? with_equals(field_names())
                            : assignments(field->name, field->values, Form::kStored);
  }
  if (command == "set") {
    const Setting* setting = find_setting(Kind::kSetting, name);
    return setting == nullptr ? with_equals(setting_names(Kind::kSetting))
                              : assignments(setting->name, setting->values, Form::kRequest);
  }
  if (command == "list") return setting_names();
  if (command == "do") return setting_names(Kind::kAction);
  if (command == "get") return gettable_names();
  return {};
}

Words options(const CLI::App& app) {
  Words names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

}  // namespace

const CLI::App* find_subcommand(const CLI::App& app, const std::string& name) {
  const auto found =
      app.get_subcommands([&](const CLI::App* command) { return command->get_name() == name; });
  return found.empty() ? nullptr : found.front();
}

std::vector<std::string> subcommands(const CLI::App& app) {
  Words names;
  for (const CLI::App* command : app.get_subcommands({})) {
    if (!command->get_group().empty()) names.push_back(command->get_name());
  }
  return names;
}

std::vector<std::string> candidates(const CLI::App& app, const std::vector<std::string>& words) {
  if (words.empty()) return subcommands(app);
  const std::string& typed = words.back();
  const CLI::App* level = &app;
  std::string family;
  std::string command;
  for (std::size_t i = 0; i + 1 < words.size(); ++i) {
    const CLI::App* next = words[i].starts_with('-') ? nullptr : find_subcommand(*level, words[i]);
    if (next == nullptr) continue;
    family = command;
    command = words[i];
    level = next;
  }

  Words all = subcommands(*level);
  if (all.empty()) all = arguments(family, command, typed);
  if (typed.starts_with('-')) {
    all = options(*level);
    for (const char* mode : {"--json", "--verbose", "--no-retry"}) {
      if (level != &app) all.push_back(mode);
    }
  }
  std::erase_if(all, [&](const std::string& word) { return !word.starts_with(typed); });
  return all;
}

}  // namespace ipcam::tools
