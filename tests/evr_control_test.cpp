// EVR worker: what one pass writes, what ends a run, and stopping it.
#include "workers/evr_control.h"

#include <atomic>
#include <memory>
#include <thread>

#include "ipcam/camera/auto_daynight.h"
#include "tests/support/call_cases.h"

// A day/night worker that uses its DspCommand until its destructor returns.
namespace ipcam::camera {
namespace {

std::thread g_user;
std::atomic<int> g_failed = 0;
std::atomic<bool> g_done = false;

}  // namespace

AutoDaynight::AutoDaynight(int /*function*/, DspCommand* dsp) : Thread(THREAD_PRIORITY_DEFAULT, false) {
  g_user = std::thread([dsp] {
    char reply[16];
    for (char text[] = "r,12,0"; !g_done;) g_failed += dsp->do_debug(text, reply) == -1;
  });
}

AutoDaynight::~AutoDaynight() {
  EXPECT_TRUE(test::eventually([] { return g_failed > 0; }));
  g_done = true;
  g_user.join();
}

}  // namespace ipcam::camera

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

TEST_F(EvrTest, RunsUntilTheControlThreadEndsWhereOthersStillSendCommands) {
  write_settings();
  write_file("/var/tmp/AdjCamera.txt", std::string("\1\0\x37", 3) + std::string(45, '\5'));
  clock->hold(kSleep);
  const Output output = capture([&] {
    EXPECT_EQ(start_control_thread(), 0);
    EXPECT_TRUE(clock->wait_until_held(kSleep));
    EXPECT_EQ(camera::g_failed, 0);
    clock->release_all();
    stop_control_thread();
  });
  EXPECT_NE(output.err.find("dspset: [ERROR] shared memory is not attached!\n"), std::string::npos) << output.err;
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
