// The commands of camctl, and what they share. Each throws CommandError when it fails.
#pragma once

#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sim/register_file.h"
#include "tools/camera_session.h"
#include "tools/output.h"
#include "tools/register_port.h"
#include "workstation/namespaces.h"

namespace ipcam::tools {

using Words = std::vector<std::string>;

// Where results go, and, in a shell, the control thread that it holds and the line it is at.
struct Context {
  Output& out;
  std::shared_ptr<CameraSession> session = {};
  std::string place = {};  // "line 7: ", before what is wrong in it
  bool is_shell = false;   // what a request holds stays held
};

// Those of the shell, or ones of the command's own, for which the link must carry requests.
std::shared_ptr<RegisterPort> port_of(const Context& context, const std::string& tried);
std::shared_ptr<CameraSession> session_of(const Context& context);

// NAME and VALUE of "NAME=VALUE". Throws CommandError; `form` says what was expected.
std::pair<std::string, std::string> split_assignment(const std::string& text,
                                                     const std::string& tried,
                                                     std::string_view form);
// The number of a value that must be one of those accepted.
int accepted_value(const Values& values, Form form, const std::string& text,
                   const std::string& tried);
// Address and name of a register, as columns.
std::string register_columns(Address address);
// Into a file, or, for "-", as a result.
void save_text(Context& context, const std::string& tried, const std::string& file,
               const std::string& text);

// System V objects, the folders `covered` (/tmp among them) and the stored settings of this
// process's own, and the camera's devices out of reach: nothing that is done then gets to the real
// camera. For a process with one thread.
void enter_sandbox(const workstation::Paths& covered);

// Settings: commands_settings.cpp.

struct Request {
  const Setting* setting;
  int value = 0;
};
void list_settings(Context& context, const Words& names);
std::vector<Request> parse_assignments(const Words& assignments);
Request parse_action(const std::string& name);
// Those that change nothing now fail if `strict`; else that is only said.
void run_requests(Context& context, const std::vector<Request>& requests, bool strict);
// What settings are stored as and what the registers hold, and answers to queries; of all by
// default.
void get_settings(Context& context, const Words& names);
// The table as a section of the man page.
std::string man_settings();

// What the requests would send: dry_run.cpp. Returns the exit code of the process that tried them.

int run_dry(Context& context, const std::vector<Request>& requests, bool strict,
            const Words& command_line);

// Recordings: commands_recording.cpp, replay.cpp. Return the exit code.

struct RecordingRows {
  int request = 0;            // its number; 0: all
  std::string register_name;  // empty: all
  double since_s = 0;
  double until_s = 0;  // 0: the end
};
int recording_show(Context& context, const std::string& file, const RecordingRows& wanted);
int recording_stats(Context& context, const std::string& file);
int recording_diff(Context& context, const std::string& file, const std::string& other);
int recording_chrome(Context& context, const std::string& file);

struct ReplayOptions {
  int until = 0;  // number of the last request; 0: all
  bool in_real_time = false;
};
int replay(Context& context, const std::string& file, const ReplayOptions& options);

// Raw registers: commands_reg.cpp.

struct DumpRange {
  int category = 0;
  int first = 0;
  int last = 255;
};
struct WatchLimits {
  int count = 0;      // changes to wait for; 0: any number
  int timeout_s = 0;  // 0: none
  int interval_ms = 100;
};
void reg_read(Context& context, const Words& registers);
// Refuses registers that can only be read, unless told to.
void reg_write(Context& context, const Words& assignments, bool force);
// Writes the entries, shows what they have changed and makes sure that the registers hold it.
void write_and_show(Context& context, std::span<const camera::param_info> entries,
                    const std::string& tried);
void show_write(Output& out, const camera::param_info& entry, std::uint8_t before,
                std::uint8_t after);
void reg_dump(Context& context, const DumpRange& range);
void reg_watch(Context& context, const Words& registers, const WatchLimits& limits);
void reg_list(Context& context);
// Which register it is, and what there is to say of it.
Json register_json(Address address, const Json& more);
// docs/registers.md: register_document.cpp.
std::string register_document();

// Snapshots of registers: commands_snapshot.cpp.

sim::RegisterMap read_registers(Context& context, const std::string& tried,
                                const std::set<Address>& addresses);
void reg_save(Context& context, const std::string& file);
// Of a file and the camera, or another file. Returns the exit code.
int reg_diff(Context& context, const std::string& file, const std::string& other);
void reg_restore(Context& context, const std::string& file, bool dry_run);

// Stored settings: commands_config.cpp.

void config_init(Context& context, bool over_what_is_there);
void config_show(Context& context, const Words& names);
void config_set(Context& context, const Words& assignments);
void config_save(Context& context, const std::string& file);
void config_restore(Context& context, const std::string& file);
int config_diff(Context& context, const std::string& file);  // returns the exit code

// A program that is recorded, in this process: commands_record.cpp. Returns only by a failure.

[[noreturn]] void record(const std::string& file, int limit, const Words& command);

// Runs one command, in a shell with its control thread. Prints results, or what was wrong, and
// returns the exit code: camctl.cpp.
int run_command_line(Context& context, const Words& words);

// Service: commands_service.cpp, commands_bench.cpp, shell.cpp.

void doctor(Context& context);
void flash(Context& context, bool is_store, bool yes);
void flash_sdram(Context& context);
void bench(Context& context, int count, bool with_requests);
int run_shell(Context& context);

}  // namespace ipcam::tools
