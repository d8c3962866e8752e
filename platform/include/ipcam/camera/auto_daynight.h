// Automatic day/night worker of the camera.
#pragma once

#include "ipcam/thread.h"

namespace ipcam::camera {

class DspCommand;

// The host's worker only sleeps from start to stop and never touches the DspCommand; its setters accept every value.
// Two runs never overlap: one started while another goes on ends at once. All operations: any thread.
class AutoDaynight : public ipcam::Thread {
 public:
  AutoDaynight(int function, DspCommand* dsp);
  // Ends a run and waits until it is over.
  ~AutoDaynight() override;

  // One run, for the thread that execute_process() creates. Returns 0.
  int start_thread() override;
  // Ends every run that was started before; does not wait. Returns 0.
  int stop_thread() override;

  // Each returns 0.
  int setCameraReady();
  int setAgcMaxGain(int level);
  int setDnLevel(int level);
  int setDnHys(int hysteresis);
  int setConditionTime(int milliseconds);
  int setCameraType(int type);
};

}  // namespace ipcam::camera
