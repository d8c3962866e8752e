// Setters over the real link: register traffic, messages, refusals and what stays in the tables.
#include <algorithm>
#include <functional>
#include <span>
#include <thread>

#include "ipcam/camera/parameter_tables.h"
#include "tests/support/camera_fixture.h"

namespace ipcam::camera {
namespace {

using test::Lines;
using Call = std::function<int(DspCommand&)>;

constexpr char kInvalidValue[] = "invalid value! ";
constexpr char kInvalidOption[] = "invalid option! ";

template <class Argument>
Call with(int (DspCommand::*setter)(Argument), Argument argument) {
  return [=](DspCommand& dsp) { return (dsp.*setter)(argument); };
}

Call with(int (DspCommand::*setter)(unsigned char*), const char* text) {
  return with(setter, reinterpret_cast<unsigned char*>(const_cast<char*>(text)));
}

Call pattern(int mode, int shutter, int gain, int max_frm_exp = 0) {
  return with(&DspCommand::do_shutter_gain, s_ae_ptn{shutter, gain, mode, max_frm_exp});
}

// A call, and what it writes, or why it is refused.
struct Case {
  Call call;
  Lines writes;
  std::string error = {};
  std::string progress = {};
};

// Calls of one setter: the beginning of its progress line, and for each argument the one write or the message.
template <class Argument, class Value>
struct Calls {
  int (DspCommand::*setter)(Argument);
  std::string progress;
  std::vector<std::pair<Value, std::string>> calls;
};

std::string printed(const char* text) { return text != nullptr ? text : "(null)"; }
std::string printed(int value) { return std::to_string(value); }

// Every write under masks is preceded by a read of the same registers.
Lines with_reads(const Lines& writes) {
  Lines traffic;
  for (const std::string& write : writes) {
    if (write[0] == 'w') {
      std::string read = "r" + write.substr(1);
      for (auto value = read.find('='); value != std::string::npos; value = read.find('=')) read.erase(value, 5);
      traffic.push_back(read);
    }
    traffic.push_back(write);
  }
  return traffic;
}

// Every table that a setter fills.
// clang-format off
const std::span<param_info> kTables[] = {
    g_saturation, g_sharpness, g_contrast, g_brightness, g_hue, g_effect_mono, g_effect_nega, g_colorbar, g_gamma,
    g_ygamma, g_cgamma, g_whitebalance_mode, g_whitebalance_atwpro, g_whitebalance_preset0, g_rgain, g_bgain,
    g_rbgain_preset1, g_blcomp, g_expcomp, g_aereference, g_expmode, g_ae_auto, g_ae_manual, g_ae_preset0,
    g_shutter, g_gain, g_max_frm_exp, g_flickerless, g_auto_slowshutter, g_ae_normal, g_ae_slow, g_agc,
    g_agc_max_gain, g_miris_mode, g_iris_modifier, g_miris_scl, g_binning, g_sensormode, g_dnlevel};
// clang-format on

std::vector<std::uint8_t> table_data() {
  std::vector<std::uint8_t> data;
  for (const auto& table : kTables) {
    for (const param_info& row : table) data.push_back(row.data);
  }
  return data;
}

class SettersTest : public test::CameraTest {
 protected:
  // Registers of which the setters change only some bits.
  SettersTest() {
    const std::pair<std::uint32_t, std::uint32_t> masked[] = {{0, 0x03}, {10, 0x0a}, {11, 0x01}, {11, 0x04},
                                                              {12, 0},   {12, 1},    {13, 1}};
    for (const auto& [category, byte] : masked) camera.set_reg(category, byte, 0xff);
  }

  // Tables outlive a test: they go back to what the library was loaded with.
  ~SettersTest() override {
    auto data = loaded.begin();
    for (const auto& table : kTables) {
      for (param_info& row : table) row.data = *data++;
    }
  }

  void check(std::span<const Case> cases) {
    for (const Case& expected : cases) {
      SCOPED_TRACE(expected.progress + expected.error + ::testing::PrintToString(expected.writes));
      const bool refused = !expected.error.empty();
      const std::vector<std::uint8_t> tables = table_data();
      std::string out = expected.progress.empty() ? "" : "dspset: " + expected.progress + "\n";
      for (std::size_t i = 0; i < expected.writes.size(); ++i) out += "dspset: write success!\n\n";

      camera.clear_traffic();
      int result = 1000;
      const test::Output output = test::capture([&] { result = expected.call(dsp); });
      EXPECT_EQ(result, refused ? -1 : 0);
      EXPECT_EQ(camera.traffic(), with_reads(expected.writes));
      EXPECT_EQ(output.out, out);
      EXPECT_EQ(output.err, refused ? "dspset: [ERROR] " + expected.error + "\n" : "");
      EXPECT_TRUE(!refused || table_data() == tables);
    }
  }

