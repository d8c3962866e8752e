// The camera settings record of "all.conf": what its fields mean together, reading and changing it.
#pragma once

#include "dsp/locking.h"
#include "ipcam/camera/settings_record.h"
#include "ipcam/config/config_file.h"

namespace ipcam::camera {

// Speeds 0 to 4 are slower than the frame rate. A negative speed counts as a normal one.
constexpr bool is_slow_shutter(std::int32_t shutter_speed) {
  return static_cast<std::uint32_t>(shutter_speed) <= 4;
}

// True when the shutter is fixed at a slow speed: gain and frame
// exposure are then set by hand as well.
constexpr bool has_slow_fixed_shutter(const SettingsSnapshot& settings) {
  return settings.auto_shutter == 0 && is_slow_shutter(settings.shutter_speed);
}

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
