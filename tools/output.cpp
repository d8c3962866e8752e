// Results, notes, progress, and the signals that end a command.
#include "tools/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace ipcam::tools {

namespace {

volatile std::sig_atomic_t g_stop_signal = 0;

void note_stop_signal(int signal) { g_stop_signal = signal; }

std::string_view error_kind(ExitCode code) {
  constexpr std::array<std::string_view, 6> kNames = {
      "done", "refused", "usage", "timed out", "no comm application", "busy"};
  return kNames[static_cast<std::size_t>(code)];
}

// Descriptor 1 becomes a copy of `source`; what the library has
// printed so far still goes where it went.
void redirect_stdout(int source) {
  std::fflush(stdout);
  dup2(source, STDOUT_FILENO);
}

}  // namespace

Output::Output()
    : results_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)),
      has_progress_(isatty(STDERR_FILENO) == 1) {
  const char* no_color = std::getenv("NO_COLOR");
  has_color_ = isatty(results_) == 1 && (no_color == nullptr || *no_color == '\0');
  redirect_stdout(STDERR_FILENO);
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
}

Output::~Output() {
  std::fflush(stdout);
  close(results_);
}

void Output::line(std::string_view text) {
  progress("");
  std::string bytes(text);
  if (!bytes.ends_with('\n')) bytes += '\n';
  std::string_view rest = bytes;
  while (!rest.empty()) {
    const ssize_t written = write(results_, rest.data(), rest.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0)
      throw CommandError(kUsage, std::string("write results: ") + std::strerror(errno));
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

void Output::note(std::string_view text) {
  progress("");
  std::fprintf(stderr, "camctl: %.*s\n", static_cast<int>(text.size()), text.data());
}

void Output::result(const Json& object, std::string_view text) {
  if (json_) {
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
  Json document = {{"results", std::exchange(collected_, Json::array())}};
  if (error != nullptr) {
    document["error"] = {{"code", static_cast<int>(error->code())},
                         {"kind", error_kind(error->code())},
                         {"message", error->what()}};
  }
  if (json_) line(json_text(document));
}

void Output::progress(std::string_view text) {
  if (!has_progress_ || (text.empty() && !progress_shown_)) return;
  std::fprintf(stderr, "\r\033[K%.*s", static_cast<int>(text.size()), text.data());
  progress_shown_ = !text.empty();
}

std::string Output::styled(Style style, std::string_view text) const {
  constexpr std::array<std::string_view, 3> kCodes = {"\033[32m", "\033[31m", "\033[1m"};
  if (!has_color_) return std::string(text);
  return std::string(kCodes[static_cast<std::size_t>(style)]) + std::string(text) + "\033[0m";
}

LibraryMute::LibraryMute() {
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (nowhere < 0) return;
  redirect_stdout(nowhere);
  close(nowhere);
}

LibraryMute::~LibraryMute() { redirect_stdout(STDERR_FILENO); }

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
