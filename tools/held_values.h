// What the registers hold, in the terms of the settings.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "sim/register_file.h"
#include "tools/settings_table.h"

namespace ipcam::tools {

// The accepted values of a setting, and how they are numbered.
const Values& values_of(const Setting& setting);
Form form_of(const Setting& setting);

// The registers that show a setting, and those on which its meaning or effect depends.
std::set<registers::Address> registers_of(const Setting& setting);
std::set<registers::Address> registers_around(const Setting& setting);

// The value that the registers of a setting, of which all around it are given, have been written
// for: a word or a level, else "raw" and the registers. Where several values give the same, it is
// `preferred`, if that is one of them. None for a setting that no register shows.
std::optional<std::string> held_text(const Setting& setting, const sim::RegisterMap& registers,
                                     const std::string& preferred);

// Whether a request that has led to these registers, or sent nothing, changes anything now.
bool has_effect(const Setting& setting, const sim::RegisterMap& registers, bool was_sent,
                bool in_shell);

}  // namespace ipcam::tools
