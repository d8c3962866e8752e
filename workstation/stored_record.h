// The stored settings as the programs of a workstation read, write
// and, where there are none, begin them.
#pragma once

#include <filesystem>
#include <optional>

#include "settings/settings_record.h"

namespace ipcam::workstation {

std::optional<camera::SettingsRecord> read_stored_record();
// Returns false when it could not be stored.
bool write_stored_record(const camera::SettingsRecord& record);

// Where the host platform keeps it; the file need not be there.
std::filesystem::path stored_record_path();

// Neutral settings that a control thread starts with: a colour picture with automatic white
// balance, exposure and shutter, and pixels binned by hand only.
camera::SettingsRecord sample_record();

}  // namespace ipcam::workstation
