// camctl: sets, reads and examines the camera's image control. Its command line: commands, options,
// help, exit codes and completion.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <climits>
#include <nlohmann/json.hpp>
#include <optional>

#include "tools/commands.h"
#include "tools/completion.h"

namespace ipcam::tools {

namespace {

constexpr char kExitCodes[] =
    "Exit codes:\n"
    "  0  done\n"
    "  1  refused by the camera; of diff and replay: there are differences\n"
    "  2  wrong usage: arguments, files or rights\n"
    "  3  timed out\n"
    "  4  no comm application\n"
    "  5  busy: another process holds the record";

// One parse of one line: the options' values live here.
class CommandLine {
 public:
  explicit CommandLine(Context& context) : context_(context) {
    app_.set_version_flag("--version", CAMCTL_VERSION);
    // Read before the rest, so that they hold for errors of the command line too.
    app_.add_flag("--json", is_mode_, "Results as JSON");
    app_.add_flag("-v,--verbose", is_mode_, "Show the library's own lines too, on standard error");
    app_.add_flag("--no-retry", is_mode_, "Do not repeat a register exchange that failed");
    app_.require_subcommand(1);
    app_.footer(std::string("Example:\n  camctl set saturation=3 wb=outdoor\n\n") + kExitCodes);
    add_settings_commands();
    add_reg_commands();
    add_config_commands();
    add_service_commands();
    add_recording_commands();
    if (context_.session == nullptr) add_commands_outside_shell();
  }

  int run(const Words& words);

 private:
  // `arguments` are those of the example.
  CLI::App* add(CLI::App* parent, const std::string& name, const std::string& purpose,
                const std::string& arguments = "") {
    CLI::App* command = parent->add_subcommand(name, purpose);
    const std::string family = parent == &app_ ? "" : parent->get_name() + " ";
    const std::string example =
        "camctl " + family + name + (arguments.empty() ? "" : " ") + arguments;
    command->fallthrough()->footer("Example:\n  " + example + "\n\n" + kExitCodes);
    return command;
  }
  CLI::App* add_family(const std::string& name, const std::string& purpose) {
    CLI::App* family = app_.add_subcommand(name, purpose);
    family->fallthrough()->require_subcommand(1)->footer(kExitCodes);
    return family;
  }
  void add_file(CLI::App* command, const std::string& purpose) {
    command->add_option("FILE", name_, purpose)->required();
  }
  // The help shows the default, where there is one.
  static void add_number(CLI::App* command, const std::string& name, int& value,
                         const std::string& purpose, int min, int max) {
    CLI::Option* option = command->add_option(name, value, purpose)->check(CLI::Range(min, max));
    if (value >= min) option->capture_default_str();
  }
  void add_dry_run(CLI::App* command) {
    command->add_flag("--dry-run", dry_run_, "Show the register writes without sending them");
  }
  void add_settings_commands();
  void add_reg_commands();
  void add_snapshot_commands(CLI::App* reg);
  void add_config_commands();
  void add_service_commands();
  void add_recording_commands();
  void add_commands_outside_shell();

  void run_or_show(const std::vector<Request>& requests) {
    if (dry_run_) {
      code_ = run_dry(context_, requests, strict_, words_);
    } else {
      run_requests(context_, requests, strict_);
    }
  }

  Context& context_;
  CLI::App app_{"camctl: sets, reads and examines the camera's image control", "camctl"};
  std::optional<int> code_;  // of a command that has ended its results by itself
  Words words_;

