// Setters of the white balance: mode, manual gains and the gains of preset 1.
#include <cstdio>
#include <iterator>

#include "dsp/setter.h"
#include "ipcam/camera/parameter_tables.h"
#include "registers/white_balance_modes.h"

namespace ipcam::camera {

using namespace setter;
using registers::WhiteBalanceMode;

namespace {

// The longest keyword that the text begins with, since "atw" begins
// "atwpro" too; null when there is none.
const WhiteBalanceMode* find_keyword_mode(const unsigned char* text) {
  const WhiteBalanceMode* found = nullptr;
  for (const WhiteBalanceMode& mode : registers::kWhiteBalanceModes) {
    if (!starts_with(text, mode.keyword)) continue;
    if (found == nullptr || mode.keyword.size() > found->keyword.size()) found = &mode;
  }
  return found;
}

int send_mode(DspCommand& dsp, const WhiteBalanceMode& mode) {
  if (mode.wb_mode == registers::kWbAtwpro) {
    const std::uint8_t bytes[] = {mode.wb_mode, 2};
    return set_bytes(dsp, g_whitebalance_atwpro, bytes, std::size(bytes));
  }
  if (mode.red_gain == 0) return set_byte(dsp, g_whitebalance_mode, mode.wb_mode);

  // A fixed light source is a pair of manual gains; the table's last
  // row selects the manual mode with them.
  const std::uint16_t gains[] = {mode.red_gain, mode.blue_gain};
  const LockGuard lock(g_table_lock);
  fill_rows(g_whitebalance_preset0, gains);
  return send_rows(dsp, g_whitebalance_preset0, std::size(g_whitebalance_preset0));
}

// Register gain of a manual gain level: a parabola from 10170 at level 0 to 1500 at 255. Levels
// above 255 are not refused; the 32-bit square lets the curve rise again behind its end.
std::uint16_t register_gain(unsigned int level) {
  const std::uint32_t distance = 255u - level;
  const std::uint32_t square = distance * distance;
  return static_cast<std::uint16_t>(static_cast<std::uint32_t>(square / 7.5 + 1500.0));
}

}  // namespace

int DspCommand::do_whitebalance(unsigned char* text) {
  std::printf("%s: set whitebalance: %s\n", g_prgname, printable(text));
  const WhiteBalanceMode* mode = find_keyword_mode(text);
  return mode != nullptr ? send_mode(*this, *mode) : refuse_option(text);
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
