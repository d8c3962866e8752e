// Every exported parameter table of the library, by its name.
#include "tools/parameter_tables.h"

#include "ipcam/camera/parameter_tables.h"

namespace ipcam::tools {

std::vector<ParameterTable> parameter_tables() {
  using namespace ipcam::camera;
#define TABLE(name) \
  { #name, name }
  return {
      TABLE(g_saturation),
      TABLE(g_sharpness),
      TABLE(g_contrast),
      TABLE(g_brightness),
      TABLE(g_hue),
      TABLE(g_effect_mono),
      TABLE(g_effect_nega),
      TABLE(g_colorbar),
      TABLE(g_gamma),
      TABLE(g_ygamma),
      TABLE(g_cgamma),
      TABLE(g_whitebalance_mode),
      TABLE(g_rgain),
      TABLE(g_whitebalance_atwpro),
      TABLE(g_bgain),
      TABLE(g_rbgain_preset1),
      TABLE(g_blcomp),
      TABLE(g_whitebalance_preset0),
      TABLE(g_expcomp),
      TABLE(g_aereference),
      TABLE(g_expmode),
      TABLE(g_ae_auto),
      TABLE(g_ae_manual),
      TABLE(g_ae_preset0),
      TABLE(g_shutter),
      TABLE(g_gain),
      TABLE(g_max_frm_exp),
      TABLE(g_flickerless),
      TABLE(g_auto_slowshutter),
      TABLE(g_lens_adjust),
      TABLE(g_ae_normal),
      TABLE(g_ae_slow),
      TABLE(g_agc),
      TABLE(g_agc_max_gain),
      TABLE(g_miris_mode),
      TABLE(g_iris_modifier),
      TABLE(g_miris_scl),
      TABLE(g_binning),
      TABLE(g_sensormode),
      TABLE(g_dnlevel),
  };
#undef TABLE
}

}  // namespace ipcam::tools
