// Requests of exposure, gain, iris and day/night: what reaches the registers, the devices and the workers.
#include <filesystem>

#include "tests/support/story.h"

namespace ipcam::test {
namespace {

constexpr int kGain = 35, kExpMode = 62, kHoldIris = 68, kAgcMaxGain = 71, kExpModeApply = 76, kHoldInq = 79,
              kDnMode = 80, kDnHys = 81, kBnTime = 82, kBnLevel = 83;
constexpr int kHold = 0, kRelease = 1, kToggle = 68;

using Words = std::vector<unsigned>;

// "w 11/0x14=0x02 11/0x15=0x26" for the address pair 11/0x14 and the word 0x2602.
std::string write_words(const std::vector<std::pair<int, int>>& pairs, const Words& words) {
  std::string line = "w";
  for (std::size_t i = 0; i < words.size(); ++i) {
    char text[64];
    const auto [category, byte] = pairs.at(i);
    std::snprintf(text, sizeof text, " %d/0x%02x=0x%02x %d/0x%02x=0x%02x", category, byte, words[i] & 0xff, category,
                  byte + 1, words[i] >> 8);
    line += text;
  }
  return line;
}

std::string normal(const Words& words) {
  return write_words({{11, 0x14}, {13, 0}, {11, 0x2c}, {13, 2}, {11, 0x1a}, {13, 4}, {11, 0x32}, {13, 6}}, words);
}
std::string normal_gain(const Words& words) { return write_words({{11, 0x1a}, {13, 4}, {11, 0x32}, {13, 6}}, words); }
std::string slow_shutter(const Words& words) {
  return write_words({{11, 0x20}, {11, 0x24}, {13, 0}, {11, 0x38}, {11, 0x3c}, {13, 2}}, words);
}
std::string slow_gain(const Words& words) {
  return write_words({{11, 0x22}, {11, 0x26}, {13, 4}, {11, 0x3a}, {11, 0x3e}, {13, 6}}, words);
}
std::string manual_shutter(unsigned word) { return "w 11/0x00=0x04" + write_words({{11, 0x68}}, {word}).substr(1); }
std::string manual_gain(unsigned word) { return "w 11/0x00=0x04" + write_words({{11, 0x6a}}, {word}).substr(1); }
std::string frames(const std::string& value) { return "w 11/0x0e=" + value + " 11/0x0f=" + value; }

const std::string kSensorMode = "r 0/0x03";
const std::string kIrisShut = "w 11/0x05=0x00 11/0x06=0x00", kIrisOpen = "w 11/0x05=0x55 11/0x06=0x55";
const std::string kModeNormal = "w 11/0x00=0x00", kModeSlow = "w 11/0x00=0x01", kModeManual = "w 11/0x00=0x04";

struct Exposure {
  int automatic, slow, speed, min_speed, agc, gain;
  int mode = 1;
};

SettingsBytes settings(const Exposure& e) {
  return SettingsBytes()
      .u8(145, static_cast<std::uint8_t>(e.automatic))
      .u8(96, static_cast<std::uint8_t>(e.slow))
      .i32(40, e.speed)
      .i32(148, e.min_speed)
      .i32(152, e.agc)
      .i32(32, e.gain)
      .i32(140, e.mode);
}

class ExposureHandlersTest : public StoryTest {
 protected:
  static void fail_ioctls(int first, int count) {
    for (int i = 0; i < count; ++i) fail_next("ioctl", EIO, first);
  }
};

TEST_F(ExposureHandlersTest, EachPatternHasItsRowsModeAndLogLine) {
  // clang-format off
  const struct {
    const char* name;
    bool held, binned;
    Exposure stored;
    std::string err;
    int worker_gain;
    Lines changes;
  } cases[] = {
      {"flickerless, whatever the rest", false, false, {0, 0, 3, 4, 1, 6, 0}, "Flickerless\n", 0,
       {normal({0, 0x2313, 0, 0x1d75, 0x03fc, 0x05a7, 0x03fc, 0x02a7}), kModeNormal, frames("0x02")}},
      {"flickerless, gain 6", false, false, {1, 0, 0, 0, 6, 0, 0}, "Flickerless\nAutoBN : 1 0 0\n", 6,
       {kSensorMode, normal({0, 0x2313, 0, 0x1d75, 0x13ee, 0x05a7, 0x13ee, 0x02a7}), kModeNormal, frames("0x1e")}},
      {"automatic", false, false, {1, 0, 3, 0, 2, 0}, "Pattern A\n", 0,
       {kIrisShut, normal({0, 0x2606, 0, 0x2068, 0x07f9, 0x05a7, 0x07f9, 0x02a7}), kModeNormal, frames("0x1e")}},
      {"automatic and slow, least speed", false, false, {2, 1, 0, 0, 3, 0}, "Pattern C\nAutoBN : 2 1 0\n", 3,
       {kIrisShut, slow_shutter({0, 0x3975, 0x2606, 0, 0x33d6, 0x2068}),
        slow_gain({0x0bf5, 0, 0x05a7, 0x0bf5, 0, 0x02a7}), kModeSlow, frames("0x1e")}},
      {"automatic and slow, greatest speed", false, true, {1, 255, 0, 4, 6, 0}, "Pattern C\nAutoBN : 1 1 0\n", 6,
       {kIrisShut, kSensorMode, slow_shutter({0, 0x2606, 0x2606, 0, 0x2068, 0x2068}),
        slow_gain({0x17eb, 0, 0x05a7, 0x17eb, 0, 0x02a7}), kModeSlow, frames("0x02")}},
      {"fixed slow, all pixels", false, false, {0, 0, 3, 1, 5, 6, 3}, "Pattern E\nAutoBN : 0 3 3\n", 0,
       {kIrisShut, kSensorMode, kIrisOpen, kSensorMode, manual_shutter(1250), manual_gain(0x13ee), kModeManual,
        frames("0x16")}},
      {"fixed slow, binned", false, true, {0, 1, 0, 1, 4, 6, 2}, "Pattern E\nAutoBN : 0 2 0\n", 4,
       {kIrisShut, kSensorMode, kIrisOpen, kSensorMode, manual_shutter(10000), manual_gain(0x17eb), kModeManual,
        frames("0x1e")}},
      {"fixed slow, last speed", false, false, {0, 0, 4, 1, 0, 0}, "Pattern E\n", 0,
       {kIrisShut, kSensorMode, kIrisOpen, manual_shutter(666), manual_gain(0), kModeManual, frames("0x16")}},
      {"fixed, first normal speed", false, false, {0, 1, 5, 2, 3, 0, 3}, "Pattern A\nAutoBN : 0 3 5\n", 3,
       {kIrisShut, normal({0, 0x2606, 0, 0x2068, 0x0bf5, 0x05a7, 0x0bf5, 0x02a7}), kModeNormal, frames("0x08")}},
      {"fixed, last normal speed", false, false, {0, 0, 14, 3, 0, 0}, "Pattern A\n", 0,
       {kIrisShut, normal({0, 0x0480, 0, 0, 0, 0x05a7, 0, 0x02a7}), kModeNormal, frames("0x04")}},
      {"speed beyond the table", false, false, {0, 0, 25, 0, 0, 0},
       "Pattern A\ndspset: [ERROR] invalid value! Shutter:21\n", 0, {kIrisShut}},
      {"negative speed and gain", false, false, {0, 0, -1, 0, -1, 0},
       "Pattern A\ndspset: [ERROR] invalid value! Shutter:-5\nAutoBN : 0 1 -1\n", -1, {kIrisShut}},
      {"automatic, held", true, false, {1, 0, 3, 1, 3, 0}, "Pattern B\nAutoBN : 1 1 3\n", 3,
       {normal({0x2602, 0x0480, 0x2063, 0, 0x0bf5, 0x05a7, 0x0bf5, 0x02a7}), kModeNormal, frames("0x0f")}},
      {"automatic and slow, held", true, false, {1, 1, 0, 4, 6, 0}, "Pattern D\nAutoBN : 1 1 0\n", 6,
       {kSensorMode, slow_shutter({0x2602, 0x2a04, 0x0480, 0x2063, 0x2466, 0}),
        slow_gain({0x13ee, 0, 0x05a7, 0x13ee, 0, 0x02a7}), kModeSlow, frames("0x02")}},
      {"fixed slow, held", true, false, {0, 0, 4, 0, 1, 6, 3}, "Pattern G\n", 0,
       {slow_shutter({0x2602, 0x2a04, 0x0480, 0x2063, 0x2466, 0}),
        slow_gain({0x06fa, 0, 0x1a93, 0x03fc, 0, 0x1a93}), kModeSlow, frames("0x1e")}},
      {"fixed, held", true, false, {0, 0, 10, 2, 5, 0}, "Pattern F\nAutoBN : 0 1 10\n", 5,
       {normal({0x157e, 0x0480, 0x0fe0, 0, 0x13ee, 0x05a7, 0x13ee, 0x02a7}), kModeNormal, frames("0x08")}},
  };
  // clang-format on
  start();
  bool held = false;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.held && !held) request(kHoldIris, kHold);
    held = c.held;
    camera.set_reg(0, 3, c.binned ? 1 : 0);
    write_settings(settings(c.stored));
    for (const int code : {kExpMode, kExpModeApply}) {
      forget();
      const Output output = capture([&] { EXPECT_EQ(0, request(code, 99)); });
      EXPECT_EQ(c.err, output.err);
      EXPECT_EQ(c.changes, changes(camera.take_traffic()));
      EXPECT_EQ(Lines{"AutoDaynight::setAgcMaxGain(" + std::to_string(c.worker_gain) + ")"}, library_calls());
      EXPECT_EQ(Lines{}, clock->waits());
    }
  }
  request(kHoldIris, kRelease);
}

