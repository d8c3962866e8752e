// The exported parameter tables and the read-only value tables that feed them.
#pragma once

#include <bit>
#include <cstdint>

#include "ipcam/camera/dsp_command.h"

namespace ipcam::camera {

// The value tables are read by other programs as bytes, low byte of each 16-bit value first.
static_assert(std::endian::native == std::endian::little);

// A parameter table holds the registers of one setting in the order in which they are sent. A
// setter puts its values into the `data` bytes and sends the rows; after the send `data`
// holds the full register values written, and rows that a setter leaves alone are sent again
// as they stand. A refused value changes no byte. The setters of DspCommand may be called
// from any thread; a program that fills and sends a table by itself must see to it that no
// setter of that table runs meanwhile.
#pragma GCC visibility push(default)  // part of the exported interface
extern "C" {

// --- Picture ---
extern param_info g_saturation[1];   // colour saturation; do_saturation
extern param_info g_sharpness[1];    // sharpness; do_sharpness
extern param_info g_contrast[1];     // contrast; do_contrast
extern param_info g_brightness[1];   // brightness; do_brightness
extern param_info g_hue[1];          // hue, two's complement; do_hue
extern param_info g_effect_mono[1];  // monochrome picture, 0 or 1; do_effect
extern param_info g_effect_nega[1];  // negative picture, 0 or 2; do_effect
extern param_info g_colorbar[1];     // colour-bar test pattern, 0 or 1; do_colorbar
extern param_info g_gamma[1];        // number of the built-in gamma curve; do_gamma

// Loadable gamma curves, one row per register of a block write;
// do_ygamma (luma), do_cgamma (chroma).
extern param_info g_ygamma[10];
extern param_info g_cgamma[68];

// Curves for them: the byte for row i of curve n (0 to 7) is at index 8 * i + n.
extern const std::uint8_t g_eygamma_val[80];   // luma, letter 'e'
extern const std::uint8_t g_cygamma_val[80];   // luma, letter 'c'
extern const std::uint8_t g_ecgamma_val[544];  // chroma, letter 'e'
extern const std::uint8_t g_ccgamma_val[544];  // chroma, letter 'c'

// --- White balance ---
extern param_info g_whitebalance_mode[1];     // mode register alone; do_whitebalance
extern param_info g_whitebalance_atwpro[2];   // mode "atwpro"; do_whitebalance
extern param_info g_whitebalance_preset0[5];  // manual gains, then manual mode; do_whitebalance
extern param_info g_rgain[2];                 // manual red gain, low byte first; do_rgain
extern param_info g_bgain[2];                 // manual blue gain, low byte first; do_bgain
extern param_info g_rbgain_preset1[4];        // red and blue gain of preset 1; do_rbgain_preset1

// --- Backlight and exposure compensation ---
extern param_info g_blcomp[1];       // backlight compensation, 0 to 2; do_blcomp
extern param_info g_expcomp[1];      // exposure compensation, two's complement; do_expcomp
extern param_info g_aereference[1];  // exposure reference level, two's complement; do_aereference

// --- Exposure ---
extern param_info g_expmode[1];           // exposure mode register; do_expmode
extern param_info g_ae_auto[1];           // automatic exposure; do_autoexposure
extern param_info g_ae_manual[4];         // manual exposure; do_autoexposure, do_shutter_gain
extern param_info g_ae_preset0[3];        // fixed gain; do_shutter_gain
extern param_info g_shutter[3];           // fixed shutter; do_shutter, do_shutter_gain
extern param_info g_gain[2];              // manual gain, low byte first; do_gain
extern param_info g_max_frm_exp[2];       // maximum frame exposure, the same twice; do_max_frm_exp
extern param_info g_flickerless[1];       // flicker reduction, 0 to 5; do_flickerless
extern param_info g_auto_slowshutter[1];  // automatic slow shutter; do_autoslowshutter
extern param_info g_lens_adjust[1];       // lens adjustment; for other programs, no setter sends it
extern param_info g_ae_normal[16];        // 8 shutter rows, 8 gain rows; do_shutter_gain
extern param_info g_ae_slow[24];          // 12 shutter rows, 12 gain rows; do_shutter_gain

// --- Gain limits and iris ---
extern param_info g_agc[1];            // automatic gain control, 0 or 1; do_agc
extern param_info g_agc_max_gain[20];  // gain ceilings: 8 normal, 12 slow-shutter; do_agc_max_gain
extern param_info g_miris_mode[2];     // iris held open, 0x55 or 0; do_miris_mode
extern param_info g_iris_modifier[7];  // iris modifier, sent as stored; do_iris_modifier
extern param_info g_miris_scl[7];      // iris scale, sent as stored; do_iris_modifier

// --- Sensor, day/night ---
extern param_info g_binning[1];     // half-pixel readout, 0 or 1; do_binning
extern param_info g_sensormode[1];  // 0 "quadvga", 1 "vga"; do_sensormode
extern param_info g_dnlevel[4];     // day/night levels; do_dnmode, do_dnlevel

// --- Exposure value tables, read-only ---
extern const std::uint16_t ae_normal_tbl[21][4];            // shutter side of g_ae_normal
extern const std::uint16_t ae_slow_tbl[15][6];              // shutter side of g_ae_slow
extern const std::uint16_t agc_normal_max_gain_tbl[14][6];  // gain side; the last 2 are not sent
extern const std::uint16_t agc_slow_max_gain_tbl[14][6];    // gain side of g_ae_slow
extern const std::uint16_t manual_gain_tbl[7];              // register gain of a gain level
extern const std::uint16_t manual_shutter_tbl[5];           // shutter register of a fixed shutter
extern const std::uint8_t max_frm_exp_tbl[5];               // maximum frame exposure of an index
}
#pragma GCC visibility pop

}  // namespace ipcam::camera
