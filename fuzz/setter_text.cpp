// Any text for the setters that read one; the first byte chooses the setter.
#include <string>

#include "fuzz/fake_camera.h"

using ipcam::camera::DspCommand;
using ipcam::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static DspCommand dsp;
  static constexpr int (DspCommand::*kSetters[])(unsigned char*) = {
      &DspCommand::do_saturation,   &DspCommand::do_contrast, &DspCommand::do_sharpness,
      &DspCommand::do_brightness,   &DspCommand::do_hue,      &DspCommand::do_colorbar,
      &DspCommand::do_effect,       &DspCommand::do_ygamma,   &DspCommand::do_cgamma,
      &DspCommand::do_whitebalance, &DspCommand::do_expcomp,  &DspCommand::do_aereference,
      &DspCommand::do_autoexposure, &DspCommand::do_agc,      &DspCommand::do_sensormode,
      &DspCommand::do_dnmode,       &DspCommand::do_dnlevel};

  if (size == 0) return 0;
  std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  text.push_back('\0');
  const std::string before = text;
  const int result =
      (dsp.*kSetters[data[0] % std::size(kSetters)])(reinterpret_cast<unsigned char*>(text.data()));
  require(result == 0 || result == -1, "a setter gives 0 or -1");
  require(text == before, "a setter leaves its text alone");
  return 0;
}
