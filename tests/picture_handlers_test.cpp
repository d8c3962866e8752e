// Requests of the picture, white balance and compensation: exchanges, messages, calls, stored levels and results.
#include <algorithm>
#include <atomic>
#include <bit>
#include <iterator>
#include <sstream>
#include <thread>

#include "camera/control_thread.h"
#include "tests/support/case_file.h"

namespace ipcam::test {
namespace {

constexpr int kWbMode = 33, kOnePushTrigger = 64;

using SnapshotWords = std::array<std::int32_t, sizeof(camera::SettingsSnapshot) / 4>;

SnapshotWords snapshot_words() { return std::bit_cast<SnapshotWords>(camera::ControlThread::instance().snapshot()); }

std::string calls_made() {
  std::string letters;
  for (const std::string& call : platform::journal()) {
    if (call.starts_with("ObjectDetectionIF::config(")) letters += 'C';
    if (call.starts_with("ConfigFile::ConfigFile(")) letters += 'N';
    if (call.starts_with("ConfigFile::read_record(")) letters += 'R';
    if (call.starts_with("ConfigFile::~ConfigFile(")) letters += 'D';
  }
  return letters;
}

class PictureHandlersTest : public StoryTest {
 protected:
  // A request: the calls made, its outcome, and which words of the snapshot have changed.
  Lines serve(int code, int value) {
    forget();
    const SnapshotWords before = snapshot_words();
    int result = 0;
    const Output output = capture([&] { result = request(code, value); });
    Lines lines = outcome(camera.take_traffic(), output, result);
    if (const std::string calls = calls_made(); !calls.empty()) lines.insert(lines.begin(), "calls " + calls);
    const SnapshotWords after = snapshot_words();
    for (std::size_t i = 0; i < after.size(); ++i) {
      if (after[i] != before[i]) lines.push_back("stored w" + std::to_string(4 * i) + "=" + std::to_string(after[i]));
    }
    return lines;
  }

  void check(const Case& c) {
    SCOPED_TRACE(std::to_string(c.line_number) + ": " + c.action);
    std::istringstream text(c.action);
    const Lines words{std::istream_iterator<std::string>(text), {}};
    if (words[0] == "start") {
      ASSERT_EQ(0, start_control_thread());
      return;
    }
    if (words[0] != "request") return prepare(words);

    Lines lines = serve(std::stoi(words.at(1)), std::stoi(words.at(2)));
    const auto only = std::find(words.begin(), words.end(), "only");
    if (only != words.end()) {
      std::erase_if(lines, [&](const std::string& line) {
        return std::find(only, words.end(), line.substr(0, line.find(' '))) == words.end();
      });
    }
    EXPECT_EQ(c.expected, lines);
  }
};

class PictureHandlersFileTest : public PictureHandlersTest, public ::testing::WithParamInterface<Section> {};

INSTANTIATE_TEST_SUITE_P(PictureHandlers, PictureHandlersFileTest,
                         ::testing::ValuesIn(read_cases("picture_handlers.txt")), section_name);

TEST_P(PictureHandlersFileTest, Serve) {
  for (const Case& c : GetParam().cases) check(c);
}

TEST_F(PictureHandlersTest, AModeRequestHasTheLastWordAfterTheMeasurementThatItEnds) {
  write_settings(SettingsBytes().i32(16, 3).u16(168, 2703).u16(170, 8130));
  ASSERT_EQ(0, start_control_thread());
  const struct {
    int mode;
    int result;
    Lines traffic;
  } cases[] = {{4, -1, {}}, {8, 0, {"w 12/0x00=0x01"}}};  // a refused mode ends the measurement too
  for (const auto& c : cases) {
    clock->hold("usleep(100000)");
    EXPECT_EQ(0, request(kOnePushTrigger));
    ASSERT_TRUE(clock->wait_until_held("usleep(100000)"));  // between two polls
    camera.clear_traffic();
    std::atomic<int> result{-1000};
    std::thread caller([&] { result = request(kWbMode, c.mode); });
    real_pause_ms(50);
    EXPECT_EQ(-1000, result.load());
    clock->release_all();
    caller.join();
    EXPECT_EQ(c.result, result.load());
    EXPECT_EQ(c.traffic, changes(camera.take_traffic()));
    EXPECT_EQ(2703, read_settings().u16(168));
  }
}

}  // namespace
}  // namespace ipcam::test
