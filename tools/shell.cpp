// camctl shell: many commands, one control thread.
#include <unistd.h>

#include <iostream>
#include <sstream>

#include "tools/commands.h"

namespace ipcam::tools {

namespace {

constexpr std::streamsize kMaxLine = 4096;

// Words apart by blanks; '#' begins a comment.
Words split(const std::string& line) {
  Words words;
  std::istringstream stream(line);
  for (std::string word; stream >> word && word[0] != '#';) words.push_back(word);
  return words;
}

}  // namespace

int run_shell(Context& context) {
  context.out.detail(
      "starting a control thread for this shell; it applies the stored settings first");
  const auto session = std::make_shared<CameraSession>(context.out, "shell");
  const bool is_terminal = isatty(STDIN_FILENO) == 1;
  const char* const prompt = is_terminal ? "camctl> " : "";
  int first_failure = kDone;
  for (int number = 1; !stop_requested(); ++number) {
    std::cerr << prompt << std::flush;
    char line[kMaxLine + 1];
    const bool is_whole = static_cast<bool>(std::cin.getline(line, sizeof line));
    const std::string place = "line " + std::to_string(number) + ": ";
    if (!is_whole && std::cin.gcount() == kMaxLine)
      throw CommandError(kUsage, "shell: " + place + "longer than 4096 bytes");
    if (!is_whole) break;
    Words words = split(line);
    if (words.empty()) continue;
    if (words[0] == "exit" || words[0] == "quit") break;
    if (words[0] == "help") words[0] = "--help";
    Context inner{context.out, session, is_terminal ? "" : place, true};
    const int code = run_command_line(inner, words);
    if (first_failure == kDone) first_failure = code;
  }
  return first_failure;
}

}  // namespace ipcam::tools