TEST_F(ExposureHandlersTest, EveryStoredExposureIsAppliedWithoutAnError) {
  start();
  for (const int held : {1, 0}) {
    EXPECT_EQ(0, request(kHoldIris, held == 1 ? kHold : kRelease));
    for (int i = 0; i < 2 * 2 * 15 * 5; ++i) {
      const int speed = i / 4 % 15, min_speed = i / 60, level = (speed + min_speed) % 7;
      const Exposure e{i & 1, i >> 1 & 1, speed, min_speed, level, speed % 7};
      SCOPED_TRACE(testing::Message() << "held " << held << " automatic " << e.automatic << " slow " << e.slow
                                      << " speed " << e.speed << " min " << e.min_speed << " level " << e.agc);
      write_settings(settings(e));
      forget();
      const Output output = capture([&] { EXPECT_EQ(0, request(kExpMode)); });
      EXPECT_EQ(std::string::npos, output.err.find("[ERROR]")) << output.err;
      Lines writes = changes(camera.take_traffic());
      ASSERT_GE(writes.size(), 3u);
      EXPECT_TRUE(writes.back().starts_with("w 11/0x0e="));
      EXPECT_TRUE(writes[writes.size() - 2].starts_with("w 11/0x00="));
      for (const std::string& line : writes) EXPECT_EQ(std::string::npos, line.find("=0xeb")) << "gain 6 unbinned";
      EXPECT_EQ(1u, library_calls().size());
    }
  }
}

