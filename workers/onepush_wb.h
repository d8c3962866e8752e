// One-push white balance: measures the scene once, then holds the result.
#pragma once

#include <cstdint>
#include <list>

#include "ipcam/camera/dsp_command.h"
#include "workers/worker.h"

namespace ipcam::camera {

// One measurement is one run: it lets the image processor measure, polls the gains until
// they stop moving, saves them in the camera settings record and makes them the preset that
// is in force. To replace one: stop_thread(), wait_until_idle(), start(). The DspCommand is
// a loan: it must outlive the worker's runs.
class OnepushWB : public Worker {
 public:
  explicit OnepushWB(DspCommand* dsp);
  ~OnepushWB() override = default;

  // One measurement. Returns 0 when the gains settled and were saved, else -1.
  int start_thread() override;

  // Reads the current gains and keeps them as the newest samples. Returns 0 or -1.
  int getRBGainFromARM7();
  // Writes the last gains read into preset 1 and selects it. Returns 0, or -1
  // also when the measurement was stopped.
  int setRBGainToARM7();
  // Saves the last gains read in the camera settings record. Returns 0, or -1
  // also when the measurement was stopped.
  int setRBGainToConf();

 private:
  int measure();
  void save_and_apply_last_reading();
  bool settled() const;

  DspCommand* dsp_;
  // Worker's thread only.
  std::uint16_t red_gain_ = 0;
  std::uint16_t blue_gain_ = 0;
  // The last readings, newest first. Worker's thread only.
  std::list<unsigned short> red_samples_;
  std::list<unsigned short> blue_samples_;
  bool gains_known_ = false;  // a reading has succeeded in the worker's life; worker's thread only
};

}  // namespace ipcam::camera
