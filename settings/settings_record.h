// The camera settings record of "all.conf", its snapshot, and reading and changing it.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "dsp/locking.h"
#include "ipcam/config/config_file.h"

namespace ipcam::camera {

static_assert(std::endian::native == std::endian::little,
              "the record is little-endian and used in place");

inline constexpr int kSettingsKind = 3;

// The first 172 bytes of the record; the control thread keeps a copy
// of them, the settings snapshot.
struct SettingsSnapshot {
  std::uint8_t reserved0[16];
  std::int32_t wb_mode;       // 16: 1 indoor ... 6 atwpro, 10 fluorescent, 11 mercurylampmega
  std::int32_t expcomp_gate;  // 20: exposure compensation is sent only while 0, 3, 4 or 5
  std::int32_t blcomp;        // 24: 0, 2 or 4
  std::uint8_t reserved28[4];
  std::int32_t gain_level;  // 32: manual gain 0 to 6
  std::uint8_t reserved36[4];
  std::int32_t shutter_speed;  // 40: fixed shutter; 0 to 4 slow, 5 to 14 normal
  std::uint8_t reserved44[4];
  std::int32_t saturation;  // 48: 0 to 6
  std::uint8_t reserved52[4];
  std::int32_t expcomp;  // 56: 0 to 18, 9 is none
  std::uint8_t reserved60[8];
  std::int32_t color;      // 68: 1 colour, 0 monochrome
  std::int32_t sharpness;  // 72: 0 to 6
  std::int32_t rgain;      // 76: manual red gain 0 to 255
  std::int32_t bgain;      // 80: manual blue gain 0 to 255
  std::uint8_t reserved84[12];
  std::uint8_t auto_slow_shutter;  // 96: automatic shutter may go slow
  std::uint8_t reserved97[15];
  std::int32_t contrast;  // 112: 0 to 6
  std::uint8_t reserved116[24];
  std::int32_t exposure_mode;   // 140: 0 flickerless
  std::uint8_t hold_iris_open;  // 144
  std::uint8_t auto_shutter;    // 145: zero: shutter_speed decides
  std::uint8_t reserved146[2];
  std::int32_t slow_shutter_min_speed;  // 148: 0 to 4
  std::int32_t agc_max_gain;            // 152: 0 to 6
  std::int32_t gamma;                   // 156: curve 0 to 6
  std::uint8_t reserved160[8];
  std::uint16_t onepush_rgain;  // 168: register gain of the last one-push measurement
  std::uint16_t onepush_bgain;  // 170
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

// Speeds 0 to 4 are slower than the frame rate. A negative speed counts as a normal one.
constexpr bool is_slow_shutter(std::int32_t shutter_speed) {
  return static_cast<std::uint32_t>(shutter_speed) <= 4;
}

// True when the shutter is fixed at a slow speed: gain and frame
// exposure are then set by hand as well.
constexpr bool has_slow_fixed_shutter(const SettingsSnapshot& settings) {
  return settings.auto_shutter == 0 && is_slow_shutter(settings.shutter_speed);
}

// The whole record. Fields of other programs are carried along untouched in the reserved bytes.
struct SettingsRecord {
  SettingsSnapshot snapshot;
  std::uint8_t reserved172[256];
  std::int32_t focus_assist_level;  // 428
  std::uint8_t reserved432[104];
  std::int32_t icr_condition;  // 536: 2, with icr_enable 1, asks for the IR-cut filter at start-up:
                               // no effect
  std::uint8_t reserved540[86];
  std::uint8_t icr_enable;  // 626
  std::uint8_t reserved627[153];
  std::int32_t binning_mode;  // 780: binning mode at start-up; 4 automatic
  std::uint8_t reserved784[84];
  std::uint8_t half_pixel_wb;  // 868: start-up takes the half-pixel white-balance adjustment file
  std::uint8_t reserved869[3];
  std::int32_t daynight_seconds;  // 872: day/night condition time
  std::int32_t daynight_level;    // 876
};
static_assert(sizeof(SettingsRecord) == 880);
static_assert(offsetof(SettingsRecord, focus_assist_level) == 428 &&
              offsetof(SettingsRecord, icr_condition) == 536 &&
              offsetof(SettingsRecord, icr_enable) == 626 &&
              offsetof(SettingsRecord, binning_mode) == 780 &&
              offsetof(SettingsRecord, half_pixel_wb) == 868 &&
              offsetof(SettingsRecord, daynight_seconds) == 872 &&
              offsetof(SettingsRecord, daynight_level) == 876);

// "all.conf" as a ConfigFile takes it: a writable text, which it copies.
extern char g_settings_file[];

// Reads the record through `config` into `record`, which is zeros before. Returns true when that
// was done; else `record` has what the failed read left there.
//
// The camera's own library has the record's operations at their places among the virtual ones,
// under names of its own. So they are called here and in write_settings() only, where nobody can
// know an object's class and call them by name.
bool read_settings(ipcam::config::ConfigFile& config, SettingsRecord& record);
// Stores the record through `config`. Returns true when that was done.
bool write_settings(ipcam::config::ConfigFile& config, SettingsRecord& record);

// Guards every read-change-write of the stored record, so that two threads that change different
// fields do not lose each other's. A worker's run lock may be taken while it is held, nothing else.
extern LibraryMutex g_record_lock;

enum class RecordUpdate { kDone, kReadFailed, kWriteFailed, kLeft };

// Reads the stored record through `config`, lets `change` set its own fields, and writes the record
// back. If `change` returns false, the stored record is left as it is.
template <class Change>
RecordUpdate update_settings(ipcam::config::ConfigFile& config, Change change) {
  LockGuard<LibraryMutex> lock(g_record_lock);
  SettingsRecord record{};
  if (!read_settings(config, record)) return RecordUpdate::kReadFailed;
  if (!change(record)) return RecordUpdate::kLeft;
  return write_settings(config, record) ? RecordUpdate::kDone : RecordUpdate::kWriteFailed;
}

}  // namespace ipcam::camera
