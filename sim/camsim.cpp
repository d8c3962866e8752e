// camsim: simulated camera for workstations.
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/comm_application.h"
#include "sim/devices.h"
#include "sim/exchange_text.h"

namespace {

using namespace ipcam::sim;
namespace fs = std::filesystem;

enum ExitCode { kDone = 0, kFailedToRun = 1, kUsage = 2, kNotExecutable = 126, kNotFound = 127 };

constexpr char kFooter[] =
    "Example:\n"
    "  camsim run --trace --set 14/140=0x42 --fault no_reply:3\n\n"
    "Exit codes:\n"
    "  0    done\n"
    "  1    failed: another comm application runs, or a file or device could not be made\n"
    "  2    wrong usage\n"
    "  126  exec: the command could not be run\n"
    "  127  exec: the command was not found\n"
    "  Once its command runs, `camsim exec` ends with the command's own exit code.";

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A number in decimal, or in hexadecimal with "0x".
std::uint32_t parse_number(const std::string& tried, std::string_view text, std::uint32_t maximum) {
  const bool hexadecimal = text.starts_with("0x");
  const std::string_view digits = hexadecimal ? text.substr(2) : text;
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(digits.begin(), digits.end(), value, hexadecimal ? 16 : 10);
  if (error != std::errc() || end != digits.end() || value > maximum) {
    throw UsageError(tried + ": bad number (" + std::string(text) + ", 0 to " + std::to_string(maximum) + ")");
  }
  return value;
}

// "12/0x7c=5"
void set_register(Switchboard& board, const std::string& tried, std::string_view text) {
  const std::size_t slash = text.find('/');
  const std::size_t equals = text.find('=');
  if (slash == text.npos || equals == text.npos || equals < slash) {
    throw UsageError(tried + ": not a register (" + std::string(text) + ", category/byte=value)");
  }
  board.set_reg(parse_number(tried, text.substr(0, slash), 255),
                parse_number(tried, text.substr(slash + 1, equals - slash - 1), 65535),
                parse_number(tried, text.substr(equals + 1), 255));
}

// One register a line; blank lines and what follows a '#' are skipped.
void load_registers(Switchboard& board, const std::string& path) {
  std::ifstream file(path);
  if (!file) throw UsageError("--registers: cannot be read (" + path + ")");
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    line.erase(std::min(line.find('#'), line.size()));
    std::erase_if(line, [](unsigned char c) { return std::isspace(c) != 0; });
    if (!line.empty()) set_register(board, path + " line " + std::to_string(number), line);
  }
}

// "no_reply:3:2"
void arm_fault(Switchboard& board, std::string_view text) {
  std::vector<std::string_view> words;
  for (std::size_t colon = text.find(':'); colon != text.npos; colon = text.find(':')) {
    words.push_back(text.substr(0, colon));
    text.remove_prefix(colon + 1);
  }
  words.push_back(text);

  const std::optional<Fault> fault = fault_from_name(words[0]);
  if (!fault || *fault == Fault::none || words.size() > 4) {
    std::string names;
    for (const std::string_view name : kFaultNames) {
      if (name != "none") names.append(names.empty() ? "" : " ").append(name);
    }
    throw UsageError("--fault: no such fault (" + std::string(words[0]) + ", NAME[:EXCHANGE[:COUNT[:ENTRY]]] with " +
                     names + ")");
  }
  FaultPlan plan;
  if (words.size() > 1) plan.exchange = parse_number("--fault", words[1], 1000000);
  if (words.size() > 2) plan.count = parse_number("--fault", words[2], 1000000);
  if (words.size() > 3) plan.entry = parse_number("--fault", words[3], 15);
  if (!board.arm(*fault, plan)) {
    throw UsageError("--fault: too many faults (at most " + std::to_string(Switchboard::kFaultSlots) + ")");
  }
}

void print_exchange(const Exchange& exchange, bool json) {
  if (json) {
    const nlohmann::ordered_json line = {{"command", command_text({exchange.command, {}, Fault::none})},
                                         {"reply", reply_text(exchange)},
                                         {"fault", fault_name(exchange.fault)}};
    std::printf("%s\n", line.dump().c_str());
  } else {
    std::printf("%s -> %s\n", command_text(exchange).c_str(), reply_text(exchange).c_str());
  }
  std::fflush(stdout);
}

struct RunOptions {
  bool trace = false;
  bool json = false;
  bool keep = false;
  std::string registers;
  std::vector<std::string> settings;
  std::vector<std::string> faults;
};

