// Results, notes, progress, and the signals that end a command.
#include "tools/output.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

#include "registers/words.h"

namespace ipcam::tools {

namespace {

volatile std::sig_atomic_t g_stop_signal = 0;

void note_stop_signal(int signal) { g_stop_signal = signal; }

std::string_view error_kind(ExitCode code) {
  constexpr std::array<std::string_view, 6> kNames = {
      "done", "refused", "usage", "timed out", "no comm application", "busy"};
  return kNames[static_cast<std::size_t>(code)];
}

std::atomic<bool> g_is_verbose = false;
std::atomic<Trouble> g_trouble = Trouble::kOther;

void write_all(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0)
      throw CommandError(kUsage, std::string("write results: ") + std::strerror(errno));
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

// Beginnings of the lines on standard error that report no error.
constexpr std::string_view kPlainLines[] = {
    "Pattern ",     "Flickerless", "AutoBN :",
    "Saved RGain:", "Loaded ",     "do_binning r",
    "Retry to set", "Retrying",    "176@OnepushWB#setRBGain",
    "IrisModifier"};

// Takes what the library prints in the place of one of its streams, line by line.
template <bool kIsError>
ssize_t take_line(void* /*stream*/, const char* text, std::size_t size) {
  const std::string_view line(text, size);
  if (line.find("communication with comm application error!") != line.npos)
    g_trouble = Trouble::kNoCpu;
  if (line.find("other process using now!") != line.npos) g_trouble = Trouble::kRecordInUse;
  const auto begins_line = [&](std::string_view start) { return line.starts_with(start); };
  const bool is_plain = !kIsError || std::ranges::any_of(kPlainLines, begins_line);
  if (is_plain && !g_is_verbose) return static_cast<ssize_t>(size);
  return write(STDERR_FILENO, text, size);
}

template <bool kIsError>
std::FILE* library_stream() {
  std::FILE* stream = fopencookie(
      nullptr, "w",
      {.read = nullptr, .write = take_line<kIsError>, .seek = nullptr, .close = nullptr});
  if (stream != nullptr) std::setvbuf(stream, nullptr, _IOLBF, BUFSIZ);
  return stream;
}

}  // namespace

void refuse_name(const std::string& tried, const std::string& kind, const std::string& name,
                 const std::vector<std::string>& names) {
  throw CommandError(kUsage,
                     tried + ": no " + kind + " " + name + registers::did_you_mean(name, names));
}

Trouble take_trouble() { return g_trouble.exchange(Trouble::kOther); }

Output::Output() : has_progress_(isatty(STDERR_FILENO) == 1) {
  const char* no_color = std::getenv("NO_COLOR");
  has_color_ = isatty(STDOUT_FILENO) == 1 && (no_color == nullptr || *no_color == '\0');
  if (std::FILE* lines = library_stream<false>()) stdout = lines;
  if (std::FILE* errors = library_stream<true>()) stderr = errors;
}

Output::~Output() = default;

void Output::use(const Modes& modes) {
  modes_ = modes;
  g_is_verbose = modes.verbose;
}

void Output::line(std::string_view text) {
  progress("");
  std::string bytes(text);
  if (!bytes.ends_with('\n')) bytes += '\n';
  write_all(STDOUT_FILENO, bytes);
}

void Output::note(std::string_view text) {
  progress("");
  dprintf(STDERR_FILENO, "camctl: %.*s\n", static_cast<int>(text.size()), text.data());
}

void Output::result(const Json& object, std::string_view text) {
  if (modes_.json) {
    collected_.push_back(object);
  } else {
    line(text);
  }
}

void Output::fail(const CommandError& error) {
  note(error.what());
  try {
    finish(&error);
  } catch (const CommandError& unwritable) {
    note(unwritable.what());
  }
}

void Output::finish(const CommandError* error) {
  progress("");
  Json document = {{"results", std::exchange(collected_, {})}};
  if (error != nullptr) {
    document["error"] = {{"code", static_cast<int>(error->code())},
                         {"kind", error_kind(error->code())},
                         {"message", error->what()}};
  }
  if (modes_.json) line(json_text(document));
}

void Output::progress(std::string_view text) {
  if (!has_progress_ || (text.empty() && !progress_shown_)) return;
  dprintf(STDERR_FILENO, "\r\033[K%.*s", static_cast<int>(text.size()), text.data());
  progress_shown_ = !text.empty();
}

std::string Output::styled(Style style, std::string_view text) const {
  constexpr std::array<std::string_view, 3> kCodes = {"\033[32m", "\033[31m", "\033[1m"};
  if (!has_color_) return std::string(text);
  return std::string(kCodes[static_cast<std::size_t>(style)]) + std::string(text) + "\033[0m";
}

void watch_for_stop_signals() {
  struct sigaction action = {};
  action.sa_handler = note_stop_signal;  // without SA_RESTART: a read from the terminal ends too
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before = {};
    // Under nohup the hang-up is to be ignored, by a recorded program as well.
    sigaction(signal, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(signal, &action, nullptr);
  }
}

bool stop_requested() { return g_stop_signal != 0; }

void check_for_stop() {
  if (stop_requested())
    throw CommandError(kRefused, std::string("stopped by signal: ") + strsignal(g_stop_signal));
}

void die_of_stop_signal() {
  if (!stop_requested()) return;
  std::signal(g_stop_signal, SIG_DFL);
  std::raise(g_stop_signal);
}

std::string json_text(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string hex(int value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%02x", value);
  return text;
}

std::string padded(std::string_view text, std::size_t width) {
  std::string result(text);
  if (result.size() < width) result.resize(width, ' ');
  return result;
}

}  // namespace ipcam::tools
