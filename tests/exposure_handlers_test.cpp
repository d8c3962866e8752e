// Requests of exposure, with everything that may be stored.
#include "tests/support/camera_fixture.h"

namespace ipcam::test {
namespace {

using ExposureHandlersTest = CameraTest;

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
      camera.clear_traffic();
      const Output output = capture([&] { EXPECT_EQ(0, request(kExpMode)); });
      EXPECT_EQ(std::string::npos, output.err.find("[ERROR]")) << output.err;
      Lines writes = camera.take_traffic();
      std::erase_if(writes, [](const std::string& line) { return line[0] != 'w'; });
      ASSERT_GE(writes.size(), 3u);
      EXPECT_TRUE(writes.back().starts_with("w 11/0x0e="));
      EXPECT_TRUE(writes[writes.size() - 2].starts_with("w 11/0x00="));
      for (const std::string& line : writes) EXPECT_EQ(std::string::npos, line.find("=0xeb")) << "gain 6 unbinned";
    }
  }
}

}  // namespace
}  // namespace ipcam::test