void run(const RunOptions& options) {
  SharedSwitchboard board;
  if (!options.registers.empty()) load_registers(*board, options.registers);
  for (const std::string& setting : options.settings) set_register(*board, "--set", setting);
  for (const std::string& fault : options.faults) arm_fault(*board, fault);

  CommApplication application(*board);
  if (options.keep) application.leave_objects();
  if (options.trace || options.json) {
    application.on_exchange([&](const Exchange& exchange) { print_exchange(exchange, options.json); });
  }
  std::fprintf(stderr, "camsim: serving requests, process %d\n", static_cast<int>(getpid()));
  application.run();
}

std::string default_device_directory() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime != nullptr && *runtime != '\0') return std::string(runtime) + "/camsim";
  return "/tmp/camsim-" + std::to_string(geteuid());
}

void make_device_directory(const std::string& directory) {
  // The default name can be guessed by other users of the machine, so what is there must be the caller's own.
  struct stat state {};
  if (mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) {
    throw std::runtime_error(directory + ": cannot be made: " + std::strerror(errno));
  }
  if (lstat(directory.c_str(), &state) != 0 || !S_ISDIR(state.st_mode) || state.st_uid != geteuid()) {
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

int execute(const std::string& directory, std::vector<std::string> command) {
  make_device_directory(directory);
  std::string preload = preload_library().string();
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

void write_factory_file(const fs::path& path, const std::vector<std::uint8_t>& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) throw std::runtime_error(path.string() + ": cannot be written");
}

// Sample adjustment files: validity mark 1 first, then plausible register values.
void write_factory_files(const std::string& directory) {
  std::vector<std::uint8_t> camera(48);
  camera[0] = 1;
  camera[2] = 1;  // nonzero: the EVR worker runs
  camera[3] = 0x80;
  camera[4] = 0x0c;
  camera[5] = 0xc8;
  for (std::size_t i = 8; i < 24; ++i) camera[i] = 0x80;   // hue
  for (std::size_t i = 24; i < 40; ++i) camera[i] = 0x40;  // gain
  write_factory_file(fs::path(directory) / "AdjCamera.txt", camera);
  write_factory_file(fs::path(directory) / "AdjWbHalfPixels.txt",
                     {1, 0, 0x40, 0x0e, 0x00, 0x10, 0xed, 0x07, 0, 0, 0, 0});
  write_factory_file(fs::path(directory) / "AdjWbAllPixels.txt",
                     {1, 0, 0x42, 0x0e, 0x00, 0x10, 0xf0, 0x07, 0, 0, 0, 0});
}

int dispatch(int argc, char** argv) {
  CLI::App app("Simulated camera: a comm application with a register file, and stand-ins for the camera's devices.",
               "camsim");
  app.footer(kFooter);
  app.require_subcommand(1);

  RunOptions options;
  CLI::App* run_command = app.add_subcommand("run", "Serve register requests until SIGINT or SIGTERM.");
  run_command->add_flag("--trace", options.trace, "Print every exchange (default: off)");
  run_command->add_flag("--json", options.json, "Print every exchange as a JSON object, one a line (default: off)");
  run_command->add_flag("--keep", options.keep, "Leave key file, semaphore and segment behind (default: remove)");
  run_command->add_option("--set", options.settings, "Register before the first request (default: 0)")
      ->type_name("CATEGORY/BYTE=VALUE");
  run_command->add_option("--registers", options.registers, "File of such registers, one a line (default: none)")
      ->type_name("FILE");
  run_command->add_option("--fault", options.faults, "What goes wrong, and with which exchange (default: 0:1:0)")
      ->type_name("NAME[:EXCHANGE[:COUNT[:ENTRY]]]");

  std::string devices = default_device_directory();
  std::vector<std::string> command;
  CLI::App* exec_command = app.add_subcommand("exec", "Run a command with stand-ins for the camera's devices.");
  exec_command->add_option("--devices", devices, "Directory of the stand-ins")->type_name("DIR")->capture_default_str();
  exec_command->add_option("command", command, "Command and its arguments")->type_name("COMMAND")->required();
  exec_command->positionals_at_end();
  exec_command->prefix_command();

  std::string factory = "/var/tmp";
  CLI::App* factory_command = app.add_subcommand("factory", "Write sample factory adjustment files.");
  factory_command->add_option("directory", factory, "Where to write them")->type_name("DIR")->capture_default_str();

  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    std::fprintf(stderr, "camsim: command line: %s\n", error.what());
    return kUsage;
  }

  if (run_command->parsed()) run(options);
  if (factory_command->parsed()) write_factory_files(factory);
  if (exec_command->parsed()) return execute(devices, command);
  return kDone;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return dispatch(argc, argv);
  } catch (const UsageError& error) {
    std::fprintf(stderr, "camsim: %s\n", error.what());
    return kUsage;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "camsim: %s\n", error.what());
    return kFailedToRun;
  }
}
