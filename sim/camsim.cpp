// camsim: simulated camera for workstations.
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/devices.h"
#include "sim/input_text.h"
#include "sim/private_camera.h"
#include "sim/run_command.h"

namespace {

using namespace ipcam::sim;
namespace fs = std::filesystem;

enum ExitCode { kDone = 0, kFailedToRun = 1, kUsage = 2, kNotExecutable = 126, kNotFound = 127 };

constexpr char kFooter[] =
    "Example:\n"
    "  camsim --trace --set measured_red_gain_lo=0x42 --fault no_reply:3\n\n"
    "Exit codes:\n"
    "  0    done\n"
    "  1    failed: another comm application runs, or a file or device could not be made\n"
    "  2    wrong usage\n"
    "  126  exec: the command could not be run\n"
    "  127  exec: the command was not found\n"
    "  Once its command runs, `camsim exec` ends with the command's own exit code.";

std::string default_device_directory() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime != nullptr && *runtime != '\0') return std::string(runtime) + "/camsim";
  return "/tmp/camsim-" + std::to_string(geteuid());
}

void make_device_directory(const std::string& directory) {
  // The default name can be guessed by other users of the machine, so
  // what is there must be the caller's own.
  struct stat state {};
  if (mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) {
    throw std::runtime_error(directory + ": cannot be made: " + std::strerror(errno));
  }
  if (lstat(directory.c_str(), &state) != 0 || !S_ISDIR(state.st_mode) ||
      state.st_uid != geteuid()) {
    throw std::runtime_error(directory + ": not a directory of this user");
  }
  if (!Devices(directory).create()) {
    throw std::runtime_error(directory + ": devices cannot be made: " + std::strerror(errno));
  }
}

fs::path preload_library() {
  const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
  for (const char* directory : {CAMSIM_LIBRARY_DIR, "../lib", "."}) {
    const fs::path candidate = here / directory / "libcamsim_devices.so";
    if (fs::exists(candidate)) return fs::canonical(candidate);
  }
  throw std::runtime_error("libcamsim_devices.so: not found beside " + here.string());
}

int execute(const std::string& directory, std::optional<int> camera,
            std::vector<std::string> command) {
  // Before, since the way to this program may look different then.
  std::string preload = preload_library().string();
  if (!camera) camera = find_private_camera();
  if (camera) join_private_camera(*camera);
  make_device_directory(directory);
  if (const char* others = std::getenv("LD_PRELOAD"); others != nullptr && *others != '\0') {
    preload.append(":").append(others);
  }
  setenv("LD_PRELOAD", preload.c_str(), 1);
  setenv("CAMSIM_DEVICES_DIR", fs::absolute(directory).c_str(), 1);

  std::vector<char*> arguments;
  for (std::string& word : command) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  execvp(arguments[0], arguments.data());
  const int error = errno;
  std::fprintf(stderr, "camsim: exec: %s (%s)\n", std::strerror(error), arguments[0]);
  return error == ENOENT ? kNotFound : kNotExecutable;
}

// Sample adjustment files: validity mark 1 first, then plausible register values.
void write_factory_files(const fs::path& directory) {
  using namespace std::string_literals;
  // The third byte starts the EVR worker; from the ninth on hue, then gain coefficients.
  const std::string camera =
      "\1\0\1\x80\x0c\xc8\0\0"s + std::string(16, '\x80') + std::string(16, '\x40');
  for (const auto& [name, bytes] :
       {std::pair("AdjCamera.txt", camera + std::string(8, '\0')),
        std::pair("AdjWbHalfPixels.txt", "\1\0\x40\x0e\0\x10\xed\7\0\0\0\0"s),
        std::pair("AdjWbAllPixels.txt", "\1\0\x42\x0e\0\x10\xf0\7\0\0\0\0"s)}) {
    std::ofstream file(directory / name, std::ios::binary);
    file << bytes << std::flush;
    if (!file) throw std::runtime_error((directory / name).string() + ": cannot be written");
  }
}

