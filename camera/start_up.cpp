// Start-up: makes the control thread's objects and brings the image processor
// from power-on to the stored settings.
#include <memory>

#include "camera/control_thread.h"
#include "camera/imported_call.h"
#include "ipcam/system.h"

namespace ipcam::camera {

// Each step is taken also when one before it has failed; the result says whether to serve requests.
// An exception of the camera's own libraries is a failure like any other.
bool ControlThread::start_up() {
  bool is_set_up = true;
  const auto take = [&](bool (ControlThread::*step)()) {
    if (result_of([&] { return (this->*step)() ? 0 : -1; }) == 0 || !is_set_up) return;
    is_set_up = false;
    result_of([] { writeSyslog("Camera control", "Failed to communicate with the sub CPU."); });
  };
  take(&ControlThread::set_up_camera);
  take(&ControlThread::start_evr_control);
  take(&ControlThread::report_ready);
  return is_set_up;
}

bool ControlThread::set_up_camera() {
  create_objects();
  return init_camera();
}

// A worker that cannot start does not keep the camera from serving.
bool ControlThread::start_evr_control() {
  if (evr_enable_ == 0 || dsp_ == nullptr) return true;
  evr_control_ = std::make_unique<EVRControl>(evr_enable_, dsp_.get());
  evr_control_->start();
  return true;
}

bool ControlThread::report_ready() {
  if (auto_daynight_ != nullptr) auto_daynight_->setCameraReady();
  return true;
}

void ControlThread::create_objects() {
  dsp_ = std::make_unique<DspCommand>();
  focus_assist_ = std::make_unique<FocusAssist>(library_->post_process.get(), dsp_.get());
  auto_daynight_ = std::make_unique<AutoDaynight>(1, dsp_.get());
  onepush_wb_ = std::make_unique<OnepushWB>(dsp_.get());
}

bool InitCamera() {
  return RequestPath::instance().is_served_here() && ControlThread::instance().init_camera();
}

bool ControlThread::init_camera() {
  SettingsRecord record{};
  if (!read_settings(*library_->config, record)) return false;

  // After power-on the registers do not hold the stored colour state, although the snapshot does.
  // The flag stays set when a step fails; a later start sets it anyway.
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

  // Nothing to do for icr_condition and icr_enable: setting the
  // IR-cut filter by itself has no effect.
  forced_apply_ = 0;
  return true;
}

}  // namespace ipcam::camera
