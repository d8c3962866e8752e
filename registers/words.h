// What users write: numbers, and names that may be misspelt.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ipcam::registers {

// A number alone, decimal or hexadecimal ("0x"), with nothing behind it.
std::optional<int> parse_number(std::string_view text);

// Names are compared with '_' and '-' as the same letter, since
// requests and stored fields differ in that.
bool same_name(std::string_view a, std::string_view b);

// ", did you mean NAME" for the closest of `names` to `text`, or an empty text when none is close.
std::string did_you_mean(std::string_view text, const std::vector<std::string>& names);

}  // namespace ipcam::registers
