// What the registers hold, in the terms of the settings.
#include "tools/held_values.h"

#include <algorithm>

#include "ipcam/camera/parameter_tables.h"
#include "registers/register_values.h"
#include "registers/white_balance_modes.h"
#include "tools/register_port.h"

namespace ipcam::tools {

namespace {

using namespace ipcam::camera;  // request codes and value tables
using registers::bits;

class Held {
 public:
  explicit Held(const sim::RegisterMap& registers) : registers_(registers) {}
  int operator[](const registers::Bits& part) const {
    return registers_.at(part.address) & part.mask;
  }
  // A 16-bit value, from its low byte.
  int word(Address low) const { return registers_.at(low) | registers_.at(low + 1) << 8; }
  int red_gain() const { return word(registers::address("manual_red_gain_lo")); }
  int blue_gain() const { return word(registers::address("manual_blue_gain_lo")); }

 private:
  const sim::RegisterMap& registers_;
};

constexpr int kSharpness[2][7] = {{0x0c, 0x33, 0x5a, 0x80, 0x95, 0xaa, 0xc0},   // all pixels
                                  {0x0e, 0x34, 0x5a, 0x80, 0x9c, 0xb8, 0xd6}};  // binned

// Register gain of a manual white-balance gain.
int register_gain(int level) {
  return static_cast<int>((255 - level) * (255 - level) / 7.5 + 1500);
}

// Fixed light sources are pairs of manual gains; any other pair is the user's own.
bool is_wb(const Held& held, int value) {
  const auto has_gains = [&](const registers::WhiteBalanceMode& mode) {
    return mode.red_gain == held.red_gain() && mode.blue_gain == held.blue_gain();
  };
  const auto* mode = registers::find_mode(&registers::WhiteBalanceMode::request, value);
  if (mode->wb_mode != held[bits("wb_mode")]) return false;
  if (value == registers::kManualRequest)
    return std::ranges::none_of(registers::kRequestedModes, has_gains);
  return mode->red_gain == 0 || has_gains(*mode);
}

bool is_agc_limit(const Held& held, int level) {
  return held.word(registers::address("normal_gain_a_lo")) == agc_normal_max_gain_tbl[level][0] &&
         held.word(registers::address("gain_limit_a_lo")) == agc_normal_max_gain_tbl[level][1];
}

// Other values say what is to be done, which is no state.
bool is_readout(const Held& held, int value) {
  return value <= 1 && (held[bits("readout")] != 0) == (value == 0);
}

bool is_daynight(const Held& held, int value) {
  return held[bits("dn_level_0")] == (value == 61 ? 0 : 0xff) &&
         held[bits("dn_level_1")] == held[bits("dn_level_0")];
}

// Whether the registers hold what a value of the request, or of the stored field, is written as.
struct Decoder {
  e_request_code code;
  bool (*holds)(const Held& held, int value);
};

// clang-format off
constexpr Decoder kDecoders[] = {
    {REQUEST_COLOR, [](const Held& h, int v) { return (h[bits("monochrome")] != 0) == (v == 3); }},
    {REQUEST_WB_MODE, is_wb},
    {REQUEST_EXP_COMP, [](const Held& h, int v) { return h[bits("expcomp")] == ((v - 9) & 0xff); }},
    {REQUEST_GAIN, [](const Held& h, int v) {
       return h.word(registers::address("fixed_gain_lo")) == manual_gain_tbl[v]; }},
    {REQUEST_BL_COMP, [](const Held& h, int v) { return h[bits("blcomp")] == v / 2; }},
    {REQUEST_SHUTTER, [](const Held& h, int v) {
       return v < 5 && h.word(registers::address("fixed_shutter_lo")) == manual_shutter_tbl[v]; }},
    {REQUEST_SATURATION, [](const Held& h, int v) { return h[bits("saturation")] == 0x20 * (v + 1); }},
    {REQUEST_SHARPNESS, [](const Held& h, int v) {
       return h[bits("sharpness")] == kSharpness[h[bits("readout")]][v]; }},
    {REQUEST_R_GAIN, [](const Held& h, int v) { return h.red_gain() == register_gain(v); }},
    {REQUEST_B_GAIN, [](const Held& h, int v) { return h.blue_gain() == register_gain(v); }},
    {REQUEST_COLORBAR, [](const Held& h, int v) { return h[bits("colorbar")] == v; }},
    {REQUEST_CONTRAST, [](const Held& h, int v) { return h[bits("contrast")] == 0x50 + 0x10 * v; }},
    {REQUEST_HOLD_AUTO_IRIS_OPEN, [](const Held& h, int v) {
       return v <= 1 && (h[bits("miris_mode_a")] == 0x55) == (v == 0); }},
    {REQUEST_AUTO_SLOW_SHUTTER_MIN_SPEED, [](const Held& h, int v) {
       return h[bits("max_frame_exposure_a")] == max_frm_exp_tbl[v]; }},
    {REQUEST_AGC_MAX_GAIN, is_agc_limit},
    {REQUEST_GAMMA, [](const Held& h, int v) { return h[bits("gamma")] == v; }},
    {REQUEST_BINNING, is_readout},
    {REQUEST_FORCE_BINNING, is_readout},
    {REQUEST_BINNING_FUNC, is_readout},
    {REQUEST_DN_MODE, is_daynight},
};
// clang-format on

}  // namespace

const Values& values_of(const Setting& setting) {
  return setting.kind == Kind::kStored ? find_field(setting.field)->values : setting.values;
}

Form form_of(const Setting& setting) {
  return setting.kind == Kind::kStored ? Form::kStored : Form::kRequest;
}

std::set<Address> registers_of(const Setting& setting) {
  std::set<Address> addresses;
  for (const auto& table : setting.tables) {
    for (const param_info& row : table) addresses.insert(address_of(row));
  }
  return addresses;
}

std::set<Address> registers_around(const Setting& setting) {
  std::set<Address> addresses = registers_of(setting);
  for (const Address& address : {registers::address("sensor_mode"), registers::address("ae_mode"),
                                 registers::address("wb_mode")}) {
    addresses.insert(address);
  }
  return addresses;
}

std::optional<std::string> held_text(const Setting& setting, const sim::RegisterMap& registers,
                                     const std::string& preferred) {
  const auto* decoder = std::ranges::find(kDecoders, setting.code, &Decoder::code);
  if (decoder == std::end(kDecoders)) return std::nullopt;
  const Values& values = values_of(setting);
  const Form form = form_of(setting);
  const Held held(registers);
  std::vector<int> numbers;
  if (const auto first = parse_value(values, form, preferred)) numbers.push_back(*first);
  for (const Word& word : values.words) numbers.push_back(number_of(word, form));
  for (int n = values.min; values.words.empty() && n <= values.max; ++n) numbers.push_back(n);
  for (const int number : numbers) {
    if (decoder->holds(held, number)) return value_text(values, form, number);
  }
  std::string text = "raw";
  for (const Address& address : registers_of(setting)) text += " " + hex(registers.at(address));
  return text;
}

bool has_effect(const Setting& setting, const sim::RegisterMap& registers, bool was_sent,
                bool in_shell) {
  const Held held(registers);
  switch (setting.effect) {
    case Effect::kWhenSent:
      return was_sent;
    case Effect::kInShell:
      return in_shell;
    case Effect::kManualWhiteBalance:
      return held[bits("wb_mode")] == registers::kWbManual;
    case Effect::kManualExposure:
      return held[bits("ae_mode")] == registers::kAeManual;
    default:
      return true;
  }
}

}  // namespace ipcam::tools
