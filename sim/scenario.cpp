// Scenario files: what happens to the simulated camera, and when.
#include "sim/scenario.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace ipcam::sim {
namespace {

constexpr std::uint32_t kMaxExchanges = 1000000;
constexpr std::uint32_t kMaxPause_ms = 600000;
constexpr char kForm[] = "set|script|fault|restart ...";

constexpr std::string_view kActions[] = {"set", "script", "fault",
                                         "restart"};  // as ScenarioStep::Action

void add_argument(ScenarioStep& step, const std::string& word) {
  using Action = ScenarioStep::Action;
  if (step.action == Action::set) step.registers.push_back(parse_register_value(step.where, word));
  if (step.action == Action::script)
    step.registers.push_back(parse_register_values(step.where, word));
  if (step.action == Action::fault) step.faults.push_back(parse_fault(step.where, word));
  if (step.action == Action::restart) step.down_ms = parse_number(step.where, word, kMaxPause_ms);
}

[[noreturn]] void refuse_step(const std::string& where, const std::string& line,
                              const std::string& form) {
  throw UsageError(where + ": not a step (" + line + ", " + form + ")");
}

// What a step does, from its rest `words`; `line` is the whole of it.
ScenarioStep parse_action(const std::string& where, const std::string& line, std::istream& words,
                          const std::string& form) {
  std::string name;
  words >> name;
  const auto* action = std::ranges::find(kActions, name);
  if (action == std::end(kActions)) refuse_step(where, line, form);
  ScenarioStep step{.where = where,
                    .text = name,
                    .action = static_cast<ScenarioStep::Action>(action - std::begin(kActions))};
  int arguments = 0;
  for (std::string word; words >> word; ++arguments) {
    add_argument(step, word);
    step.text += " " + word;
  }
  const bool is_restart = step.action == ScenarioStep::Action::restart;
  if (is_restart ? arguments > 1 : arguments == 0) {
    throw UsageError(where + ": " + (is_restart ? "too many arguments" : "no argument") + " (" +
                     step.text + ")");
  }
  return step;
}

ScenarioStep parse_step(const std::string& where, const std::string& line) {
  const std::string form = std::string("at EXCHANGES[+PAUSE_MS] ") + kForm;
  std::istringstream words(line);
  std::string at, time;
  words >> at >> time;
  if (at != "at") refuse_step(where, line, form);
  ScenarioStep step = parse_action(where, line, words, form);
  const std::size_t plus = time.find('+');
  step.exchanges = parse_number(where, std::string_view(time).substr(0, plus), kMaxExchanges);
  if (plus != std::string::npos)
    step.pause_ms = parse_number(where, std::string_view(time).substr(plus + 1), kMaxPause_ms);
  return step;
}

// A name alone is looked for among the installed scenarios too.
std::filesystem::path find_scenario(const std::string& name) {
  if (name.find('/') != name.npos || std::filesystem::exists(name)) return name;
  const auto here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  const auto installed = here / "../share/camsim/scenarios" / (name + ".txt");
  if (std::filesystem::exists(installed)) return installed.lexically_normal();
  return name;
}

}  // namespace

ScenarioStep parse_step_now(const std::string& where, const std::string& line) {
  std::istringstream words(line);
  return parse_action(where, line, words, kForm);
}

std::vector<ScenarioStep> load_scenario(const std::string& name) {
  const std::string path = find_scenario(name).string();
  std::vector<ScenarioStep> steps;
  for_each_line(path, [&](const std::string& where, const std::string& line) {
    steps.push_back(parse_step(where, line));
    const std::uint32_t before = steps.size() > 1 ? steps[steps.size() - 2].exchanges : 0;
    if (steps.back().exchanges >= before) return;
    throw UsageError(where + ": before the step above it (" +
                     std::to_string(steps.back().exchanges) + ", from " + std::to_string(before) +
                     ")");
  });
  return steps;
}

}  // namespace ipcam::sim
