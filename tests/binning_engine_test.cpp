// Switching the sensor readout: the whole sequence, its retries, and the requests around it.
#include "tests/support/story.h"

namespace ipcam::test {
namespace {

constexpr int kGain = 35, kExpMode = 62, kAgcMaxGain = 71, kMode = 73, kBinning = 74, kForce = 75, kFunction = 77;
constexpr int kOn = 0, kOff = 1, kAutomatic = 4, kUnforce = 29, kStop = 34;

constexpr std::string_view kHalfFile("\x01\x00\xff\x80\x0a\x00\x07\x63\x11\x22\x33\x44", 12);
constexpr std::string_view kAllFile("\x01\x00\x01\x02\x03\x04\x05\x06", 8);  // no more than what is used
const std::string kHalfLoaded =
    "Loaded WBParam : w,13,8,0xff,255;13,9,0xff,128;13,10,0xff,10;13,11,0xff,0;13,12,0xff,7;13,13,0xff,99\n";
const std::string kAllLoaded =
    "Loaded WBParam : w,13,8,0xff,1;13,9,0xff,2;13,10,0xff,3;13,11,0xff,4;13,12,0xff,5;13,13,0xff,6\n";

class BinningEngineTest : public StoryTest {
 protected:
  void start(const SettingsBytes& settings = SettingsBytes().u8(145, 1)) {
    write_file("/var/tmp/AdjWbHalfPixels.txt", kHalfFile);
    write_file("/var/tmp/AdjWbAllPixels.txt", kAllFile);
    StoryTest::start(settings);
    frame_length(1125, 1125);
  }

  void frame_length(unsigned lines, unsigned divisor) {
    camera.set_reg(81, 10, lines & 0xff);
    camera.set_reg(81, 11, lines >> 8);
    camera.set_reg(81, 86, divisor & 0xff);
    camera.set_reg(81, 87, divisor >> 8);
  }

