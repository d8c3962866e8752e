// The stored settings as the programs of a workstation read, write
// and, where there are none, begin them.
#include "workstation/stored_record.h"

#include <cstdlib>

namespace ipcam::workstation {

std::optional<camera::SettingsRecord> read_stored_record() {
  config::ConfigFile file(camera::g_settings_file);
  camera::SettingsRecord record{};
  if (!camera::read_settings(file, record)) return std::nullopt;
  return record;
}

bool write_stored_record(const camera::SettingsRecord& record) {
  config::ConfigFile file(camera::g_settings_file);
  camera::SettingsRecord copy = record;
  return camera::write_settings(file, copy);
}

std::filesystem::path stored_record_path() {
  const char* folder = std::getenv("IPCAM_CONFIG_DIR");
  return std::filesystem::path(folder == nullptr ? "" : folder) / camera::g_settings_file;
}

camera::SettingsRecord sample_record() {
  camera::SettingsRecord record{};
  record.snapshot.wb_mode = 4;       // atw
  record.snapshot.expcomp_gate = 0;  // open
  record.snapshot.blcomp = 0;
  record.snapshot.saturation = 3;
  record.snapshot.expcomp = 9;  // none
  record.snapshot.color = 1;
  record.snapshot.sharpness = 3;
  record.snapshot.contrast = 3;
  record.snapshot.exposure_mode = 1;  // not flickerless
  record.snapshot.auto_shutter = 1;
  record.snapshot.gamma = 0;
  record.binning_mode = 2;  // by hand
  return record;
}

}  // namespace ipcam::workstation
