// Start-up: the EVR worker that the factory file enables.
#include <algorithm>
#include <filesystem>

#include "tests/support/camera_fixture.h"

namespace ipcam::test {
namespace {

using StartUpTest = CameraTest;

TEST_F(StartUpTest, TheFactoryFileEnablesTheEvrWorker) {
  const auto camera_file = [](char evr) { return std::string("\1\0", 2) + evr + std::string(37, '\0'); };
  write_settings();
  write_file("/var/tmp/AdjCamera.txt", camera_file(0x37));
  for (const int round : {1, 2}) {
    clock->hold("usleep(1000000)");
    if (round == 2) std::filesystem::remove("/var/tmp/AdjCamera.txt");  // the value is kept
    camera.clear_traffic();
    ASSERT_EQ(0, start_control_thread());
    ASSERT_TRUE(clock->wait_until_held("usleep(1000000)"));
    const Lines traffic = camera.traffic();
    EXPECT_EQ(1, std::count(traffic.begin(), traffic.end(), "r 17/0x1c"));
    EXPECT_EQ(0x37, camera.reg(9, 3));
    clock->release_all();
    stop_control_thread();
  }
  write_file("/var/tmp/AdjCamera.txt", camera_file(0));  // and taken back by the next file
  clock->clear_waits();
  ASSERT_EQ(0, start_control_thread());
  stop_control_thread();
  EXPECT_EQ(Lines{}, clock->waits());
}

}  // namespace
}  // namespace ipcam::test
