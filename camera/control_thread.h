// The camera control thread: its state, its objects, and one handler per request code.
#pragma once

#include <cstdint>
#include <memory>

#include "camera/request_path.h"
#include "ipcam/camera/auto_daynight.h"
#include "ipcam/camera/camera_request.h"
#include "ipcam/camera/dsp_command.h"
#include "ipcam/camera/focus_assist.h"
#include "ipcam/config/config_file.h"
#include "ipcam/detection/object_detection_if.h"
#include "ipcam/eptz/post_process_interface.h"
#include "settings/settings_record.h"
#include "workers/evr_control.h"
#include "workers/onepush_wb.h"

namespace ipcam::camera {

// Objects that new_camera_ctrl() creates and the shutdown destroys; the control
// thread borrows them for its whole life.
struct LibraryObjects {
  std::unique_ptr<ipcam::config::ConfigFile> config;
  std::unique_ptr<ipcam::detection::ObjectDetectionIF> object_detection;
  std::unique_ptr<ipcam::eptz::PostProcessInterface> post_process;
};

// Everything that only the control thread may touch. One object per process, which
// lives as long as the library: flags keep their values over stop and start, and a new
// start changes only what start-up sets.
//
// Every member function but instance() is for the control thread alone, so handlers
// take no locks. The workers run on threads of their own and share the DspCommand,
// which serialises its exchanges itself.
//
// A handler returns the request's result: 0, also when a setter that it called has
// failed, or -1 for a value that it refuses.
class ControlThread {
 public:
  constexpr ControlThread() = default;
  static ControlThread& instance();

  // Runs the control thread from its first step to its last: creates its objects, applies the
  // stored settings, serves requests until the stop message, tears down. Does not throw.
  void run(LibraryObjects& library);

  // Calls the handler of the request's code; codes without one give
  // 0. Stores an answer in `inq_value`.
  int dispatch(s_cam_cgi_cmd& request);
  // Runs a raw register command and stores its reply. Returns 0.
  int raw_command(s_ccdlsi_dbg& request);

  // --- Start-up ---
  bool init_camera();

  // --- IR-cut filter ---
  int icr_state(std::int32_t* answer);

  // --- Picture, white balance and compensation (picture_handlers.cpp) ---
  int color(int value);
  int saturation(int level);
  int contrast(int level);
  int sharpness(int level);
  int colorbar(int value);
  int gamma(int curve);
  int wb_mode(int value);
  int rgain(int level);
  int bgain(int level);
  int onepush_trigger(int value);
  int blcomp(int value);
  int expcomp(int level);

  // --- Exposure, day/night and binning (exposure_handlers.cpp) ---
  int exposure_mode(int value);
  int gain(int level);
  int agc_max_gain(int level);
  int hold_iris_open(int value);
  int hold_iris_state(std::int32_t* answer);
  int daynight_mode(int value);
  int daynight_hysteresis(int value);
  int binning_time(int value);
  int binning_level(int value);
  int binning_mode(int value);
  int binning(int value);
  int force_binning(int value);
  int binning_function(int value);

  const SettingsSnapshot& snapshot() const { return snapshot_; }

 private:
  // Steps of start-up; false when one failed.
  bool start_up();
  bool set_up_camera();
  bool start_evr_control();
  bool report_ready();

  void create_objects();
  void serve(RequestPath& requests);
  void destroy_objects();

  // Sends the factory adjustment files' register values; `half_pixel_wb` chooses the white-balance
  // file. Returns 0 when all files were applied, else -1.
  int apply_factory_adjustment(bool half_pixel_wb);

  // True while the sensor bins pixels; false also when that could not be read.
  bool sensor_is_binned();
  // Gain level 6 needs a binned sensor; without binning it becomes 5.
  int gain_for_readout(int level);
  // Holds the iris open, or lets it go; tries five times.
  void drive_iris(bool open);
  // Chooses the exposure pattern that the snapshot asks for, and
  // sets the iris mode that belongs to it.
  s_ae_ptn choose_exposure_pattern();
  // Tells the automatic day/night worker how far the gain may go.
  void apply_agc_limit_to_daynight();
  // Switches the sensor readout: 0 or 74 on, 1 or 75 off.
  int run_binning_engine(int value);
  // Runs the engine with "off" when binning is automatic and not forced.
  void rerun_automatic_binning();
  // What a binning function request does: forced, only recorded; on or off; automatic.
  int record_binning_function(int value);
  int switch_binning_by_hand(int value);
  int start_automatic_binning();

  // Settings and flags, all zero when the library is loaded.
  SettingsSnapshot snapshot_{};
  std::uint8_t evr_enable_ = 0;      // factory EVRDATA4 value; nonzero creates the EVR worker
  std::uint8_t forced_apply_ = 0;    // colour is applied even when it has not changed
  std::uint8_t iris_hold_ = 0;       // auto iris is held open
  std::int32_t binning_mode_ = 0;    // 4 automatic, 2 by hand, 1 and 3 as requested
  std::uint8_t binning_on_ = 0;      // the binning function last switched binning on
  std::uint8_t forced_binning_ = 0;  // binning is forced

  // Objects, from the thread's start to its end.
  LibraryObjects* library_ = nullptr;
  std::unique_ptr<DspCommand> dsp_;
  std::unique_ptr<FocusAssist> focus_assist_;
  std::unique_ptr<AutoDaynight> auto_daynight_;
  std::unique_ptr<OnepushWB> onepush_wb_;
  std::unique_ptr<EVRControl> evr_control_;
  // Opened when the thread starts. An object of zeros takes no room in the library's file.
  int gpio0_ = 0;
  int gpio4_ = 0;
};

}  // namespace ipcam::camera
