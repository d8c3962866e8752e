// Reading and writing the stored camera settings record.
#include "settings/settings_record.h"

namespace ipcam::camera {

char g_settings_file[] = "all.conf";

constinit LibraryMutex g_record_lock;

bool read_settings(ipcam::config::ConfigFile& config, SettingsRecord& record) {
  return config.read_record(&record, kSettingsKind) == 0;
}

bool write_settings(ipcam::config::ConfigFile& config, SettingsRecord& record) {
  return config.write_record(&record, kSettingsKind) == 0;
}

}  // namespace ipcam::camera
