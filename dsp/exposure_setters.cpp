// Setters of exposure, gain limits, iris, sensor readout and day/night levels.
#include <cstdio>
#include <iterator>
#include <limits>

#include "dsp/cancellation.h"
#include "dsp/exposure_patterns.h"
#include "dsp/setter.h"
#include "ipcam/camera/parameter_tables.h"
#include "registers/register_values.h"

namespace ipcam::camera {

using namespace setter;

namespace {

// Halves of the tables that take a shutter row and a gain row, in values of 16 bits and in rows.
constexpr std::size_t kNormalWords = std::size(ae_normal_tbl[0]);
constexpr int kNormalHalf = 2 * int{kNormalWords};
constexpr int kSlowHalf = 2 * int{std::size(ae_slow_tbl[0])};
static_assert(std::size(g_ae_normal) == 4 * kNormalWords &&
              std::size(g_ae_slow) == 4 * std::size(ae_slow_tbl[0]));

constexpr std::uint8_t kIrisHeldOpen = 0x55;

// Greatest table rows of an exposure pattern, by its mode.
struct PatternLimits {
  std::uint32_t shutter;
  std::uint32_t gain;
};
constexpr PatternLimits kPatternLimits[] = {
    {.shutter = std::size(ae_normal_tbl) - 1, .gain = std::size(agc_normal_max_gain_tbl) - 1},
    {.shutter = std::size(ae_slow_tbl) - 1, .gain = std::size(agc_slow_max_gain_tbl) - 1},
    {.shutter = std::size(ae_slow_tbl) - 1, .gain = std::size(manual_gain_tbl) - 1},
    {.shutter = std::size(manual_shutter_tbl) - 1, .gain = std::size(manual_gain_tbl) - 1},
};
// A mode without tables: only the gain is looked at.
constexpr PatternLimits kNoTables = {.shutter = std::numeric_limits<std::uint32_t>::max(),
                                     .gain = std::size(agc_normal_max_gain_tbl) - 1};

// Values of the mode register, by the mode of a pattern.
constexpr std::uint8_t kModeRegister[] = {registers::kAeNormal, registers::kAeSlowShutter,
                                          registers::kAeManualGain, registers::kAeManual};
static_assert(std::size(kModeRegister) == std::size(kPatternLimits));

constexpr KeywordSetting kAgcModes[] = {
    {.keyword = "on", .table = g_agc, .rows = 1, .data_size = 1, .data = {1}},
    {.keyword = "off", .table = g_agc, .rows = 1, .data_size = 1, .data = {0}},
};

constexpr KeywordSetting kSensorModes[] = {
    {.keyword = "quadvga", .table = g_sensormode, .rows = 1, .data_size = 1, .data = {0}},
    {.keyword = "vga", .table = g_sensormode, .rows = 1, .data_size = 1, .data = {1}},
};

constexpr KeywordSetting kDayNightModes[] = {
    {.keyword = "disable",
     .table = g_dnlevel,
     .rows = 4,
     .data_size = 4,
     .data = {0xff, 0xff, 0xff, 0xff}},
    {.keyword = "auto",
     .table = g_dnlevel,
     .rows = 4,
     .data_size = 4,
     .data = {0x00, 0x08, 0x00, 0x09}},
    {.keyword = "on",
     .table = g_dnlevel,
     .rows = 4,
     .data_size = 4,
     .data = {0x00, 0x00, 0x00, 0x00}},
    {.keyword = "off",
     .table = g_dnlevel,
     .rows = 4,
     .data_size = 4,
     .data = {0xff, 0xff, 0xff, 0xff}},
};

constexpr KeywordSetting kDayNightLevels[] = {
    {.keyword = "high", .table = g_dnlevel, .rows = 4, .data_size = 2, .data = {0, 9}},
    {.keyword = "low", .table = g_dnlevel, .rows = 4, .data_size = 2, .data = {0, 5}},
};

bool within_tables(const s_ae_ptn& pattern) {
  const auto mode = static_cast<std::uint32_t>(pattern.mode);
  const PatternLimits& limits = mode < std::size(kPatternLimits) ? kPatternLimits[mode] : kNoTables;
  return static_cast<std::uint32_t>(pattern.shutter) <= limits.shutter &&
         static_cast<std::uint32_t>(pattern.gain) <= limits.gain;
}

std::span<const std::uint16_t> normal_gain_words(int row) {
  return std::span(agc_normal_max_gain_tbl[row]).first<kNormalWords>();
}

int send_normal(DspCommand& dsp, const s_ae_ptn& pattern) IPCAM_REQUIRES(g_table_lock) {
  fill_rows(g_ae_normal, ae_normal_tbl[pattern.shutter]);
  fill_rows(g_ae_normal + kNormalHalf, normal_gain_words(pattern.gain));
  return send_rows(dsp, g_ae_normal, kNormalHalf * 2);
}

// The two halves are sent one after the other: together they exceed a packet.
int send_slow_halves(DspCommand& dsp) IPCAM_REQUIRES(g_table_lock) {
  if (send_rows(dsp, g_ae_slow, kSlowHalf) < 0) return -1;
  return send_rows(dsp, g_ae_slow + kSlowHalf, kSlowHalf);
}

int send_slow(DspCommand& dsp, const s_ae_ptn& pattern) IPCAM_REQUIRES(g_table_lock) {
  fill_rows(g_ae_slow, ae_slow_tbl[pattern.shutter]);
  fill_rows(g_ae_slow + kSlowHalf, agc_slow_max_gain_tbl[pattern.gain]);
  return send_slow_halves(dsp);
}

// The gain half of the slow table goes out as the last slow pattern left it.
int send_manual_gain(DspCommand& dsp, const s_ae_ptn& pattern) IPCAM_REQUIRES(g_table_lock) {
  fill_rows(g_ae_slow, ae_slow_tbl[pattern.shutter]);
  if (send_slow_halves(dsp) < 0) return -1;
  fill_rows(g_ae_manual + 2, {&manual_gain_tbl[pattern.gain], 1});
  return send_rows(dsp, g_ae_manual, std::size(g_ae_manual));
}

int send_manual(DspCommand& dsp, const s_ae_ptn& pattern) IPCAM_REQUIRES(g_table_lock) {
  fill_rows(g_shutter + 1, {&manual_shutter_tbl[pattern.shutter], 1});
  if (send_rows(dsp, g_shutter, std::size(g_shutter)) < 0) return -1;
  fill_rows(g_ae_preset0 + 1, {&manual_gain_tbl[pattern.gain], 1});
  return send_rows(dsp, g_ae_preset0, std::size(g_ae_preset0));
}

int send_pattern(DspCommand& dsp, const s_ae_ptn& pattern) IPCAM_EXCLUDES(g_table_lock) {
  const LockGuard lock(g_table_lock);
  switch (pattern.mode) {
    case kNormalExposure:
      return send_normal(dsp, pattern);
    case kSlowShutter:
      return send_slow(dsp, pattern);
    case kManualGain:
      return send_manual_gain(dsp, pattern);
    case kManualExposure:
      return send_manual(dsp, pattern);
    default:
      return 0;
  }
}

}  // namespace

int DspCommand::do_shutter_gain(s_ae_ptn pattern) {
  const CancellationBlock no_cancellation;  // the mode belongs to the tables
  if (!within_tables(pattern)) {
    std::fprintf(stderr, "%s: [ERROR] invalid value! Shutter:%d\n", g_prgname, pattern.shutter);
    return -1;
  }
  if (send_pattern(*this, pattern) < 0) return -1;
  do_expmode(pattern.mode);
  do_max_frm_exp(pattern.max_frm_exp);
  return 0;
}

int DspCommand::do_expmode(int mode) {
  const auto index = static_cast<std::uint32_t>(mode);
  if (index >= std::size(kModeRegister)) {
    std::fprintf(stderr, "%s: [ERROR] invalid AE mode! %d\n", g_prgname, mode);
    return -1;
  }
  return set_byte(*this, g_expmode, kModeRegister[index]);
}

int DspCommand::do_max_frm_exp(int index) {
  std::uint8_t value = kAllPixelFrameExposure;
  if (index != kAllPixelFrameExposure) {
    if (static_cast<std::uint32_t>(index) >= std::size(max_frm_exp_tbl)) return refuse_value(index);
    value = max_frm_exp_tbl[index];
  }
  const std::uint8_t bytes[] = {value, value};
  return set_bytes(*this, g_max_frm_exp, bytes, 2);
}

int DspCommand::do_autoexposure(unsigned char* text) {
  constexpr std::string_view kManual = "manual";
  std::printf("%s: set autoexposure: %s\n", g_prgname, printable(text));
  if (starts_with(text, "auto")) return set_byte(*this, g_ae_auto, registers::kAeNormal);
  if (!starts_with(text, kManual)) return refuse_option(text);

  // The keyword alone is the value 0. These registers take the high byte first.
  const unsigned char* number = text + kManual.size();
  std::int32_t value = 0;
  if (*number != '\0' && !number_within(number, 0, 0xffff, value)) return refuse_value(text);
  const std::uint8_t bytes[] = {registers::kAeManualGain, static_cast<std::uint8_t>(value >> 8),
                                static_cast<std::uint8_t>(value & 0xff)};
  return set_bytes(*this, g_ae_manual, bytes, std::size(g_ae_manual));
}

int DspCommand::do_shutter(unsigned int value) {
  if (value > 10000) return refuse_value(static_cast<int>(value));
  const std::uint16_t words[] = {static_cast<std::uint16_t>(value)};
  const LockGuard lock(g_table_lock);
  fill_rows(g_shutter + 1, words);
  return send_rows(*this, g_shutter, std::size(g_shutter));
}

int DspCommand::do_gain(int level) {
  if (static_cast<std::uint32_t>(level) >= std::size(manual_gain_tbl)) return refuse_value(level);
  return set_words(*this, g_gain, {&manual_gain_tbl[level], 1});
}

int DspCommand::do_flickerless(int value) {
  std::printf("%s: set flickerless: %d\n", g_prgname, value);
  if (value < 0 || value > 5) return refuse_value(value);
  return set_byte(*this, g_flickerless, static_cast<std::uint8_t>(value));
}

int DspCommand::do_autoslowshutter(bool on) {
  if (!on) return 0;
  const LockGuard lock(g_table_lock);
  return send_rows(*this, g_auto_slowshutter, 1);
}

int DspCommand::do_agc(unsigned char* text) {
  const KeywordSetting* mode = find_keyword(kAgcModes, text);
  return mode != nullptr ? set_keyword(*this, *mode) : refuse_option(text);
}

int DspCommand::do_agc_max_gain(int level) {
  if (static_cast<std::uint32_t>(level) >= std::size(agc_normal_max_gain_tbl))
    return refuse_value(level);
  const LockGuard lock(g_table_lock);
  fill_rows(g_agc_max_gain, normal_gain_words(level));
  if (send_rows(*this, g_agc_max_gain, kNormalHalf) < 0) return -1;
  fill_rows(g_agc_max_gain + kNormalHalf, agc_slow_max_gain_tbl[level]);
  return send_rows(*this, g_agc_max_gain + kNormalHalf, kSlowHalf);
}

int DspCommand::do_miris_mode(bool on) {
  const std::uint8_t mode = on ? kIrisHeldOpen : std::uint8_t{0};
  const std::uint8_t bytes[] = {mode, mode};
  return set_bytes(*this, g_miris_mode, bytes, 2);
}

int DspCommand::do_iris_modifier(int shutter, int exp, int, bool lf) {
  std::fprintf(stderr, "IrisModifier shutter:%d exp:%d lf:%d\n", shutter, exp, lf ? 1 : 0);
  const LockGuard lock(g_table_lock);
  send_rows(*this, g_iris_modifier, std::size(g_iris_modifier));
  return send_rows(*this, g_miris_scl, std::size(g_miris_scl));
}

int DspCommand::do_binning(bool on) {
  std::printf("%s: set binning: %d\n", g_prgname, on ? 1 : 0);
  return set_byte(*this, g_binning, on ? 1 : 0);
}

int DspCommand::do_sensormode(unsigned char* text) {
  std::printf("%s: set sensor mode: %s\n", g_prgname, printable(text));
  const KeywordSetting* mode = find_keyword(kSensorModes, text);
  return mode != nullptr ? set_keyword(*this, *mode) : refuse_option(text);
}

int DspCommand::do_dnmode(unsigned char* text) {
  std::printf("%s: set dnmode: %s\n", g_prgname, printable(text));
  const KeywordSetting* mode = find_keyword(kDayNightModes, text);
  return mode != nullptr ? set_keyword(*this, *mode) : refuse_value(text);
}

int DspCommand::do_dnlevel(unsigned char* text) {
  std::printf("%s: set dnlevel: %s\n", g_prgname, printable(text));
  const KeywordSetting* level = find_keyword(kDayNightLevels, text);
  return level != nullptr ? set_keyword(*this, *level) : refuse_value(text);
}

}  // namespace ipcam::camera
