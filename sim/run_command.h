// `camsim run`: a comm application with whatever its options bring about.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace ipcam::sim {

// Empty texts: not wanted.
struct RunOptions {
  bool trace = false, json = false, keep = false, steps_from_input = false, is_private = false;
  std::string registers, save_registers, scenario, picture;  // files
  std::vector<std::string> settings, faults;
  bool with_factory_files = false;        // of samples, in its namespaces
  std::function<void()> on_serving = {};  // in the place of the line that says so
};

// Sample factory adjustment files. Throws std::runtime_error.
void write_factory_files(const std::filesystem::path& directory);

// Serves requests until SIGINT or SIGTERM. Throws UsageError before anything has been made or
// written, and std::runtime_error when the system refuses something.
void run(const RunOptions& options);

}  // namespace ipcam::sim
