// Scenario files: what happens to the simulated camera, and when.
#include "sim/scenario.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace ipcam::sim {
namespace {

constexpr std::uint32_t kMaxExchanges = 1000000;
constexpr std::uint32_t kMaxPause_ms = 600000;
constexpr char kForm[] = "at EXCHANGES[+PAUSE_MS] set|script|fault|restart ...";

struct ActionName {
  std::string_view name;
  ScenarioStep::Action action;
};
constexpr ActionName kActions[] = {
    {"set", ScenarioStep::Action::set},
    {"script", ScenarioStep::Action::script},
    {"fault", ScenarioStep::Action::fault},
    {"restart", ScenarioStep::Action::restart},
};

int parse_pause(const std::string& tried, std::string_view text) {
  return static_cast<int>(parse_number(tried, text, kMaxPause_ms));
}

void add_argument(ScenarioStep& step, const std::string& word) {
  using Action = ScenarioStep::Action;
  if (step.action == Action::set) step.registers.push_back(parse_register_value(step.where, word));
  if (step.action == Action::script) step.registers.push_back(parse_register_values(step.where, word));
  if (step.action == Action::fault) step.faults.push_back(parse_fault(step.where, word));
  if (step.action == Action::restart) step.down_ms = parse_pause(step.where, word);
}

ScenarioStep parse_step(const std::string& where, const std::string& line) {
  std::istringstream words(line);
  std::string at, time, name;
  words >> at >> time >> name;
  const auto* row = std::ranges::find(kActions, name, &ActionName::name);
  if (at != "at" || row == std::end(kActions)) throw UsageError(where + ": not a step (" + line + ", " + kForm + ")");

  ScenarioStep step{.where = where,
                    .text = name,
                    .exchanges = 0,
                    .pause_ms = 0,
                    .action = row->action,
                    .registers = {},
                    .faults = {},
                    .down_ms = 0};
  const std::size_t plus = time.find('+');
  step.exchanges = parse_number(where, std::string_view(time).substr(0, plus), kMaxExchanges);
  if (plus != std::string::npos) step.pause_ms = parse_pause(where, std::string_view(time).substr(plus + 1));

  int arguments = 0;
  for (std::string word; words >> word; ++arguments) {
    add_argument(step, word);
    step.text += " " + word;
  }
  const bool is_restart = step.action == ScenarioStep::Action::restart;
  if (is_restart ? arguments > 1 : arguments == 0) {
    throw UsageError(where + ": " + (is_restart ? "too many arguments" : "no argument") + " (" + step.text + ")");
  }
  return step;
}

}  // namespace

ScenarioStep parse_step_now(const std::string& where, const std::string& line) {
  return parse_step(where, "at 0 " + line);
}

std::vector<ScenarioStep> load_scenario(const std::string& path) {
  std::ifstream file(path);
  std::vector<ScenarioStep> steps;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    line.erase(std::min(line.find('#'), line.size()));
    if (line.find_first_not_of(" \t\r") == line.npos) continue;
    const std::string where = path + " line " + std::to_string(number);
    steps.push_back(parse_step(where, line));
    if (steps.size() > 1 && steps.back().exchanges < steps[steps.size() - 2].exchanges) {
      throw UsageError(where + ": before the step above it (" + std::to_string(steps.back().exchanges) + ", from " +
                       std::to_string(steps[steps.size() - 2].exchanges) + ")");
    }
  }
  if (!file.eof() || number == 0) throw UsageError(path + ": cannot be read, or is empty");
  return steps;
}

}  // namespace ipcam::sim
