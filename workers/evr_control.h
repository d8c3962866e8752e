// EVR worker: follows the sensor's shutter value once a second.
#pragma once

#include <cstdint>

#include "ipcam/camera/dsp_command.h"
#include "workers/worker.h"

namespace ipcam::camera {

// While it runs, EVRDATA4 is 255 for a shutter value above 1 and the factory value otherwise. A run
// ends when it is stopped, or by itself when the sub CPU reports the adjustment mode. The
// DspCommand is a loan: it must outlive the worker's runs.
class EVRControl : public Worker {
 public:
  // `evrdata4` is the factory value of EVRDATA4.
  EVRControl(unsigned char evrdata4, DspCommand* dsp);
  ~EVRControl() override = default;

  // One run. Returns the result of its last read or write, -1 when there was none.
  int start_thread() override;

  // Returns 1 in the adjustment mode, else 0, also when that could not be read.
  int getAdjustMode();
  // Reads the shutter value. Returns 0 or -1.
  int getShutterSpeedFromARM7();
  // Writes EVRDATA4. Returns 0 or -1.
  int setEVRDATA4ToARM7(unsigned char value);
  // Returns 1 while the sensor mode is nonzero, else 0, also when that could not be read.
  int getCPUMode();

 private:
  DspCommand* dsp_;
  // Worker's thread only.
  std::uint8_t cpu_mode_ = 0;
  std::uint8_t adjust_mode_ = 0;
  std::uint8_t evrdata4_;
  std::uint16_t shutter_value_ = 0;
};

}  // namespace ipcam::camera
