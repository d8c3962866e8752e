// EVR worker: follows the sensor's shutter value once a second.
#include "workers/evr_control.h"

#include <unistd.h>

#include <cstdio>

#include "dsp/register_rows.h"

namespace ipcam::camera {
namespace {

constexpr useconds_t kInterval_us = 1000000;
constexpr unsigned char kLongShutterEvrData4 = 255;  // while the shutter value is above 1

}  // namespace

EVRControl::EVRControl(unsigned char evrdata4, DspCommand* dsp)
    : Worker("EVRControl"), dsp_(dsp), evrdata4_(evrdata4) {}

int EVRControl::start_thread() {
  const Turn turn(*this);
  if (!turn.is_mine()) return -1;
  setActive();
  int result = -1;
  while (may_go_on()) {
    if (getAdjustMode() == 1) {
      std::fprintf(stderr, "%d@%s#%s: Adjust mode... EVRControl thread has expired.\n", 69,
                   "EVRControl", "start_thread");
      break;
    }
    result = getShutterSpeedFromARM7();
    if (result == 0) {
      result = setEVRDATA4ToARM7(shutter_value_ > 1 ? kLongShutterEvrData4 : evrdata4_);
    }
    usleep(kInterval_us);
  }
  setInactive();
  return result;
}

// A failed read leaves the zeroed reply: the worker then goes on as in normal operation.
int EVRControl::getAdjustMode() {
  adjust_mode_ = read_register(*dsp_, read_row("adjust_mode")) != 0 ? 1 : 0;
  return adjust_mode_;
}

int EVRControl::getShutterSpeedFromARM7() {
  static constexpr param_info kRows[] = {read_row("shutter_value")};
  const RegisterReply reply = read_registers(*dsp_, kRows);
  if (reply.result == -1) {
    std::fprintf(stderr, "%d@%s#%s: -EVRControl- : couldn't get SHUTTER_VAL.\n", 115, "EVRControl",
                 "getShutterSpeedFromARM7");
    return -1;
  }
  shutter_value_ = reply.bytes[0];
  return 0;
}

int EVRControl::setEVRDATA4ToARM7(unsigned char value) {
  param_info evrdata4 = row("evrdata4");
  evrdata4.data = value;
  if (write_register(*dsp_, evrdata4) == -1) {
    std::fprintf(stderr, "%d@%s#%s: -EVRControl- : couldn't set EVRDATA4 to 0xFF.\n", 189,
                 "EVRControl", "setEVRDATA4ToARM7");
    return -1;
  }
  return 0;
}

int EVRControl::getCPUMode() {
  cpu_mode_ = read_register(*dsp_, read_row("sensor_mode")) != 0 ? 1 : 0;
  return cpu_mode_;
}

}  // namespace ipcam::camera
