// Candidates for the word that is being typed in a command line.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace ipcam::tools {

// Commands and options come from the parser itself, names and values from the tables. `words` are
// those behind "camctl"; the last one is being typed, and may be empty.
std::vector<std::string> candidates(const CLI::App& app, const std::vector<std::string>& words);

// Null when the level has no such command.
const CLI::App* find_subcommand(const CLI::App& app, const std::string& name);

// The commands of one level that help shows.
std::vector<std::string> subcommands(const CLI::App& app);

}  // namespace ipcam::tools
