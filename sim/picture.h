// The picture of the simulated camera: a colour chart as the registers make it look, as a PNG file.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "sim/switchboard.h"

namespace ipcam::sim {

// A model for the eye, not a measurement. From the light of the chart to the pixel:
//
//   exposure       light x 2^(expcomp / 6)
//   white balance  with manual gains (wb_mode 4) and preset 1 (wb_mode 5): red light x R / red
//   gain, blue light x B / blue gain, where R and B are the gains that a one-push measurement
//   arrives at, so that a measured white is white; in the automatic modes as it is
//   sRGB           light to 0 (black) to 1 (white)
//   gamma          v^(1 / (1 + gamma / 10)), curves 0 to 6
//   colour bar     takes the place of all of the above
//   luma curve     ygamma: ten values of a rising curve at luma 0x38, 0x48, ... 0xc8; where they
//   fall, the curve stays level; without a loaded curve straight
//   sharpness      luma + k x (luma - its 3x3 average), k = (sharpness - 0x80) / 0x80, twice that
//   above 0x80 contrast       (luma - 1/2) x contrast / 0x80 + 1/2
//   brightness     luma + (brightness - 0x80) / 0xff
//   colour         chroma x saturation / 0x80, turned by hue x 90 / 0x80 degrees; none with effect
//   bit 0 negative       with effect bit 1: 1 - v
//
// Contrast, brightness, sharpness, saturation and the gains count as neutral while their register
// is 0, as it is before the first write. The chroma curve (cgamma), the exposure's shutter, gain
// and iris, and the sensor's readout do not show.
struct PictureSettings {
  int expcomp;  // -128 to 127
  double red_factor;
  double blue_factor;
  int gamma;
  std::array<std::uint8_t, 10> luma_curve;
  int brightness, contrast, sharpness, saturation;
  int hue;  // -128 to 127
  bool monochrome, negative, colorbar;

  bool operator==(const PictureSettings&) const = default;
};

PictureSettings picture_settings(const Switchboard& board);

// 480 x 400 pixels, 8-bit RGB: 24 colours, a grey ramp, and a star and bars with fine edges. Takes
// some hundredths of a second. Replaces the file as a whole; throws std::runtime_error.
void write_picture(const PictureSettings& settings, const std::string& path);

}  // namespace ipcam::sim
