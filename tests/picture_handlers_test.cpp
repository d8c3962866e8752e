// Requests of the picture, white balance and compensation: exchanges, messages, calls, stored levels and results.
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "camera/control_thread.h"
#include "tests/support/camera_fixture.h"

namespace ipcam::test {
namespace {

constexpr int kColor = 31, kWbMode = 33, kExpComp = 34, kBlComp = 37, kSaturation = 39, kSharpness = 40, kRGain = 41,
              kBGain = 42, kColorbar = 61, kOnePushTrg = 64, kContrast = 67, kGamma = 72;

// Offsets of the settings record.
constexpr std::size_t kNone = 1000, kMode = 16, kGate = 20, kBlCompAt = 24, kSaturationAt = 48, kExpCompAt = 56,
                      kColorAt = 68, kSharpnessAt = 72, kRGainAt = 76, kBGainAt = 80, kContrastAt = 112;

const std::string kWritten = "dspset: write success!\n\n";

struct Stored {
  std::size_t offset = kNone;
  int value = 0;
};

// The two exchanges of a table: "10/0x09=0x80" reads 10/0x09, then writes it.
Lines merge(const std::string& written) {
  std::string read;
  for (std::size_t at = 0; at < written.size(); at = std::min(written.size(), written.find(' ', at)) + 1) {
    read += " " + written.substr(at, written.find('=', at) - at);
  }
  return {"r" + read, "w " + written};
}

Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

std::string set(const std::string& what) { return "dspset: set " + what + "\n" + kWritten; }

class PictureHandlersTest : public CameraTest {
 protected:
  void start(const SettingsBytes& settings = {}) {
    write_settings(settings);
    ASSERT_EQ(0, start_control_thread());
  }

  static int snapshot_field(std::size_t offset) {
    int value = 0;
    const auto* bytes = reinterpret_cast<const char*>(&camera::ControlThread::instance().snapshot());
    std::memcpy(&value, bytes + offset, sizeof value);
    return value;
  }

  static std::string calls_made() {
    std::string letters;
    for (const std::string& call : platform::journal()) {
      if (call.starts_with("ObjectDetectionIF::config(")) letters += 'C';
      if (call.starts_with("ConfigFile::ConfigFile(")) letters += 'N';
      if (call.starts_with("ConfigFile::read_record(")) letters += 'R';
      if (call.starts_with("ConfigFile::~ConfigFile(")) letters += 'D';
    }
    return letters;
  }

  // `calls`, in order: C ObjectDetectionIF::config(), N R D a configuration object made, read, destroyed.
  // `stored`: a field of the snapshot after the request.
  void expect(int code, int value, const std::string& calls, const Lines& traffic, const std::string& out,
              Stored stored = {}, int result = 0, const std::string& err = "") {
    SCOPED_TRACE("request " + std::to_string(code) + " with " + std::to_string(value));
    camera.clear_traffic();
    platform::clear_journal();
    const Output output = capture([&] { EXPECT_EQ(result, request(code, value)); });
    EXPECT_EQ(traffic, camera.take_traffic());
    EXPECT_EQ(calls, calls_made());
    EXPECT_EQ(out, output.out);
    EXPECT_EQ(err, output.err);
    if (stored.offset == kNone) return;
    EXPECT_EQ(stored.value, snapshot_field(stored.offset));
  }

