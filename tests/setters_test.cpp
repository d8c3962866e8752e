// Setters over the real link: register traffic, messages, refusals and what stays in the tables.
#include <algorithm>
#include <functional>
#include <map>
#include <span>
#include <sstream>
#include <thread>
#include <tuple>

#include "ipcam/camera/parameter_tables.h"
#include "tests/support/case_file.h"

namespace ipcam::camera {
namespace {

using test::Lines;
using Setter = std::function<int(DspCommand&, std::string arguments)>;

template <class Argument>
Argument next_argument(std::istream& arguments) {
  if constexpr (std::is_same_v<Argument, s_ae_ptn>) {
    s_ae_ptn pattern{};
    arguments >> pattern.mode >> pattern.shutter >> pattern.gain >> pattern.max_frm_exp;
    return pattern;
  } else {
    Argument argument{};
    arguments >> argument;
    return argument;
  }
}

template <class... Arguments>
Setter setter(int (DspCommand::*operation)(Arguments...)) {
  return [operation](DspCommand& dsp, const std::string& text) {
    std::istringstream in(text);
    const std::tuple<Arguments...> arguments{next_argument<Arguments>(in)...};
    return std::apply([&](auto... values) { return (dsp.*operation)(values...); }, arguments);
  };
}

// A text stands between quotation marks; anything else is a null pointer.
Setter setter(int (DspCommand::*operation)(unsigned char*)) {
  return [operation](DspCommand& dsp, std::string text) {
    if (text[0] != '"') return (dsp.*operation)(nullptr);
    text.back() = '\0';
    return (dsp.*operation)(reinterpret_cast<unsigned char*>(&text[1]));
  };
}

#define SETTER(name) \
  { #name, setter(&DspCommand::do_##name) }
const std::map<std::string, Setter> kSetters = {
    SETTER(saturation), SETTER(contrast),     SETTER(sharpness),    SETTER(brightness),     SETTER(hue),
    SETTER(colorbar),   SETTER(effect),       SETTER(gamma),        SETTER(ygamma),         SETTER(cgamma),
    SETTER(rgain),      SETTER(bgain),        SETTER(whitebalance), SETTER(rbgain_preset1), SETTER(blcomp),
    SETTER(expcomp),    SETTER(aereference),  SETTER(expmode),      SETTER(shutter_gain),   SETTER(max_frm_exp),
    SETTER(shutter),    SETTER(gain),         SETTER(flickerless),  SETTER(autoexposure),   SETTER(autoslowshutter),
    SETTER(agc),        SETTER(agc_max_gain), SETTER(miris_mode),   SETTER(iris_modifier),  SETTER(binning),
    SETTER(sensormode), SETTER(dnmode),       SETTER(dnlevel)};
#undef SETTER

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

  // Calls "saturation "1"" and the like.
  int call(const std::string& action) {
    const std::size_t space = action.find(' ');
    return kSetters.at(action.substr(0, space))(dsp, action.substr(space + 1));
  }

  const std::vector<std::uint8_t> loaded = table_data();
  DspCommand dsp;
};

class SettersFileTest : public SettersTest, public ::testing::WithParamInterface<test::Section> {};

INSTANTIATE_TEST_SUITE_P(Setters, SettersFileTest, ::testing::ValuesIn(test::read_cases("setters.txt")),
                         test::section_name);

TEST_P(SettersFileTest, SendOrRefuse) {
  for (const test::Case& c : GetParam().cases) {
    const std::vector<std::uint8_t> tables = table_data();
    camera.clear_traffic();
    int result = 1000;
    const test::Output output = test::capture([&] { result = call(c.action); });
    EXPECT_EQ(c.expected, test::outcome(camera.traffic(), output, result)) << c.line_number << ": " << c.action;
    EXPECT_TRUE(result == 0 || table_data() == tables) << "changed by a refusal: " << c.action;
  }
}

TEST_F(SettersTest, FollowTheGainCurve) {
  for (unsigned int level = 0; level <= 255; ++level) {
    ASSERT_EQ(dsp.do_rgain(level), 0);
    const unsigned int gain = 1500 + 2 * (255 - level) * (255 - level) / 15;
    EXPECT_EQ(camera.reg(12, 0x7c) + 256u * camera.reg(12, 0x7d), gain) << level;
  }
}

TEST_F(SettersTest, StopAtTheFirstSendThatFails) {
  struct Failing {
    std::string action;
    std::uint32_t exchange;  // the one that fails, and the last
  };
  const Failing cases[] = {{"saturation \"1\"", 0},     {"saturation \"1\"", 1},     {"cgamma \"e1\"", 0},
                           {"autoslowshutter 1", 0},    {"agc_max_gain 1", 0},       {"agc_max_gain 1", 2},
                           {"shutter_gain 0 1 1 0", 0}, {"shutter_gain 1 1 1 0", 0}, {"shutter_gain 1 1 1 0", 2},
                           {"shutter_gain 2 1 1 0", 4}, {"shutter_gain 3 1 1 0", 0}, {"shutter_gain 3 1 1 0", 2},
                           {"iris_modifier 1 1 1 1", 2}};
  for (const Failing& failing : cases) {
    SCOPED_TRACE(failing.action);
    camera.clear_traffic();
    camera.fault(sim::Fault::reply_255, {.exchange = failing.exchange});
    EXPECT_EQ(call(failing.action), -1);
    EXPECT_EQ(camera.traffic().size(), failing.exchange + 1);
  }
  // What follows the tables of a pattern is not part of its result, and of two iris tables the second counts.
  camera.fault(sim::Fault::reply_255, {.exchange = 2, .count = 2});
  EXPECT_EQ(call("shutter_gain 0 1 1 0"), 0);
  camera.fault(sim::Fault::reply_255);
  EXPECT_EQ(call("iris_modifier 1 1 1 1"), 0);
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
