// Cases written down in a text file of tests/data/: what is asked for, and everything that must come of it.
#include "tests/support/case_file.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace ipcam::test {
namespace {

const std::string kSeparator = " | ";
const std::string kWritten = "dspset: write success!\n\n";

// The read pass that comes before a write: "r 10/0x09" of "w 10/0x09=0x80".
std::string read_pass(const std::string& write) {
  std::string read = "r";
  for (std::size_t at = 1; at < write.size(); at = std::min(write.find(' ', at + 1), write.size())) {
    read += write.substr(at, write.find('=', at) - at);
  }
  return read;
}

}  // namespace

std::vector<Section> read_cases(const std::string& file) {
  std::ifstream in(TEST_SOURCE_DIR "/tests/data/" + file);
  if (!in) throw std::runtime_error("cannot read tests/data/" + file);
  std::vector<Section> sections;
  int line_number = 0;
  for (std::string line; std::getline(in, line);) {
    ++line_number;
    if (line.empty() || line[0] == '#') continue;
    if (line[0] == '[') {
      sections.push_back({line.substr(1, line.size() - 2), {}});
      continue;
    }
    std::vector<Case>& cases = sections.back().cases;
    std::size_t end = std::min(line.find(kSeparator), line.size());
    if (line[0] == '|') {
      end = 0;
      line = ' ' + line;
    } else {
      cases.push_back({line_number, line.substr(0, end), {}});
    }
    while (end < line.size()) {
      const std::size_t start = end + kSeparator.size();
      end = std::min(line.find(kSeparator, start), line.size());
      cases.back().expected.push_back(line.substr(start, end - start));
    }
  }
  return sections;
}

void CaseTest::prepare(const std::string& action) {
  std::istringstream words(action);
  std::string verb, name;
  words >> verb >> name;
  unsigned category = 0, byte = 0, value = 0;
  const int fields = std::sscanf(name.c_str(), "%u/%x=%x", &category, &byte, &value);
  const auto bytes = [&] {
    std::string all;
    for (unsigned next = 0; words >> std::hex >> next;) all += static_cast<char>(next);
    return all;
  };
  if (verb == "settings") {
    SettingsBytes settings;
    while (!name.empty()) {
      const auto offset = std::stoul(name.substr(1));
      const int number = std::stoi(name.substr(name.find('=') + 1));
      name[0] == 'w' ? settings.i32(offset, number) : settings.u8(offset, static_cast<std::uint8_t>(number));
      name.clear();
      words >> name;
    }
    write_settings(settings);
  } else if (verb == "file") {
    write_file(name, bytes());
  } else if (verb == "remove") {
    EXPECT_TRUE(std::filesystem::remove(name));
  } else if (verb == "register" && fields == 3) {
    camera.set_reg(category, byte, value);
  } else if (verb == "reads" && fields == 2) {
    const std::string script = bytes();
    camera.script(category, byte, {script.begin(), script.end()});
  } else if (verb == "fault") {
    const auto fault = static_cast<std::uint32_t>(std::ranges::find(sim::kFaultNames, name) - sim::kFaultNames.begin());
    ASSERT_LT(fault, sim::kFaultNames.size());
    sim::FaultPlan plan;
    while (words >> name) words >> (name == "exchange" ? plan.exchange : name == "count" ? plan.count : plan.entry);
    camera.fault(sim::Fault{fault}, plan);
  } else if (verb == "fail") {
    int nth = 0, result = -1;
    words >> nth >> result;
    fail_next(name, EIO, nth, words ? result : -1);
  } else if (verb == "leave") {
    camera.stop();
  } else {
    ASSERT_EQ(verb, "stop");
    stop_control_thread();
  }
}

std::string section_name(const ::testing::TestParamInfo<Section>& info) { return info.param.name; }

Lines changes(const Lines& traffic) {
  Lines lines;
  for (const std::string& line : traffic) {
    if (line[0] == 'w' && !lines.empty() && lines.back() == read_pass(line)) lines.pop_back();
    lines.push_back(line);
  }
  return lines;
}

void add_printed(Lines& lines, const std::string& head, const std::string& text) {
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(head + (line.empty() ? "" : " ") + line + (line.ends_with(' ') ? "$" : ""));
  }
}

Lines outcome(const Lines& traffic, const Output& output, int result) {
  Lines lines = changes(traffic);
  std::string out = output.out;
  bool all_written = true;
  for (const std::string& line : lines) {
    if (line[0] == 'r') continue;
    const std::size_t at = out.find(kWritten);
    all_written = all_written && at != std::string::npos;
    if (all_written) out.erase(at, kWritten.size());
  }
  add_printed(lines, "out", all_written ? out : output.out);
  add_printed(lines, "err", output.err);
  if (result != 0) lines.push_back("-> " + std::to_string(result));
  return lines;
}

}  // namespace ipcam::test
