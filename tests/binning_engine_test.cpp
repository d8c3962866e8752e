// Switching the sensor readout: the whole sequence, its retries, and the requests around it.
#include "tests/support/story.h"

namespace ipcam::test {
namespace {

using BinningEngineTest = StoryTest;

TEST_F(BinningEngineTest, SwitchesInOneFixedOrderWithRetries) { check_story("binning_engine.txt"); }

TEST_F(BinningEngineTest, ForcedBinningRecordsWhatItRestores) { check_story("forced_binning.txt"); }

TEST_F(BinningEngineTest, WaitsForWholeFrames) {
  write_settings();
  write_file("/var/tmp/AdjWbAllPixels.txt", std::string_view("\1\0\1\2\3\4\5\6", 8));
  ASSERT_EQ(0, start_control_thread());
  const struct {
    unsigned lines, divisor;
    std::int64_t wait_us;
  } cases[] = {{2250, 1125, 68000},   {2250, 0, 34000},       {0, 1, 34000},
               {1124, 1125, 34000},   {3374, 1125, 68000},    {40, 1, 1360000},
               {65535, 256, 8670000}, {65535, 1, 2228190000}, {65535, 65535, 34000}};
  for (const auto& c : cases) {
    camera.set_reg(81, 10, c.lines & 0xff);
    camera.set_reg(81, 11, c.lines >> 8);
    camera.set_reg(81, 86, c.divisor & 0xff);
    camera.set_reg(81, 87, c.divisor >> 8);
    forget();
    EXPECT_EQ(0, request(74, 1));
    std::int64_t total_us = 0;
    for (const std::string& wait : clock->waits()) {
      const int us = std::stoi(wait.substr(wait.find('(') + 1));
      EXPECT_LT(us, 1000000);
      total_us += us;
    }
    EXPECT_EQ(c.wait_us, total_us - 200000 - 2 * 100000 - 500000) << c.lines << " / " << c.divisor;
  }
}

}  // namespace
}  // namespace ipcam::test
