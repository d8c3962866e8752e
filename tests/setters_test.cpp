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

class SettersTest : public test::CaseTest {
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

  const std::vector<std::uint8_t> loaded = table_data();
  DspCommand dsp;
};

class SettersFileTest : public SettersTest, public ::testing::WithParamInterface<test::Section> {};

INSTANTIATE_TEST_SUITE_P(Setters, SettersFileTest, ::testing::ValuesIn(test::read_cases("setters.txt")),
                         test::section_name);

TEST_P(SettersFileTest, SendOrRefuse) {
  for (const test::Case& c : GetParam().cases) {
    const std::size_t space = c.action.find(' ');
    const auto setter = kSetters.find(c.action.substr(0, space));
    if (setter == kSetters.end()) {
      prepare(c.action);
      continue;
    }
    const std::vector<std::uint8_t> tables = table_data();
    camera.clear_traffic();
    int result = 1000;
    const test::Output output = test::capture([&] { result = setter->second(dsp, c.action.substr(space + 1)); });
    EXPECT_EQ(c.expected, test::outcome(camera.traffic(), output, result)) << c.line_number << ": " << c.action;
    const bool is_refused = result != 0 && output.err.find("communication") == std::string::npos;
    EXPECT_TRUE(!is_refused || table_data() == tables) << "changed by a refusal: " << c.action;
  }
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
