// The stored settings as the programs of a workstation read, write and, where there are none, begin them.
#include "workstation/stored_record.h"

#include <cstdlib>

namespace ipcam::workstation {

namespace {

// The library has such a class, but does not export it.
class StoredConfig : public config::ConfigFile {
 public:
  StoredConfig() : ConfigFile(file_) {}

 private:
  static inline char file_[] = "all.conf";
};

}  // namespace

std::optional<camera::SettingsRecord> read_stored_record() {
  camera::SettingsRecord record{};
  if (StoredConfig().read_record(&record, camera::kSettingsKind) != 0) return std::nullopt;
  return record;
}

bool write_stored_record(const camera::SettingsRecord& record) {
  camera::SettingsRecord copy = record;
  return StoredConfig().write_record(&copy, camera::kSettingsKind) == 0;
}

std::filesystem::path stored_record_path() {
  const char* folder = std::getenv("IPCAM_CONFIG_DIR");
  return std::filesystem::path(folder == nullptr ? "" : folder) / "all.conf";
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
