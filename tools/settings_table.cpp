// The settings of the camera and the fields of its stored record, row by row.
#include "tools/settings_table.h"

#include <algorithm>
#include <array>
#include <climits>
#include <iterator>
#include <utility>

#include "ipcam/camera/parameter_tables.h"
#include "registers/register_values.h"
#include "registers/request_names.h"
#include "registers/white_balance_modes.h"
#include "settings/settings_record.h"

namespace ipcam::tools {

namespace {

using namespace ipcam::camera;  // request codes and parameter tables

template <std::size_t... kRow>
constexpr auto wb_words(std::index_sequence<kRow...>) {
  constexpr auto kModes = registers::kRequestedModes;
  return std::array{Word{kModes[kRow].keyword, kModes[kRow].request, kModes[kRow].stored}...};
}
constexpr auto kWbWords = wb_words(std::make_index_sequence<registers::kRequestedModes.size()>());

constexpr Word kColorWords[] = {{"color", 2, 1}, {"monochrome", 3, 0}};
constexpr Word kBacklightWords[] = {{"off", 0}, {"low", 2}, {"high", 4}};
constexpr Word kOffOnWords[] = {{"off", 0}, {"on", 1}};
constexpr Word kHoldWords[] = {{"on", 0, 1}, {"off", 1, 0}, {"toggle", 68, -1}};
constexpr Word kBinningModeWords[] = {
    {"mode1", 34, 1}, {"manual", 9, 2}, {"mode3", 30, 3}, {"auto", 4, 4}};
constexpr Word kBinningWords[] = {{"on", 0}, {"off", 1}};
constexpr Word kForcedBinningWords[] = {{"on", 0}, {"off", 1}, {"end", 29}};
constexpr Word kBinningFuncWords[] = {{"on", 0}, {"off", 1}, {"auto", 4}};
constexpr Word kDayNightWords[] = {{"on", 61}, {"off", 62}, {"off-still", 0}};
constexpr Word kIcrWords[] = {
    {"state bit set: night, filter out of place", registers::kFilterStateSet},
    {"state bit clear: day, filter in place", registers::kFilterStateClear}};
constexpr Word kHeldWords[] = {{"not held", 0}, {"held open", 1}};
constexpr Word kSecondsWords[] = {{"2", 2}, {"30", 30}};

constexpr Values kLevel = {.max = 6};
constexpr Values kWhiteBalanceGain = {.max = 255};
constexpr Values kExpComp = {.max = 18};
constexpr Values kSlowSpeed = {.max = 4};
constexpr Values kColor = {.words = kColorWords};
constexpr Values kWb = {.words = kWbWords};
constexpr Values kBacklight = {.words = kBacklightWords};
constexpr Values kOffOn = {.words = kOffOnWords};
constexpr Values kBinningMode = {.words = kBinningModeWords};
constexpr Values kRegisterGain = {.max = 0xffff};
constexpr Values kAnyNumber = {.min = INT_MIN, .max = INT_MAX};

constexpr char kNextStart[] =
    "use camctl shell: the next start takes the worker's own, or the stored one";

// clang-format off
constexpr Setting kRows[] = {
    {.code = REQUEST_COLOR, .values = kColor, .meaning = "colour or monochrome picture",
     .depends = "nothing is sent when the picture is that way already; colour applies the stored "
                "white balance too",
     .field = "color", .tables = {g_effect_mono}},
    {.code = REQUEST_WB_MODE, .values = kWb,
     .meaning = "white-balance mode; ends a running one-push measurement",
     .depends = "manual and onepush take their gains from the stored record", .field = "wb_mode",
     .tables = {g_whitebalance_preset0}},
    {.code = REQUEST_EXP_COMP, .values = kExpComp,
     .meaning = "exposure compensation; 9 is none, a step is 1",
     .depends = "has an effect only while the stored expcomp_gate is 0, 3, 4 or 5",
     .field = "expcomp", .effect = Effect::kWhenSent, .tables = {g_expcomp}},
    {.code = REQUEST_GAIN, .values = kLevel, .meaning = "manual gain",
     .depends = "has an effect only with a fixed slow shutter; 6 counts as 5 unless pixels are "
                "binned",
     .field = "gain_level", .effect = Effect::kManualExposure, .tables = {g_gain}},
    {.code = REQUEST_BL_COMP, .values = kBacklight, .meaning = "backlight compensation",
     .field = "blcomp", .tables = {g_blcomp}},
    {.code = REQUEST_SHUTTER, .kind = Kind::kStored, .meaning = "fixed shutter",
     .depends = "has an effect only while auto-shutter is off", .field = "shutter_speed",
     .tables = {g_shutter}},
    {.code = REQUEST_SATURATION, .values = kLevel, .meaning = "colour saturation; 3 is neutral",
     .field = "saturation", .tables = {g_saturation}},
    {.code = REQUEST_SHARPNESS, .values = kLevel, .meaning = "sharpness; 3 is neutral",
     .depends = "the register value also depends on pixel binning", .field = "sharpness",
     .tables = {g_sharpness}},
    {.code = REQUEST_R_GAIN, .values = kWhiteBalanceGain, .meaning = "manual red gain",
     .depends = "has an effect only in white-balance mode manual", .field = "rgain",
     .effect = Effect::kManualWhiteBalance, .tables = {g_rgain}},
    {.code = REQUEST_B_GAIN, .values = kWhiteBalanceGain, .meaning = "manual blue gain",
     .depends = "has an effect only in white-balance mode manual", .field = "bgain",
     .effect = Effect::kManualWhiteBalance, .tables = {g_bgain}},
    {.code = REQUEST_GET_ICR, .kind = Kind::kQuery, .values = {.words = kIcrWords},
     .meaning = "state of the IR-cut filter: 59 while its state bit is set, else 60"},
    {.code = REQUEST_COLORBAR, .values = kOffOn, .meaning = "colour-bar test pattern",
     .tables = {g_colorbar}},
    {.code = REQUEST_EXP_MODE, .kind = Kind::kAction,
     .meaning = "applies the stored exposure settings", .tables = {g_expmode, g_max_frm_exp}},
    {.code = REQUEST_ONE_PUSH_TRG, .kind = Kind::kAction,
     .meaning = "measures the white balance, about 3 s, and stores and applies its gains",
     .depends = "needs white-balance mode onepush",
     .tables = {g_whitebalance_mode, g_rbgain_preset1}},
    {.code = REQUEST_FLICKERLESS, .kind = Kind::kStored, .meaning = "flickerless exposure",
     .field = "exposure_mode"},
    {.code = REQUEST_AUTO_SLOW_SHUTTER, .kind = Kind::kStored,
     .meaning = "automatic shutter may go slow",
     .depends = "has an effect only while auto-shutter is on", .field = "auto_slow_shutter"},
    {.code = REQUEST_CONTRAST, .values = kLevel, .meaning = "contrast; 3 is neutral",
     .field = "contrast", .tables = {g_contrast}},
    {.code = REQUEST_HOLD_AUTO_IRIS_OPEN, .values = {.words = kHoldWords},
     .meaning = "holds the automatic iris open, with focus assist; applies the stored exposure too",
     .depends = "use camctl shell: the next start lets the iris go, but leaves it open while "
                "exposure is flickerless",
     .field = "hold_iris_open", .effect = Effect::kInShell, .tables = {g_miris_mode}},
    {.code = REQUEST_AUTO_SHUTTER, .kind = Kind::kStored, .meaning = "automatic shutter",
     .depends = "has no effect while exposure is flickerless", .field = "auto_shutter"},
    {.code = REQUEST_AUTO_SLOW_SHUTTER_MIN_SPEED, .kind = Kind::kStored,
     .meaning = "limit of the slow shutter", .field = "slow_shutter_min_speed",
     .tables = {g_max_frm_exp}},
    {.code = REQUEST_AGC_MAX_GAIN, .values = {.max = 13},
     .meaning = "limit of the automatic gain; 7 to 13 hold the gain at levels 0 to 6",
     .depends = "6 counts as 5 unless pixels are binned", .field = "agc_max_gain",
     .tables = {g_agc_max_gain}},
    {.code = REQUEST_GAMMA, .values = kLevel, .meaning = "gamma curve", .field = "gamma",
     .tables = {g_gamma}},
    {.code = REQUEST_BINNING_MODE, .values = kBinningMode,
     .meaning = "who decides about pixel binning; nothing is sent",
     .depends = "use camctl shell: the next start takes the stored one", .field = "binning_mode",
     .effect = Effect::kInShell},
    {.code = REQUEST_BINNING, .values = {.words = kBinningWords},
     .meaning = "pixel binning, about 1 s",
     .depends = "needs the white-balance adjustment file of that readout", .tables = {g_binning}},
    {.code = REQUEST_FORCE_BINNING, .values = {.words = kForcedBinningWords},
     .meaning = "forces pixel binning on or off until the end of forcing",
     .depends = "needs the white-balance adjustment file of that readout", .tables = {g_binning}},
    {.code = REQUEST_BINNING_FUNC, .values = {.words = kBinningFuncWords},
     .meaning = "pixel binning by hand, or left to the day/night worker",
     .depends = "refused while binning is forced", .tables = {g_binning}},
    {.code = REQUEST_HOLD_AUTO_IRIS_OPEN_INQ, .kind = Kind::kQuery, .values = {.words = kHeldWords},
     .meaning = "whether the automatic iris is held open: 1 or 0",
     .depends = "in camctl shell only"},
    {.code = REQUEST_DN_MODE, .values = {.words = kDayNightWords},
     .meaning = "night (on) or day (off): day/night registers and IR-cut filter, 1 s; off-still is "
                "day, but leaves the filter where it is",
     .tables = {g_dnlevel}},
    {.code = REQUEST_DN_HYS, .values = {.max = 0xffff},
     .meaning = "hysteresis of the automatic day/night switch; switches binning off",
     .depends = kNextStart, .effect = Effect::kInShell, .tables = {g_binning}},
    {.code = REQUEST_BN_TIME, .values = {.words = kSecondsWords, .unit = "s"},
     .meaning = "how long the light must have changed before the automatic switch; switches "
                "binning off",
     .depends = kNextStart, .effect = Effect::kInShell, .tables = {g_binning}},
    {.code = REQUEST_BN_LEVEL, .values = {.max = 4095},
     .meaning = "light level of the automatic day/night switch; switches binning off",
     .depends = kNextStart, .effect = Effect::kInShell, .tables = {g_binning}},
};
static_assert(std::ranges::is_sorted(kRows, {}, &Setting::code));

constexpr auto kSettings = [] {
  auto rows = std::to_array(kRows);
  for (Setting& row : rows) row.name = registers::request_name(row.code);
  return rows;
}();
static_assert(std::ranges::none_of(kSettings, &std::string_view::empty, &Setting::name));

#define IN(record, field) #field, offsetof(record, field), sizeof(record::field)
#define IN_SNAPSHOT(field) IN(SettingsSnapshot, field)
#define IN_RECORD(field) IN(SettingsRecord, field)

constexpr Field kFields[] = {
    {IN_SNAPSHOT(wb_mode), kWb, "white-balance mode, applied with colour"},
    {IN_SNAPSHOT(expcomp_gate), kAnyNumber,
     "exposure compensation is sent only while this is 0, 3, 4 or 5"},
    {IN_SNAPSHOT(blcomp), kBacklight, "backlight compensation, applied at start"},
    {IN_SNAPSHOT(gain_level), kLevel, "manual gain, applied with exposure"},
    {IN_SNAPSHOT(shutter_speed), {.max = 14},
     "fixed shutter; 0 to 4 slow, 5 to 14 normal; applied with exposure"},
    {IN_SNAPSHOT(saturation), kLevel, "colour saturation, applied at start"},
    {IN_SNAPSHOT(expcomp), kExpComp, "exposure compensation, applied at start"},
    {IN_SNAPSHOT(color), kColor, "colour or monochrome picture, applied at start"},
    {IN_SNAPSHOT(sharpness), kLevel, "sharpness, applied at start"},
    {IN_SNAPSHOT(rgain), kWhiteBalanceGain, "red gain of white-balance mode manual"},
    {IN_SNAPSHOT(bgain), kWhiteBalanceGain, "blue gain of white-balance mode manual"},
    {IN_SNAPSHOT(auto_slow_shutter), kOffOn,
     "automatic shutter may go slow; applied with exposure"},
    {IN_SNAPSHOT(contrast), kLevel, "contrast, applied at start"},
    {IN_SNAPSHOT(exposure_mode), kAnyNumber,
     "0 flickerless; 3 with a fixed slow shutter ends the automatic gain; applied with exposure"},
    {IN_SNAPSHOT(hold_iris_open), kOffOn, "iris hold as last requested"},
    {IN_SNAPSHOT(auto_shutter), kOffOn,
     "automatic shutter; off: shutter_speed decides; applied with exposure"},
    {IN_SNAPSHOT(slow_shutter_min_speed), kSlowSpeed,
     "limit of the slow shutter, applied with exposure"},
    {IN_SNAPSHOT(agc_max_gain), kLevel, "limit of the automatic gain, applied with exposure"},
    {IN_SNAPSHOT(gamma), kLevel, "gamma curve, applied at start"},
    {IN_SNAPSHOT(onepush_rgain), kRegisterGain, "red gain of the last one-push measurement"},
    {IN_SNAPSHOT(onepush_bgain), kRegisterGain, "blue gain of the last one-push measurement"},
    {IN_RECORD(focus_assist_level), kAnyNumber, "level of the focus assist while iris is held"},
    {IN_RECORD(icr_condition), kAnyNumber, "2, with icr_enable 1: IR-cut at start; no effect"},
    {IN_RECORD(icr_enable), {.max = 255}, "see icr_condition"},
    {IN_RECORD(binning_mode), kBinningMode, "who decides about pixel binning, from the start"},
    {IN_RECORD(half_pixel_wb), kOffOn,
     "start takes the white-balance adjustment file of binned pixels"},
    {IN_RECORD(daynight_seconds), {.max = INT_MAX / 1000, .unit = "s"},
     "condition time of the automatic day/night switch"},
    {IN_RECORD(daynight_level), {.max = 4095},
     "light level of the automatic day/night switch; 0 stands for 32, 1 for 33"},
};
// clang-format on
static_assert(std::ranges::is_sorted(kFields, {}, &Field::offset));

}  // namespace

std::span<const Setting> settings() { return kSettings; }

const Setting* find_setting(Kind kind, std::string_view name) {
  const auto* row = std::ranges::find_if(kSettings, [&](const Setting& setting) {
    return setting.kind == kind && same_name(setting.name, name);
  });
  return row == std::end(kSettings) ? nullptr : row;
}

std::vector<std::string> setting_names(std::optional<Kind> kind) {
  std::vector<std::string> names;
  for (const Setting& setting : kSettings) {
    if (!kind || setting.kind == kind) names.emplace_back(setting.name);
  }
  return names;
}

std::string_view kind_name(Kind kind) {
  constexpr std::string_view kNames[] = {"setting", "action", "query", "stored setting"};
  return kNames[static_cast<std::size_t>(kind)];
}

std::span<const Field> stored_fields() { return kFields; }

const Setting* find_setting_of(std::string_view field) {
  const auto* row = std::ranges::find(kSettings, field, &Setting::field);
  return row == std::end(kSettings) ? nullptr : row;
}

const Field* find_field(std::string_view name) {
  for (const Setting& setting : kSettings) {
    if (!setting.field.empty() && same_name(setting.name, name)) name = setting.field;
  }
  const auto* row = std::ranges::find_if(
      kFields, [&](const Field& field) { return same_name(field.name, name); });
  return row == std::end(kFields) ? nullptr : row;
}

std::vector<std::string> field_names() {
  std::vector<std::string> names;
  for (const Field& field : kFields) names.emplace_back(field.name);
  return names;
}

}  // namespace ipcam::tools
