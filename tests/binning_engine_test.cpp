// Switching the sensor readout: the whole sequence, its retries, and the requests around it.
#include <algorithm>
#include <thread>

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

TEST_F(BinningEngineTest, AShutdownEndsTheWaitOfItsOwnStart) {
  const std::string sleep = "usleep(900000)";
  write_settings();
  for (const unsigned byte : {10u, 11u, 86u, 87u}) camera.set_reg(81, byte, byte < 86 ? 255 : 87 - byte);  // 37 min
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(0, start_control_thread());
    forget();
    clock->hold(sleep);
    std::thread caller([&] { request(74, 1); });
    EXPECT_TRUE(clock->wait_until_held(sleep));
    clock->release(sleep);
    EXPECT_TRUE(clock->wait_until_held(sleep));
    std::thread server([&] { stop_control_thread(); });
    EXPECT_TRUE(eventually([] { return std::ranges::count(platform::journal(), "ThdIf_send(3)") == 1; }));
    clock->release_all();
    caller.join();
    server.join();
    EXPECT_EQ(2, std::ranges::count(clock->waits(), sleep));
  }
}

}  // namespace
}  // namespace ipcam::test
