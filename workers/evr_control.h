// EVR worker: follows the sensor's shutter value once a second.
#pragma once

#include <atomic>
#include <cstdint>

#include "ipcam/camera/dsp_command.h"
#include "ipcam/comm/mutex.h"
#include "ipcam/thread.h"
#include "workers/run_state.h"

namespace ipcam::camera {

// While it runs, EVRDATA4 is 255 for a shutter value above 1 and the factory value otherwise. A run ends when it is
// stopped, or by itself when the sub CPU reports the adjustment mode.
//
// The control thread starts and stops it; start_thread() and what it calls run on the worker's thread. A run that has
// been stopped writes no further register.
//
// The DspCommand is a loan: it must outlive the worker. Before the worker is destroyed, its run must have ended:
// stop_thread(), wait_until_idle().
class EVRControl : public ipcam::Thread {
 public:
  // `evrdata4` is the factory value of EVRDATA4.
  EVRControl(unsigned char evrdata4, DspCommand* dsp);
  ~EVRControl() override = default;

  // One run. Returns the result of its last read or write, -1 when there was none.
  int start_thread() override;
  // Stops the run that is in progress or has been started. Returns 0 at once; the run ends after its current sleep of
  // one second. Any thread.
  int stop_thread() override;

  // Starts a run on a thread of its own. Returns 0, or -1 when one is still in progress or no thread could be
  // created. Control thread only.
  int start();
  // Waits without limit until no run is in progress. Not on the worker's thread.
  void wait_until_idle();

  void setActive();
  void setInactive();

  // Returns 1 in the adjustment mode, else 0, also when that could not be read.
  int getAdjustMode();
  // Reads the shutter value. Returns 0 or -1.
  int getShutterSpeedFromARM7();
  // Writes EVRDATA4. Returns 0 or -1.
  int setEVRDATA4ToARM7(unsigned char value);
  // Returns 1 while the sensor mode is nonzero, else 0, also when that could not be read.
  int getCPUMode();

 private:
  using ipcam::Thread::execute_process;  // start() is the one way to start a thread

  // False once the run has been stopped.
  bool may_go_on();

  DspCommand* dsp_;
  std::atomic<std::uint8_t> active_{0};  // 1 while the worker should run; written under mutex_ only
  ipcam::comm::Mutex mutex_;
  // Worker's thread only.
  std::uint8_t cpu_mode_ = 0;
  std::uint8_t adjust_mode_ = 0;
  std::uint8_t evrdata4_;
  std::uint16_t shutter_value_ = 0;
  WorkerRun run_;
};

}  // namespace ipcam::camera
