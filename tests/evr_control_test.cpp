// EVR worker: what one pass writes, what ends a run, and stopping it.
#include "workers/evr_control.h"

#include <memory>

#include "tests/support/call_cases.h"

namespace ipcam::test {
namespace {

constexpr char kSleep[] = "usleep(1000000)";

class EvrTest : public CallTest {
 protected:
  camera::DspCommand dsp;
};

TEST_F(EvrTest, FollowsTheShutterUntilTheAdjustmentMode) {
  camera::EVRControl worker(0x37, &dsp);
  check_calls("evr_control.txt", {{"run", [&](const std::string&) { return worker.start_thread(); }},
                                  {"sensor-mode", [&](const std::string&) { return worker.getCPUMode(); }}});
}

TEST_F(EvrTest, WritesNothingAfterAStopDuringItsSleep) {
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
