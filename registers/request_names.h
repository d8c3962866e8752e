// The names of request codes: what people call a setting, a trigger or a query.
#pragma once

#include <algorithm>
#include <iterator>
#include <string_view>

#include "ipcam/camera/camera_request.h"

namespace ipcam::registers {

struct RequestName {
  camera::e_request_code code;
  std::string_view name;
};

inline constexpr RequestName kRequestNames[] = {
    {camera::REQUEST_COLOR, "color"},
    {camera::REQUEST_WB_MODE, "wb"},
    {camera::REQUEST_EXP_COMP, "expcomp"},
    {camera::REQUEST_GAIN, "gain"},
    {camera::REQUEST_BL_COMP, "blcomp"},
    {camera::REQUEST_SHUTTER, "shutter"},
    {camera::REQUEST_SATURATION, "saturation"},
    {camera::REQUEST_SHARPNESS, "sharpness"},
    {camera::REQUEST_R_GAIN, "rgain"},
    {camera::REQUEST_B_GAIN, "bgain"},
    {camera::REQUEST_GET_ICR, "icr"},
    {camera::REQUEST_COLORBAR, "colorbar"},
    {camera::REQUEST_EXP_MODE, "exposure"},
    {camera::REQUEST_ONE_PUSH_TRG, "onepush"},
    {camera::REQUEST_FLICKERLESS, "flickerless"},
    {camera::REQUEST_AUTO_SLOW_SHUTTER, "auto-slow-shutter"},
    {camera::REQUEST_CONTRAST, "contrast"},
    {camera::REQUEST_HOLD_AUTO_IRIS_OPEN, "iris-hold"},
    {camera::REQUEST_AUTO_SHUTTER, "auto-shutter"},
    {camera::REQUEST_AUTO_SLOW_SHUTTER_MIN_SPEED, "slow-shutter-min"},
    {camera::REQUEST_AGC_MAX_GAIN, "agc-max-gain"},
    {camera::REQUEST_GAMMA, "gamma"},
    {camera::REQUEST_BINNING_MODE, "binning-mode"},
    {camera::REQUEST_BINNING, "binning"},
    {camera::REQUEST_FORCE_BINNING, "force-binning"},
    {camera::REQUEST_BINNING_FUNC, "binning-func"},
    {camera::REQUEST_HOLD_AUTO_IRIS_OPEN_INQ, "iris-hold"},
    {camera::REQUEST_DN_MODE, "dnmode"},
    {camera::REQUEST_DN_HYS, "dn-hys"},
    {camera::REQUEST_BN_TIME, "bn-time"},
    {camera::REQUEST_BN_LEVEL, "bn-level"},
};

// Empty for a code that does nothing that can be set, started or asked for.
constexpr std::string_view request_name(int code) {
  const auto* row = std::ranges::find(kRequestNames, code, &RequestName::code);
  return row == std::end(kRequestNames) ? std::string_view() : row->name;
}

}  // namespace ipcam::registers
