// Parameter tables of the picture and white-balance setters.
#include "dsp/register_rows.h"
#include "ipcam/camera/parameter_tables.h"
#include "registers/register_values.h"

namespace ipcam::camera {

// clang-format off
constinit param_info g_saturation[] = {row("saturation")};
constinit param_info g_sharpness[] = {row("sharpness")};
constinit param_info g_contrast[] = {row("contrast")};
constinit param_info g_brightness[] = {row("brightness")};
constinit param_info g_hue[] = {row("hue")};
constinit param_info g_effect_mono[] = {row("monochrome")};
constinit param_info g_effect_nega[] = {row("negative")};
constinit param_info g_colorbar[] = {row("colorbar")};
constinit param_info g_gamma[] = {row("gamma")};

constinit param_info g_whitebalance_mode[] = {row("wb_mode")};
constinit param_info g_whitebalance_atwpro[] = {row("wb_mode"), row("wb_atwpro")};
constinit param_info g_whitebalance_preset0[] = {
    row("manual_red_gain_lo"), row("manual_red_gain_hi"),
    row("manual_blue_gain_lo"), row("manual_blue_gain_hi"),
    row("wb_mode", registers::kWbManual),  // once the gains are set
};
constinit param_info g_rgain[] = {row("manual_red_gain_lo"), row("manual_red_gain_hi")};
constinit param_info g_bgain[] = {row("manual_blue_gain_lo"), row("manual_blue_gain_hi")};
constinit param_info g_rbgain_preset1[] = {
    row("preset1_red_gain_lo"), row("preset1_red_gain_hi"),
    row("preset1_blue_gain_lo"), row("preset1_blue_gain_hi"),
};
// clang-format on

}  // namespace ipcam::camera
