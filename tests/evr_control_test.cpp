// EVR worker: stopping it while it sleeps, and who enables it.
#include "workers/evr_control.h"

#include <algorithm>
#include <filesystem>
#include <memory>

#include "tests/support/camera_fixture.h"

namespace ipcam::test {
namespace {

constexpr char kSleep[] = "usleep(1000000)";

using EvrTest = CameraTest;

TEST_F(EvrTest, WritesNothingAfterAStopDuringItsSleep) {
  camera::DspCommand dsp;
  auto worker = std::make_unique<camera::EVRControl>(0x37, &dsp);
  EXPECT_EQ(worker->stop_thread(), 0) << "of a worker that has never run";
  camera.clear_traffic();
  clock->hold(kSleep);
  for (int run = 1; run <= 2; ++run) {
    SCOPED_TRACE(run);
    ASSERT_EQ(worker->start(), 0);
    ASSERT_TRUE(clock->wait_until_held(kSleep));
    EXPECT_EQ(camera.take_traffic(), (Lines{"r 10/0x0c", "r 17/0x1c", "r 9/0x03", "w 9/0x03=0x37"}));
    EXPECT_EQ(worker->stop_thread(), 0);
    clock->release(kSleep);
    worker->wait_until_idle();
    EXPECT_EQ(camera.traffic(), Lines{});
  }
  worker.reset();
}

TEST_F(EvrTest, TheFactoryFileEnablesTheEvrWorker) {
  const auto camera_file = [](char evr) { return std::string("\1\0", 2) + evr + std::string(37, '\0'); };
  write_settings();
  write_file("/var/tmp/AdjCamera.txt", camera_file(0x37));
  for (const int round : {1, 2}) {
    clock->hold(kSleep);
    if (round == 2) std::filesystem::remove("/var/tmp/AdjCamera.txt");  // the value is kept
    camera.clear_traffic();
    ASSERT_EQ(0, start_control_thread());
    ASSERT_TRUE(clock->wait_until_held(kSleep));
    EXPECT_EQ(1, std::ranges::count(camera.traffic(), "r 17/0x1c"));
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
