// Calls whose cases, with everything that is to be seen of them, are in a text file.
#include "tests/support/call_cases.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "tests/support/case_file.h"

namespace ipcam::test {
namespace {

void add(Lines& lines, const std::string& head, const std::string& text) {
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(head + (line.empty() ? "" : " ") + line + (line.ends_with(' ') ? "$" : ""));
  }
}

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

void CallTest::arrange(const std::string& action) {
  std::istringstream words(action);
  std::string verb, name;
  words >> verb >> name;
  if (verb == "fault") {
    const auto fault = std::ranges::find(sim::kFaultNames, name) - sim::kFaultNames.begin();
    ASSERT_LT(fault, sim::kFaultNames.size());
    sim::FaultPlan plan;
    while (words >> name) words >> (name == "exchange" ? plan.exchange : name == "count" ? plan.count : plan.entry);
    return camera.fault(sim::Fault{static_cast<std::uint32_t>(fault)}, plan);
  }
  if (verb == "fail") {
    int nth = 0, result = -1;
    words >> nth >> result;
    return fail_next(name, EIO, nth, words ? result : -1);
  }
  unsigned category = 0, byte = 0, value = 0;
  const int fields = std::sscanf(name.c_str(), "%u/%x=%x", &category, &byte, &value);
  ASSERT_TRUE((verb == "register" && fields == 3) || (verb == "reads" && fields == 2));
  if (verb == "register") return camera.set_reg(category, byte, value);
  std::vector<std::uint8_t> values;
  while (words >> std::hex >> value) values.push_back(static_cast<std::uint8_t>(value));
  camera.script(category, byte, values);
}

Lines CallTest::seen(const Call& call, const std::string& argument) {
  notes.clear();
  camera.clear_traffic();
  clock->clear_waits();
  int result = 0;
  const Output output = capture([&] { result = call(argument); });
  Lines lines = {"-> " + std::to_string(result)};
  for (const Lines& part : {notes, camera.traffic()}) lines.insert(lines.end(), part.begin(), part.end());
  add(lines, "out", output.out);
  add(lines, "err", output.err);
  for (const std::string& wait : clock->waits()) lines.push_back("wait " + wait);
  return in_short(lines);
}

void CallTest::check_calls(const std::string& file, const std::map<std::string, Call>& calls,
                           const std::function<void()>& prepare) {
  for (const Section& section : read_cases(file)) {
    for (const Case& c : section.cases) {
      SCOPED_TRACE(file + ":" + std::to_string(c.line_number) + ": " + c.action);
      if (!c.action.starts_with("do ")) {
        ASSERT_NO_FATAL_FAILURE(arrange(c.action));
        continue;
      }
      const std::size_t blank = std::min(c.action.find(' ', 3), c.action.size());
      prepare();
      EXPECT_EQ(seen(calls.at(c.action.substr(3, blank - 3)), c.action.substr(std::min(blank + 1, c.action.size()))),
                c.expected);
      EXPECT_EQ(failures_left(), 0);
    }
  }
}

}  // namespace ipcam::test