TEST_F(ExposureHandlersTest, GainLevelSixNeedsBinning) {
  start(settings({1, 0, 0, 0, 0, 0}));
  const std::string config = "ObjectDetectionIF::config()", limit = "AutoDaynight::setAgcMaxGain";
  // clang-format off
  const struct {
    int code, value, binned;
    Lines story;
  } cases[] = {
      {kGain, 0, 0, {config, "w 11/0x6a=0x00 11/0x6b=0x00"}},
      {kGain, 6, 0, {config, kSensorMode, "w 11/0x6a=0xee 11/0x6b=0x13"}},
      {kGain, 6, 1, {config, kSensorMode, "w 11/0x6a=0xeb 11/0x6b=0x17"}},
      {kAgcMaxGain, 2, 0, {config, limit + "(0)", normal_gain({0x07f9, 0x05a7, 0x07f9, 0x02a7}),
                           slow_gain({0x07f9, 0, 0x05a7, 0x07f9, 0, 0x02a7})}},
      {kAgcMaxGain, 6, 0, {config, limit + "(6)", kSensorMode, normal_gain({0x13ee, 0x05a7, 0x13ee, 0x02a7}),
                           slow_gain({0x13ee, 0, 0x05a7, 0x13ee, 0, 0x02a7})}},
      {kAgcMaxGain, 6, 1, {config, limit + "(6)", kSensorMode, normal_gain({0x17eb, 0x05a7, 0x17eb, 0x02a7}),
                           slow_gain({0x17eb, 0, 0x05a7, 0x17eb, 0, 0x02a7})}},
      {kAgcMaxGain, 13, 0, {config, limit + "(13)", normal_gain({0, 0x1a93, 0, 0x1a93}),
                            slow_gain({0x06fa, 0, 0x1a93, 0x03fc, 0, 0x1a93})}},
  };
  // clang-format on
  for (const auto& c : cases) {
    camera.set_reg(0, 3, static_cast<unsigned>(c.binned));
    const Output output = capture([&] { EXPECT_EQ(c.story, story(c.code, c.value)) << c.code << " " << c.value; });
    EXPECT_EQ("", output.err);
  }
}

