// The bits of registers that the library uses, as its exported parameter tables have them.
#include "tools/register_masks.h"

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

std::uint8_t register_mask(Address address) {
  const registers::RegisterGroup* group = group_of(address);
  if (group != nullptr && group->mask != 0) return group->mask;
  std::uint8_t mask = 0;
  for (const ParameterTable& table : parameter_tables()) {
    for (const camera::param_info& row : table.rows) {
      if (address_of(row) == address) mask = static_cast<std::uint8_t>(mask | row.mask);
    }
  }
  return mask == 0 ? std::uint8_t{0xff} : mask;
}

}  // namespace ipcam::tools
