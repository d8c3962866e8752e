// Where the tool's words go: results on the descriptor that was standard
// output, everything else on standard error.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ipcam::tools {

using Json = nlohmann::ordered_json;

enum ExitCode : int {
  kDone = 0,
  kRefused = 1,  // by the camera
  kDiffer = 1,   // what was compared
  kUsage = 2,    // arguments, files or rights of the caller
  kTimedOut = 3,
  kNoCommApplication = 4,
  kBusy = 5,
};

// Ends a command. The text says what was tried and what was wrong: "set
// saturation=9: no such value (0 to 6)".
class CommandError : public std::runtime_error {
 public:
  CommandError(ExitCode code, const std::string& text) : std::runtime_error(text), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

// Ends a command that has an unknown name in it: "list wc: no setting wc, did you mean wb".
[[noreturn]] void refuse_name(const std::string& tried, const std::string& kind,
                              const std::string& name, const std::vector<std::string>& names);

// What the library last said about an exchange that failed; its result does not tell.
enum class Trouble { kOther, kRecordInUse, kNoCpu };
Trouble take_trouble();  // and forgets it

// From its construction on, the library's own lines on standard output are left out, or are on
// standard error, so that they cannot get between the results. Its errors always show. One thread.
class Output {
 public:
  Output();
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // What the words of a command line ask for.
  struct Modes {
    bool json = false;
    bool verbose = false;  // the library's own lines show
    bool retry = true;     // a failed exchange is repeated
  };
  const Modes& modes() const { return modes_; }
  void use(const Modes& modes);

  // Results, with a newline at the end, written at once. Throws
  // CommandError when it cannot be written.
  void line(std::string_view text);
  // One result: `text` as a line at once, or, with JSON, `object` with
  // all others at the end of the command.
  void result(const Json& object, std::string_view text);
  // The end of a command: with JSON, {"results": [...]}, and after a failure its error beside them.
  void finish(const CommandError* error = nullptr);
  void fail(const CommandError& error);

  // "camctl: text" on standard error.
  void note(std::string_view text);
  // The same, if the library's own lines show as well.
  void detail(std::string_view text) {
    if (modes_.verbose) note(text);
  }
  // A line on a terminal that the next one replaces; an empty text takes it away.
  void progress(std::string_view text);

  enum class Style { kGood, kBad, kName };
  // The text in colour when results go to a terminal and NO_COLOR is not set.
  std::string styled(Style style, std::string_view text) const;

 private:
  std::vector<Json> collected_;
  Modes modes_ = {};
  bool has_color_;
  bool has_progress_;
  bool progress_shown_ = false;
};

// Set by SIGINT, SIGTERM and SIGHUP: a command then ends at its next
// step, with no exchange left half done.
void watch_for_stop_signals();
bool stop_requested();
// Throws CommandError once a stop was requested.
void check_for_stop();
// Ends the process as the signal would have, if there was one.
void die_of_stop_signal();

// JSON of a line; bytes that are no text are replaced.
std::string json_text(const Json& value);
// "0x0a".
std::string hex(int value);
// The text, filled up with blanks.
std::string padded(std::string_view text, std::size_t width);

}  // namespace ipcam::tools