TEST_F(ExposureHandlersTest, HoldingTheIrisAndLettingItGo) {
  SettingsBytes stored = settings({1, 0, 0, 0, 3, 0}).i32(428, 77).u8(600, 0xab);
  start(stored);
  const std::string written = "ConfigFile::write_record(all.conf, 3) = 0";
  // clang-format off
  const Lines held = {
      "AutoDaynight::stop_thread()", "AutoDaynight::setAgcMaxGain(3)", kIrisOpen,
      normal({0x2602, 0x0480, 0x2063, 0, 0x0bf5, 0x05a7, 0x0bf5, 0x02a7}), kModeNormal, frames("0x1e"),
      "usleep(200000)", "FocusAssist::setLevel(77)", "Thread::execute_process(FocusAssist)", written,
      "PostProcessInterface::loadConfig()"};
  const Lines released = {
      "FocusAssist::stop_thread()", "usleep(200000)", "AutoDaynight::setAgcMaxGain(3)", written,
      "PostProcessInterface::loadConfig()", kIrisShut, kIrisShut,
      normal({0, 0x2606, 0, 0x2068, 0x0bf5, 0x05a7, 0x0bf5, 0x02a7}), kModeNormal, frames("0x1e")};
  // clang-format on
  const std::pair<int, bool> steps[] = {
      {kHold, true}, {kHold, true}, {kRelease, false}, {kToggle, true}, {kToggle, false}};
  for (const auto& [value, holds] : steps) {
    EXPECT_EQ(holds ? held : released, story(kHoldIris, value));
    EXPECT_EQ(holds ? 1 : 0, inquire(kHoldInq));
    EXPECT_EQ(stored.u8(144, holds ? 1 : 0).bytes, read_settings().bytes);
    for (const int refused : {2, -1, 67, 69}) EXPECT_EQ(Lines{}, story(kHoldIris, refused, -1));
  }
}

TEST_F(ExposureHandlersTest, TheIrisIsTriedFiveTimes) {
  start(settings({1, 0, 0, 0, 3, 0}));
  for (const int value : {kHold, kRelease}) {
    for (const std::uint32_t failures : {1u, 4u, 5u}) {
      camera.fault(sim::Fault::reply_255, {.count = failures});
      const Lines lines = story(kHoldIris, value);
      EXPECT_EQ(failures, std::count(lines.begin(), lines.end(), "sleep(1)"));
      // The exposure pattern of a release moves the iris once more.
      const auto moves = std::count(lines.begin(), lines.end(), value == kHold ? kIrisOpen : kIrisShut);
      EXPECT_EQ((failures < 5 ? 1 : 0) + (value == kHold ? 0 : 1), moves);
      EXPECT_EQ(1, std::count(lines.begin(), lines.end(), "PostProcessInterface::loadConfig()"));
    }
  }
}

TEST_F(ExposureHandlersTest, AHoldThatCannotBeSavedIsStillHeld) {
  const SettingsBytes stored = settings({1, 0, 0, 0, 3, 0}).i32(428, 5);
  start(stored);
  fail_next("write", ENOSPC);
  EXPECT_EQ("ConfigFile::write_record(all.conf, 3) = -1", story(kHoldIris, kHold).back());
  EXPECT_EQ(stored.bytes, read_settings().bytes);
  EXPECT_EQ(1, inquire(kHoldInq));

  std::filesystem::remove("/tmp/config/all.conf");
  EXPECT_EQ(Lines{}, story(kExpMode, 0));
  EXPECT_EQ((Lines{"AutoDaynight::stop_thread()", kIrisOpen, "usleep(200000)", "FocusAssist::setLevel(0)",
                   "Thread::execute_process(FocusAssist)"}),
            story(kHoldIris, kHold));
  EXPECT_EQ((Lines{"FocusAssist::stop_thread()", "usleep(200000)", kIrisShut}), story(kHoldIris, kRelease));
  EXPECT_EQ(0, inquire(kHoldInq));
}

