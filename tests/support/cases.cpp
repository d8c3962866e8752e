// Cases as they are written in tests/data/*.cases: lines, blocks, lists and repetitions.
#include "tests/support/cases.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace ipcam::test {
namespace {

struct Statement {
  int line_number;
  std::string text;
};
using Block = std::vector<Statement>;

Lines split(const std::string& text, const std::string& separator) {
  Lines parts;
  std::size_t start = 0;
  for (std::size_t end = 0; end != text.npos; start = end + separator.size()) {
    end = text.find(separator, start);
    parts.push_back(text.substr(start, end - start));
  }
  return parts;
}

// The n-th element of each list "{a,b,c}"; "{}" stands for that of the
// block's first list. Counts elements.
std::string choose(const std::string& text, std::size_t n, Lines& first, std::size_t& count) {
  std::string chosen;
  std::size_t end = 0;
  for (std::size_t start = 0; (start = text.find('{', end)) != text.npos;) {
    const std::size_t close = text.find('}', start);
    if (close == text.npos) throw std::runtime_error("list without an end: " + text);
    const Lines list =
        close == start + 1 ? first : split(text.substr(start + 1, close - start - 1), ",");
    if (first.empty()) first = list;
    if (list.size() != first.size())
      throw std::runtime_error("lists of different lengths: " + text);
    chosen += text.substr(end, start - end) + list.at(n);
    end = close + 1;
  }
  count = std::max(count, first.size());
  return chosen + text.substr(end);
}

// "3 * a + b" is three times a and b.
Lines repeated(const std::string& part) {
  const std::size_t sign = part.find(" * ");
  if (sign == part.npos || part.find_first_not_of("0123456789") != sign) return {part};
  const Lines group = split(part.substr(sign + 3), " + ");
  Lines lines;
  for (int i = std::stoi(part); i > 0; --i) lines.insert(lines.end(), group.begin(), group.end());
  return lines;
}

Step parse_step(const Statement& statement, const std::string& text) {
  Lines parts = split(text, " | ");
  const Lines action = split(parts[0], " only ");
  Step step{statement.line_number, action[0], {}, {}};
  if (action.size() > 1) step.only = split(action[1], " ");
  if (parts.size() == 1) step.only = {"->"};
  for (std::size_t i = 1; i < parts.size(); ++i) {
    if (parts[i].ends_with(" $")) parts[i].pop_back();
    if (parts[i] == "nothing") continue;
    for (const std::string& line : repeated(parts[i])) step.expected.push_back(line);
  }
  return step;
}

void play_out(const Block& block, std::vector<Step>& steps) {
  std::size_t count = 1;
  for (std::size_t n = 0; n < count; ++n) {
    Lines first;
    for (const Statement& statement : block) {
      steps.push_back(parse_step(statement, choose(statement.text, n, first, count)));
    }
  }
}

void read_file(const std::filesystem::path& path, std::vector<Case>& cases) {
  std::ifstream file(path);
  Block block;
  int line_number = 0;
  const auto end_block = [&] {
    if (!block.empty()) play_out(block, cases.back().steps);
    block.clear();
  };
  for (std::string line; std::getline(file, line);) {
    ++line_number;
    if (line.starts_with('#')) continue;
    if (line.empty()) {
      end_block();
    } else if (line[0] == '[') {
      end_block();
      cases.push_back({path.stem().string() + "_" + line.substr(1, line.size() - 2), {}});
    } else if (line[0] == '|' || line[0] == ' ') {
      std::string& text = block.back().text;
      text.ends_with('\\') ? text.pop_back() : text.push_back(' ');
      text += line.substr(line.find_first_not_of(' '));
    } else {
      block.push_back({line_number, line});
    }
  }
  end_block();
}

}  // namespace

std::vector<Case> read_cases() {
  std::vector<std::filesystem::path> paths;
  for (const auto& entry : std::filesystem::directory_iterator(TEST_SOURCE_DIR "/tests/data")) {
    if (entry.path().extension() == ".cases") paths.push_back(entry.path());
  }
  std::ranges::sort(paths);
  std::vector<Case> cases;
  for (const auto& path : paths) read_file(path, cases);
  return cases;
}

}  // namespace ipcam::test
