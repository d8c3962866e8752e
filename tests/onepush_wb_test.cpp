// One-push white balance: the course of one measurement, and stopping it at any time.
#include "workers/onepush_wb.h"

#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <sstream>

#include "camera/settings_record.h"
#include "tests/support/camera_fixture.h"

namespace ipcam::test {
namespace {

using camera::DspCommand;
using camera::OnepushWB;
using sim::Fault;
using Gains = std::vector<std::uint16_t>;

constexpr char kPoll[] = "usleep(100000)";
constexpr char kRefused[] = "66@OnepushWB#start_thread: OnepushWB  failed to set Onepush mode to ARM7";
constexpr char kTimeOut[] = "91@OnepushWB#start_thread: OnepushWB  timed out.";
constexpr char kNoReading[] = "137@OnepushWB#getRBGainFromARM7: -OnepushWB- : couldn't get R/BGain.";
constexpr char kApplied[] = "176@OnepushWB#setRBGainToARM7: OnepushWB  R:0e42 B:07ed";
constexpr char kNoPreset[] = "178@OnepushWB#setRBGainToARM7: -OnepushWB- : couldn't set USER1.";
constexpr char kNoMode[] = "184@OnepushWB#setRBGainToARM7: -OnepushWB- : couldn't set preset1 to WBmode.";
constexpr char kNotSaved[] = "208@OnepushWB#setRBGainToConf: -OnepushWB- : config file write error";
constexpr char kNoRecord[] = "213@OnepushWB#setRBGainToConf: -OnepushWB- : config file read error.";

const Lines kStart = {"r 12/0x00", "w 12/0x00=0x01"};
const Lines kReading = {"r 14/0x8c 14/0x8d 14/0x8e 14/0x8f"};
const Lines kSelect = {"r 12/0x00", "w 12/0x00=0x05"};
const Lines kApply = {"r 12/0x80 12/0x81 12/0x82 12/0x83", "w 12/0x80=0x42 12/0x81=0x0e 12/0x82=0xed 12/0x83=0x07"};

template <class Item>
std::vector<Item> operator+(std::vector<Item> first, const std::vector<Item>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

Lines operator*(std::size_t count, const Lines& lines) { return count == 0 ? Lines{} : (count - 1) * lines + lines; }

// Gains that move by 81 with every reading and end with 9000.
Gains moving(std::size_t count) {
  Gains gains;
  for (std::size_t left = count; left > 0; --left) gains.push_back(static_cast<std::uint16_t>(9000 - 81 * (left - 1)));
  return gains;
}

class OnepushTest : public CameraTest {
 protected:
  OnepushTest() {
    write_settings();
    show_gains({3650}, {2029});
    camera.clear_traffic();
  }
  void show_gains(const Gains& red, const Gains& blue) {
    script(140, red);
    script(142, blue);
  }
  void script(std::uint32_t byte, const Gains& gains) {
    std::vector<std::uint8_t> low, high;
    for (const std::uint16_t gain : gains) {
      low.push_back(static_cast<std::uint8_t>(gain & 0xff));
      high.push_back(static_cast<std::uint8_t>(gain >> 8));
    }
    camera.script(14, byte, low);
    camera.script(14, byte + 1, high);
  }
  // One whole measurement on this thread: its messages.
  Lines measure(OnepushWB& measuring, int expected_result) {
    clock->clear_waits();
    const Output output = capture([&] { EXPECT_EQ(measuring.start_thread(), expected_result); });
    Lines lines;
    std::istringstream stream(output.err);
    for (std::string line; std::getline(stream, line);) {
      if (line.find("@OnepushWB#") != std::string::npos) lines.push_back(line);
    }
    return lines;
  }
  // Lets polls pass and leaves the worker asleep after the last; the clock must hold them.
  void run_to_poll(int polls) {
    for (int i = 1; i <= polls; ++i) {
      ASSERT_TRUE(clock->wait_until_held(kPoll)) << "poll " << i;
      if (i < polls) clock->release(kPoll);
    }
  }
  SettingsBytes saved(std::uint16_t red, std::uint16_t blue) { return SettingsBytes{}.u16(168, red).u16(170, blue); }

  DspCommand dsp;
};

TEST_F(OnepushTest, SavesAppliesAndSelectsSettledGains) {
  OnepushWB worker(&dsp);
  EXPECT_EQ(measure(worker, 0), Lines{kApplied});
  EXPECT_EQ(camera.traffic(), kStart + 5 * kReading + kApply + kSelect);
  EXPECT_EQ(clock->waits(), Lines(5, kPoll));
  EXPECT_EQ(read_settings().bytes, saved(3650, 2029).bytes);
}

TEST_F(OnepushTest, MeasuresUntilTheGainsSettleOrTimeRunsOut) {
  struct {
    const char* name;
    Gains red, blue;
    std::uint32_t failing, failures;  // exchanges
    int result;
    std::size_t polls;
    Gains gains;
    Lines messages;
  } const kCases[] = {
      {"red 80 apart", {3650, 3730, 3690}, {2029}, 0, 0, 0, 5, {3690, 2029}, {}},
      {"red 81 apart", {3650, 3731}, {2029}, 0, 0, 0, 6, {3731, 2029}, {}},
      {"blue 81 apart", {3650}, {2029, 1948}, 0, 0, 0, 6, {3650, 1948}, {}},
      {"never settles", moving(30), {2029}, 0, 0, -1, 30, {9000, 2029}, {kTimeOut}},
      {"settles at the last poll", moving(26), {2029}, 0, 0, 0, 30, {9000, 2029}, {}},
      {"start refused", {3650}, {2029}, 1, 1, -1, 0, {7, 8}, {kRefused}},
      {"one reading fails", {3650}, {2029}, 4, 1, 0, 6, {3650, 2029}, {kNoReading}},
      {"no reading succeeds", {3650}, {2029}, 2, 30, -1, 30, {7, 8}, 30 * Lines{kNoReading} + Lines{kTimeOut}},
      {"preset fails", {3650}, {2029}, 8, 1, 0, 5, {3650, 2029}, {kNoPreset}},
      {"mode fails", {3650}, {2029}, 9, 1, 0, 5, {3650, 2029}, {kNoMode}},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.name);
    write_settings(saved(7, 8));
    show_gains(row.red, row.blue);
    if (row.failures > 0) camera.fault(Fault::reply_255, {.exchange = row.failing, .count = row.failures});
    OnepushWB worker(&dsp);
    Lines messages = measure(worker, row.result);
    std::erase_if(messages, [](const std::string& line) { return line.starts_with("176@"); });
    EXPECT_EQ(messages, row.messages);
    EXPECT_EQ(clock->waits().size(), row.polls);
    EXPECT_EQ(read_settings().bytes, saved(row.gains[0], row.gains[1]).bytes);
  }
}

TEST_F(OnepushTest, TriesAFailedSaveAgainAndKeepsGainsForATimeOut) {
  OnepushWB worker(&dsp);
  fail_next("write", EIO);
  EXPECT_EQ(measure(worker, 0), (Lines{kNotSaved, kApplied}));
  EXPECT_EQ(clock->waits().size(), 6U);

  // Without a reading of its own, a time-out holds on to the gains of the measurement before.
  write_settings();
  camera.fault(Fault::reply_255, {.exchange = 2, .count = 30});
  EXPECT_EQ(measure(worker, -1), (30 * Lines{kNoReading} + Lines{kTimeOut, kApplied}));
  EXPECT_EQ(read_settings().bytes, saved(3650, 2029).bytes);

  write_file(std::string(std::getenv("IPCAM_CONFIG_DIR")) + "/all.conf", "too short");
  EXPECT_EQ(measure(worker, -1), (26 * Lines{kNoRecord} + Lines{kTimeOut, kNoRecord}));
}

TEST_F(OnepushTest, WritesNothingAfterAStopAtAnyPoll) {
  OnepushWB worker(&dsp);
  clock->hold(kPoll);
  for (int poll = 1; poll <= 29; ++poll) {
    SCOPED_TRACE(poll);
    show_gains(moving(30), {2029});
    ASSERT_EQ(worker.start(), 0);
    ASSERT_NO_FATAL_FAILURE(run_to_poll(poll));
    camera.clear_traffic();
    EXPECT_EQ(worker.stop_thread(), 0);
    clock->release(kPoll);
    worker.wait_until_idle();
    EXPECT_EQ(camera.traffic(), Lines{});
  }
  EXPECT_EQ(read_settings().bytes, saved(0, 0).bytes);
}

TEST_F(OnepushTest, AppliesNothingAfterAStopDuringTheSave) {
  OnepushWB worker(&dsp);
  {
    camera::LockGuard lock(camera::g_record_lock);
    ASSERT_EQ(worker.start(), 0);
    ASSERT_TRUE(eventually([&] { return camera.traffic() == kStart + 5 * kReading; }));
    real_pause_ms(20);
    worker.stop_thread();
  }
  worker.wait_until_idle();
  EXPECT_EQ(camera.traffic(), kStart + 5 * kReading);
}

// A worker whose thread takes its first step late.
class LateWorker : public OnepushWB {
 public:
  using OnepushWB::OnepushWB;
  int start_thread() override {
    gate.get_future().wait();
    return OnepushWB::start_thread();
  }
  std::promise<void> gate;
};

TEST_F(OnepushTest, AStopReachesARunThatHasNotTakenItsFirstStep) {
  auto worker = std::make_unique<LateWorker>(&dsp);
  ASSERT_EQ(worker->start(), 0);
  EXPECT_EQ(worker->start(), -1);
  worker->stop_thread();
  auto idle = std::async(std::launch::async, [&] { worker->wait_until_idle(); });
  real_pause_ms(20);
  EXPECT_EQ(idle.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout);
  worker->gate.set_value();
  idle.wait();
  worker.reset();
  EXPECT_EQ(camera.traffic(), Lines{});
}

TEST_F(OnepushTest, StartsAfterAThreadCouldNotBeCreated) {
  OnepushWB worker(&dsp);
  fail_next("pthread_create", EAGAIN);
  EXPECT_EQ(worker.start(), -1);
  worker.wait_until_idle();
  EXPECT_EQ(worker.start(), 0);
  worker.wait_until_idle();
  EXPECT_EQ(read_settings().bytes, saved(3650, 2029).bytes);
}

TEST_F(OnepushTest, RunsTakeTurns) {
  OnepushWB worker(&dsp);
  auto first = std::async(std::launch::async, [&] { return worker.start_thread(); });
  EXPECT_EQ(worker.start_thread(), 0);
  EXPECT_EQ(first.get(), 0);
  EXPECT_EQ(camera.traffic(), 2 * (kStart + 5 * kReading + kApply + kSelect));
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
      {"trigger", [&] { EXPECT_EQ(request(camera::REQUEST_ONE_PUSH_TRG), 0); },
       kStart + 5 * kReading + kApply + kSelect, 3650},
      {"shutdown", [&] { stop_control_thread(); }, {}, 0},
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.name);
    stop_control_thread();
    write_settings(saved(0, 0).i32(16, 3));
    ASSERT_EQ(start_control_thread(), 0);
    ASSERT_EQ(request(camera::REQUEST_WB_MODE, 7), 0);
    camera.clear_traffic();
    clock->hold(kPoll);
    ASSERT_EQ(request(camera::REQUEST_ONE_PUSH_TRG), 0);
    ASSERT_NO_FATAL_FAILURE(run_to_poll(3));

    auto done = std::async(std::launch::async, row.meanwhile);
    real_pause_ms(20);
    EXPECT_EQ(done.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout);
    clock->release_all();
    done.wait();
    EXPECT_TRUE(eventually([&] { return camera.traffic() == kStart + 3 * kReading + row.traffic; }));
    stop_control_thread();
    EXPECT_EQ(camera.traffic(), kStart + 3 * kReading + row.traffic);
    EXPECT_EQ(read_settings().u16(168), row.red);
  }
}

}  // namespace
}  // namespace ipcam::test
