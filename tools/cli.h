// The command line of camctl: commands, options, help, exit codes and completion.
#pragma once

#include "tools/commands.h"

namespace ipcam::tools {

// Runs one command. Prints results, or what was wrong, and returns the exit code. In a shell
// the context holds its control thread.
int run_command_line(Context& context, const Words& words);

}  // namespace ipcam::tools
