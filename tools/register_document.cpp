// camctl document registers: the register map as docs/registers.md has it.
#include <algorithm>

#include "ipcam/camera/parameter_tables.h"
#include "tools/commands.h"

namespace ipcam::tools {

namespace {

using namespace ipcam::camera;  // parameter tables
using registers::Register;

struct ParameterTable {
  std::string_view name;
  std::span<const param_info> rows;
};

// All that the library exports.
#define TABLE(name) \
  { #name, name }
// clang-format off
const ParameterTable kParameterTables[] = {
    TABLE(g_saturation), TABLE(g_sharpness), TABLE(g_contrast), TABLE(g_brightness), TABLE(g_hue),
    TABLE(g_effect_mono), TABLE(g_effect_nega), TABLE(g_colorbar), TABLE(g_gamma), TABLE(g_ygamma),
    TABLE(g_cgamma), TABLE(g_whitebalance_mode), TABLE(g_rgain), TABLE(g_whitebalance_atwpro),
    TABLE(g_bgain), TABLE(g_rbgain_preset1), TABLE(g_blcomp), TABLE(g_whitebalance_preset0),
    TABLE(g_expcomp), TABLE(g_aereference), TABLE(g_expmode), TABLE(g_ae_auto), TABLE(g_ae_manual),
    TABLE(g_ae_preset0), TABLE(g_shutter), TABLE(g_gain), TABLE(g_max_frm_exp),
    TABLE(g_flickerless), TABLE(g_auto_slowshutter), TABLE(g_lens_adjust), TABLE(g_ae_normal),
    TABLE(g_ae_slow), TABLE(g_agc), TABLE(g_agc_max_gain), TABLE(g_miris_mode),
    TABLE(g_iris_modifier), TABLE(g_miris_scl), TABLE(g_binning), TABLE(g_sensormode),
    TABLE(g_dnlevel),
};
// clang-format on
#undef TABLE

// The tables that write the registers of a row; of a part of a register, those that write just
// this part.
std::string tables_of(const Register& row) {
  const auto is_written_by = [&](const param_info& entry) {
    const int index = entry.byte - row.first.byte;
    return entry.category == row.first.category && index >= 0 && index < row.count &&
           (row.kind != registers::Kind::kBits || entry.mask == row.mask);
  };
  std::string names;
  for (const auto& [name, rows] : kParameterTables) {
    if (std::ranges::any_of(rows, is_written_by))
      names += (names.empty() ? "" : ", ") + std::string(name);
  }
  return names;
}

std::string names_of(const Register& row) {
  std::string name(row.name);
  if (row.count == 1) return name;
  if (row.count == 2) return name + "_lo, " + name + "_hi";
  return name + "_0 to " + name + "_" + std::to_string(row.count - 1);
}

std::string bytes_of(const Register& row) {
  const std::string first = hex(row.first.byte);
  return row.count == 1 ? first : first + " to " + hex(row.first.byte + row.count - 1);
}

// A curve of 16-bit values may take two masks in turn.
std::string masks_of(const Register& row) {
  const std::string first = hex(mask_of(row, 0));
  return row.mask > 0xff ? first + ", " + hex(mask_of(row, 1)) : first;
}

}  // namespace

std::string register_document() {
  std::string document;
  int category = -1;
  for (const Register& row : registers::kRegisters) {
    if (row.first.category != category) {
      document += category < 0 ? "" : "\n";
      category = row.first.category;
      document += "## Category " + std::to_string(category) +
                  "\n\n| Byte | Name | Mask | Meaning | Tables |\n|---|---|---|---|---|\n";
    }
    const std::string where = row.kind == registers::Kind::kBits ? "in " : "";
    document += "| " + where + bytes_of(row) + " | " + names_of(row) + " | " + masks_of(row) +
                " | " + meaning_of(row) + " | " + tables_of(row) + " |\n";
  }
  return document;
}

}  // namespace ipcam::tools
