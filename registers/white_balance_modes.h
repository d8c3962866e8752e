// White-balance modes: what the request, the stored record and the setter
// call them, and what is set for them.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "registers/register_values.h"

namespace ipcam::registers {

struct WhiteBalanceMode {
  int request;                 // value of the white-balance request
  int stored;                  // wb_mode of the stored record
  std::string_view keyword;    // of the setter
  std::uint8_t wb_mode;        // value of the register
  std::uint16_t red_gain = 0;  // manual gains of a fixed light source
  std::uint16_t blue_gain = 0;
};

inline constexpr int kOnepushRequest = 7;
inline constexpr int kManualRequest = 9;
inline constexpr int kOnepushStored = 3;
inline constexpr int kSetterOnly = -1;

// clang-format off
inline constexpr WhiteBalanceMode kWhiteBalanceModes[] = {
    // request       stored          keyword            register    red     blue
    {5,               1,              "indoor",          kWbManual,  0x1011, 0x1011},
    {6,               2,              "outdoor",         kWbManual,  0x0af6, 0x190f},
    {kOnepushRequest, kOnepushStored, "onepush",         kWbPreset1},
    {8,               4,              "atw",             kWbAtw},
    {kManualRequest,  5,              "manual",          kWbManual},
    {21,              6,              "atwpro",          kWbAtwpro},
    {64,              10,             "fluorescent",     kWbManual,  0x0af6, 0x190f},
    {65,              11,             "mercurylampmega", kWbManual,  0x0dff, 0x0c0c},
    {kSetterOnly,     kSetterOnly,    "mercurylampsd",   kWbManual,  0x0cfd, 0x080f},
    {kSetterOnly,     kSetterOnly,    "trgon",           kWbAtw},
};
// clang-format on

// Those that can be asked for and stored.
inline constexpr auto kRequestedModes = std::span(kWhiteBalanceModes).first<8>();
static_assert(kRequestedModes.back().request != kSetterOnly &&
              kWhiteBalanceModes[8].request == kSetterOnly);

// The requested mode of this number, or null.
constexpr const WhiteBalanceMode* find_mode(int WhiteBalanceMode::*number, int value) {
  for (const WhiteBalanceMode& mode : kRequestedModes) {
    if (mode.*number == value) return &mode;
  }
  return nullptr;
}

}  // namespace ipcam::registers
