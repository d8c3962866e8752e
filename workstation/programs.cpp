// Programs that take this one's place.
#include "workstation/programs.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>

namespace ipcam::workstation {

void preload(const std::string& library) {
  // The dynamic linker takes them for the end of a name, and the program would go without.
  if (library.find_first_of(" :") != library.npos)
    throw std::runtime_error(library + ": a path with a blank or a colon cannot be preloaded");
  const char* const others = std::getenv("LD_PRELOAD");
  const bool is_alone = others == nullptr || *others == '\0';
  setenv("LD_PRELOAD", (is_alone ? library : library + ":" + others).c_str(), 1);
}

int execute(std::vector<std::string> command) {
  std::vector<char*> arguments;
  for (std::string& word : command) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  return errno;
}

}  // namespace ipcam::workstation
