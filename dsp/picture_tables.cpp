// Parameter tables of the picture and white-balance setters.
#include "ipcam/camera/parameter_tables.h"

namespace ipcam::camera {

constinit param_info g_saturation[] = {
    {.category = 10, .byte = 0x09, .mask = 0xff, .data = 0x00},
};
constinit param_info g_sharpness[] = {
    {.category = 10, .byte = 0x07, .mask = 0xff, .data = 0x00},
};
constinit param_info g_contrast[] = {
    {.category = 10, .byte = 0x06, .mask = 0xff, .data = 0x00},
};
constinit param_info g_brightness[] = {
    {.category = 10, .byte = 0x05, .mask = 0xff, .data = 0x00},
};
constinit param_info g_hue[] = {
    {.category = 10, .byte = 0x08, .mask = 0xff, .data = 0x00},
};

// Both effects are bits of one register: the masks keep each from undoing the other.
constinit param_info g_effect_mono[] = {
    {.category = 10, .byte = 0x0a, .mask = 0x01, .data = 0x00},
};
constinit param_info g_effect_nega[] = {
    {.category = 10, .byte = 0x0a, .mask = 0x02, .data = 0x00},
};

constinit param_info g_colorbar[] = {
    {.category = 10, .byte = 0x0b, .mask = 0xff, .data = 0x00},
};
constinit param_info g_gamma[] = {
    {.category = 16, .byte = 0x06, .mask = 0xff, .data = 0x00},
};

constinit param_info g_whitebalance_mode[] = {
    {.category = 12, .byte = 0x00, .mask = 0x07, .data = 0x00},
};
constinit param_info g_whitebalance_atwpro[] = {
    {.category = 12, .byte = 0x00, .mask = 0x07, .data = 0x00},  // mode
    {.category = 12, .byte = 0x01, .mask = 0x03, .data = 0x00},
};
constinit param_info g_whitebalance_preset0[] = {
    {.category = 12, .byte = 0x7c, .mask = 0xff, .data = 0x00},  // red gain, low byte
    {.category = 12, .byte = 0x7d, .mask = 0xff, .data = 0x00},  // red gain, high byte
    {.category = 12, .byte = 0x7e, .mask = 0xff, .data = 0x00},  // blue gain, low byte
    {.category = 12, .byte = 0x7f, .mask = 0xff, .data = 0x00},  // blue gain, high byte
    {.category = 12, .byte = 0x00, .mask = 0x07, .data = 0x04},  // manual mode, once the gains are set
};
constinit param_info g_rgain[] = {
    {.category = 12, .byte = 0x7c, .mask = 0xff, .data = 0x00},  // low byte
    {.category = 12, .byte = 0x7d, .mask = 0xff, .data = 0x00},  // high byte
};
constinit param_info g_bgain[] = {
    {.category = 12, .byte = 0x7e, .mask = 0xff, .data = 0x00},  // low byte
    {.category = 12, .byte = 0x7f, .mask = 0xff, .data = 0x00},  // high byte
};
constinit param_info g_rbgain_preset1[] = {
    {.category = 12, .byte = 0x80, .mask = 0xff, .data = 0x00},  // red gain, low byte
    {.category = 12, .byte = 0x81, .mask = 0xff, .data = 0x00},  // red gain, high byte
    {.category = 12, .byte = 0x82, .mask = 0xff, .data = 0x00},  // blue gain, low byte
    {.category = 12, .byte = 0x83, .mask = 0xff, .data = 0x00},  // blue gain, high byte
};

}  // namespace ipcam::camera
