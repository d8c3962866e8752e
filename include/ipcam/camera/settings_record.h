// The record in which the camera's settings are stored: "all.conf", little-endian, 880 bytes.
//
// The library takes its settings from there and stores none but the one-push gains and
// hold_iris_open, so a server program stores a setting before, or as well as, it requests it. It
// reads the record through the configuration library, changes its own fields, and writes it back:
//
//   char name[] = "all.conf";
//   ipcam::config::ConfigFile file(name);
//   ipcam::camera::SettingsRecord record{};
//   if (file.read_record(&record, ipcam::camera::kSettingsKind) != 0) ...
//   record.snapshot.saturation = 5;
//   if (file.write_record(&record, ipcam::camera::kSettingsKind) != 0) ...
//
// These are the names of the host's ConfigFile; a camera's own library has names of its own.
//
// Values are those of the record; requests number some of them otherwise (camera_interface.h). A
// record of zeros is a valid one, but of a dark monochrome picture. Reserved bytes belong to other
// programs: they are carried along as they are.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace ipcam::camera {

static_assert(std::endian::native == std::endian::little,
              "the record is little-endian and used in place");

// The record's number for the configuration library.
inline constexpr int kSettingsKind = 3;

// The first 172 bytes of the record; the control thread keeps a copy of them.
struct SettingsSnapshot {
  std::uint8_t reserved0[16];
  // 16: white-balance mode: 1 indoor, 2 outdoor, 3 one-push, 4 atw, 5 manual, 6 atwpro,
  // 10 fluorescent, 11 mercury lamp
  std::int32_t wb_mode;
  std::int32_t expcomp_gate;  // 20: exposure compensation is sent only while 0, 3, 4 or 5
  std::int32_t blcomp;        // 24: backlight compensation: 0 off, 2 low, 4 high
  std::uint8_t reserved28[4];
  std::int32_t gain_level;  // 32: manual gain 0 to 6
  std::uint8_t reserved36[4];
  std::int32_t shutter_speed;  // 40: fixed shutter; 0 to 4 slow, 5 to 14 normal
  std::uint8_t reserved44[4];
  std::int32_t saturation;  // 48: 0 to 6, 3 is neutral
  std::uint8_t reserved52[4];
  std::int32_t expcomp;  // 56: exposure compensation 0 to 18, 9 is none
  std::uint8_t reserved60[8];
  std::int32_t color;      // 68: 1 colour, 0 monochrome
  std::int32_t sharpness;  // 72: 0 to 6, 3 is neutral
  std::int32_t rgain;      // 76: manual red gain 0 to 255
  std::int32_t bgain;      // 80: manual blue gain 0 to 255
  std::uint8_t reserved84[12];
  std::uint8_t auto_slow_shutter;  // 96: 1: the automatic shutter may go slow
  std::uint8_t reserved97[15];
  std::int32_t contrast;  // 112: 0 to 6, 3 is neutral
  std::uint8_t reserved116[24];
  std::int32_t exposure_mode;   // 140: 0 flickerless; 3 with a fixed slow shutter: manual gain
  std::uint8_t hold_iris_open;  // 144: 1 while the iris is held; written by the library
  std::uint8_t auto_shutter;    // 145: 1 automatic shutter, 0: shutter_speed decides
  std::uint8_t reserved146[2];
  std::int32_t slow_shutter_min_speed;  // 148: limit of the slow shutter, 0 to 4
  std::int32_t agc_max_gain;            // 152: limit of the automatic gain, 0 to 6
  std::int32_t gamma;                   // 156: gamma curve 0 to 6
  std::uint8_t reserved160[8];
  std::uint16_t onepush_rgain;  // 168: red register gain of the last one-push measurement
  std::uint16_t onepush_bgain;  // 170: blue one; both are written by the library
};
static_assert(sizeof(SettingsSnapshot) == 172);
static_assert(
    offsetof(SettingsSnapshot, wb_mode) == 16 && offsetof(SettingsSnapshot, expcomp_gate) == 20 &&
    offsetof(SettingsSnapshot, blcomp) == 24 && offsetof(SettingsSnapshot, gain_level) == 32 &&
    offsetof(SettingsSnapshot, shutter_speed) == 40 &&
    offsetof(SettingsSnapshot, saturation) == 48 && offsetof(SettingsSnapshot, expcomp) == 56 &&
    offsetof(SettingsSnapshot, color) == 68 && offsetof(SettingsSnapshot, sharpness) == 72 &&
    offsetof(SettingsSnapshot, rgain) == 76 && offsetof(SettingsSnapshot, bgain) == 80 &&
    offsetof(SettingsSnapshot, auto_slow_shutter) == 96 &&
    offsetof(SettingsSnapshot, contrast) == 112 &&
    offsetof(SettingsSnapshot, exposure_mode) == 140 &&
    offsetof(SettingsSnapshot, hold_iris_open) == 144 &&
    offsetof(SettingsSnapshot, auto_shutter) == 145 &&
    offsetof(SettingsSnapshot, slow_shutter_min_speed) == 148 &&
    offsetof(SettingsSnapshot, agc_max_gain) == 152 && offsetof(SettingsSnapshot, gamma) == 156 &&
    offsetof(SettingsSnapshot, onepush_rgain) == 168 &&
    offsetof(SettingsSnapshot, onepush_bgain) == 170);

// The whole record.
struct SettingsRecord {
  SettingsSnapshot snapshot;
  std::uint8_t reserved172[256];
  std::int32_t focus_assist_level;  // 428: level of the focus assist while the iris is held
  std::uint8_t reserved432[104];
  std::int32_t icr_condition;  // 536: 2, with icr_enable 1, asks for the IR-cut filter at start-up:
                               // no effect
  std::uint8_t reserved540[86];
  std::uint8_t icr_enable;  // 626: see icr_condition
  std::uint8_t reserved627[153];
  std::int32_t binning_mode;  // 780: who bins pixels: 1 nobody, 2 by hand, 3, 4 automatic
  std::uint8_t reserved784[84];
  std::uint8_t half_pixel_wb;  // 868: 1: start-up takes the white-balance file of binned pixels
  std::uint8_t reserved869[3];
  std::int32_t daynight_seconds;  // 872: how long the light must have changed, in seconds
  std::int32_t daynight_level;    // 876: light level of the switch; 0 stands for 32, 1 for 33
};
static_assert(sizeof(SettingsRecord) == 880);
static_assert(offsetof(SettingsRecord, focus_assist_level) == 428 &&
              offsetof(SettingsRecord, icr_condition) == 536 &&
              offsetof(SettingsRecord, icr_enable) == 626 &&
              offsetof(SettingsRecord, binning_mode) == 780 &&
              offsetof(SettingsRecord, half_pixel_wb) == 868 &&
              offsetof(SettingsRecord, daynight_seconds) == 872 &&
              offsetof(SettingsRecord, daynight_level) == 876);

}  // namespace ipcam::camera
