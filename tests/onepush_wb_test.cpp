// One-push white balance: stopping a measurement at any time, and replacing it.
#include "workers/onepush_wb.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <functional>
#include <future>
#include <memory>
#include <new>
#include <numeric>
#include <thread>
#include <utility>

#include "settings/settings_record.h"
#include "tests/support/camera_fixture.h"
#include "tests/support/interpose.h"

namespace ipcam::test {
namespace {

// What becomes of a start.
enum class Start { kRuns, kThrows, kIsLate };
Start g_start = Start::kRuns;
Thread* g_late = nullptr;  // the worker whose thread is yet to come

}  // namespace
}  // namespace ipcam::test

// The result says nothing of what has become of it.
int ipcam::Thread::execute_process() {
  static auto* const kReal = reinterpret_cast<int (*)(Thread*)>(
      test::real_function("_ZN5ipcam6Thread15execute_processEv"));
  switch (std::exchange(test::g_start, test::Start::kRuns)) {
    case test::Start::kThrows:
      throw std::bad_alloc();
    case test::Start::kIsLate:
      test::g_late = this;
      return 0;
    default:
      return kReal(this) - 1;
  }
}

namespace ipcam::test {
namespace {

using camera::OnepushWB;

constexpr char kPoll[] = "usleep(100000)";
constexpr char kLockPause[] = "usleep(10000)";  // between two looks at another writer's file lock

const Lines kStart = {"r 12/0x00", "w 12/0x00=0x01"};
const Lines kApplied = {"r 12/0x80 12/0x81 12/0x82 12/0x83",
                        "w 12/0x80=0x42 12/0x81=0x0e 12/0x82=0xed 12/0x83=0x07", "r 12/0x00",
                        "w 12/0x00=0x05"};

Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}
Lines readings(std::size_t count) { return Lines(count, "r 14/0x8c 14/0x8d 14/0x8e 14/0x8f"); }

class OnepushTest : public CameraTest {
 protected:
  OnepushTest() {
    write_settings();
    constexpr std::uint8_t kGains[] = {0x42, 0x0e, 0xed, 0x07};  // red 3650, blue 2029
    for (std::uint32_t i = 0; i < 4; ++i) camera.set_reg(14, 140 + i, kGains[i]);
  }
  // Lets polls pass and leaves the worker asleep after the last; the clock must hold them.
  void run_to_poll(int polls) {
    for (int i = 1; i <= polls; ++i) {
      ASSERT_TRUE(clock->wait_until_held(kPoll)) << "poll " << i;
      if (i < polls) clock->release(kPoll);
    }
  }

