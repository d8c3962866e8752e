// Plays stories and compares what has been done.
#include "tests/support/story.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace ipcam::test {
namespace {

const std::string kSettingsFile = "/tmp/config/all.conf";

Lines split(const std::string& text, char separator) {
  Lines parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) {
    if (!part.empty()) parts.push_back(part);
  }
  return parts;
}

std::string file_bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The journal's calls that control the camera's other libraries.
Lines library_calls() {
  Lines calls = platform::journal();
  std::erase_if(calls, [](const std::string& call) {
    return call.starts_with("ThdIf_") || call.starts_with("WitEnd_") || call.starts_with("ConfigFile::read_record");
  });
  return calls;
}

void append(Lines& lines, const std::string& prefix, const Lines& more) {
  for (const std::string& line : more) lines.push_back(prefix + line);
}

}  // namespace

void StoryTest::forget() {
  camera.clear_traffic();
  platform::clear_journal();
  devices.clear_journal();
  clock->clear_waits();
}

Lines StoryTest::play(const std::function<int()>& action) {
  for (const char* wait :
       {"usleep(34000)", "usleep(68000)", "usleep(100000)", "usleep(200000)", "usleep(500000)", "sleep(1)"}) {
    clock->hold(wait);
  }
  forget();
  const std::string before = file_bytes(kSettingsFile);
  const Lines state_before = state();
  Lines lines;
  int result = 0;
  const Output output = capture([&] {
    std::atomic<bool> done = false;
    std::thread caller([&] {
      result = action();
      done = true;
    });
    for (std::size_t waits = 0; eventually([&] { return done || clock->waits().size() > waits; }); ++waits) {
      append(lines, "call ", library_calls());
      append(lines, "", changes(camera.take_traffic()));
      append(lines, "", devices.journal());
      platform::clear_journal();
      devices.clear_journal();
      if (done) break;
      lines.push_back(clock->waits()[waits]);
      clock->release(lines.back());
    }
    clock->release_all();
    caller.join();
  });
  append(lines, "err ", split(output.err, '\n'));
  const std::string after = file_bytes(kSettingsFile);
  for (std::size_t i = 0; i < std::min(before.size(), after.size()); ++i) {
    if (before[i] != after[i]) lines.push_back("saved b" + std::to_string(i) + "=" + std::to_string(after[i] & 0xff));
  }
  for (const std::string& line : state()) {
    if (std::ranges::count(state_before, line) == 0) lines.push_back(line);
  }
  if (result != 0) lines.push_back("-> " + std::to_string(result));
  return lines;
}

void StoryTest::check(const Case& c) {
  const Lines words = split(c.action, ' ');
  const auto only = std::find(words.begin(), words.end(), "only");
  const auto expect = [&](const std::function<int()>& action) {
    Lines lines = play(action);
    if (only != words.end()) {
      std::erase_if(lines, [&](const std::string& line) {
        return std::none_of(only + 1, words.end(), [&](const auto& word) { return line.find(word) != line.npos; });
      });
    }
    EXPECT_EQ(c.expected, lines);
  };
  const std::string& verb = words.at(0);
  if (verb == "start") return expect([&] { return start_control_thread(); });
  if (verb == "inquire") return expect([&] { return inquire(std::stoi(words.at(1))); });
  if (verb != "request") return prepare(c.action);
  for (const std::string& code : split(words.at(1), ',')) {
    for (const std::string& value : split(words.at(2), ',')) {
      SCOPED_TRACE("request " + code + " " + value);
      expect([&] { return request(std::stoi(code), std::stoi(value)); });
    }
  }
}

void StoryTest::check_story(const Section& section) {
  for (const Case& c : section.cases) {
    SCOPED_TRACE(section.name + ", line " + std::to_string(c.line_number) + ": " + c.action);
    check(c);
  }
}

void StoryTest::check_story(const std::string& file) {
  for (const Section& section : read_cases(file)) check_story(section);
}

}  // namespace ipcam::test
