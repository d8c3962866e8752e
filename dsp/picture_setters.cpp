// Setters of the picture: saturation, contrast, sharpness, brightness, hue, colour bar, effects and
// gamma, backlight and exposure compensation.
#include <cstdio>

#include "dsp/setter.h"
#include "ipcam/camera/parameter_tables.h"
#include "registers/register_map.h"

namespace ipcam::camera {

using namespace setter;

namespace {

struct Effect {
  std::string_view keyword;
  param_info* table;
  std::uint8_t on;
};

constexpr Effect kEffects[] = {
    {.keyword = "monochrome", .table = g_effect_mono, .on = registers::bits("monochrome").mask},
    {.keyword = "negative", .table = g_effect_nega, .on = registers::bits("negative").mask},
};

constexpr std::int32_t kMaxGamma = 6;
constexpr std::int32_t kCurves = 8;  // curves per loadable table, interleaved byte by byte

// Luma and chroma curves announce themselves with the same line.
int load_curve(DspCommand& dsp, const unsigned char* text, std::span<param_info> table,
               const std::uint8_t* e_curves, const std::uint8_t* c_curves) {
  std::printf("%s: set ygamma: %s\n", g_prgname, printable(text));
  const bool is_e = starts_with(text, "e");
  std::int32_t curve = 0;
  if ((!is_e && !starts_with(text, "c")) || !number_within(text + 1, 0, kCurves - 1, curve)) {
    std::fprintf(stderr, "%s: [ERROR] argument '%s' no available!\n", g_prgname, printable(text));
    return -1;
  }

  const LockGuard lock(g_table_lock);
  const std::uint8_t* curves = is_e ? e_curves : c_curves;
  auto value = static_cast<std::size_t>(curve);
  for (param_info& row : table) {
    row.data = curves[value];
    value += kCurves;
  }
  return dsp.execute_gamma_cmd(table.data(), static_cast<int>(table.size())) < 0 ? -1 : 0;
}

}  // namespace

int DspCommand::do_saturation(unsigned char* text) {
  std::printf("%s: set saturation: %s\n", g_prgname, printable(text));
  return set_number(*this, g_saturation, text, 0, 255);
}

int DspCommand::do_contrast(unsigned char* text) {
  std::printf("%s: set contrast: %s\n", g_prgname, printable(text));
  return set_number(*this, g_contrast, text, 0, 255);
}

int DspCommand::do_sharpness(unsigned char* text) {
  std::printf("%s: set sharpness: %s\n", g_prgname, printable(text));
  return set_number(*this, g_sharpness, text, 0, 255);
}

int DspCommand::do_brightness(unsigned char* text) {
  std::printf("%s: set brightness: %s\n", g_prgname, printable(text));
  return set_number(*this, g_brightness, text, 0, 255);
}

int DspCommand::do_hue(unsigned char* text) {
  std::printf("%s: set hue: %s\n", g_prgname, printable(text));
  return set_number(*this, g_hue, text, -128, 127);
}

int DspCommand::do_colorbar(unsigned char* text) {
  std::printf("%s: set colorbar: %s\n", g_prgname, printable(text));
  return set_number(*this, g_colorbar, text, 0, 1);
}

int DspCommand::do_effect(unsigned char* text) {
  std::printf("%s: set effect: %s\n", g_prgname, printable(text));
  for (const Effect& effect : kEffects) {
    if (!starts_with(text, effect.keyword)) continue;
    std::int32_t on = 0;
    if (!number_within(text + effect.keyword.size(), 0, 1, on)) return refuse_value(text);
    return set_byte(*this, effect.table, on != 0 ? effect.on : std::uint8_t{0});
  }
  return refuse_option(text);
}

int DspCommand::do_gamma(int curve) {
  if (curve < 0 || curve > kMaxGamma) return refuse_value(curve);
  return set_byte(*this, g_gamma, static_cast<std::uint8_t>(curve));
}

int DspCommand::do_ygamma(unsigned char* text) {
  return load_curve(*this, text, g_ygamma, g_eygamma_val, g_cygamma_val);
}

int DspCommand::do_cgamma(unsigned char* text) {
  return load_curve(*this, text, g_cgamma, g_ecgamma_val, g_ccgamma_val);
}

int DspCommand::do_blcomp(int value) {
  if (value != 0 && value != 2 && value != 4) return refuse_value(value);
  return set_byte(*this, g_blcomp, static_cast<std::uint8_t>(value / 2));
}

int DspCommand::do_expcomp(unsigned char* text) {
  return set_number(*this, g_expcomp, text, 0, 255);
}

int DspCommand::do_aereference(unsigned char* text) {
  std::printf("%s: set aereference: %s\n", g_prgname, printable(text));
  return set_number(*this, g_aereference, text, -9, 9);
}

}  // namespace ipcam::camera
