// Parameter tables and value tables of the exposure, iris, sensor and day/night setters.
#include "dsp/register_rows.h"
#include "ipcam/camera/parameter_tables.h"
#include "registers/register_values.h"

namespace ipcam::camera {

// clang-format off
constinit param_info g_blcomp[] = {row("blcomp")};
constinit param_info g_expcomp[] = {row("expcomp")};
constinit param_info g_aereference[] = {row("ae_reference")};

constinit param_info g_expmode[] = {row("ae_mode")};
constinit param_info g_ae_auto[] = {row("ae_mode")};
constinit param_info g_ae_manual[] = {
    row("ae_mode", registers::kAeManualGain),
    row("ae_manual", 0x01),
    row("ae_manual_gain_lo"), row("ae_manual_gain_hi"),
};
constinit param_info g_ae_preset0[] = {
    row("ae_mode", registers::kAeManual),
    row("fixed_gain_lo"), row("fixed_gain_hi"),
};
constinit param_info g_shutter[] = {
    row("ae_mode", registers::kAeManual),
    row("fixed_shutter_lo"), row("fixed_shutter_hi"),
};
constinit param_info g_gain[] = {row("fixed_gain_lo"), row("fixed_gain_hi")};
constinit param_info g_max_frm_exp[] = {row("max_frame_exposure_a"), row("max_frame_exposure_b")};
constinit param_info g_flickerless[] = {row("flickerless")};
constinit param_info g_auto_slowshutter[] = {row("ae_mode", registers::kAeSlowShutter)};
constinit param_info g_lens_adjust[] = {row("lens_adjust")};

// Every 16-bit value fills two rows, low byte first.
constinit param_info g_ae_normal[] = {
    // shutter side
    row("normal_shutter_a_lo"), row("normal_shutter_a_hi"),
    row("shutter_limit_a_lo"), row("shutter_limit_a_hi"),
    row("normal_shutter_b_lo"), row("normal_shutter_b_hi"),
    row("shutter_limit_b_lo"), row("shutter_limit_b_hi"),
    // gain side
    row("normal_gain_a_lo"), row("normal_gain_a_hi"),
    row("gain_limit_a_lo"), row("gain_limit_a_hi"),
    row("normal_gain_b_lo"), row("normal_gain_b_hi"),
    row("gain_limit_b_lo"), row("gain_limit_b_hi"),
};
constinit param_info g_ae_slow[] = {
    // shutter side
    row("slow_shutter_a_lo"), row("slow_shutter_a_hi"),
    row("slow_shutter_b_lo"), row("slow_shutter_b_hi"),
    row("shutter_limit_a_lo"), row("shutter_limit_a_hi"),
    row("slow_shutter_c_lo"), row("slow_shutter_c_hi"),
    row("slow_shutter_d_lo"), row("slow_shutter_d_hi"),
    row("shutter_limit_b_lo"), row("shutter_limit_b_hi"),
    // gain side
    row("slow_gain_a_lo"), row("slow_gain_a_hi"),
    row("slow_gain_b_lo"), row("slow_gain_b_hi"),
    row("gain_limit_a_lo"), row("gain_limit_a_hi"),
    row("slow_gain_c_lo"), row("slow_gain_c_hi"),
    row("slow_gain_d_lo"), row("slow_gain_d_hi"),
    row("gain_limit_b_lo"), row("gain_limit_b_hi"),
};

constinit param_info g_agc[] = {row("agc")};
constinit param_info g_agc_max_gain[] = {
    // gain side of g_ae_normal
    row("normal_gain_a_lo"), row("normal_gain_a_hi"),
    row("gain_limit_a_lo"), row("gain_limit_a_hi"),
    row("normal_gain_b_lo"), row("normal_gain_b_hi"),
    row("gain_limit_b_lo"), row("gain_limit_b_hi"),
    // gain side of g_ae_slow
    row("slow_gain_a_lo"), row("slow_gain_a_hi"),
    row("slow_gain_b_lo"), row("slow_gain_b_hi"),
    row("gain_limit_a_lo"), row("gain_limit_a_hi"),
    row("slow_gain_c_lo"), row("slow_gain_c_hi"),
    row("slow_gain_d_lo"), row("slow_gain_d_hi"),
    row("gain_limit_b_lo"), row("gain_limit_b_hi"),
};
constinit param_info g_miris_mode[] = {row("miris_mode_a"), row("miris_mode_b")};
constinit param_info g_iris_modifier[] = {
    row("iris_modifier_0", 1),
    row("iris_modifier_1", 2),
    row("iris_modifier_2", 4),
    row("iris_modifier_3", 5),
    row("iris_modifier_4", 7),
    row("iris_modifier_5", 10),
    row("iris_modifier_6", 13),
};
constinit param_info g_miris_scl[] = {
    row("miris_scale_0"), row("miris_scale_1"), row("miris_scale_2"), row("miris_scale_3"),
    row("miris_scale_4"), row("miris_scale_5"), row("miris_scale_6"),
};

constinit param_info g_binning[] = {row("readout")};
constinit param_info g_sensormode[] = {row("sensor_mode")};
constinit param_info g_dnlevel[] = {row("dn_level_0"), row("dn_level_1"),
                                    row("dn_level_2"), row("dn_level_3")};

// Shutter sides. The speeds are those of the stored settings: 0 to 4 slow, 5 to 14 normal.
const std::uint16_t ae_normal_tbl[21][4] = {
    // normal_shutter_a, shutter_limit_a, normal_shutter_b, shutter_limit_b
    {0x2602, 0x0480, 0x2063, 0x0000},  // 0: automatic, iris held open
    {0x0000, 0x2606, 0x0000, 0x2068},  // 1: automatic, and speed 5
    {0x0000, 0x2313, 0x0000, 0x1d75},  // 2: flickerless, and speed 6
    {0x0000, 0x2206, 0x0000, 0x1c68},  // 3: speed 7
    {0x0000, 0x1f13, 0x0000, 0x1975},  // 4: speed 8
    {0x0000, 0x19ca, 0x0000, 0x142b},  // 5: speed 9
    {0x0000, 0x15ca, 0x0000, 0x102b},  // 6: speed 10
    {0x0000, 0x11ca, 0x0000, 0x0c2b},  // 7: speed 11
    {0x0000, 0x0dca, 0x0000, 0x082b},  // 8: speed 12
    {0x0000, 0x09ca, 0x0000, 0x042b},  // 9: speed 13
    {0x0000, 0x0480, 0x0000, 0x0000},  // 10: speed 14
    {0x2602, 0x0480, 0x2063, 0x0000},  // 11: speed 5, iris held open
    {0x230c, 0x0480, 0x1d6e, 0x0000},  // 12: speed 6, iris held open
    {0x21fd, 0x0480, 0x1c5f, 0x0000},  // 13: speed 7, iris held open
    {0x1f05, 0x0480, 0x1966, 0x0000},  // 14: speed 8, iris held open
    {0x19a4, 0x0480, 0x1406, 0x0000},  // 15: speed 9, iris held open
    {0x157e, 0x0480, 0x0fe0, 0x0000},  // 16: speed 10, iris held open
    {0x112e, 0x0480, 0x0b90, 0x0000},  // 17: speed 11, iris held open
    {0x0c80, 0x0480, 0x06e2, 0x0000},  // 18: speed 12, iris held open
    {0x06d7, 0x0480, 0x0139, 0x0000},  // 19: speed 13, iris held open
    {0x0000, 0x0480, 0x0000, 0x0000},  // 20: speed 14, iris held open
};
const std::uint16_t ae_slow_tbl[15][6] = {
    // slow_shutter_a, slow_shutter_b, shutter_limit_a,
    // slow_shutter_c, slow_shutter_d, shutter_limit_b
    {0x0000, 0x3975, 0x2606, 0x0000, 0x33d6, 0x2068},  // 0: down to speed 0
    {0x0000, 0x3541, 0x2606, 0x0000, 0x2fa3, 0x2068},  // 1: down to speed 1
    {0x0000, 0x30d3, 0x2606, 0x0000, 0x2b35, 0x2068},  // 2: down to speed 2
    {0x0000, 0x2bdc, 0x2606, 0x0000, 0x263e, 0x2068},  // 3: down to speed 3
    {0x0000, 0x2606, 0x2606, 0x0000, 0x2068, 0x2068},  // 4: down to speed 4
    {0x2602, 0x39a7, 0x0480, 0x2063, 0x3408, 0x0000},  // 5: down to or at speed 0, iris held open
    {0x2602, 0x35a6, 0x0480, 0x2063, 0x3008, 0x0000},  // 6: down to or at speed 1, iris held open
    {0x2602, 0x31a6, 0x0480, 0x2063, 0x2c08, 0x0000},  // 7: down to or at speed 2, iris held open
    {0x2602, 0x2da5, 0x0480, 0x2063, 0x2807, 0x0000},  // 8: down to or at speed 3, iris held open
    {0x2602, 0x2a04, 0x0480, 0x2063, 0x2466, 0x0000},  // 9: down to or at speed 4, iris held open
    {0x0000, 0x0000, 0x39a7, 0x0000, 0x0000, 0x3408},  // 10: beyond the range of the settings
    {0x0000, 0x0000, 0x35a7, 0x0000, 0x0000, 0x3008},  // 11: beyond the range of the settings
    {0x0000, 0x0000, 0x31a7, 0x0000, 0x0000, 0x2c08},  // 12: beyond the range of the settings
    {0x0000, 0x0000, 0x2da7, 0x0000, 0x0000, 0x2808},  // 13: beyond the range of the settings
    {0x0000, 0x0000, 0x2a06, 0x0000, 0x0000, 0x2468},  // 14: beyond the range of the settings
};
// Gain sides. Rows 0 to 6 are ceilings of the automatic gain, 7 to 13 hold it at one set by hand.
const std::uint16_t agc_normal_max_gain_tbl[14][6] = {
    // normal_gain_a, gain_limit_a, normal_gain_b, gain_limit_b, two that are not sent
    {0x0000, 0x05a7, 0x0000, 0x02a7, 0x0000, 0x0000},  // 0: up to level 0
    {0x03fc, 0x05a7, 0x03fc, 0x02a7, 0x0000, 0x0000},  // 1: up to level 1
    {0x07f9, 0x05a7, 0x07f9, 0x02a7, 0x0000, 0x0000},  // 2: up to level 2
    {0x0bf5, 0x05a7, 0x0bf5, 0x02a7, 0x0000, 0x0000},  // 3: up to level 3
    {0x0ff2, 0x05a7, 0x0ff2, 0x02a7, 0x0000, 0x0000},  // 4: up to level 4
    {0x13ee, 0x05a7, 0x13ee, 0x02a7, 0x0000, 0x0000},  // 5: up to level 5
    {0x17eb, 0x05a7, 0x17eb, 0x02a7, 0x0000, 0x0000},  // 6: up to level 6
    {0x0000, 0x09a2, 0x0000, 0x06a4, 0x0000, 0x0000},  // 7: held at level 0
    {0x0000, 0x0d9f, 0x0000, 0x0aa1, 0x0000, 0x0000},  // 8: held at level 1
    {0x0000, 0x119b, 0x0000, 0x0e9e, 0x0000, 0x0000},  // 9: held at level 2
    {0x0000, 0x1598, 0x0000, 0x129a, 0x0000, 0x0000},  // 10: held at level 3
    {0x0000, 0x1994, 0x0000, 0x1697, 0x0000, 0x0000},  // 11: held at level 4
    {0x0000, 0x1a93, 0x0000, 0x1a93, 0x0000, 0x0000},  // 12: held at level 5
    {0x0000, 0x1a93, 0x0000, 0x1a93, 0x0000, 0x0000},  // 13: held at level 6
};
const std::uint16_t agc_slow_max_gain_tbl[14][6] = {
    // slow_gain_a, slow_gain_b, gain_limit_a, slow_gain_c, slow_gain_d, gain_limit_b
    {0x0000, 0x0000, 0x05a7, 0x0000, 0x0000, 0x02a7},  // 0: up to level 0
    {0x03fc, 0x0000, 0x05a7, 0x03fc, 0x0000, 0x02a7},  // 1: up to level 1
    {0x07f9, 0x0000, 0x05a7, 0x07f9, 0x0000, 0x02a7},  // 2: up to level 2
    {0x0bf5, 0x0000, 0x05a7, 0x0bf5, 0x0000, 0x02a7},  // 3: up to level 3
    {0x0ff2, 0x0000, 0x05a7, 0x0ff2, 0x0000, 0x02a7},  // 4: up to level 4
    {0x13ee, 0x0000, 0x05a7, 0x13ee, 0x0000, 0x02a7},  // 5: up to level 5
    {0x17eb, 0x0000, 0x05a7, 0x17eb, 0x0000, 0x02a7},  // 6: up to level 6
    {0x0000, 0x0000, 0x09a2, 0x0000, 0x0000, 0x06a4},  // 7: held at level 0
    {0x0000, 0x0000, 0x0d9f, 0x0000, 0x0000, 0x0aa1},  // 8: held at level 1
    {0x0000, 0x0000, 0x119b, 0x0000, 0x0000, 0x0e9e},  // 9: held at level 2
    {0x0000, 0x0000, 0x1598, 0x0000, 0x0000, 0x129a},  // 10: held at level 3
    {0x0000, 0x0000, 0x1994, 0x0000, 0x0000, 0x1697},  // 11: held at level 4
    {0x02fd, 0x0000, 0x1a93, 0x0000, 0x0000, 0x1a93},  // 12: held at level 5
    {0x06fa, 0x0000, 0x1a93, 0x03fc, 0x0000, 0x1a93},  // 13: held at level 6
};
// clang-format on

// fixed_gain or ae_manual_gain, levels 0 to 6
const std::uint16_t manual_gain_tbl[] = {0x0000, 0x03fc, 0x07f9, 0x0bf5, 0x0ff2, 0x13ee, 0x17eb};
// fixed_shutter, speeds 0 to 4
const std::uint16_t manual_shutter_tbl[] = {10000, 5000, 2500, 1250, 666};
// max_frame_exposure_a and _b, indices 0 to 4
const std::uint8_t max_frm_exp_tbl[] = {30, 15, 8, 4, 2};

}  // namespace ipcam::camera