  static void remove_settings() {
    std::filesystem::remove(std::filesystem::path(std::getenv("IPCAM_CONFIG_DIR")) / "all.conf");
  }
};

TEST_F(PictureHandlersTest, EachLevelHasItsRegisterValue) {
  start();
  const struct {
    int code;
    std::string calls;
    Stored stored;
    std::string reg;
    std::string name;
    Lines values;
  } settings[] = {
      {kSaturation, "C", {kSaturationAt}, "10/0x09", "saturation", {"20", "40", "60", "80", "a0", "c0", "e0"}},
      {kContrast, "C", {kContrastAt}, "10/0x06", "contrast", {"50", "60", "70", "80", "90", "a0", "b0"}},
      {kColorbar, "", {}, "10/0x0b", "colorbar", {"00", "01"}},
      {kGamma, "C", {}, "16/0x06", "", {"00", "01", "02", "03", "04", "05", "06"}},
  };
  for (const auto& s : settings) {
    for (std::size_t i = 0; i < s.values.size(); ++i) {
      const int level = static_cast<int>(i);
      const std::string out = s.name.empty() ? kWritten : set(s.name + ": 0x" + s.values[i]);
      expect(s.code, level, s.calls, merge(s.reg + "=0x" + s.values[i]), out, {s.stored.offset, level});
    }
  }
}

TEST_F(PictureHandlersTest, SharpnessFollowsTheSensorReadout) {
  start();
  const Lines by_readout[] = {{"0x0c", "0x33", "0x5a", "0x80", "0x95", "0xaa", "0xc0"},
                              {"0x0e", "0x34", "0x5a", "0x80", "0x9c", "0xb8", "0xd6"}};
  for (const unsigned readout : {1u, 0u}) {
    camera.set_reg(0, 3, readout);
    for (std::size_t i = 0; i < 7; ++i) {
      const std::string value = by_readout[readout][i];
      const int level = static_cast<int>(i);
      expect(kSharpness, level, "C", Lines{"r 0/0x03"} + merge("10/0x07=" + value),
             "dspset: read result:\n" + set("sharpness: " + value), {kSharpnessAt, level});
    }
  }
  // A readout that cannot be read counts as all pixels, and a setter that fails is printed, not returned.
  camera.set_reg(0, 3, 1);
  camera.fault(sim::Fault::reply_255, {.count = 2});
  const std::string failed = "dspset: [ERROR] communication with comm application error!\n";
  expect(kSharpness, 0, "C", {"r 0/0x03 !reply_255", "r 10/0x07 !reply_255"}, "dspset: set sharpness: 0x0c\n",
         {kSharpnessAt, 0}, 0, failed + failed);
}

TEST_F(PictureHandlersTest, LevelsOutsideTheirRange) {
  start(SettingsBytes().i32(kSaturationAt, 2).i32(kExpCompAt, 9).i32(kMode, 5).i32(kRGainAt, 1).i32(kBGainAt, 2));
  const std::string read = "dspset: read result:\n";
  // Refused before anything else happens.
  expect(kSaturation, 7, "", {}, "", {kSaturationAt, 2}, -1);
  expect(kSaturation, -1, "", {}, "", {kSaturationAt, 2}, -1);
  expect(kColorbar, 2, "", {}, "", {}, -1);
  expect(kColorbar, -1, "", {}, "", {}, -1);
  expect(kExpComp, 19, "", {}, "", {kExpCompAt, 9}, -1);
  expect(kExpComp, -1, "", {}, "", {kExpCompAt, 9}, -1);
  expect(kOnePushTrg, 1, "", {}, "", {kMode, 5}, -1);
  // Refused when they have been announced and remembered.
  expect(kContrast, 7, "C", {}, "", {kContrastAt, 7}, -1);
  expect(kContrast, -1, "C", {}, "", {kContrastAt, -1}, -1);
  expect(kSharpness, 7, "C", {"r 0/0x03"}, read, {kSharpnessAt, 7}, -1);
  expect(kSharpness, -1, "C", {"r 0/0x03"}, read, {kSharpnessAt, -1}, -1);
  // Refused behind a readable record.
  expect(kColor, 1, "R", {}, "", {kColorAt, 0}, -1);
  expect(kColor, 4, "R", {}, "", {kColorAt, 0}, -1);
  expect(kRGain, 256, "NRD", {}, "", {kRGainAt, 1}, -1);
  expect(kRGain, -1, "NRD", {}, "", {kRGainAt, 1}, -1);
  expect(kBGain, 256, "NRD", {}, "", {kBGainAt, 2}, -1);
  // Refused by the setter only.
  expect(kGamma, 7, "C", {}, "", {}, 0, "dspset: [ERROR] invalid value! 7\n");
  expect(kGamma, -1, "C", {}, "", {}, 0, "dspset: [ERROR] invalid value! -1\n");
  expect(kBlComp, 3, "C", {}, "", {kBlCompAt, 3}, 0, "dspset: [ERROR] invalid value! 3\n");
  for (const int mode : {-1, 0, 4, 10, 20, 22, 63, 66}) expect(kWbMode, mode, "CNRD", {}, "", {kMode, 5}, -1);
}

TEST_F(PictureHandlersTest, CompensationIsOffsetAndCompanion) {
  start();
  camera.set_reg(11, 0x04, 0xff);
  expect(kBlComp, 4, "C", merge("11/0x04=0xfa"), kWritten, {kBlCompAt, 4});
  expect(kBlComp, 2, "C", merge("11/0x04=0xf9"), kWritten, {kBlCompAt, 2});
  expect(kBlComp, 0, "C", merge("11/0x04=0xf8"), kWritten, {kBlCompAt, 0});

  const Lines values = {"f7", "f8", "f9", "fa", "fb", "fc", "fd", "fe", "ff", "00",
                        "01", "02", "03", "04", "05", "06", "07", "08", "09"};
  const std::string head = kWritten + "dspset: read result:\ndspset: write result:\n";
  for (std::size_t i = 0; i < values.size(); ++i) {
    const Lines companion = merge(i < 16 ? "11/0x0c=0x55 11/0x0d=0x0a" : "11/0x0c=0x04 11/0x0d=0x04");
    const std::string c = i < 16 ? "0x55" : "0x4", d = i < 16 ? "0xa" : "0x4";
    expect(kExpComp, static_cast<int>(i), "", merge("11/0x03=0x" + values[i]) + companion,
           head + "dspset: \tcategory(0x0b) byte(0x0c) -> " + c + " success\n" +
               "dspset: \tcategory(0x0b) byte(0x0d) -> " + d + " success\n",
           {kExpCompAt, static_cast<int>(i)});
  }
}

TEST_F(PictureHandlersTest, ExposureCompensationWaitsForItsGate) {
  for (const int gate : {0, 1, 2, 3, 4, 5, 6, -1}) {
    start(SettingsBytes().i32(kGate, gate).i32(kExpCompAt, 9));
    camera.clear_traffic();
    EXPECT_EQ(0, request(kExpComp, 0)) << gate;
    EXPECT_EQ(0, snapshot_field(kExpCompAt)) << gate;
    const bool open = gate == 0 || gate == 3 || gate == 4 || gate == 5;
    EXPECT_EQ(open ? 4u : 0u, camera.take_traffic().size()) << gate;
    stop_control_thread();
  }
}

TEST_F(PictureHandlersTest, WhiteBalanceModesSendTheirGainsFirst) {
  start(SettingsBytes().i32(kRGainAt, 128).i32(kBGainAt, 0).u16(168, 0x0a8f).u16(170, 0x1fc2));
  camera.set_reg(12, 0x00, 0x58);
  camera.set_reg(12, 0x01, 0xa1);
  const Lines outdoor = merge("12/0x7c=0xf6 12/0x7d=0x0a 12/0x7e=0x0f 12/0x7f=0x19 12/0x00=0x5c");
  expect(kWbMode, 5, "CNRD", merge("12/0x7c=0x11 12/0x7d=0x10 12/0x7e=0x11 12/0x7f=0x10 12/0x00=0x5c"),
         set("whitebalance: indoor"), {kMode, 1});
  expect(kWbMode, 6, "CNRD", outdoor, set("whitebalance: outdoor"), {kMode, 2});
  expect(kWbMode, 7, "CNRD", merge("12/0x80=0x8f 12/0x81=0x0a 12/0x82=0xc2 12/0x83=0x1f") + merge("12/0x00=0x5d"),
         kWritten + set("whitebalance: onepush"), {kMode, 3}, 0, "Saved RGain:2703, BGain:8130\n");
  expect(kWbMode, 8, "CNRD", merge("12/0x00=0x59"), set("whitebalance: atw"), {kMode, 4});
  expect(kWbMode, 9, "CNRD",
         merge("12/0x7c=0x42 12/0x7d=0x0e") + merge("12/0x7e=0xba 12/0x7f=0x27") + merge("12/0x00=0x5c"),
         set("rgain: 128") + set("bgain: 0") + set("whitebalance: manual"), {kMode, 5});
  expect(kWbMode, 21, "CNRD", merge("12/0x00=0x58 12/0x01=0xa2"), set("whitebalance: atwpro"), {kMode, 6});
  expect(kWbMode, 64, "CNRD", outdoor, set("whitebalance: fluorescent"), {kMode, 10});
  expect(kWbMode, 65, "CNRD", merge("12/0x7c=0xff 12/0x7d=0x0d 12/0x7e=0x0c 12/0x7f=0x0c 12/0x00=0x5c"),
         set("whitebalance: mercurylampmega"), {kMode, 11});
  // Manual gains do not look at the mode.
  expect(kRGain, 255, "NRD", merge("12/0x7c=0xdc 12/0x7d=0x05"), set("rgain: 255"), {kRGainAt, 255});
  expect(kRGain, 0, "NRD", merge("12/0x7c=0xba 12/0x7d=0x27"), set("rgain: 0"), {kRGainAt, 0});
  expect(kBGain, 192, "NRD", merge("12/0x7e=0xed 12/0x7f=0x07"), set("bgain: 192"), {kBGainAt, 192});
}

TEST_F(PictureHandlersTest, ColourBringsWhiteBalanceAndSaturationBack) {
  start(SettingsBytes().i32(kMode, 1).i32(kSaturationAt, 4));
  camera.set_reg(12, 0x00, 0);
  camera.set_reg(10, 0x0a, 0x03);
  const Lines applied = merge("10/0x0a=0x02") +
                        merge("12/0x7c=0x11 12/0x7d=0x10 12/0x7e=0x11 12/0x7f=0x10 12/0x00=0x04") +
                        merge("10/0x09=0xa0");
  const std::string out = set("effect: monochrome0x0") + set("whitebalance: indoor") + set("saturation: 0xa0");
  expect(kColor, 2, "RCCNRDC", applied, out, {kColorAt, 1});
  expect(kColor, 2, "R", {}, "", {kColorAt, 1});
  expect(kColor, 3, "RC", merge("10/0x0a=0x03"), set("effect: monochrome0x1"), {kColorAt, 0});
  expect(kColor, 3, "R", {}, "", {kColorAt, 0});
  expect(kColor, 2, "RCCNRDC", applied, out, {kColorAt, 1});
}

TEST_F(PictureHandlersTest, ColourTakesTheModeFromTheStoredRecord) {
  start();
  const std::pair<int, std::string> modes[] = {{1, "indoor"}, {2, "outdoor"}, {3, "onepush"},
                                               {4, "atw"},    {5, "manual"},  {6, "atwpro"}};
  for (const auto& [mode, keyword] : modes) {
    EXPECT_EQ(0, request(kColor, 3));
    write_settings(SettingsBytes().i32(kMode, mode));
    const Output output = capture([&] { EXPECT_EQ(0, request(kColor, 2)); });
    EXPECT_NE(std::string::npos, output.out.find("set whitebalance: " + keyword + "\n")) << output.out;
    EXPECT_EQ(mode, snapshot_field(kMode));
  }
}

TEST_F(PictureHandlersTest, ColourStaysForcedWhenTheWhiteBalanceCannotFollow) {
  for (const int mode : {0, 7, 10, -1}) {
    SCOPED_TRACE(mode);
    start(SettingsBytes().i32(kMode, mode));
    const std::string calls = mode == 0 ? "RCCNRD" : "RC";  // mode 0 is refused by the mode request itself
    for (int i = 0; i < 2; ++i) {
      expect(kColor, 2, calls, merge("10/0x0a=0x00"), set("effect: monochrome0x0"), {kColorAt, 1});
    }
    // The flag is put back to what it was when the request came: from now on it stays set.
    write_settings(SettingsBytes().i32(kMode, 4));
    for (int i = 0; i < 2; ++i) {
      expect(kColor, 2, "RCCNRDC", merge("10/0x0a=0x00") + merge("12/0x00=0x01") + merge("10/0x09=0x20"),
             set("effect: monochrome0x0") + set("whitebalance: atw") + set("saturation: 0x20"), {kMode, 4});
    }
    // A new start ends it.
    stop_control_thread();
    write_settings(SettingsBytes().i32(kMode, 4).i32(kColorAt, 1));
    ASSERT_EQ(0, start_control_thread());
    expect(kColor, 2, "R", {}, "", {kColorAt, 1});
    stop_control_thread();
  }
}

TEST_F(PictureHandlersTest, AnUnreadableRecordStopsOnlyWhatNeedsIt) {
  start(SettingsBytes().i32(kMode, 3).i32(kRGainAt, 1));
  remove_settings();
  expect(kColor, 2, "R", {}, "", {kColorAt, 0});
  expect(kColor, 5, "R", {}, "", {kColorAt, 0});
  expect(kWbMode, 8, "CNRD", {}, "", {kMode, 3}, -1);
  expect(kRGain, 5, "NRD", {}, "", {kRGainAt, 1}, -1);
  expect(kBGain, 5, "NRD", {}, "", {kBGainAt, 0}, -1);
  expect(kSaturation, 3, "C", merge("10/0x09=0x80"), set("saturation: 0x80"), {kSaturationAt, 3});
}

TEST_F(PictureHandlersTest, AModeRequestHasTheLastWordAfterTheMeasurementThatItEnds) {
  start(SettingsBytes().i32(kMode, 3).u16(168, 2703).u16(170, 8130));
  const struct {
    int mode;
    int result;
    Lines traffic;
  } cases[] = {{4, -1, {}}, {8, 0, merge("12/0x00=0x01")}};  // a refused mode ends the measurement too
  for (const auto& c : cases) {
    clock->hold("usleep(100000)");
    EXPECT_EQ(0, request(kOnePushTrg));
    ASSERT_TRUE(clock->wait_until_held("usleep(100000)"));  // between two polls
    camera.clear_traffic();
    std::atomic<int> result{-1000};
    std::thread caller([&] { result = request(kWbMode, c.mode); });
    real_pause_ms(50);
    EXPECT_EQ(-1000, result.load());
    clock->release_all();
    caller.join();
    EXPECT_EQ(c.result, result.load());
    EXPECT_EQ(c.traffic, camera.take_traffic());
    EXPECT_EQ(2703, read_settings().u16(168));
  }
}

}  // namespace
}  // namespace ipcam::test
