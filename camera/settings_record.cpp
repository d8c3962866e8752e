// Reading and writing the stored camera settings record.
#include "camera/settings_record.h"

namespace ipcam::camera {

namespace {

// ConfigFile takes its path as a writable text and copies it.
char g_settings_file[] = "all.conf";

}  // namespace

constinit LibraryMutex g_record_lock;

ipcam::config::ConfigFile open_config() { return ipcam::config::ConfigFile(g_settings_file); }

bool read_settings(ipcam::config::ConfigFile& config, SettingsRecord& record) {
  return config.read_record(&record, kSettingsKind) == 0;
}

bool write_settings(ipcam::config::ConfigFile& config, SettingsRecord& record) {
  return config.write_record(&record, kSettingsKind) == 0;
}

}  // namespace ipcam::camera
