// What the values of registers mean, where more than one place speaks of them.
#pragma once

#include <cstdint>

namespace ipcam::registers {

// readout_status
inline constexpr std::uint8_t kReadoutAllPixels = 0x08;
inline constexpr std::uint8_t kReadoutBinned = 0x10;

// ae_mode
inline constexpr std::uint8_t kAeNormal = 0;
inline constexpr std::uint8_t kAeSlowShutter = 1;
inline constexpr std::uint8_t kAeManualGain = 3;
inline constexpr std::uint8_t kAeManual = 4;  // shutter and gain

// icr_state, as the request for it answers
inline constexpr int kFilterStateSet = 59;
inline constexpr int kFilterStateClear = 60;

// wb_mode
inline constexpr std::uint8_t kWbAtwpro = 0;
inline constexpr std::uint8_t kWbAtw = 1;      // also while a one-push measurement runs
inline constexpr std::uint8_t kWbManual = 4;   // manual_red_gain and manual_blue_gain
inline constexpr std::uint8_t kWbPreset1 = 5;  // preset1_red_gain and preset1_blue_gain

}  // namespace ipcam::registers
