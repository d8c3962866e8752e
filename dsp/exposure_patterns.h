// Numbers of exposure patterns and gain levels, for setters and handlers alike.
#pragma once

#include <cstdint>

namespace ipcam::camera {

// s_ae_ptn::mode
enum ExposureMode : std::int32_t {
  kNormalExposure = 0,
  kSlowShutter = 1,
  kManualGain = 2,
  kManualExposure = 3
};

// s_ae_ptn::max_frm_exp of manual exposure. For all pixels it is an index and a value
// of its own, outside max_frm_exp_tbl.
inline constexpr std::int32_t kAllPixelFrameExposure = 22;
constexpr std::int32_t manual_frame_exposure(bool is_binned) {
  return is_binned ? 0 : kAllPixelFrameExposure;
}

// Gain levels are 0 to 6. All pixels are noisier: their highest level is 5.
inline constexpr int kHighestGain = 6;
constexpr int highest_gain(bool is_binned) { return is_binned ? kHighestGain : kHighestGain - 1; }

// Rows of the automatic gain tables that hold the gain at a level, from
// level 0 on; those before are ceilings.
inline constexpr int kHeldGainRow = 7;

}  // namespace ipcam::camera