  // Messages of one engine run, and its waits.
  std::string errors(int value, int result = 0) {
    forget();
    return capture([&] { EXPECT_EQ(result, request(kBinning, value)); }).err;
  }
};

TEST_F(BinningEngineTest, SwitchesInOneFixedOrder) {
  start(SettingsBytes().i32(40, 3).i32(140, 1).i32(32, 6).i32(72, 6));
  frame_length(2250, 1000);
  const std::string config = "ObjectDetectionIF::config()", ready = "PostProcessInterface::waitReady()",
                    change = "PostProcessInterface::changeBinningMode", pause = "usleep(100000)";
  // clang-format off
  const Lines on = {
      config, ready, change + "(1)",
      "w 0/0x03=0x01", "usleep(200000)", "r 2/0x00",
      "r 81/0x0a 81/0x0b 81/0x56 81/0x57", "usleep(68000)",
      "w 11/0x0e=0x1e 11/0x0f=0x1e",
      "w 13/0x08=0xff 13/0x09=0x80 13/0x0a=0x0a 13/0x0b=0x00 13/0x0c=0x07 13/0x0d=0x63",
      "w 16/0x09=0x09 91/0x00=0x02 91/0x02=0x09", pause,
      "w 16/0x15=0x0c 16/0x14=0xf4 16/0x17=0x12 16/0x16=0x9a", pause,
      "w 16/0x0e=0x4d 16/0x0f=0x09 16/0x10=0xf2 16/0x11=0x0f",
      "w 2/0x03=0x01", "usleep(500000)", config, "r 2/0x03",
      "w 11/0x6a=0xeb 11/0x6b=0x17", "r 0/0x03", "w 10/0x07=0xd6"};
  const Lines off = {
      config,
      "w 0/0x03=0x00", "usleep(200000)", "r 2/0x00",
      "r 81/0x0a 81/0x0b 81/0x56 81/0x57", "usleep(68000)", ready, change + "(0)",
      "w 11/0x0e=0x16 11/0x0f=0x16",
      "w 13/0x08=0x01 13/0x09=0x02 13/0x0a=0x03 13/0x0b=0x04 13/0x0c=0x05 13/0x0d=0x06",
      "w 16/0x09=0x0a 91/0x00=0x03 91/0x02=0x0c", pause,
      "w 16/0x15=0x0f 16/0x14=0xf2 16/0x17=0x15 16/0x16=0x98", pause,
      "w 16/0x0e=0x4a 16/0x0f=0x0c 16/0x10=0xef 16/0x11=0x12",
      "w 2/0x03=0x01", "usleep(500000)", config, "r 2/0x03",
      "w 11/0x6a=0xee 11/0x6b=0x13", "r 0/0x03", "w 10/0x07=0xc0"};
  // clang-format on
  for (const int value : {0, 74, 1, 75}) {
    const bool is_on = value == 0 || value == 74;
    camera.set_reg(0, 3, is_on ? 0 : 1);
    const Output output = capture([&] { EXPECT_EQ(is_on ? on : off, story(kBinning, value)) << value; });
    EXPECT_EQ((is_on ? kHalfLoaded : kAllLoaded) + "Pattern E(LF)\n", output.err);
  }
  for (const int value : {2, 73, -1}) EXPECT_EQ(Lines{"ObjectDetectionIF::config()"}, story(kBinning, value, -1));
}

TEST_F(BinningEngineTest, RetriesUntilTheSensorHasSwitched) {
  start();
  const std::string again = "do_binning retrying...\n", given_up = "do_binning timedout.\n";
  const std::string five = again + again + again + again + again;
  const struct {
    int value;
    std::vector<std::uint8_t> field;
    std::string err;
    std::size_t waits;
  } cases[] = {
      {kOn, {0x08, 0xeb, 0x10}, again + again, 5},
      {kOn, {0x08}, five + given_up, 10},
      {kOn, {0x18}, "", 1},
      {kOff, {0x10, 0x08}, again, 3},
      {kOff, {0xf3}, five + given_up, 10},
      {kOff, {0x10, 0x10, 0x10, 0x10, 0x14}, again + again + again + again, 9},
      {kOff, {0x00}, "", 1},
  };
  for (const auto& c : cases) {
    camera.script(2, 0, c.field);
    EXPECT_EQ(c.err + (c.value == kOn ? kHalfLoaded : kAllLoaded), errors(c.value));
    const Lines waits = clock->waits();
    EXPECT_EQ(c.waits, std::count(waits.begin(), waits.end(), "usleep(200000)"));
  }
}

TEST_F(BinningEngineTest, RetriesToReadTheFrameLength) {
  start();
  frame_length(2250, 1125);
  for (const std::uint32_t failures : {1u, 4u, 5u}) {
    camera.fault(sim::Fault::reply_255, {.exchange = 3, .count = failures});
    std::string err;
    Lines waits = {"usleep(200000)"};
    for (std::uint32_t i = 0; i < failures; ++i) {
      err += "dspset: [ERROR] communication with comm application error!\nRetrying to get VMAX.\n";
      waits.push_back("usleep(100000)");
    }
    waits.push_back(failures == 5 ? "usleep(34000)" : "usleep(68000)");
    EXPECT_EQ(err + kAllLoaded, errors(kOff));
    Lines made = clock->waits();
    made.resize(waits.size());
    EXPECT_EQ(waits, made);
  }
}

TEST_F(BinningEngineTest, WaitsForWholeFrames) {
  start();
  const struct {
    unsigned lines, divisor;
    std::int64_t wait_us;
  } cases[] = {{2250, 1125, 68000},   {2250, 0, 34000},       {0, 1, 34000},
               {1124, 1125, 34000},   {3374, 1125, 68000},    {40, 1, 1360000},
               {65535, 256, 8670000}, {65535, 1, 2228190000}, {65535, 65535, 34000}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.lines << " / " << c.divisor);
    frame_length(c.lines, c.divisor);
    EXPECT_EQ(kAllLoaded, errors(kOff));
    std::int64_t total_us = 0;
    for (const std::string& wait : clock->waits()) {
      const int us = std::stoi(wait.substr(wait.find('(') + 1));
      EXPECT_LT(us, 1000000);
      total_us += us;
    }
    EXPECT_EQ(c.wait_us, total_us - 200000 - 2 * 100000 - 500000);
  }
}

TEST_F(BinningEngineTest, RetriesToSetHdrsl) {
  start();
  const std::string again = "Retry to set HDRSL.\n";
  const struct {
    std::vector<std::uint8_t> reads;  // each write reads the register first
    std::string err;
    std::size_t waits;
  } cases[] = {{{0, 1}, "", 1},
               {{0, 0, 0, 2}, again, 3},
               {{0xfc}, again + again + again + again + again + "Couldn't set HDRSL\n", 10}};
  for (const auto& c : cases) {
    camera.script(2, 3, c.reads);
    EXPECT_EQ(kAllLoaded + c.err, errors(kOff));
    const Lines waits = clock->waits();
    EXPECT_EQ(c.waits, std::count(waits.begin(), waits.end(), "usleep(500000)"));
  }
}

TEST_F(BinningEngineTest, GainCeilingsFollowTheReadout) {
  start();
  const auto stored = [](int automatic, int speed, int held, int gain, int agc) {
    return SettingsBytes()
        .u8(145, static_cast<std::uint8_t>(automatic))
        .i32(40, speed)
        .i32(32, gain)
        .i32(152, agc)
        .u8(144, static_cast<std::uint8_t>(held));
  };
  const struct {
    SettingsBytes settings;
    std::string err;
    Lines on, off;
  } cases[] = {
      {stored(0, 0, 0, 6, 6), "Pattern E(LF)\n", {"w 11/0x6a=0xeb 11/0x6b=0x17"}, {"w 11/0x6a=0xee 11/0x6b=0x13"}},
      {stored(0, 4, 9, 6, 6),
       "Pattern G(LF)\n",
       {"w 11/0x22=0xfa 11/0x23=0x06 11/0x3a=0xfc 11/0x3b=0x03"},
       {"w 11/0x22=0xfd 11/0x23=0x02 11/0x3a=0x00 11/0x3b=0x00"}},
      {stored(0, 5, 1, 6, 6),
       "Pattern A,C,C,D,F(LF)\n",
       {"w 11/0x1a=0xeb 11/0x1b=0x17 11/0x32=0xeb 11/0x33=0x17",
        "w 11/0x22=0xeb 11/0x23=0x17 11/0x3a=0xeb 11/0x3b=0x17"},
       {"w 11/0x1a=0xee 11/0x1b=0x13 11/0x32=0xee 11/0x33=0x13",
        "w 11/0x22=0xee 11/0x23=0x13 11/0x3a=0xee 11/0x3b=0x13"}},
      {stored(1, 0, 0, 6, 5), "", {}, {}},
      {stored(0, -1, 0, 6, 5), "", {}, {}},
      {stored(0, 0, 0, 5, 7), "", {}, {}},
  };
  for (const auto& c : cases) {
    write_settings(c.settings);
    request(kExpMode);
    for (const int value : {kOn, kOff}) {
      EXPECT_EQ((value == kOn ? kHalfLoaded : kAllLoaded) + c.err, errors(value));
      Lines lines = changes(camera.take_traffic());
      lines.erase(lines.begin(), std::find(lines.begin(), lines.end(), "r 2/0x03") + 1);
      EXPECT_EQ(value == kOn ? c.on : c.off, Lines(lines.begin(), lines.end() - 2)) << "before the sharpness";
    }
  }
}

TEST_F(BinningEngineTest, GainCeilingsFollowTheGainRequest) {
  start(SettingsBytes());
  request(kGain, 6);
  EXPECT_EQ(kAllLoaded + "Pattern E(LF)\n", errors(kOff));
}

TEST_F(BinningEngineTest, NeedsAnAdjustmentFileForItsSecondHalf) {
  start();
  for (const std::string_view invalid : {std::string_view("\x02\0\1\2\3\4\5\6\7\0\0\0", 12), kAllFile.substr(0, 7),
                                         std::string_view("\1\1\1\2\3\4\5\6\7\0\0\0", 12), std::string_view()}) {
    write_file("/var/tmp/AdjWbAllPixels.txt", invalid);
    EXPECT_EQ("Invalid WB Parameter!\n", errors(kOff));
    EXPECT_EQ(10u, changes(camera.traffic()).size()) << "all but the white balance";
  }
  unlink("/var/tmp/AdjWbAllPixels.txt");
  EXPECT_EQ("", errors(kOff, -1));
  EXPECT_EQ((Lines{"w 0/0x03=0x00", "r 2/0x00", "r 81/0x0a 81/0x0b 81/0x56 81/0x57"}), changes(camera.traffic()));
  EXPECT_EQ("PostProcessInterface::changeBinningMode(0)", library_calls().back());
}

// Each step: request, result, the engine's switch ("on", "off" or ""), and the day/night worker's calls.
TEST_F(BinningEngineTest, ForcedBinningRecordsWhatItRestores) {
  start(SettingsBytes().u8(145, 1).i32(140, 1).i32(152, 4).i32(872, 45).i32(876, 1));
  const Lines stop = {"AutoDaynight::stop_thread()"};
  const Lines automatic = {"AutoDaynight::setConditionTime(45000)", "AutoDaynight::setDnLevel(33)",
                           "AutoDaynight::setAgcMaxGain(4)", "AutoDaynight::setCameraType(1)",
                           "Thread::execute_process(AutoDaynight)"};
  const Lines limit = {"AutoDaynight::setAgcMaxGain(4)"};
  const struct {
    int code, value, result;
    std::string engine;
    Lines worker;
  } steps[] = {
      {kFunction, kOn, 0, "on", stop},
      {kFunction, kOff, 0, "off", stop},
      {kFunction, 2, -1, "", {}},
      // By hand: forced off, then recorded on, which is what comes back.
      {kForce, kOff, 0, "off", {}},
      {kFunction, kOn, -1, "", {}},
      {kForce, kUnforce, 0, "on", stop},
      {kForce, kOn, 0, "on", {}},
      {kFunction, kOff, -1, "", {}},
      {kForce, kUnforce, 0, "off", stop},
      {kForce, 2, -1, "", {}},
      {kForce, -1, -1, "", {}},
      {kForce, 74, -1, "", {}},
      // Automatic: exposure and gain switch back, unless binning is forced.
      {kForce, kOn, 0, "on", {}},
      {kFunction, kOn, -1, "", {}},
      {kFunction, kAutomatic, -1, "", {}},
      {kExpMode, 0, 0, "", limit},
      {kAgcMaxGain, 4, 0, "", limit},
      {kForce, kUnforce, 0, "off", automatic},
      {kExpMode, 0, 0, "off", limit},
      {kAgcMaxGain, 4, 0, "off", limit},
      {kFunction, kAutomatic, 0, "off", automatic},
      // Stopped.
      {kForce, kOff, 0, "off", {}},
      {kFunction, kStop, -1, "", {}},
      {kForce, kUnforce, -1, "", stop},
      {kFunction, kStop, -1, "", stop},
      {kExpMode, 0, 0, "", limit},
      // The mode by itself; an unknown one leaves it, and mode 3 cannot be restored. Automatic has meant off.
      {kMode, 9, 0, "", {}},
      {kMode, 5, 0, "", {}},
      {kForce, kUnforce, 0, "off", stop},
      {kMode, 4, 0, "", {}},
      {kExpMode, 0, 0, "off", limit},
      {kMode, 34, 0, "", {}},
      {kForce, kUnforce, -1, "", stop},
      {kMode, 30, 0, "", {}},
      {kForce, kUnforce, -1, "", {}},
  };
  for (std::size_t i = 0; i < std::size(steps); ++i) {
    SCOPED_TRACE(testing::Message() << "step " << i << ": " << steps[i].code << " " << steps[i].value);
    forget();
    EXPECT_EQ(steps[i].result, request(steps[i].code, steps[i].value));
    const Lines traffic = changes(camera.take_traffic());
    const auto switched = [&](const char* line) { return std::count(traffic.begin(), traffic.end(), line); };
    EXPECT_EQ(steps[i].engine == "on" ? 1 : 0, switched("w 0/0x03=0x01"));
    EXPECT_EQ(steps[i].engine == "off" ? 1 : 0, switched("w 0/0x03=0x00"));
    Lines calls = library_calls();
    std::erase_if(calls, [](const std::string& c) { return c.starts_with("Post") || c.starts_with("Object"); });
    EXPECT_EQ(steps[i].worker, calls);
  }
  // A new start is neither forced nor does it remember what was on.
  write_settings(SettingsBytes().i32(780, 2));
  for (const std::pair<int, int>& first : {std::pair(kForce, kUnforce), std::pair(kFunction, kOff)}) {
    request(kForce, kOn);
    request(kFunction, kOn);
    stop_control_thread();
    ASSERT_EQ(0, start_control_thread());
    EXPECT_EQ(0, request(first.first, first.second));
    EXPECT_EQ(0, camera.reg(0, 3));
  }
}

TEST_F(BinningEngineTest, AutomaticBinningPassesTheStoredThresholds) {
  start();
  const std::tuple<int, int, std::string, std::string> stored[] = {
      {0, 0, "0", "32"}, {30, 1, "30000", "33"}, {2, 2, "2000", "2"}, {2147483, -1, "2147483000", "-1"}};
  const auto expect = [&](const std::string& time, const std::string& level) {
    forget();
    EXPECT_EQ(0, request(kFunction, kAutomatic));
    const Lines calls = library_calls();
    EXPECT_EQ((Lines{"AutoDaynight::setConditionTime(" + time + ")", "AutoDaynight::setDnLevel(" + level + ")"}),
              Lines(calls.end() - 5, calls.end() - 3));
  };
  for (const auto& [seconds, level, time, worker_level] : stored) {
    write_settings(SettingsBytes().i32(872, seconds).i32(876, level));
    expect(time, worker_level);
  }
  unlink("/tmp/config/all.conf");
  expect("30000", "32");
}

}  // namespace
}  // namespace ipcam::test
