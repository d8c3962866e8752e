// Plays stories and compares what has been done.
#include "tests/support/story.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
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

// The bytes that the words from `first` on give in hexadecimal.
std::string bytes(const Lines& words, std::size_t first) {
  std::string result;
  for (std::size_t i = first; i < words.size(); ++i) result += static_cast<char>(std::stoul(words[i], nullptr, 16));
  return result;
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

void StoryTest::prepare(const Lines& words) {
  const std::string& verb = words.at(0);
  const auto number = [&](std::size_t i) { return static_cast<std::uint32_t>(std::stoul(words.at(i))); };
  if (verb == "settings") {
    SettingsBytes settings;
    for (std::size_t i = 1; i < words.size(); ++i) {
      const auto offset = std::stoul(words[i].substr(1));
      const int value = std::stoi(words[i].substr(words[i].find('=') + 1));
      words[i][0] == 'w' ? settings.i32(offset, value) : settings.u8(offset, static_cast<std::uint8_t>(value));
    }
    write_settings(settings);
  } else if (verb == "file") {
    write_file(words.at(1), bytes(words, 2));
  } else if (verb == "remove") {
    EXPECT_TRUE(std::filesystem::remove(words.at(1)));
  } else if (verb == "unreachable") {
    camera.fault(sim::Fault::reply_255, {.exchange = number(1), .count = number(2)});
  } else if (verb == "fail") {
    fail_next(words.at(1), EIO, static_cast<int>(number(2)));
  } else if (verb == "leave") {
    camera.stop();
  } else if (verb == "stop") {
    stop_control_thread();
  } else {
    unsigned category = 0, byte = 0, value = 0;
    const int fields = std::sscanf(words.at(1).c_str(), "%u/%x=%x", &category, &byte, &value);
    const std::string script = bytes(words, 2);
    ASSERT_TRUE((verb == "register" && fields == 3) || (verb == "reads" && fields == 2)) << verb;
    if (verb == "register") camera.set_reg(category, byte, value);
    if (verb == "reads") camera.script(category, byte, {script.begin(), script.end()});
  }
}

void StoryTest::check(const Lines& words, const Lines& expected) {
  const auto only = std::find(words.begin(), words.end(), "only");
  const auto expect = [&](const std::function<int()>& action) {
    Lines lines = play(action);
    if (only != words.end()) {
      std::erase_if(lines, [&](const std::string& line) {
        return std::none_of(only + 1, words.end(), [&](const auto& word) { return line.find(word) != line.npos; });
      });
    }
    EXPECT_EQ(expected, lines);
  };
  const std::string& verb = words.at(0);
  if (verb == "start") return expect([&] { return start_control_thread(); });
  if (verb == "inquire") return expect([&] { return inquire(std::stoi(words.at(1))); });
  if (verb != "request") return prepare(words);
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
    check(split(c.action, ' '), c.expected);
  }
}

void StoryTest::check_story(const std::string& file) {
  for (const Section& section : read_cases(file)) check_story(section);
}

}  // namespace ipcam::test
