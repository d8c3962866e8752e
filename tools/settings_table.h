// The settings of the camera: one table that drives commands, help, completion,
// the man page and the documentation.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ipcam/camera/camera_request.h"
#include "ipcam/camera/dsp_command.h"
#include "tools/values.h"

namespace ipcam::tools {

enum class Kind {
  kSetting,  // camctl set NAME=VALUE
  kAction,   // camctl do NAME
  kQuery,    // camctl get NAME
  kStored,   // its request does nothing: camctl config set FIELD=VALUE, then camctl do exposure
};

// When a request changes anything that can be seen, as far as this tool can tell.
enum class Effect {
  kAlways,
  kWhenSent,            // else it is only remembered
  kInShell,             // lost when the control thread ends
  kManualWhiteBalance,  // registers that other white-balance modes do not look at
  kManualExposure,      // registers that the automatic exposure does not look at
};

struct Setting {
  std::string_view name = {};  // of its code
  camera::e_request_code code;
  Kind kind = Kind::kSetting;
  Values values = {};  // of a stored setting: those of its field
  std::string_view meaning;
  std::string_view depends = {};  // when it has an effect, or what else it needs; empty: nothing
  std::string_view field = {};    // field of the stored record that holds it; empty: none
  Effect effect = Effect::kAlways;
  // Parameter tables whose registers show the setting.
  std::array<std::span<const camera::param_info>, 3> tables = {};
};

// In ascending order of codes.
std::span<const Setting> settings();

// Null when there is none of that kind.
const Setting* find_setting(Kind kind, std::string_view name);
std::vector<std::string> setting_names(std::optional<Kind> kind = {});  // without one: of all
std::string_view kind_name(Kind kind);
// The setting that a stored field holds, or null.
const Setting* find_setting_of(std::string_view field);

// One field of the stored record.
struct Field {
  std::string_view name;
  std::size_t offset;
  std::size_t width;  // 1, 2 or 4 bytes; those of 4 are signed
  Values values = {};
  std::string_view meaning;
};

// In ascending order of offsets.
std::span<const Field> stored_fields();
// By its own name, or by that of the setting that it holds; null when there is none.
const Field* find_field(std::string_view name);
std::vector<std::string> field_names();

}  // namespace ipcam::tools
