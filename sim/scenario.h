// Scenario files: what happens to the simulated camera, and when.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/input_text.h"

namespace ipcam::sim {

struct ScenarioStep {
  enum class Action { set, script, fault, restart };

  std::string where;  // "FILE line 7"
  std::string text;   // "set shutter_value=5"
  // Due when so many exchanges have been seen and, after that, no request has come
  // for so long. A step due without a pause takes place before the next request is
  // looked at, however soon that comes.
  std::uint32_t exchanges = 0;
  std::uint32_t pause_ms = 0;
  Action action = Action::set;
  std::vector<RegisterValues> registers = {};  // set, script
  std::vector<PlannedFault> faults = {};       // fault; exchanges are counted from the step
  std::uint32_t down_ms = 0;                   // restart: so long nobody serves
};

// One step a line, in the order in which they take place; blank lines
// and what follows a '#' are skipped:
//
//   at EXCHANGES[+PAUSE_MS] set REGISTER=VALUE...
//   at EXCHANGES[+PAUSE_MS] script REGISTER=VALUE[,VALUE]...    the last value stays
//   at EXCHANGES[+PAUSE_MS] fault NAME[:EXCHANGE[:COUNT[:ENTRY]]]...
//   at EXCHANGES[+PAUSE_MS] restart [DOWN_MS]
//
// Of a file, or of the installed scenario of that name. Throws UsageError; the whole file is judged
// before anything takes place.
std::vector<ScenarioStep> load_scenario(const std::string& name);

// One step that takes place at once, "set shutter_value=5". Throws UsageError.
ScenarioStep parse_step_now(const std::string& where, const std::string& line);

}  // namespace ipcam::sim
