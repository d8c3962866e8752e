// Start-up: brings the image processor from power-on to the stored settings.
#include "camera/control_thread.h"

namespace ipcam::camera {

bool InitCamera() {
  ControlThread& control = ControlThread::instance();
  return control.is_this_thread() && control.init_camera();
}

bool ControlThread::init_camera() {
  SettingsRecord record{};
  if (!read_settings(*library_->config, record)) return false;

  // After power-on the registers do not hold the stored colour state, although the snapshot does. The flag stays
  // set when a step fails; a later start sets it anyway.
  forced_apply_ = 1;
  snapshot_ = record.snapshot;
  binning_mode_ = record.binning_mode;
  binning_on_ = 0;
  forced_binning_ = 0;

  // A camera without adjustment files runs with the image processor's own values.
  apply_factory_adjustment(record.half_pixel_wb != 0);

  if (snapshot_.color != 0 && snapshot_.color != 1) return false;
  if (color(snapshot_.color == 1 ? 2 : 3) != 0) return false;
  if (gamma(snapshot_.gamma) != 0) return false;
  if (expcomp(snapshot_.expcomp) != 0) return false;
  if (exposure_mode(0) != 0) return false;
  if (blcomp(snapshot_.blcomp) != 0) return false;
  if (sharpness(snapshot_.sharpness) != 0) return false;
  if (contrast(snapshot_.contrast) != 0) return false;

  // Nothing to do for icr_condition and icr_enable: setting the IR-cut filter by itself has no effect.
  forced_apply_ = 0;
  return true;
}

}  // namespace ipcam::camera
