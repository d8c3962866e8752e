// Automatic day/night worker of the camera.
#pragma once

#include "ipcam/thread.h"

namespace ipcam::camera {

class DspCommand;

// The host's worker only sleeps from start to stop and never touches the DspCommand; its
// setters accept every value. Two runs never overlap: one started while another goes on ends
// at once. All operations: any thread.
class AutoDaynight : public ipcam::Thread {
 public:
  // Starts no run. The DspCommand is a loan, which the camera's own
  // worker uses until its destructor returns.
  AutoDaynight(int function, DspCommand* dsp);
  // Ends a run and waits until it is over.
  ~AutoDaynight() override;

  // One run, for the thread that execute_process() creates. Returns 0.
  int start_thread() override;
  // Ends every run that was started before; does not wait. Returns 0.
  int stop_thread() override;

  // Each returns 0.

  // Start-up is over: the worker may use the camera.
  int setCameraReady();
  // Highest automatic gain, 0 to 6.
  int setAgcMaxGain(int level);
  // Light level at which day and night change, 0 to 4095.
  int setDnLevel(int level);
  // Distance from that level that the light must have, 0 to 65535.
  int setDnHys(int hysteresis);
  // How long it must have it.
  int setConditionTime(int milliseconds);
  // Kind of camera, 1 with automatic binning.
  int setCameraType(int type);
};

}  // namespace ipcam::camera
