// EVR worker: what one pass writes, what ends a run, and stopping it.
#include "workers/evr_control.h"

#include <memory>

#include "tests/support/camera_fixture.h"

namespace ipcam::test {
namespace {

constexpr char kSleep[] = "usleep(1000000)";
constexpr char kExpired[] = "69@EVRControl#start_thread: Adjust mode... EVRControl thread has expired.\n";
constexpr char kNoLink[] = "dspset: [ERROR] communication with comm application error!\n";
constexpr char kNoShutter[] = "115@EVRControl#getShutterSpeedFromARM7: -EVRControl- : couldn't get SHUTTER_VAL.\n";
constexpr char kNoWrite[] = "189@EVRControl#setEVRDATA4ToARM7: -EVRControl- : couldn't set EVRDATA4 to 0xFF.\n";

class EvrTest : public CameraTest {
 protected:
  camera::DspCommand dsp;
};

TEST_F(EvrTest, FollowsTheShutterUntilTheAdjustmentMode) {
  using Bytes = std::vector<std::uint8_t>;
  constexpr int kNone = -1;
  struct {
    const char* name;
    Bytes adjust_mode, shutter;
    int failing;  // exchange
    int result;
    std::string errors;
    std::size_t sleeps;
    Lines writes;
  } const kRuns[] = {
      {"shutter 0", {0, 1}, {0}, kNone, 0, "", 1, {"w 9/0x03=0x37"}},
      {"shutter 1", {0, 1}, {1}, kNone, 0, "", 1, {"w 9/0x03=0x37"}},
      {"shutter 2", {0, 1}, {2}, kNone, 0, "", 1, {"w 9/0x03=0xff"}},
      {"shutter 255", {0, 1}, {255}, kNone, 0, "", 1, {"w 9/0x03=0xff"}},
      {"shutter changes", {0, 0, 1}, {2, 1}, kNone, 0, "", 2, {"w 9/0x03=0xff", "w 9/0x03=0x37"}},
      {"adjustment mode at once", {2}, {0}, kNone, -1, "", 0, {}},
      {"adjustment mode unreadable", {1}, {0}, 0, 0, kNoLink, 1, {"w 9/0x03=0x37"}},
      {"shutter unreadable", {0, 1}, {0}, 1, -1, std::string(kNoLink) + kNoShutter, 1, {}},
      {"write fails once", {0, 0, 1}, {0}, 3, 0, std::string(kNoLink) + kNoWrite, 2, {"w 9/0x03=0x37"}},
      {"last write fails", {0, 1}, {0}, 3, -1, std::string(kNoLink) + kNoWrite, 1, {}},
  };
  for (const auto& row : kRuns) {
    SCOPED_TRACE(row.name);
    camera.script(10, 12, row.adjust_mode);
    camera.script(17, 28, row.shutter);
    camera.clear_traffic();
    clock->clear_waits();
    if (row.failing != kNone) {
      camera.fault(sim::Fault::reply_255, {.exchange = static_cast<std::uint32_t>(row.failing)});
    }
    camera::EVRControl worker(0x37, &dsp);
    const Output output = capture([&] { EXPECT_EQ(worker.start_thread(), row.result); });
    EXPECT_EQ(output.err, row.errors + kExpired);
    EXPECT_EQ(clock->waits(), Lines(row.sleeps, kSleep));
    Lines writes = camera.traffic();
    std::erase_if(writes, [](const std::string& line) { return line[0] == 'r' || line.ends_with("!reply_255"); });
    EXPECT_EQ(writes, row.writes);
  }
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

TEST_F(EvrTest, ReadsTheSensorMode) {
  camera::EVRControl worker(0x37, &dsp);
  EXPECT_EQ(worker.getCPUMode(), 0);
  camera.set_reg(0, 3, 2);
  EXPECT_EQ(worker.getCPUMode(), 1);
}

}  // namespace
}  // namespace ipcam::test
