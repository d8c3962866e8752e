// Requests of exposure, gain, iris and day/night: what reaches the registers, the devices and the workers.
#include "tests/support/story.h"

namespace ipcam::test {
namespace {

using ExposureHandlersTest = StoryTest;

TEST_F(ExposureHandlersTest, EachPatternHasItsRowsModeAndLogLine) { check_story("exposure_patterns.txt"); }

TEST_F(ExposureHandlersTest, GainLevelSixNeedsBinning) { check_story("exposure_gain.txt"); }

TEST_F(ExposureHandlersTest, HoldingTheIrisAndLettingItGo) { check_story("iris_hold.txt"); }

TEST_F(ExposureHandlersTest, DayAndNightMoveTheFilterAndItsThresholds) { check_story("day_night.txt"); }

TEST_F(ExposureHandlersTest, EveryStoredExposureIsAppliedWithoutAnError) {
  constexpr int kExpMode = 62, kHoldIris = 68, kHold = 0, kRelease = 1;
  write_settings();
  ASSERT_EQ(0, start_control_thread());
  for (const int iris : {kHold, kRelease}) {
    EXPECT_EQ(0, request(kHoldIris, iris));
    for (int i = 0; i < 2 * 2 * 15 * 5; ++i) {
      const int speed = i / 4 % 15, min_speed = i / 60, level = (speed + min_speed) % 7;
      SCOPED_TRACE(testing::Message() << "iris " << iris << " automatic " << (i & 1) << " slow " << (i >> 1 & 1)
                                      << " speed " << speed << " min " << min_speed << " level " << level);
      SettingsBytes stored;
      stored.u8(145, i & 1).u8(96, i >> 1 & 1).i32(40, speed).i32(148, min_speed).i32(140, 1);
      write_settings(stored.i32(152, level).i32(32, speed % 7));
      forget();
      const Output output = capture([&] { EXPECT_EQ(0, request(kExpMode)); });
      EXPECT_EQ(std::string::npos, output.err.find("[ERROR]")) << output.err;
      const Lines writes = changes(camera.take_traffic());
      ASSERT_GE(writes.size(), 3u);
      EXPECT_TRUE(writes.back().starts_with("w 11/0x0e="));
      EXPECT_TRUE(writes[writes.size() - 2].starts_with("w 11/0x00="));
      for (const std::string& line : writes) EXPECT_EQ(std::string::npos, line.find("=0xeb")) << "gain 6 unbinned";
    }
  }
}

}  // namespace
}  // namespace ipcam::test