  template <class Argument, class Value>
  void check(const std::vector<Calls<Argument, Value>>& setters) {
    for (const auto& [setter, progress, calls] : setters) {
      for (const auto& [value, expected] : calls) {
        const bool accepted = expected[0] == 'w';
        const Case one = {with(setter, value), accepted ? Lines{expected} : Lines{},
                          accepted ? "" : expected + printed(value), progress.empty() ? "" : progress + printed(value)};
        check({&one, 1});
      }
    }
  }

  const std::vector<std::uint8_t> loaded = table_data();
  DspCommand dsp;
};

TEST_F(SettersTest, TakeNumberTextsWithinTheirRange) {
  // clang-format off
  check<unsigned char*, const char*>({
      // The long ones are small numbers to a parser that wraps round at 32 or 64 bits.
      {&DspCommand::do_saturation, "set saturation: ", {
          {"0", "w 10/0x09=0x00"}, {"255", "w 10/0x09=0xff"}, {"010", "w 10/0x09=0x08"}, {"0XfE", "w 10/0x09=0xfe"},
          {" \t+12", "w 10/0x09=0x0c"}, {"-0", "w 10/0x09=0x00"}, {"256", kInvalidValue}, {"-1", kInvalidValue},
          {"0x1ff", kInvalidValue}, {"", kInvalidValue}, {" ", kInvalidValue}, {"-", kInvalidValue},
          {"0x", kInvalidValue}, {"0xg", kInvalidValue}, {"08", kInvalidValue}, {"0b1", kInvalidValue},
          {"1 ", kInvalidValue}, {"12abc", kInvalidValue}, {"--1", kInvalidValue}, {"1.5", kInvalidValue},
          {"4294967296", kInvalidValue}, {"-4294967295", kInvalidValue}, {"0x100000001", kInvalidValue},
          {"18446744073709551617", kInvalidValue}, {"-18446744073709551615", kInvalidValue}}},
      {&DspCommand::do_contrast, "set contrast: ", {{"255", "w 10/0x06=0xff"}, {"256", kInvalidValue}}},
      {&DspCommand::do_sharpness, "set sharpness: ", {{"255", "w 10/0x07=0xff"}, {"256", kInvalidValue}}},
      {&DspCommand::do_brightness, "set brightness: ", {{"255", "w 10/0x05=0xff"}, {"256", kInvalidValue}}},
      {&DspCommand::do_hue, "set hue: ", {
          {"-128", "w 10/0x08=0x80"}, {"127", "w 10/0x08=0x7f"}, {"-129", kInvalidValue}, {"128", kInvalidValue},
          {nullptr, kInvalidValue}}},
      {&DspCommand::do_colorbar, "set colorbar: ", {{"0x01", "w 10/0x0b=0x01"}, {"2", kInvalidValue}}},
      {&DspCommand::do_expcomp, "", {{"0xf7", "w 11/0x03=0xf7"}, {"255", "w 11/0x03=0xff"}, {"0x100", kInvalidValue}}},
      {&DspCommand::do_aereference, "set aereference: ", {
          {"-9", "w 10/0x02=0xf7"}, {"9", "w 10/0x02=0x09"}, {"-10", kInvalidValue}, {"10", kInvalidValue}}},
  });
  // clang-format on
}

TEST_F(SettersTest, TakeTheFirstKeywordThatBeginsTheText) {
  // clang-format off
  check<unsigned char*, const char*>({
      {&DspCommand::do_whitebalance, "set whitebalance: ", {
          {"atwprox", "w 12/0x00=0xf8 12/0x01=0xfe"}, {"atwpr", "w 12/0x00=0xf9"}, {"manual", "w 12/0x00=0xfc"},
          {"onepush", "w 12/0x00=0xfd"}, {"trgon", "w 12/0x00=0xf9"},
          {"indoor", "w 12/0x7c=0x11 12/0x7d=0x10 12/0x7e=0x11 12/0x7f=0x10 12/0x00=0xfc"},
          {"outdoor", "w 12/0x7c=0xf6 12/0x7d=0x0a 12/0x7e=0x0f 12/0x7f=0x19 12/0x00=0xfc"},
          {"fluorescent", "w 12/0x7c=0xf6 12/0x7d=0x0a 12/0x7e=0x0f 12/0x7f=0x19 12/0x00=0xfc"},
          {"mercurylampmega", "w 12/0x7c=0xff 12/0x7d=0x0d 12/0x7e=0x0c 12/0x7f=0x0c 12/0x00=0xfc"},
          {"mercurylampsd", "w 12/0x7c=0xfd 12/0x7d=0x0c 12/0x7e=0x0f 12/0x7f=0x08 12/0x00=0xfc"},
          {"at", kInvalidOption}, {"Indoor", kInvalidOption}, {nullptr, kInvalidOption}}},
      {&DspCommand::do_effect, "set effect: ", {
          {"monochrome0x1", "w 10/0x0a=0xff"}, {"negative1", "w 10/0x0a=0xff"}, {"monochrome0", "w 10/0x0a=0xfe"},
          {"negative0", "w 10/0x0a=0xfc"}, {"monochrome", kInvalidValue}, {"negative2", kInvalidValue},
          {"sepia1", kInvalidOption}}},
      {&DspCommand::do_agc, "", {
          {"only", "w 13/0x01=0xf9"}, {"offset", "w 13/0x01=0xf8"}, {"o", kInvalidOption}, {nullptr, kInvalidOption}}},
      {&DspCommand::do_sensormode, "set sensor mode: ", {
          {"vga", "w 0/0x03=0x01"}, {"quadvga2", "w 0/0x03=0x00"}, {"qvga", kInvalidOption}}},
      {&DspCommand::do_dnmode, "set dnmode: ", {
          {"on", "w 16/0x1a=0x00 16/0x1b=0x00 16/0x1c=0x00 16/0x1d=0x00"},
          {"disabled", "w 16/0x1a=0xff 16/0x1b=0xff 16/0x1c=0xff 16/0x1d=0xff"}}},
      {&DspCommand::do_dnlevel, "set dnlevel: ", {
          {"low", "w 16/0x1a=0x00 16/0x1b=0x05 16/0x1c=0xff 16/0x1d=0xff"},
          {"highest", "w 16/0x1a=0x00 16/0x1b=0x09 16/0x1c=0xff 16/0x1d=0xff"}, {"hig", kInvalidValue}}},
      {&DspCommand::do_dnmode, "set dnmode: ", {
          {"auto", "w 16/0x1a=0x00 16/0x1b=0x08 16/0x1c=0x00 16/0x1d=0x09"},
          {"offline", "w 16/0x1a=0xff 16/0x1b=0xff 16/0x1c=0xff 16/0x1d=0xff"}, {"night", kInvalidValue}}},
      {&DspCommand::do_autoexposure, "set autoexposure: ", {
          {"automatic", "w 11/0x00=0x00"}, {"manual0x1234", "w 11/0x00=0x03 11/0x07=0x12 11/0x62=0x34 11/0x63=0x00"},
          {"manual65535", "w 11/0x00=0x03 11/0x07=0xff 11/0x62=0xff 11/0x63=0x00"},
          {"manual", "w 11/0x00=0x03 11/0x07=0x00 11/0x62=0x00 11/0x63=0x00"}, {"manual65536", kInvalidValue},
          {"manual-1", kInvalidValue}, {"manual1 ", kInvalidValue}, {"man", kInvalidOption}}},
  });
  // clang-format on
  EXPECT_EQ(g_effect_mono[0].data, 0xfe) << "the whole register, as it was written";
  EXPECT_EQ(g_whitebalance_preset0[4].data, 0xfc);
}

TEST_F(SettersTest, TakeIntegersWithinTheirRange) {
  // clang-format off
  check<int, int>({
      {&DspCommand::do_gamma, "", {
          {0, "w 16/0x06=0x00"}, {6, "w 16/0x06=0x06"}, {7, kInvalidValue}, {-1, kInvalidValue}}},
      {&DspCommand::do_blcomp, "", {
          {2, "w 11/0x04=0xf9"}, {4, "w 11/0x04=0xfa"}, {0, "w 11/0x04=0xf8"}, {1, kInvalidValue}, {6, kInvalidValue},
          {-4, kInvalidValue}}},
      {&DspCommand::do_expmode, "", {
          {0, "w 11/0x00=0x00"}, {1, "w 11/0x00=0x01"}, {2, "w 11/0x00=0x03"}, {3, "w 11/0x00=0x04"},
          {4, "invalid AE mode! "}, {-1, "invalid AE mode! "}}},
      {&DspCommand::do_max_frm_exp, "", {
          {0, "w 11/0x0e=0x1e 11/0x0f=0x1e"}, {4, "w 11/0x0e=0x02 11/0x0f=0x02"}, {22, "w 11/0x0e=0x16 11/0x0f=0x16"},
          {5, kInvalidValue}, {-1, kInvalidValue}}},
      {&DspCommand::do_gain, "", {
          {0, "w 11/0x6a=0x00 11/0x6b=0x00"}, {6, "w 11/0x6a=0xeb 11/0x6b=0x17"}, {7, kInvalidValue},
          {-1, kInvalidValue}}},
      {&DspCommand::do_flickerless, "set flickerless: ", {
          {0, "w 11/0x01=0xf8"}, {5, "w 11/0x01=0xfd"}, {6, kInvalidValue}, {-1, kInvalidValue}}},
      {&DspCommand::do_agc_max_gain, "", {{14, kInvalidValue}, {-1, kInvalidValue}}},
  });
  // clang-format on
  const Case cases[] = {
      {with(&DspCommand::do_shutter, 10000u), {"w 11/0x00=0x04 11/0x68=0x10 11/0x69=0x27"}},
      {with(&DspCommand::do_shutter, 10001u), {}, "invalid value! 10001"},
      {with(&DspCommand::do_shutter, 0xffffffffu), {}, "invalid value! -1"},
      {with(&DspCommand::do_autoslowshutter, true), {"w 11/0x00=0x01"}},
      {with(&DspCommand::do_autoslowshutter, false), {}},
      {with(&DspCommand::do_miris_mode, true), {"w 11/0x05=0x55 11/0x06=0x55"}},
      {with(&DspCommand::do_miris_mode, false), {"w 11/0x05=0x00 11/0x06=0x00"}},
      {with(&DspCommand::do_binning, true), {"w 0/0x03=0xff"}, "", "set binning: 1"},
      {with(&DspCommand::do_binning, false), {"w 0/0x03=0xfe"}, "", "set binning: 0"},
      {with(&DspCommand::do_agc_max_gain, 13),
       {"w 11/0x1a=0x00 11/0x1b=0x00 13/0x04=0x93 13/0x05=0x1a 11/0x32=0x00 11/0x33=0x00 13/0x06=0x93 13/0x07=0x1a",
        "w 11/0x22=0xfa 11/0x23=0x06 11/0x26=0x00 11/0x27=0x00 13/0x04=0x93 13/0x05=0x1a 11/0x3a=0xfc 11/0x3b=0x03 "
        "11/0x3e=0x00 11/0x3f=0x00 13/0x06=0x93 13/0x07=0x1a"}},
      {[](DspCommand& d) { return d.do_rbgain_preset1(0x0a8f, 0x1fc2); },
       {"w 12/0x80=0x8f 12/0x81=0x0a 12/0x82=0xc2 12/0x83=0x1f"}},
  };
  check(cases);
}

TEST_F(SettersTest, LoadGammaCurvesAsOneBlock) {
  std::string flat = "b 92/0x10=0x00 0xf9";
  for (int pair = 1; pair < 34; ++pair) flat += " 0x01 0x08";
  const Case cases[] = {
      {with(&DspCommand::do_ygamma, "e3"),
       {"b 91/0x06=0x21 0x69 0x98 0xc1 0xe3 0xdb 0xd3 0xcb 0xc3 0xbb"},
       "",
       "set ygamma: e3"},
      {with(&DspCommand::do_ygamma, "c7"),
       {"b 91/0x06=0x01 0x80 0xa6 0xaa 0xb1 0xb0 0xb2 0xb2 0xb4 0xb3"},
       "",
       "set ygamma: c7"},
      {with(&DspCommand::do_cgamma, "c0"), {flat}, "", "set ygamma: c0"},
      {with(&DspCommand::do_ygamma, "e8"), {}, "argument 'e8' no available!", "set ygamma: e8"},
      {with(&DspCommand::do_ygamma, "x1"), {}, "argument 'x1' no available!", "set ygamma: x1"},
      {with(&DspCommand::do_cgamma, "c-1"), {}, "argument 'c-1' no available!", "set ygamma: c-1"},
      {with(&DspCommand::do_cgamma, "e"), {}, "argument 'e' no available!", "set ygamma: e"},
      {with(&DspCommand::do_cgamma, ""), {}, "argument '' no available!", "set ygamma: "},
      {with(&DspCommand::do_ygamma, nullptr), {}, "argument '(null)' no available!", "set ygamma: (null)"},
  };
  check(cases);
  EXPECT_EQ(with(&DspCommand::do_cgamma, "e7")(dsp), 0);
  EXPECT_EQ(camera.reg(92, 0x11), 0x86);
  EXPECT_EQ(camera.reg(92, 0x53), 0x30);
}

TEST_F(SettersTest, SendTheTablesOfAnExposurePattern) {
  const std::string slow_gain_13 =
      "w 11/0x22=0xfa 11/0x23=0x06 11/0x26=0x00 11/0x27=0x00 13/0x04=0x93 13/0x05=0x1a 11/0x3a=0xfc 11/0x3b=0x03 "
      "11/0x3e=0x00 11/0x3f=0x00 13/0x06=0x93 13/0x07=0x1a";
  const Case cases[] = {
      {pattern(0, 20, 13, 0),
       {"w 11/0x14=0x00 11/0x15=0x00 13/0x00=0x80 13/0x01=0x04 11/0x2c=0x00 11/0x2d=0x00 13/0x02=0x00 13/0x03=0x00 "
        "11/0x1a=0x00 11/0x1b=0x00 13/0x04=0x93 13/0x05=0x1a 11/0x32=0x00 11/0x33=0x00 13/0x06=0x93 13/0x07=0x1a",
        "w 11/0x00=0x00", "w 11/0x0e=0x1e 11/0x0f=0x1e"}},
      {pattern(1, 9, 13, 4),
       {"w 11/0x20=0x02 11/0x21=0x26 11/0x24=0x04 11/0x25=0x2a 13/0x00=0x80 13/0x01=0x04 11/0x38=0x63 11/0x39=0x20 "
        "11/0x3c=0x66 11/0x3d=0x24 13/0x02=0x00 13/0x03=0x00",
        slow_gain_13, "w 11/0x00=0x01", "w 11/0x0e=0x02 11/0x0f=0x02"}},
      // The gain rows of the slow table are those of the last slow pattern.
      {pattern(2, 14, 1, 0),
       {"w 11/0x20=0x00 11/0x21=0x00 11/0x24=0x00 11/0x25=0x00 13/0x00=0x06 13/0x01=0x2a 11/0x38=0x00 11/0x39=0x00 "
        "11/0x3c=0x00 11/0x3d=0x00 13/0x02=0x68 13/0x03=0x24",
        slow_gain_13, "w 11/0x00=0x03 11/0x07=0x01 11/0x62=0xfc 11/0x63=0x03", "w 11/0x00=0x03",
        "w 11/0x0e=0x1e 11/0x0f=0x1e"}},
      {pattern(3, 4, 6, 22),
       {"w 11/0x00=0x04 11/0x68=0x9a 11/0x69=0x02", "w 11/0x00=0x04 11/0x6a=0xeb 11/0x6b=0x17", "w 11/0x00=0x04",
        "w 11/0x0e=0x16 11/0x0f=0x16"}},
      {pattern(0, 21, 0), {}, "invalid value! Shutter:21"},
      {pattern(0, -1, 0), {}, "invalid value! Shutter:-1"},
      {pattern(1, 15, 0), {}, "invalid value! Shutter:15"},
      {pattern(2, 15, 0), {}, "invalid value! Shutter:15"},
      {pattern(3, 5, 0), {}, "invalid value! Shutter:5"},
      {pattern(0, 1, 14), {}, "invalid value! Shutter:1"},
      {pattern(1, 2, -1), {}, "invalid value! Shutter:2"},
      {pattern(2, 3, 7), {}, "invalid value! Shutter:3"},
      {pattern(3, 4, 7), {}, "invalid value! Shutter:4"},
      {pattern(4, 99, 14), {}, "invalid value! Shutter:99"},
  };
  check(cases);

  // A mode without tables shows only on standard error.
  int result = -1;
  const test::Output output = test::capture([&] { result = pattern(4, 99, 13, 5)(dsp); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(output.err, "dspset: [ERROR] invalid AE mode! 4\ndspset: [ERROR] invalid value! 5\n");
}

TEST_F(SettersTest, FollowTheGainCurve) {
  for (unsigned int level = 0; level <= 255; ++level) {
    ASSERT_EQ(dsp.do_rgain(level), 0);
    const unsigned int gain = 1500 + 2 * (255 - level) * (255 - level) / 15;
    EXPECT_EQ(camera.reg(12, 0x7c) + 256u * camera.reg(12, 0x7d), gain) << level;
  }
  const Case cases[] = {
      {with(&DspCommand::do_rgain, 0u), {"w 12/0x7c=0xba 12/0x7d=0x27"}, "", "set rgain: 0"},
      {with(&DspCommand::do_bgain, 128u), {"w 12/0x7e=0x42 12/0x7f=0x0e"}, "", "set bgain: 128"},
      {with(&DspCommand::do_rgain, 256u), {"w 12/0x7c=0xdc 12/0x7d=0x05"}, "", "set rgain: 256"},
      {with(&DspCommand::do_bgain, 300u), {"w 12/0x7e=0xea 12/0x7f=0x06"}, "", "set bgain: 300"},
      {with(&DspCommand::do_rgain, 0x8000u), {"w 12/0x7c=0x42 12/0x7d=0xb0"}, "", "set rgain: 32768"},
      {with(&DspCommand::do_rgain, 0xffffffffu), {"w 12/0x7c=0xfe 12/0x7d=0x27"}, "", "set rgain: -1"},
  };
  check(cases);
}

TEST_F(SettersTest, SendTheIrisTablesAsStoredWhateverTheArguments) {
  const Call call = [](DspCommand& d) { return d.do_iris_modifier(12, -3, 77, true); };
  const test::Output output = test::capture([&] { call(dsp); });
  EXPECT_EQ(output.err, "IrisModifier shutter:12 exp:-3 lf:1\n");
  EXPECT_EQ(
      camera.take_traffic(),
      with_reads({"w 11/0x9e=0x01 11/0x9f=0x02 11/0xa0=0x04 11/0xa1=0x05 11/0xa2=0x07 11/0xa3=0x0a 11/0xa4=0x0d",
                  "w 11/0x97=0x00 11/0x98=0x00 11/0x99=0x00 11/0x9a=0x00 11/0x9b=0x00 11/0x9c=0x00 11/0x9d=0x00"}));
  camera.fault(sim::Fault::reply_255);
  EXPECT_EQ(call(dsp), 0) << "the result is that of the second table";
  camera.fault(sim::Fault::reply_255, {.exchange = 2});
  EXPECT_EQ(call(dsp), -1);
}

TEST_F(SettersTest, StopAtTheFirstSendThatFails) {
  struct Failing {
    Call call;
    std::uint32_t exchange;  // the one that fails, and the last
  };
  const Failing cases[] = {
      {with(&DspCommand::do_saturation, "1"), 0},
      {with(&DspCommand::do_saturation, "1"), 1},
      {with(&DspCommand::do_cgamma, "e1"), 0},
      {with(&DspCommand::do_autoslowshutter, true), 0},
      {with(&DspCommand::do_agc_max_gain, 1), 0},
      {with(&DspCommand::do_agc_max_gain, 1), 2},
      {pattern(0, 1, 1), 0},
      {pattern(1, 1, 1), 0},
      {pattern(1, 1, 1), 2},
      {pattern(2, 1, 1), 4},
      {pattern(3, 1, 1), 0},
      {pattern(3, 1, 1), 2},
  };
  for (const Failing& failing : cases) {
    camera.clear_traffic();
    camera.fault(sim::Fault::reply_255, {.exchange = failing.exchange});
    EXPECT_EQ(failing.call(dsp), -1);
    EXPECT_EQ(camera.traffic().size(), failing.exchange + 1);
  }
  // What follows the tables of a pattern is not part of its result.
  camera.fault(sim::Fault::reply_255, {.exchange = 2, .count = 2});
  EXPECT_EQ(pattern(0, 1, 1)(dsp), 0);
}

TEST_F(SettersTest, OfTwoThreadsDoNotMixTheirBytesInOneTable) {
  constexpr int kRounds = 200;
  const auto repeat = [this](unsigned int level) {
    for (int i = 0; i < kRounds; ++i) EXPECT_EQ(dsp.do_rgain(level), 0);
  };
  camera.clear_traffic();
  std::thread low(repeat, 0u);
  std::thread high(repeat, 255u);
  low.join();
  high.join();
  const Lines traffic = camera.traffic();
  EXPECT_EQ(std::ranges::count(traffic, "w 12/0x7c=0xba 12/0x7d=0x27"), kRounds);
  EXPECT_EQ(std::ranges::count(traffic, "w 12/0x7c=0xdc 12/0x7d=0x05"), kRounds);
}

}  // namespace
}  // namespace ipcam::camera