void add_run_options(CLI::App& app, RunOptions& options, bool& is_private) {
  app.add_flag("--trace", options.trace, "Print every exchange (default: off)");
  app.add_flag("--json", options.json,
               "Print every exchange as a JSON object, one a line (default: off)");
  app.add_flag("--keep", options.keep,
               "Leave key file, semaphore and segment behind (default: remove)");
  app.add_option("--set", options.settings, "Registers before the first request (default: 0)")
      ->type_name("REGISTER=VALUE");
  const auto add_file = [&](const char* name, std::string& file, const char* purpose) {
    app.add_option(name, file, purpose)->type_name("FILE");
  };
  add_file("--registers", options.registers, "File of such registers, one a line (default: none)");
  add_file("--save-registers", options.save_registers,
           "Write such a file at the end (default: none)");
  add_file("--scenario", options.scenario, "File of what happens when (default: none)");
  app.add_flag("--steps", options.steps_from_input,
               "Take such steps, without their time, from the standard input (default: off)");
  app.add_flag(
      "--private", is_private,
      "Serve in namespaces of its own: nobody but `camsim exec` reaches it (default: off)");
  add_file("--picture", options.picture,
           "Keep a PNG file of what the registers show (default: none)");
  app.add_option("--fault", options.faults,
                 "What goes wrong, and with which exchange (default: 0:1:0)")
      ->type_name("NAME[:EXCHANGE[:COUNT[:ENTRY]]]");
}

int dispatch(int argc, char** argv) {
  CLI::App app(
      "Simulated camera: a comm application with a register file, and stand-ins for the camera's "
      "devices.",
      "camsim");
  app.footer(kFooter);
  app.require_subcommand(0, 1);

  RunOptions options;
  bool is_private = false;
  add_run_options(app, options, is_private);
  std::string factory;
  CLI::Option* factory_option =
      app.add_option("--factory", factory,
                     "Write sample factory adjustment files and end (default: /var/tmp)")
          ->type_name("[DIR]")
          ->expected(0, 1);

  CLI::App* run_command =
      app.add_subcommand("run", "Serve register requests until SIGINT or SIGTERM; the default.");
  add_run_options(*run_command, options, is_private);

  std::string devices = default_device_directory();
  std::optional<int> camera;
  std::vector<std::string> command;
  CLI::App* exec_command =
      app.add_subcommand("exec",
                         "Run a command with stand-ins for the camera's devices, in the namespaces "
                         "of a simulator that has its own.");
  exec_command
      ->add_option("--camera", camera, "Process of that simulator (default: the one that there is)")
      ->type_name("PID");
  exec_command->add_option("--devices", devices, "Directory of the stand-ins")
      ->type_name("DIR")
      ->capture_default_str();
  exec_command->add_option("command", command, "Command and its arguments")
      ->type_name("COMMAND")
      ->required();
  exec_command->positionals_at_end();
  exec_command->prefix_command();

  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    throw UsageError(std::string("command line: ") + error.what());
  }

  const std::vector<CLI::App*> commands = app.get_subcommands();
  std::vector<std::string> others;  // what stands beside --factory
  for (const CLI::Option* option : app.get_options()) {
    if (option->count() > 0 && option != factory_option) others.push_back(option->get_name());
  }
  if (!others.empty() && !commands.empty()) {
    throw UsageError("command line: " + others[0] + " before " + commands[0]->get_name() +
                     " (the options of a command go behind it)");
  }
  const bool writes_factory_files = factory_option->count() > 0;
  if (!commands.empty()) others.push_back(commands[0]->get_name());
  if (writes_factory_files && !others.empty()) {
    throw UsageError("command line: --factory and " + others[0] + " exclude each other");
  }

  if (writes_factory_files) {
    write_factory_files(factory.empty() ? "/var/tmp" : factory);
  } else if (exec_command->parsed()) {
    return execute(devices, camera, command);
  } else {
    if (is_private) enter_private_world();
    run(options);
  }
  return kDone;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return dispatch(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "camsim: %s\n", error.what());
    return dynamic_cast<const UsageError*>(&error) != nullptr ? kUsage : kFailedToRun;
  }
}