  bool is_mode_ = false;  // what the parser makes of the modes; nobody looks at it
  bool dry_run_ = false;
  Words names_;
  std::string name_;
  std::string other_;
  DumpRange dump_;
  WatchLimits watch_;
  bool strict_ = false;
  bool all_ = false;
  bool yes_ = false;
  bool force_ = false;
  std::string file_ = "recording.jsonl";
  int limit_ = 8 << 20;
  int bench_count_ = 1000;
  bool bench_requests_ = false;
  RecordingRows rows_;
  bool stats_ = false;
  ReplayOptions replay_;
  std::string speed_ = "fast";
};

void CommandLine::add_settings_commands() {
  CLI::App* list =
      add(&app_, "list", "Show settings, actions and queries, values and meaning", "saturation wb");
  list->add_option("NAME", names_, "Those to show; all by default");
  list->callback([this] { list_settings(context_, names_); });

  CLI::App* set = add(&app_, "set", "Change settings", "saturation=3 wb=outdoor");
  set->add_option("NAME=VALUE", names_, "Settings and values of camctl list")->required();
  add_dry_run(set);
  set->add_flag("--strict", strict_, "Fail when a setting has no effect now");
  set->callback([this] { run_or_show(parse_assignments(names_)); });

  CLI::App* action = add(&app_, "do", "Start an action", "exposure");
  action->add_option("NAME", name_, "Action of camctl list")->required();
  add_dry_run(action);
  action->callback([this] { run_or_show({parse_action(name_)}); });

  CLI::App* get =
      add(&app_, "get", "Show settings as stored and as the registers hold them", "saturation icr");
  get->add_option("NAME", names_, "Settings and queries of camctl list");
  get->add_flag("--all", all_, "All of them");
  get->callback([this] {
    if (names_.empty() != all_) throw CommandError(kUsage, "get: either names or --all");
    get_settings(context_, names_);
  });
}

void CommandLine::add_reg_commands() {
  constexpr char kRegister[] = "CATEGORY/BYTE, or a name of camctl reg list";
  CLI::App* reg = add_family("reg", "Read and write raw registers");

  CLI::App* read = add(reg, "read", "Read registers", "saturation 12/0x7c");
  read->add_option("REGISTER", names_, kRegister)->required();
  read->callback([this] { reg_read(context_, names_); });

  CLI::App* write =
      add(reg, "write", "Write registers under their mask", "saturation=0x80 2/3=1:0x03");
  write
      ->add_option("REGISTER=VALUE[:MASK]", names_,
                   "What to write; by default under the register's own mask")
      ->required();
  write->add_flag("--force", force_, "Registers that can only be read too");
  write->callback([this] { reg_write(context_, names_, force_); });

  CLI::App* dump = add(reg, "dump", "Show a category's registers in a grid", "12 0x70 0x8f");
  dump->add_option("CATEGORY", dump_.category, "0 to 255")->required()->check(CLI::Range(0, 0xff));
  add_number(dump, "FIRST", dump_.first, "First byte number", 0, 0xffff);
  add_number(dump, "LAST", dump_.last, "Last byte number", 0, 0xffff);
  dump->callback([this] { reg_dump(context_, dump_); });

  CLI::App* watch =
      add(reg, "watch", "Show registers, then each change", "shutter_value --timeout 10");
  watch->add_option("REGISTER", names_, kRegister)->required();
  add_number(watch, "--count", watch_.count, "End after so many changes", 1, 1000000);
  add_number(watch, "--timeout", watch_.timeout_s, "End after so many seconds", 1, 86400);
  add_number(watch, "--interval", watch_.interval_ms, "Milliseconds between reads", 1, 60000);
  watch->callback([this] {
    reg_watch(context_, names_, watch_);
    code_ = kDone;
  });

  add_snapshot_commands(reg);
  add(reg, "list", "Show the names of registers")->callback([this] { reg_list(context_); });
}

void CommandLine::add_snapshot_commands(CLI::App* reg) {
  CLI::App* save = add(reg, "save", "Save all named registers as a text file", "before.txt");
  add_file(save, "File to write, as camsim takes it; - for standard output");
  save->callback([this] { reg_save(context_, name_); });

  CLI::App* diff =
      add(reg, "diff", "Compare a file with the camera's registers, or another file", "before.txt");
  add_file(diff, "File of camctl reg save or camsim");
  diff->add_option("OTHER", other_, "Another one; by default the camera");
  diff->callback([this] { code_ = reg_diff(context_, name_, other_); });

  CLI::App* restore = add(reg, "restore", "Write the registers that a file says", "before.txt");
  add_file(restore, "File of camctl reg save; lines may be left out");
  add_dry_run(restore);
  restore->callback([this] { reg_restore(context_, name_, dry_run_); });
}

void CommandLine::add_config_commands() {
  CLI::App* config = add_family("config", "Look at and change the stored settings");

  CLI::App* init = add(config, "init", "Store sample settings where there are none");
  init->add_flag("--force", force_, "Over those that are there");
  init->callback([this] { config_init(context_, force_); });

  CLI::App* show = add(config, "show", "Show stored fields", "wb_mode");
  show->add_option("FIELD", names_, "Fields to show; all by default");
  show->callback([this] { config_show(context_, names_); });

  CLI::App* set = add(config, "set", "Change stored fields", "shutter_speed=3 auto_shutter=off");
  set->add_option("FIELD=VALUE", names_, "Fields and values")->required();
  set->callback([this] { config_set(context_, names_); });

  CLI::App* save = add(config, "save", "Save the stored settings as a text file", "before.txt");
  add_file(save, "File to write; - for standard output");
  save->callback([this] { config_save(context_, name_); });

  CLI::App* restore = add(config, "restore", "Store what a saved file says", "before.txt");
  add_file(restore, "File of camctl config save; lines may be left out");
  restore->callback([this] { config_restore(context_, name_); });

  CLI::App* diff =
      add(config, "diff", "Compare the stored settings with a saved file", "before.txt");
  add_file(diff, "File of camctl config save");
  diff->callback([this] { code_ = config_diff(context_, name_); });
}

void CommandLine::add_service_commands() {
  CLI::App* doctor_command =
      add(&app_, "doctor", "Examine the link to the camera and say what to do");
  doctor_command->callback([this] { doctor(context_); });

  CLI::App* flash_family = add_family("flash", "Copy the image processor's parameters");
  CLI::App* load = add(flash_family, "load", "Load the parameter area from flash", "--yes");
  CLI::App* store = add(flash_family, "store", "Store the parameter area to flash", "--yes");
  for (CLI::App* command : {load, store}) command->add_flag("--yes", yes_, "Do not ask");
  load->callback([this] { flash(context_, /*is_store=*/false, yes_); });
  store->callback([this] { flash(context_, /*is_store=*/true, yes_); });
  CLI::App* sdram = add(flash_family, "sdram", "Tell the sub CPU to put all into SDRAM");
  sdram->callback([this] { flash_sdram(context_); });

  CLI::App* bench_command =
      add(&app_, "bench", "Measure latencies against the bare system calls", "--count 200");
  add_number(bench_command, "--count", bench_count_, "Samples of each kind", 1, 1000000);
  bench_command->add_flag("--requests", bench_requests_, "Requests to the control thread too");
  bench_command->callback([this] { bench(context_, bench_count_, bench_requests_); });
}

void CommandLine::add_recording_commands() {
  CLI::App* recording = add_family("recording", "Look at the recordings of server programs");

  CLI::App* show = add(recording, "show", "Show what was asked, written and refused",
                       "session.rec --register wb_mode");
  add_file(show, "Recording");
  add_number(show, "--request", rows_.request, "Only this request, with its exchanges", 1, INT_MAX);
  show->add_option("--register", rows_.register_name, "Only what uses this register");
  show->add_option("--since", rows_.since_s, "Only from this second on")
      ->check(CLI::NonNegativeNumber);
  show->add_option("--until", rows_.until_s, "Only up to this second")->check(CLI::PositiveNumber);
  show->add_flag("--stats", stats_, "Per request: count, median and worst time, failures");
  show->callback([this] {
    code_ = stats_ ? recording_stats(context_, name_) : recording_show(context_, name_, rows_);
  });

  CLI::App* diff = add(recording, "diff", "Compare two recordings, but for times and threads",
                       "before.rec after.rec");
  diff->add_option("A", name_, "Recording")->required();
  diff->add_option("B", other_, "Recording of the same session")->required();
  diff->callback([this] { code_ = recording_diff(context_, name_, other_); });

  CLI::App* chrome = add(recording, "chrome", "Write a trace for chrome://tracing or Perfetto",
                         "session.rec > trace.json");
  add_file(chrome, "Recording");
  chrome->callback([this] { code_ = recording_chrome(context_, name_); });
}

// A shell in a shell would need a second control thread, a recorded program takes the place of
// camctl, a replay wants a process with one thread, and the document commands serve the project
// itself.
void CommandLine::add_commands_outside_shell() {
  CLI::App* shell =
      add(&app_, "shell", "Run commands, one a line, with one control thread", "< session.txt");
  shell->callback([this] { code_ = run_shell(context_); });

  CLI::App* record_command = add(&app_, "record", "Record a program that uses the library",
                                 "-o fault.jsonl -- server --port 80");
  record_command->add_option("-o,--output", file_, "File to create")->capture_default_str();
  record_command->add_option("--limit", limit_, "Bytes, after which the file begins anew")
      ->check(CLI::Range(64 << 10, 1 << 30));
  record_command->add_option("COMMAND", names_, "Program and its arguments, behind --")->required();
  record_command->callback([this] { record(file_, limit_, names_); });

  CLI::App* replay_command =
      add(&app_, "replay", "Play a recording again and compare what the library does",
          "session.rec --speed real");
  add_file(replay_command, "Recording");
  add_number(replay_command, "--until", replay_.until, "Number of the last request", 1, INT_MAX);
  replay_command
      ->add_option("--speed", speed_, "With the waits between requests (real), or without (fast)")
      ->capture_default_str()
      ->check(CLI::IsMember({"real", "fast"}));
  replay_command->callback([this] {
    replay_.in_real_time = speed_ == "real";
    code_ = replay(context_, name_, replay_);
  });

  CLI::App* document = app_.add_subcommand("document", "Generated parts of the documentation");
  document->group("")->fallthrough()->require_subcommand(1);
  const auto show = [this](const std::string& text) {
    context_.out.result({{"text", text}}, text);
  };
  const auto add_part = [&](const char* name, const char* purpose) {
    return document->add_subcommand(name, purpose)->fallthrough();
  };
  add_part("settings", "Section of the man page")->callback([=] { show(man_settings()); });
  add_part("registers", "Register map")->callback([=] { show(register_document()); });
}

// A sentence of the parser's as the end of a message; names in capitals stay.
std::string lower_first(std::string text) {
  const auto is_upper = [&](std::size_t i) {
    return std::isupper(static_cast<unsigned char>(text[i])) != 0;
  };
  if (text.size() > 1 && is_upper(0) && !is_upper(1))
    text[0] = static_cast<char>(text[0] - 'A' + 'a');
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

std::string joined(const Words& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

// The parser would only say that a word was not expected.
void refuse_unknown_command(const CLI::App& app, const Words& words) {
  const CLI::App* level = &app;
  for (const std::string& word : words) {
    if (word.starts_with('-')) continue;
    if (level->get_subcommands({}).empty()) return;
    const CLI::App* next = find_subcommand(*level, word);
    if (next == nullptr) {
      refuse_name(joined(words), "command", word, subcommands(*level));
    }
    level = next;
  }
}

int CommandLine::run(const Words& words) {
  // For the shell's completion; the words behind it are another command line, not this one's.
  if (!words.empty() && words[0] == "complete") {
    for (const std::string& word : candidates(app_, {words.begin() + 1, words.end()}))
      context_.out.line(word);
    return kDone;
  }
  refuse_unknown_command(app_, words);
  words_ = words;
  Words reversed(words.rbegin(), words.rend());  // as the parser takes them
  try {
    app_.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    const std::string help = app_.help();
    context_.out.result({{"help", help}}, help);
  } catch (const CLI::CallForVersion& version) {
    context_.out.result({{"version", version.what()}}, version.what());
  } catch (const CLI::ParseError& error) {
    throw CommandError(kUsage, (words.empty() ? "command line" : joined(words)) + ": " +
                                   lower_first(error.what()) + ", see --help");
  }
  if (code_) return *code_;
  context_.out.finish();
  return kDone;
}

int run_or_report(Context& context, const Words& words) {
  try {
    return CommandLine(context).run(words);
  } catch (const CommandError& error) {
    context.out.fail(CommandError(error.code(), context.place + error.what()));
    return error.code();
  } catch (const std::exception& error) {
    context.out.fail(CommandError(kUsage, context.place + joined(words) + ": " + error.what()));
    return kUsage;
  }
}

}  // namespace

int run_command_line(Context& context, const Words& words) {
  const auto has = [&](const char* word) { return std::ranges::count(words, word) > 0; };
  const Output::Modes before = context.out.modes();
  context.out.use({.json = before.json || has("--json"),
                   .verbose = before.verbose || has("-v") || has("--verbose"),
                   .retry = before.retry && !has("--no-retry")});
  const int code = run_or_report(context, words);
  context.out.use(before);
  return code;
}

}  // namespace ipcam::tools

int main(int argc, char** argv) {
  using namespace ipcam::tools;
  Output out;
  watch_for_stop_signals();
  Context context{out};
  const int code = run_command_line(context, Words(argv + (argc > 0 ? 1 : 0), argv + argc));
  die_of_stop_signal();
  return code;
}
