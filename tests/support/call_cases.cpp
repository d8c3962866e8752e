// Calls whose cases, with everything that is to be seen of them, are in a text file.
#include "tests/support/call_cases.h"

#include <algorithm>
namespace ipcam::test {
namespace {

// Lines, or pairs of lines, that follow each other several times appear once.
Lines in_short(const Lines& lines) {
  Lines result;
  for (auto line = lines.begin(); line != lines.end();) {
    std::ptrdiff_t width = 1, times = 1;
    for (const std::ptrdiff_t of : {1, 2}) {
      if (times > 1) break;
      width = of;
      while (lines.end() - line >= (times + 1) * of && std::equal(line, line + of, line + times * of)) ++times;
    }
    result.push_back((times > 1 ? std::to_string(times) + " * " : "") + *line);
    if (times == 1) width = 1;
    if (width == 2) result.push_back("+ " + *(line + 1));
    line += width * times;
  }
  return result;
}

}  // namespace

Lines CallTest::seen(const Call& call, const std::string& argument) {
  notes.clear();
  camera.clear_traffic();
  clock->clear_waits();
  int result = 0;
  const Output output = capture([&] { result = call(argument); });
  Lines lines = {"-> " + std::to_string(result)};
  for (const Lines& part : {notes, camera.traffic()}) lines.insert(lines.end(), part.begin(), part.end());
  add_printed(lines, "out", output.out);
  add_printed(lines, "err", output.err);
  for (const std::string& wait : clock->waits()) lines.push_back("wait " + wait);
  return in_short(lines);
}

void CallTest::check_calls(const std::string& file, const std::map<std::string, Call>& calls,
                           const std::function<void()>& before) {
  for (const Section& section : read_cases(file)) {
    for (const Case& c : section.cases) {
      SCOPED_TRACE(file + ":" + std::to_string(c.line_number) + ": " + c.action);
      if (!c.action.starts_with("do ")) {
        ASSERT_NO_FATAL_FAILURE(prepare(c.action));
        continue;
      }
      const std::size_t blank = std::min(c.action.find(' ', 3), c.action.size());
      before();
      EXPECT_EQ(seen(calls.at(c.action.substr(3, blank - 3)), c.action.substr(std::min(blank + 1, c.action.size()))),
                c.expected);
      EXPECT_EQ(failures_left(), 0);
    }
  }
}

}  // namespace ipcam::test
