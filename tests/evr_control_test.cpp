// EVR worker: stopping it while it sleeps.
#include "workers/evr_control.h"

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

}  // namespace
}  // namespace ipcam::test
