// Setters on several threads, and the tables that they fill.
#include <algorithm>
#include <thread>

#include "ipcam/camera/dsp_command.h"
#include "ipcam/camera/parameter_tables.h"
#include "tests/support/camera_fixture.h"

namespace ipcam::camera {
namespace {

using SettersTest = test::CameraTest;

TEST_F(SettersTest, OfTwoThreadsDoNotMixTheirBytesInOneTable) {
  constexpr int kRounds = 200;
  DspCommand dsp;
  const auto repeat = [&](unsigned int level) {
    for (int i = 0; i < kRounds; ++i) EXPECT_EQ(dsp.do_rgain(level), 0);
  };
  std::thread low(repeat, 0u);
  std::thread high(repeat, 255u);
  low.join();
  high.join();
  const test::Lines traffic = camera.traffic();
  EXPECT_EQ(std::ranges::count(traffic, "w 12/0x7c=0xba 12/0x7d=0x27"), kRounds);
  EXPECT_EQ(std::ranges::count(traffic, "w 12/0x7c=0xdc 12/0x7d=0x05"), kRounds);
  EXPECT_EQ(traffic.back() == "w 12/0x7c=0xba 12/0x7d=0x27" ? 0xba : 0xdc, g_rgain[0].data);
}

}  // namespace
}  // namespace ipcam::camera
