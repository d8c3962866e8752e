// Focus-assist worker of the camera.
#pragma once

#include "ipcam/thread.h"

namespace ipcam::eptz {
class PostProcessInterface;
}

namespace ipcam::camera {

class DspCommand;

// The host's worker only sleeps from start to stop and touches neither of the
// objects that it is given. Two runs never overlap: one started while another goes
// on ends at once. All operations: any thread.
class FocusAssist : public ipcam::Thread {
 public:
  // Starts no run. Both objects are loans, which the camera's own
  // worker uses until its destructor returns.
  FocusAssist(ipcam::eptz::PostProcessInterface* post_process, DspCommand* dsp);
  // Ends a run and waits until it is over.
  ~FocusAssist() override;

  // One run, for the thread that execute_process() creates. Returns 0.
  int start_thread() override;
  // Ends every run that was started before; does not wait. Returns 0.
  int stop_thread() override;

  // The stored focus-assist level. Accepts every level. Returns 0.
  int setLevel(int level);
};

}  // namespace ipcam::camera
