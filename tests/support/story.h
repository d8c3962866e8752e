// What a request does, wait by wait.
#pragma once

#include <algorithm>
#include <atomic>
#include <thread>

#include "tests/support/camera_fixture.h"

namespace ipcam::test {

// The read pass that comes before a write: "r 10/0x09" of "w 10/0x09=0x80".
inline std::string read_pass(const std::string& write) {
  std::string read = "r";
  for (std::size_t at = 1; at < write.size(); at = std::min(write.find(' ', at + 1), write.size())) {
    read += write.substr(at, write.find('=', at) - at);
  }
  return read;
}

// `traffic` without the read passes of register writes: the reads that stand for themselves, and the writes.
inline Lines changes(const Lines& traffic) {
  Lines lines;
  for (const std::string& line : traffic) {
    if (line[0] == 'w' && !lines.empty() && lines.back() == read_pass(line)) lines.pop_back();
    lines.push_back(line);
  }
  return lines;
}

// The journal's calls that control the camera's other libraries.
inline Lines library_calls() {
  Lines calls = platform::journal();
  std::erase_if(calls, [](const std::string& call) {
    return call.starts_with("ThdIf_") || call.starts_with("WitEnd_") || call.starts_with("ConfigFile::read_record");
  });
  return calls;
}

class StoryTest : public CameraTest {
 protected:
  // Starts the control thread with these settings and forgets what that has done.
  void start(const SettingsBytes& settings = {}) {
    write_settings(settings);
    ASSERT_EQ(0, start_control_thread());
    forget();
  }

  void forget() {
    camera.clear_traffic();
    platform::clear_journal();
    devices.clear_journal();
    clock->clear_waits();
  }

  // The library calls, exchanges (as changes()) and device requests of one request, and its waits: what was done
  // before a wait stands before it. Between two waits, each of the three kinds has its own order.
  Lines story(int code, int value, int expected_result = 0) {
    for (const char* wait :
         {"usleep(34000)", "usleep(68000)", "usleep(100000)", "usleep(200000)", "usleep(500000)", "sleep(1)"}) {
      clock->hold(wait);
    }
    forget();
    Lines lines;
    std::atomic<bool> done = false;
    std::thread caller([&] {
      EXPECT_EQ(expected_result, request(code, value)) << "request " << code << " with " << value;
      done = true;
    });
    for (std::size_t waits = 0; eventually([&] { return done || clock->waits().size() > waits; }); ++waits) {
      const Lines parts[] = {library_calls(), changes(camera.take_traffic()), devices.journal()};
      for (const Lines& part : parts) lines.insert(lines.end(), part.begin(), part.end());
      platform::clear_journal();
      devices.clear_journal();
      if (done) break;
      lines.push_back(clock->waits()[waits]);
      clock->release(lines.back());
    }
    clock->release_all();
    caller.join();
    return lines;
  }
};

}  // namespace ipcam::test
