// The link to the comm application as it looks from outside, without an exchange.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "tools/output.h"

namespace ipcam::tools {

// One look at one thing.
struct Finding {
  std::string subject;
  bool is_good;
  std::string detail;
  std::string advice = {};
  std::string refusal = {};  // why a command that needs the link cannot be carried out
  ExitCode code = kNoCommApplication;
};

// Waits as long as one exchange may take for a busy record to become idle. What cannot be looked
// at, since something before it is not good, is left out.
std::vector<Finding> examine_link();

// Throws CommandError, 2, 4 or 5, when the link cannot carry a request; `tried` leads the text.
void require_link(const std::string& tried);

// What an exchange was that failed after `elapsed`: 3, 5 or 1. Throws CommandError, 4, when the
// comm application is gone.
CommandError exchange_failure(const std::string& tried,
                              std::chrono::steady_clock::duration elapsed);

}  // namespace ipcam::tools
