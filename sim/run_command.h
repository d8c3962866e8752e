// `camsim run`: a comm application with whatever its options bring about.
#pragma once

#include <string>
#include <vector>

namespace ipcam::sim {

// Empty texts: not wanted.
struct RunOptions {
  bool trace = false, json = false, keep = false, steps_from_input = false;
  std::string registers, save_registers, scenario, picture;  // files
  std::vector<std::string> settings, faults;
};

// Serves requests until SIGINT or SIGTERM. Throws UsageError before anything has been made or
// written, and std::runtime_error when the system refuses something.
void run(const RunOptions& options);

}  // namespace ipcam::sim
