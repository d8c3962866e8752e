// EVR worker: stopping it within a pass and while it sleeps, and who enables it.
#include "workers/evr_control.h"

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <thread>

#include "ipcam/camera/auto_daynight.h"
#include "tests/support/camera_fixture.h"

// A day/night worker that uses its DspCommand until its destructor returns.
namespace ipcam::camera {
namespace {

std::thread g_user;
std::atomic<int> g_failed = 0;
std::atomic<bool> g_done = false;

}  // namespace

AutoDaynight::AutoDaynight(int /*function*/, DspCommand* dsp)
    : Thread(THREAD_PRIORITY_DEFAULT, false) {
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

using EvrTest = CameraTest;

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
  EXPECT_NE(output.err.find("dspset: [ERROR] shared memory is not attached!\n"), std::string::npos)
      << output.err;
}

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
    EXPECT_EQ(camera.take_traffic(),
              (Lines{"r 10/0x0c", "r 17/0x1c", "r 9/0x03", "w 9/0x03=0x37"}));
    EXPECT_EQ(worker->stop_thread(), 0);
    clock->release(kSleep);
    worker->wait_until_idle();
    EXPECT_EQ(camera.traffic(), Lines{});
  }
  worker.reset();
}

TEST_F(EvrTest, FinishesThePassInWhichItIsStopped) {
  camera::DspCommand dsp;
  camera::EVRControl worker(0x37, &dsp);
  // The moment of the stop is the scheduler's: among twenty some lie before the write.
  for (int run = 0; run < 20; ++run) {
    clock->hold(kSleep);
    camera.clear_traffic();
    const std::uint32_t before = camera.board().trace_end;
    ASSERT_EQ(worker.start(), 0);
    while (camera.board().trace_end == before) std::this_thread::yield();
    worker.stop_thread();
    clock->release_all();
    worker.wait_until_idle();
    EXPECT_EQ(camera.traffic(), (Lines{"r 10/0x0c", "r 17/0x1c", "r 9/0x03", "w 9/0x03=0x37"}));
  }
}

TEST_F(EvrTest, TheFactoryFileEnablesTheEvrWorker) {
  const auto camera_file = [](char evr) {
    return std::string("\1\0", 2) + evr + std::string(37, '\0');
  };
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
  std::filesystem::remove("/var/tmp/AdjCamera.txt");
  ASSERT_EQ(mkfifo("/var/tmp/AdjCamera.txt", 0600), 0);
  ASSERT_EQ(0, start_control_thread());
  EXPECT_EQ(request(39, 3), 0) << "with a pipe in the file's place";
  stop_control_thread();
}

}  // namespace
}  // namespace ipcam::test
