// camctl shell: many commands, one control thread.
#include <unistd.h>

#include <iostream>
#include <utility>

#include "tools/cli.h"
#include "tools/commands.h"

namespace ipcam::tools {

namespace {

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
  context.out.note(
      "starting a control thread for this shell; it applies the stored settings first");
  CameraSession session("shell");
  const bool is_json = context.out.is_json();
  const char* const prompt = isatty(STDIN_FILENO) == 1 ? "camctl> " : "";
  int first_failure = kDone;
  while (!stop_requested()) {
    std::cerr << prompt << std::flush;
    std::string line;
    if (!std::getline(std::cin, line)) break;
    Words words = split(line);
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
