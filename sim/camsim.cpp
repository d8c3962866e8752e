// camsim: simulated camera for workstations.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/devices.h"
#include "sim/input_text.h"
#include "sim/private_camera.h"
#include "sim/run_command.h"
#include "workstation/programs.h"

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
            const std::vector<std::string>& command) {
  // Before, since the way to this program may look different then.
  const std::string library = preload_library().string();
  if (!camera) camera = find_private_camera();
  if (camera) join_private_camera(*camera);
  make_device_directory(directory);
  ipcam::workstation::preload(library);
  setenv("CAMSIM_DEVICES_DIR", fs::absolute(directory).c_str(), 1);

  const int error = ipcam::workstation::execute(command);
  std::fprintf(stderr, "camsim: exec: %s (%s)\n", std::strerror(error), command[0].c_str());
  return error == ENOENT ? kNotFound : kNotExecutable;
}

pid_t g_command = 0;

void pass_on(int signal) { kill(g_command, signal); }

// Waits for a child process, and returns its exit code as a shell does.
int exit_code_of(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) throw std::runtime_error(std::string("wait: ") + std::strerror(errno));
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

pid_t fork_or_throw() {
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
  return child;
}

// A child process that serves as a private camera. What it traces goes to standard error, beside
// the command's own results. Its end without the caller's doing is that of an error.
int serve_for(pid_t caller, RunOptions options, int ready) {
  dup2(STDERR_FILENO, STDOUT_FILENO);
  setpgid(0, 0);  // an interrupt from the terminal is for the command
  options.is_private = true;
  options.on_serving = [&] {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != caller || write(ready, "", 1) != 1) raise(SIGTERM);
  };
  run(options);
  return kDone;
}

// A command beside a camera of its own, which ends with it.
int execute_with_camera(const RunOptions& options, const std::string& directory,
                        const std::vector<std::string>& command) {
  int ready[2];
  if (pipe2(ready, O_CLOEXEC) != 0)
    throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
  const pid_t caller = getpid();
  const pid_t camera = fork_or_throw();
  if (camera == 0) return serve_for(caller, options, ready[1]);
  close(ready[1]);
  char byte = 0;
  if (read(ready[0], &byte, 1) != 1) return exit_code_of(camera);

  g_command = fork_or_throw();  // if there is none, the camera ends with this process
  if (g_command == 0) return execute(directory, camera, command);
  for (const int signal : {SIGINT, SIGQUIT}) std::signal(signal, SIG_IGN);  // the command has them
  for (const int signal : {SIGTERM, SIGHUP}) std::signal(signal, pass_on);
  const int code = exit_code_of(g_command);
  kill(camera, SIGTERM);
  exit_code_of(camera);
  return code;
}

void add_camera_options(CLI::App& app, RunOptions& options) {
  app.add_flag("--trace", options.trace, "Print every exchange (default: off)");
  app.add_flag("--json", options.json,
               "Print every exchange as a JSON object, one a line (default: off)");
  app.add_option("--set", options.settings, "Registers before the first request (default: 0)")
      ->type_name("REGISTER=VALUE");
  const auto add_file = [&](const char* name, std::string& file, const char* purpose) {
    app.add_option(name, file, purpose)->type_name("FILE");
  };
  add_file("--registers", options.registers, "File of such registers, one a line (default: none)");
  add_file("--save-registers", options.save_registers,
           "Write such a file at the end (default: none)");
  add_file("--scenario", options.scenario, "File of what happens when (default: none)");
  add_file("--picture", options.picture,
           "Keep a PNG file of what the registers show (default: none)");
  app.add_option("--fault", options.faults,
                 "What goes wrong, and with which exchange (default: 0:1:0)")
      ->type_name("NAME[:EXCHANGE[:COUNT[:ENTRY]]]");
}

void add_run_options(CLI::App& app, RunOptions& options) {
  add_camera_options(app, options);
  app.add_flag("--keep", options.keep,
               "Leave key file, semaphore and segment behind (default: remove)");
  app.add_flag("--steps", options.steps_from_input,
               "Take such steps, without their time, from the standard input (default: off)");
  app.add_flag(
      "--private", options.is_private,
      "Serve in namespaces of its own: nobody but `camsim exec` reaches it (default: off)");
}

struct ExecOptions {
  std::string devices = default_device_directory();
  std::optional<int> camera;
  bool starts_camera = false;
  std::vector<std::string> command;
};

CLI::App* add_exec_command(CLI::App& app, ExecOptions& exec, RunOptions& options) {
  CLI::App* command =
      app.add_subcommand("exec",
                         "Run a command with stand-ins for the camera's devices, in the namespaces "
                         "of a simulator that has its own.");
  CLI::Option* start =
      command->add_flag("--start", exec.starts_camera,
                        "Beside a private camera of the command's own, which ends with it");
  command->add_flag("--factory", options.with_factory_files,
                    "Sample factory adjustment files (default: none)");
  add_camera_options(*command, options);
  for (CLI::Option* option : command->get_options()) {
    const bool is_of_camera = option != start && option != command->get_help_ptr();
    if (is_of_camera) option->needs(start);
  }
  command
      ->add_option("--camera", exec.camera,
                   "Process of that simulator (default: the one that there is)")
      ->type_name("PID")
      ->excludes(start);
  command->add_option("--devices", exec.devices, "Directory of the stand-ins")
      ->type_name("DIR")
      ->capture_default_str();
  command->add_option("command", exec.command, "Command and its arguments")
      ->type_name("COMMAND")
      ->required();
  command->positionals_at_end();
  command->prefix_command();
  return command;
}

// Options stand behind their command, and --factory by itself.
void check_places(const CLI::App& app, const CLI::Option* factory) {
  const std::vector<const CLI::App*> commands = app.get_subcommands({});
  std::vector<std::string> others;
  for (const CLI::Option* option : app.get_options()) {
    if (option->count() > 0 && option != factory) others.push_back(option->get_name());
  }
  for (const CLI::App* command : commands) {
    if (!command->parsed()) continue;
    if (!others.empty()) {
      throw UsageError("command line: " + others[0] + " before " + command->get_name() +
                       " (the options of a command go behind it)");
    }
    others.push_back(command->get_name());
  }
  if (factory->count() > 0 && !others.empty())
    throw UsageError("command line: --factory and " + others[0] + " exclude each other");
}

int dispatch(int argc, char** argv) {
  CLI::App app(
      "Simulated camera: a comm application with a register file, and stand-ins for the camera's "
      "devices.",
      "camsim");
  app.footer(kFooter);
  app.require_subcommand(0, 1);
  app.set_version_flag("--version", CAMSIM_VERSION);

  RunOptions options;
  ExecOptions exec;
  std::string factory_folder;
  add_run_options(app, options);
  const CLI::Option* factory =
      app.add_option("--factory", factory_folder,
                     "Write sample factory adjustment files and end (default: /var/tmp)")
          ->type_name("[DIR]")
          ->expected(0, 1);
  add_run_options(
      *app.add_subcommand("run", "Serve register requests until SIGINT or SIGTERM; the default."),
      options);
  const CLI::App* exec_command = add_exec_command(app, exec, options);

  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    throw UsageError(std::string("command line: ") + error.what());
  }
  check_places(app, factory);

  if (factory->count() > 0) {
    write_factory_files(factory_folder.empty() ? "/var/tmp" : factory_folder);
  } else if (exec_command->parsed()) {
    if (exec.starts_camera) return execute_with_camera(options, exec.devices, exec.command);
    return execute(exec.devices, exec.camera, exec.command);
  } else {
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