TEST_F(ExposureHandlersTest, DayAndNightMoveTheFilterByAOneSecondPulse) {
  start();
  const std::string on = "w 16/0x1a=0x00 16/0x1b=0x00 16/0x1c=0x00 16/0x1d=0x00",
                    off = "w 16/0x1a=0xff 16/0x1b=0xff 16/0x1c=0xff 16/0x1d=0xff";
  const struct {
    std::vector<int> values;
    std::string mode, pulse, level;
  } groups[] = {
      {{61, 69, 71}, on, "gpio-0 write 80/c0", "gpio-4 write 08/08"},
      {{62, 70, 72}, off, "gpio-0 write 40/c0", "gpio-4 write 00/08"},
      {{0, 60, 63, 68, 73, -1}, off, "gpio-0 write 00/c0", "gpio-4 write 00/08"},
  };
  for (const auto& group : groups) {
    for (const int value : group.values) {
      EXPECT_EQ((Lines{"ObjectDetectionIF::config()", group.mode, "gpio-0 direction c0/c0", "gpio-4 direction 08/08",
                       group.pulse, "sleep(1)", "gpio-0 write 00/c0", group.level}),
                story(kDnMode, value));
    }
  }
}

TEST_F(ExposureHandlersTest, TheFilterMovesAlsoAfterFailures) {
  start();
  const std::string direction[] = {"/dev/gpio-0 TKV_Q5_IOCTL_GPIO_DIR error !!!\n",
                                   "/dev/gpio-4 TKV_Q5_IOCTL_GPIO_DIR error !!!\n"};
  for (const std::uint32_t failures : {1u, 2u, 3u}) {
    fail_ioctls(0, 2);
    camera.fault(sim::Fault::reply_255, {.count = failures});
    std::string err = direction[0] + direction[1];
    for (std::uint32_t i = 0; i < failures; ++i) {
      err += "dspset: [ERROR] communication with comm application error!\nChange ICR mode... try again!\n";
    }
    Lines lines;
    EXPECT_EQ(err, capture([&] { lines = story(kDnMode, 62); }).err);
    EXPECT_EQ(failures, std::count(lines.begin(), lines.end(), "usleep(100000)"));
    EXPECT_EQ((Lines{"gpio-0 write 40/c0", "sleep(1)", "gpio-0 write 00/c0", "gpio-4 write 00/08"}),
              Lines(lines.end() - 4, lines.end()));
  }
  for (const int device : {0, 1}) {
    fail_ioctls(device, 1);
    EXPECT_EQ(direction[device], capture([&] { request(kDnMode, 61); }).err);
  }
  fail_ioctls(2, 3);  // the writes are not looked at
  EXPECT_EQ("", capture([&] { EXPECT_EQ(0, request(kDnMode, 61)); }).err);
}

TEST_F(ExposureHandlersTest, ThresholdsReachTheWorkerAfterTheSwitchToAllPixels) {
  start(settings({1, 0, 0, 0, 0, 0}));
  const std::tuple<int, int, std::string> accepted[] = {
      {kDnHys, 0, "AutoDaynight::setDnHys(0)"},
      {kDnHys, 65535, "AutoDaynight::setDnHys(65535)"},
      {kBnTime, 30, "AutoDaynight::setConditionTime(30000)"},
      {kBnTime, 2, "AutoDaynight::setConditionTime(2000)"},
      {kBnLevel, 0, "AutoDaynight::setDnLevel(0)"},
      {kBnLevel, 4095, "AutoDaynight::setDnLevel(4095)"},
  };
  for (const auto& [code, value, call] : accepted) {
    // Without an adjustment file the switch ends after the pipeline has been told.
    const Lines end = {"PostProcessInterface::waitReady()", "PostProcessInterface::changeBinningMode(0)", call};
    const Lines lines = story(code, value);
    EXPECT_EQ(end, Lines(lines.end() - 3, lines.end())) << code << " " << value;
  }
  const std::pair<int, int> refused[] = {{kDnHys, 65536}, {kDnHys, -1},     {kBnTime, 15}, {kBnTime, 0},
                                         {kBnTime, -2},   {kBnLevel, 4096}, {kBnLevel, -1}};
  for (const auto& [code, value] : refused) EXPECT_EQ(Lines{}, story(code, value, -1)) << code << " " << value;
}

}  // namespace
}  // namespace ipcam::test
