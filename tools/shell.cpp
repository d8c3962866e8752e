// camctl shell: many commands, one control thread.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>

#include "tools/cli.h"
#include "tools/commands.h"

namespace ipcam::tools {

namespace {

// Where lines come from.
class LineSource {
 public:
  virtual ~LineSource() = default;
  virtual std::optional<std::string> next() = 0;
};

class PlainLines : public LineSource {
 public:
  explicit PlainLines(const char* prompt) : prompt_(prompt) {}

  std::optional<std::string> next() override {
    std::cerr << prompt_ << std::flush;
    std::string line;
    if (!std::getline(std::cin, line)) return std::nullopt;
    return line;
  }

 private:
  const char* prompt_;
};

// Line editing and history of libedit, where it is installed; a camera need not have it.
class EditedLines : public LineSource {
 public:
  static std::unique_ptr<LineSource> create() {
    void* library = dlopen("libedit.so.2", RTLD_NOW);
    if (library == nullptr) return nullptr;
    auto lines = std::make_unique<EditedLines>();
    lines->readline_ = reinterpret_cast<Readline*>(dlsym(library, "readline"));
    lines->add_history_ = reinterpret_cast<AddHistory*>(dlsym(library, "add_history"));
    if (lines->readline_ == nullptr || lines->add_history_ == nullptr) return nullptr;
    return lines;
  }

  std::optional<std::string> next() override {
    const std::unique_ptr<char, decltype(&std::free)> line(readline_("camctl> "), &std::free);
    if (line == nullptr) return std::nullopt;
    if (*line != '\0') add_history_(line.get());
    return std::string(line.get());
  }

 private:
  using Readline = char*(const char*);
  using AddHistory = int(const char*);
  Readline* readline_ = nullptr;
  AddHistory* add_history_ = nullptr;
};

std::unique_ptr<LineSource> open_lines() {
  if (isatty(STDIN_FILENO) == 0) return std::make_unique<PlainLines>("");
  if (auto lines = EditedLines::create()) return lines;
  return std::make_unique<PlainLines>("camctl> ");
}

// Words apart by blanks; '#' begins a comment.
Words split(const std::string& line) {
  Words words;
  std::string word;
  for (const char c : line + ' ') {
    if (c == '#' && word.empty()) break;
    if (c != ' ' && c != '\t' && c != '\r') {
      word += c;
    } else if (!word.empty()) {
      words.push_back(std::exchange(word, {}));
    }
  }
  return words;
}

}  // namespace

int run_shell(Context& context) {
  context.out.note("starting a control thread for this shell; it applies the stored settings first");
  CameraSession session("shell");
  const bool is_json = context.out.is_json();
  const std::unique_ptr<LineSource> lines = open_lines();
  int first_failure = kDone;
  while (!stop_requested()) {
    const std::optional<std::string> line = lines->next();
    if (!line) break;
    Words words = split(*line);
    if (words.empty()) continue;
    if (words[0] == "exit" || words[0] == "quit") break;
    if (words[0] == "help") words[0] = "--help";
    Context inner{context.out, &session};
    const int code = run_command_line(inner, words);
    context.out.use_json(is_json);
    if (first_failure == kDone) first_failure = code;
  }
  return first_failure;
}

}  // namespace ipcam::tools
