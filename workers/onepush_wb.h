// One-push white balance: measures the scene once, then holds the result.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>

#include "ipcam/camera/dsp_command.h"
#include "ipcam/comm/mutex.h"
#include "ipcam/thread.h"
#include "workers/run_state.h"

namespace ipcam::camera {

// One measurement is one run: it lets the image processor measure, polls the gains until they stop moving, saves them
// in the camera settings record and makes them the preset that is in force.
//
// The control thread starts and stops measurements; start_thread() and what it calls run on the worker's thread.
// A measurement that has been stopped writes no further register and no record. To replace one:
// stop_thread(), wait_until_idle(), start().
//
// The DspCommand is a loan: it must outlive the worker. Before the worker is destroyed, its last measurement must
// have ended: stop_thread(), wait_until_idle().
class OnepushWB : public ipcam::Thread {
 public:
  explicit OnepushWB(DspCommand* dsp);
  ~OnepushWB() override = default;

  // One measurement. Returns 0 when the gains settled and were saved, else -1.
  int start_thread() override;
  // Stops the measurement that is in progress or has been started. Returns 0 at once; the measurement ends after its
  // current poll. Any thread.
  int stop_thread() override;

  // Starts a measurement on a thread of its own. Returns 0, or -1 when one is still in progress or no thread could
  // be created. Control thread only.
  int start();
  // Waits until no measurement is in progress, at most for the rest of a measurement. Not on the worker's thread.
  void wait_until_idle();

  // Reads the current gains and keeps them as the newest samples. Returns 0 or -1.
  int getRBGainFromARM7();
  // Writes the last gains read into preset 1 and selects it. Returns 0, or -1 also when the measurement was stopped.
  int setRBGainToARM7();
  // Saves the last gains read in the camera settings record. Returns 0 or -1.
  int setRBGainToConf();

  void setActive();
  void setInactive();

 private:
  using ipcam::Thread::execute_process;  // start() is the one way to start a thread

  int measure();
  void save_and_apply_last_reading();
  bool settled() const;
  // False once the measurement has been stopped or has reached its end.
  bool may_go_on();

  DspCommand* dsp_;
  // Worker's thread only.
  std::uint16_t red_gain_ = 0;
  std::uint16_t blue_gain_ = 0;
  std::atomic<std::uint8_t> active_{0};  // 1 while a measurement may go on; written under mutex_ only
  // The last readings, newest first. Worker's thread only.
  std::list<unsigned short> red_samples_;
  std::list<unsigned short> blue_samples_;
  ipcam::comm::Mutex mutex_;
  bool gains_known_ = false;  // a reading has succeeded in the worker's life; worker's thread only
  WorkerRun run_;
};

}  // namespace ipcam::camera
