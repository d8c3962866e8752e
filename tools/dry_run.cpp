// camctl set --dry-run: the requests against a private simulated camera that
// holds the real one's register values.
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "sim/simulated_camera.h"
#include "tools/commands.h"
#include "tools/link_state.h"
#include "tools/record_text.h"
#include "workstation/programs.h"

namespace ipcam::tools {

namespace {

constexpr char kTried[] = "dry run";
// In the environment of a dry run that was asked for in a shell.
constexpr char kInShell[] = "CAMCTL_IN_SHELL";

// Namespaces are for a process with one thread, so beside a control thread a
// dry run needs a process of its own.
int run_own_program(Context& context, Words command_line) {
  command_line.insert(command_line.begin(), "/proc/self/exe");
  if (context.out.modes().json) command_line.push_back("--json");
  const pid_t child = fork();
  if (child == 0) {
    setenv(kInShell, "", 1);
    workstation::execute(command_line);
    _exit(kUsage);
  }
  int status = 0;
  while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (child > 0 && WIFEXITED(status)) return WEXITSTATUS(status);
  throw CommandError(kUsage, std::string(kTried) + ": no process of its own");
}

}  // namespace

int run_dry(Context& context, const std::vector<Request>& requests, bool strict,
            const Words& command_line) {
  if (context.session != nullptr) return run_own_program(context, command_line);
  const auto record = read_stored_record();
  if (!record)
    throw CommandError(kUsage, std::string(kTried) + ": the stored settings cannot be read");
  const sim::RegisterMap registers = read_registers(context, kTried, registers::named_registers());
  enter_sandbox({"/tmp"});  // the factory's adjustment files in /var/tmp are the real ones
  if (!workstation::write_stored_record(*record))
    throw CommandError(kUsage, std::string(kTried) + ": the stored settings cannot be copied");
  sim::SimulatedCamera camera;
  camera.start();
  for (const auto& [address, value] : registers)
    camera.set_reg(address.category, address.byte, value);
  Context inner{context.out, std::make_shared<CameraSession>(context.out, kTried)};
  inner.is_shell = std::getenv(kInShell) != nullptr;
  run_requests(inner, requests, strict);
  context.out.finish();
  return kDone;
}

}  // namespace ipcam::tools
