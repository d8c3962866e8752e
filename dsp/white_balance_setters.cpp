// Setters of the white balance: mode, manual gains and the gains of preset 1.
#include <cstdio>

#include "dsp/setter.h"
#include "ipcam/camera/parameter_tables.h"

namespace ipcam::camera {

using namespace setter;

namespace {

constexpr KeywordSetting mode(std::string_view keyword, std::uint8_t value) {
  return {.keyword = keyword, .table = g_whitebalance_mode, .rows = 1, .data_size = 1, .data = {value}};
}

// A fixed light source is a pair of manual gains; the table's last row selects the manual mode with them.
constexpr KeywordSetting light_source(std::string_view keyword, std::uint16_t red, std::uint16_t blue) {
  const auto low = [](std::uint16_t gain) { return static_cast<std::uint8_t>(gain & 0xff); };
  const auto high = [](std::uint16_t gain) { return static_cast<std::uint8_t>(gain >> 8); };
  return {.keyword = keyword,
          .table = g_whitebalance_preset0,
          .rows = 5,
          .data_size = 4,
          .data = {low(red), high(red), low(blue), high(blue)}};
}

constexpr KeywordSetting kModes[] = {
    {.keyword = "atwpro", .table = g_whitebalance_atwpro, .rows = 2, .data_size = 2, .data = {0, 2}},
    mode("atw", 1),
    mode("manual", 4),
    mode("onepush", 5),  // preset 1
    mode("trgon", 1),
    light_source("indoor", 0x1011, 0x1011),
    light_source("outdoor", 0x0af6, 0x190f),
    light_source("fluorescent", 0x0af6, 0x190f),
    light_source("mercurylampmega", 0x0dff, 0x0c0c),
    light_source("mercurylampsd", 0x0cfd, 0x080f),
};

// Register gain of a manual gain level: a parabola from 10170 at level 0 to 1500 at 255. Levels above 255 are not
// refused; the 32-bit square lets the curve rise again behind its end.
std::uint16_t register_gain(unsigned int level) {
  const std::uint32_t distance = 255u - level;
  const std::uint32_t square = distance * distance;
  return static_cast<std::uint16_t>(static_cast<std::uint32_t>(square / 7.5 + 1500.0));
}

}  // namespace

int DspCommand::do_whitebalance(unsigned char* text) {
  std::printf("%s: set whitebalance: %s\n", g_prgname, printable(text));
  const KeywordSetting* setting = find_keyword(kModes, text);
  return setting != nullptr ? set_keyword(*this, *setting) : refuse_option(text);
}

int DspCommand::do_rgain(unsigned int level) {
  std::printf("%s: set rgain: %d\n", g_prgname, static_cast<int>(level));
  const std::uint16_t gain[] = {register_gain(level)};
  return set_words(*this, g_rgain, gain);
}

int DspCommand::do_bgain(unsigned int level) {
  std::printf("%s: set bgain: %d\n", g_prgname, static_cast<int>(level));
  const std::uint16_t gain[] = {register_gain(level)};
  return set_words(*this, g_bgain, gain);
}

int DspCommand::do_rbgain_preset1(unsigned short red, unsigned short blue) {
  const std::uint16_t gains[] = {red, blue};
  return set_words(*this, g_rbgain_preset1, gains);
}

}  // namespace ipcam::camera
