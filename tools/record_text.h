// The stored settings record by the names of its fields, and as a text file.
#pragma once

#include <string>
#include <string_view>

#include "tools/settings_table.h"
#include "workstation/stored_record.h"

namespace ipcam::tools {

using workstation::read_stored_record;

// Throws CommandError, which `tried` leads, when there is none of that name.
const Field& known_field(const std::string& name, const std::string& tried);

int field_value(const camera::SettingsRecord& record, const Field& field);
void set_field(camera::SettingsRecord& record, const Field& field, int value);

// One line per field, "name = value", then the bytes without a name, "0x054 = 00 00 ...", at most
// 16 a line. Two records that differ in one field differ in one line.
std::string record_text(const camera::SettingsRecord& record);

// Puts what the lines of a file say into `record`; lines may be missing, and a '#' begins a
// comment. Throws an error at the first line that is wrong.
void apply_record_file(const std::string& file, camera::SettingsRecord& record);

}  // namespace ipcam::tools