  camera::DspCommand dsp;
};

TEST_F(OnepushTest, WritesNothingAfterAStopAtAnyPoll) {
  OnepushWB worker(&dsp);
  clock->hold(kPoll);
  std::vector<std::uint8_t> moving(30);
  std::iota(moving.begin(), moving.end(), std::uint8_t{0x10});
  for (int poll = 1; poll <= 29; ++poll) {
    SCOPED_TRACE(poll);
    camera.script(14, 141, moving);
    ASSERT_EQ(worker.start(), 0);
    ASSERT_NO_FATAL_FAILURE(run_to_poll(poll));
    camera.clear_traffic();
    EXPECT_EQ(worker.stop_thread(), 0);
    clock->release(kPoll);
    worker.wait_until_idle();
    EXPECT_EQ(camera.traffic(), Lines{});
  }
  EXPECT_EQ(read_settings().bytes, SettingsBytes{}.bytes);
}

TEST_F(OnepushTest, SavesAndAppliesNothingAfterAStopBeforeTheSave) {
  OnepushWB worker(&dsp);
  {
    camera::LockGuard lock(camera::g_record_lock);
    ASSERT_EQ(worker.start(), 0);
    ASSERT_TRUE(eventually([&] { return camera.traffic() == kStart + readings(5); }));
    real_pause_ms(20);
    worker.stop_thread();
  }
  worker.wait_until_idle();
  EXPECT_EQ(camera.traffic(), kStart + readings(5));
  EXPECT_EQ(read_settings().bytes, SettingsBytes{}.bytes);
}

TEST_F(OnepushTest, AStopReachesARunThatHasNotTakenItsFirstStep) {
  auto worker = std::make_unique<OnepushWB>(&dsp);
  g_start = Start::kIsLate;
  ASSERT_EQ(worker->start(), 0);
  EXPECT_EQ(worker->start(), -1);
  worker->stop_thread();
  auto idle = std::async(std::launch::async, [&] { worker->wait_until_idle(); });
  real_pause_ms(20);
  EXPECT_EQ(idle.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  EXPECT_EQ(g_late->start_thread(), -1);
  idle.wait();
  worker.reset();
  EXPECT_EQ(camera.traffic(), Lines{});
}

TEST_F(OnepushTest, ALostRunCostsItsOwnStartOnly) {
  write_settings(SettingsBytes{}.i32(16, 3));
  ASSERT_EQ(start_control_thread(), 0);
  ASSERT_EQ(request(camera::REQUEST_WB_MODE, 7), 0);
  camera.clear_traffic();
  const Lines measured = kStart + readings(5) + kApplied;
  const auto trigger = [&](Start start) {
    g_start = start;
    EXPECT_EQ(request(camera::REQUEST_ONE_PUSH_TRG), 0);
  };
  const Output output = capture([&] {
    trigger(Start::kIsLate);
    trigger(Start::kRuns);
    EXPECT_TRUE(eventually([&] { return camera.traffic() == measured; }));
    EXPECT_EQ(g_late->start_thread(), -1) << "given up";
    trigger(Start::kIsLate);
    trigger(Start::kIsLate);
    EXPECT_EQ(g_late->start_thread(), 0) << "whichever comes first";
    EXPECT_EQ(g_late->start_thread(), -1);
    trigger(Start::kThrows);
    stop_control_thread();
  });
  EXPECT_EQ(g_late->start_thread(), -1) << "its worker is still there";
  EXPECT_EQ(camera.traffic(), measured + measured);
  const std::string message = "45@OnepushWB#start: -OnepushWB- : couldn't start a run.\n";
  std::size_t messages = 0;
  for (std::size_t at = 0; (at = output.err.find(message, at)) != std::string::npos; ++at)
    ++messages;
  EXPECT_EQ(messages, 3U);
}

TEST_F(OnepushTest, ARunIsNotCancelledBeforeItsEnd) {
  OnepushWB worker(&dsp);
  std::thread run([&] { worker.start_thread(); });
  pthread_cancel(run.native_handle());
  run.join();
  EXPECT_EQ(camera.traffic(), kStart + readings(5) + kApplied);
}

TEST_F(OnepushTest, RunsTakeTurns) {
  OnepushWB worker(&dsp);
  auto first = std::async(std::launch::async, [&] { return worker.start_thread(); });
  EXPECT_EQ(worker.start_thread(), 0);
  EXPECT_EQ(first.get(), 0);
  EXPECT_EQ(camera.traffic(), kStart + readings(5) + kApplied + kStart + readings(5) + kApplied);
}

TEST_F(OnepushTest, ModeOnepushTakesTheGainsThatAreBeingSaved) {
  write_settings(SettingsBytes{}.put<std::uint16_t>(168, 7).put<std::uint16_t>(170, 8).i32(16, 3));
  ASSERT_EQ(start_control_thread(), 0);
  ASSERT_EQ(request(camera::REQUEST_WB_MODE, 7), 0);
  const int other_writer = open("/tmp/config/all.conf.lock", O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(flock(other_writer, LOCK_EX), 0);
  clock->hold(kLockPause);
  ASSERT_EQ(request(camera::REQUEST_ONE_PUSH_TRG), 0);
  ASSERT_TRUE(clock->wait_until_held(kLockPause));
  camera.clear_traffic();
  const Output output = capture([&] {
    auto mode = std::async(std::launch::async, [&] { return request(camera::REQUEST_WB_MODE, 7); });
    real_pause_ms(50);
    close(other_writer);
    clock->release_all();
    EXPECT_EQ(mode.get(), 0);
  });
  EXPECT_NE(output.err.find("Saved RGain:3650, BGain:2029\n"), std::string::npos) << output.err;
  EXPECT_EQ(camera.traffic(), kApplied);
}

// Requests that meet a measurement asleep after its third poll. They end it, and wait for its end.
TEST_F(OnepushTest, RequestsDuringAMeasurementEndIt) {
  struct {
    const char* name;
    std::function<void()> meanwhile;
    Lines traffic;
    std::uint16_t red;
  } const kCases[] = {
      {"mode", [&] { EXPECT_EQ(request(camera::REQUEST_WB_MODE, 8), 0); }, kStart, 0},
      {"refused mode", [&] { EXPECT_EQ(request(camera::REQUEST_WB_MODE, 4), -1); }, {}, 0},
      {"trigger", [&] { EXPECT_EQ(request(camera::REQUEST_ONE_PUSH_TRG), 0); },
       kStart + readings(5) + kApplied, 3650},
      {"shutdown", [&] { stop_control_thread(); }, {}, 0},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.name);
    stop_control_thread();
    write_settings(SettingsBytes{}.i32(16, 3));
    ASSERT_EQ(start_control_thread(), 0);
    ASSERT_EQ(request(camera::REQUEST_WB_MODE, 7), 0);
    camera.clear_traffic();
    clock->hold(kPoll);
    ASSERT_EQ(request(camera::REQUEST_ONE_PUSH_TRG), 0);
    ASSERT_NO_FATAL_FAILURE(run_to_poll(3));

    auto done = std::async(std::launch::async, row.meanwhile);
    real_pause_ms(200);  // the future's own limited wait would go by the faked clock
    EXPECT_EQ(done.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    clock->release_all();
    done.wait();
    EXPECT_TRUE(eventually([&] { return camera.traffic() == kStart + readings(3) + row.traffic; }));
    stop_control_thread();
    EXPECT_EQ(camera.traffic(), kStart + readings(3) + row.traffic);
    EXPECT_EQ(read_settings().u16(168), row.red);
  }
}

}  // namespace
}  // namespace ipcam::test
