// EVR worker: follows the sensor's shutter value once a second.
#include "workers/evr_control.h"

#include <unistd.h>

#include <cstdio>

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
      std::fprintf(stderr, "%d@%s#%s: Adjust mode... EVRControl thread has expired.\n", 69, "EVRControl",
                   "start_thread");
      break;
    }
    result = getShutterSpeedFromARM7();
    // A stop during the reads must still keep the register from being written.
    if (result == 0 && may_go_on()) {
      result = setEVRDATA4ToARM7(shutter_value_ > 1 ? kLongShutterEvrData4 : evrdata4_);
    }
    usleep(kInterval_us);
  }
  setInactive();
  return result;
}

// A failed read leaves the zeroed reply: the worker then goes on as in normal operation.
int EVRControl::getAdjustMode() {
  char text[] = "r,10,12";
  char reply[10] = {};
  dsp_->do_debug(text, reply);
  adjust_mode_ = reply[0] != 0 ? 1 : 0;
  return adjust_mode_;
}

int EVRControl::getShutterSpeedFromARM7() {
  char text[] = "r,17,28";
  char reply[10] = {};
  if (dsp_->do_debug(text, reply) == -1) {
    std::fprintf(stderr, "%d@%s#%s: -EVRControl- : couldn't get SHUTTER_VAL.\n", 115, "EVRControl",
                 "getShutterSpeedFromARM7");
    return -1;
  }
  shutter_value_ = static_cast<std::uint8_t>(reply[0]);
  return 0;
}

int EVRControl::setEVRDATA4ToARM7(unsigned char value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%s%d", "w,9,3,0xff,", value);
  char reply[10] = {};
  if (dsp_->do_debug(text, reply) == -1) {
    std::fprintf(stderr, "%d@%s#%s: -EVRControl- : couldn't set EVRDATA4 to 0xFF.\n", 189, "EVRControl",
                 "setEVRDATA4ToARM7");
    return -1;
  }
  return 0;
}

int EVRControl::getCPUMode() {
  char text[] = "r,0,3";
  char reply[10] = {};
  dsp_->do_debug(text, reply);
  cpu_mode_ = reply[0] != 0 ? 1 : 0;
  return cpu_mode_;
}

}  // namespace ipcam::camera
