// The image processor's registers: category, byte number, bits, name and meaning,
// as its data sheet has them. Everything else speaks of a register by its name
// here; to add a register is to add a row.
#pragma once

#include <algorithm>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace ipcam::registers {

struct Address {
  std::uint8_t category = 0;
  std::uint16_t byte = 0;
  auto operator<=>(const Address&) const = default;
};

// The register so many behind another.
constexpr Address operator+(Address first, std::integral auto count) {
  return {first.category, static_cast<std::uint16_t>(first.byte + count)};
}

enum class Kind : std::uint8_t {
  kWritable,
  kReadOnly,  // no row that writes can be made of it
  kBits,      // a part of the register in the rows before, under a name of its own
};

// A register, or several that follow one another and belong together.
struct Register {
  Address first;
  // 1: NAME; 2: a 16-bit value, NAME_lo and NAME_hi; more: NAME_0, NAME_1, ...
  std::uint16_t count = 0;
  std::uint16_t mask = 0;  // bits in use of each register; above 0xff: of each pair, low byte first
  std::string_view name = {};     // lower case, with underscores
  std::string_view meaning = {};  // and the values that it can take
  Kind kind = Kind::kWritable;
};

// In ascending order.
// clang-format off
inline constexpr Register kRegisters[] = {
    {{0, 0x03}, 1, 0xff, "sensor_mode", "sensor readout: 0 all pixels, 1 binned"},
    {{0, 0x03}, 1, 0x01, "readout", "pixels: 0 all, 1 binned", Kind::kBits},

    {{2, 0x00}, 1, 0x1c, "readout_status",
     "readout in force: 0x08 all pixels, 0x10 binned", Kind::kReadOnly},
    {{2, 0x03}, 1, 0x03, "hdrsl", "HDRSL, set to 1"},

    {{9, 0x03}, 1, 0xff, "evrdata4",
     "EVRDATA4: factory value, or 255 while the shutter value is above 1"},
    {{9, 0x04}, 1, 0xff, "factory_adjust_a", "factory adjustment"},

    {{10, 0x02}, 1, 0xff, "ae_reference", "exposure reference level, two's complement, -9 to 9"},
    {{10, 0x05}, 1, 0xff, "brightness", "brightness"},
    {{10, 0x06}, 1, 0xff, "contrast", "contrast, 0x80 is neutral"},
    {{10, 0x07}, 1, 0xff, "sharpness", "sharpness, 0x80 is neutral"},
    {{10, 0x08}, 1, 0xff, "hue", "hue, two's complement"},
    {{10, 0x09}, 1, 0xff, "saturation", "colour gain, 0x80 is neutral"},
    {{10, 0x0a}, 1, 0x03, "effect", "bit 0 monochrome, bit 1 negative"},
    {{10, 0x0a}, 1, 0x01, "monochrome", "monochrome picture: 0 off, 1 on", Kind::kBits},
    {{10, 0x0a}, 1, 0x02, "negative", "negative picture: 0 off, 2 on", Kind::kBits},
    {{10, 0x0b}, 1, 0xff, "colorbar", "colour-bar test pattern: 0 off, 1 on"},
    {{10, 0x0c}, 1, 0xff, "adjust_mode", "nonzero in the adjustment mode", Kind::kReadOnly},

    {{11, 0x00}, 1, 0xff, "ae_mode",
     "exposure: 0 automatic, 1 slow, 3 manual gain, 4 manual shutter and gain"},
    {{11, 0x01}, 1, 0x07, "flickerless", "flicker reduction, 0 to 5"},
    {{11, 0x03}, 1, 0xff, "expcomp", "exposure compensation, two's complement, -9 to 9"},
    {{11, 0x04}, 1, 0x07, "blcomp", "backlight compensation: 0 off, 1 low, 2 high"},
    {{11, 0x05}, 1, 0xff, "miris_mode_a", "0x55 while the iris is held open"},
    {{11, 0x06}, 1, 0xff, "miris_mode_b", "0x55 while the iris is held open"},
    {{11, 0x07}, 1, 0xff, "ae_manual", "manual exposure value, high byte"},
    {{11, 0x0c}, 1, 0xff, "expcomp_range_a", "range of the exposure compensation"},
    {{11, 0x0d}, 1, 0xff, "expcomp_range_b", "range of the exposure compensation"},
    {{11, 0x0e}, 1, 0xff, "max_frame_exposure_a", "maximum frame exposure"},
    {{11, 0x0f}, 1, 0xff, "max_frame_exposure_b", "maximum frame exposure, the same value again"},
    {{11, 0x10}, 1, 0xff, "factory_adjust_b", "factory adjustment"},
    {{11, 0x11}, 1, 0xff, "factory_adjust_c", "factory adjustment"},
    {{11, 0x14}, 2, 0xff, "normal_shutter_a", "automatic exposure, shutter side"},
    {{11, 0x1a}, 2, 0xff, "normal_gain_a", "automatic exposure, gain ceiling"},
    {{11, 0x20}, 2, 0xff, "slow_shutter_a", "automatic exposure with slow shutter, shutter side"},
    {{11, 0x22}, 2, 0xff, "slow_gain_a", "automatic exposure with slow shutter, gain ceiling"},
    {{11, 0x24}, 2, 0xff, "slow_shutter_b", "automatic exposure with slow shutter, shutter side"},
    {{11, 0x26}, 2, 0xff, "slow_gain_b", "automatic exposure with slow shutter, gain ceiling"},
    {{11, 0x2c}, 2, 0xff, "normal_shutter_b", "automatic exposure, shutter side"},
    {{11, 0x32}, 2, 0xff, "normal_gain_b", "automatic exposure, gain ceiling"},
    {{11, 0x38}, 2, 0xff, "slow_shutter_c", "automatic exposure with slow shutter, shutter side"},
    {{11, 0x3a}, 2, 0xff, "slow_gain_c", "automatic exposure with slow shutter, gain ceiling"},
    {{11, 0x3c}, 2, 0xff, "slow_shutter_d", "automatic exposure with slow shutter, shutter side"},
    {{11, 0x3e}, 2, 0xff, "slow_gain_d", "automatic exposure with slow shutter, gain ceiling"},
    {{11, 0x62}, 2, 0xff, "ae_manual_gain",
     "gain of the manual-gain mode; a manual exposure value's low byte"},
    {{11, 0x68}, 2, 0xff, "fixed_shutter", "shutter of the manual-shutter mode"},
    {{11, 0x6a}, 2, 0xff, "fixed_gain", "gain of the manual-shutter mode"},
    {{11, 0x97}, 7, 0xff, "miris_scale", "iris scale"},
    {{11, 0x9e}, 7, 0xff, "iris_modifier", "iris modifier"},

    {{12, 0x00}, 1, 0x07, "wb_mode",
     "white balance: 0 atwpro, 1 atw or measuring, 4 manual gains, 5 preset 1"},
    {{12, 0x01}, 1, 0x03, "wb_atwpro", "2 with white balance atwpro"},
    {{12, 0x7c}, 2, 0xff, "manual_red_gain", "manual red gain, 1500 to 10170"},
    {{12, 0x7e}, 2, 0xff, "manual_blue_gain", "manual blue gain, 1500 to 10170"},
    {{12, 0x80}, 2, 0xff, "preset1_red_gain", "red gain of the last one-push measurement"},
    {{12, 0x82}, 2, 0xff, "preset1_blue_gain", "blue gain of the last one-push measurement"},

    {{13, 0x00}, 2, 0xff, "shutter_limit_a",
     "automatic exposure, end of the shutter side; gain on or off"},
    {{13, 0x01}, 1, 0x07, "agc", "automatic gain control: 0 off, 1 on", Kind::kBits},
    {{13, 0x02}, 2, 0xff, "shutter_limit_b", "automatic exposure, end of the shutter side"},
    {{13, 0x04}, 2, 0xff, "gain_limit_a", "automatic exposure, end of the gain side"},
    {{13, 0x06}, 2, 0xff, "gain_limit_b", "automatic exposure, end of the gain side"},
    {{13, 0x08}, 6, 0xff, "wb_adjust", "factory white-balance adjustment of the readout in force"},

    {{14, 0x8c}, 2, 0xff, "measured_red_gain",
     "red gain that white balance has arrived at", Kind::kReadOnly},
    {{14, 0x8e}, 2, 0xff, "measured_blue_gain",
     "blue gain that white balance has arrived at", Kind::kReadOnly},

    {{16, 0x06}, 1, 0xff, "gamma", "number of the built-in gamma curve, 0 to 6"},
    {{16, 0x09}, 1, 0xff, "timing_a", "sensor timing of the readout in force"},
    {{16, 0x0e}, 4, 0xff, "timing_b", "sensor timing of the readout in force"},
    {{16, 0x14}, 4, 0xff, "timing_c", "sensor timing of the readout in force"},
    {{16, 0x1a}, 4, 0xff, "dn_level", "day/night levels: all 0 night, all 0xff day"},
    {{16, 0x26}, 16, 0xff, "hue_coefficient",
     "factory hue coefficients, R-Y twice, then B-Y twice"},
    {{16, 0x36}, 16, 0xff, "gain_coefficient",
     "factory gain coefficients, R-Y twice, then B-Y twice"},

    {{17, 0x1b}, 1, 0x01, "icr_state", "IR-cut filter state", Kind::kReadOnly},
    {{17, 0x1c}, 1, 0xff, "shutter_value", "shutter value of the sensor", Kind::kReadOnly},

    {{18, 0x0c}, 1, 0xff, "lens_adjust", "lens adjustment"},

    {{81, 0x0a}, 2, 0xff, "vmax", "frame length of the sensor", Kind::kReadOnly},
    {{81, 0x56}, 2, 0xff, "frame_lines", "lines of one frame", Kind::kReadOnly},

    {{91, 0x00}, 1, 0x03, "timing_d", "sensor timing of the readout in force"},
    {{91, 0x02}, 1, 0x0f, "timing_e", "sensor timing of the readout in force"},
    {{91, 0x06}, 10, 0xff, "ygamma", "loadable luma gamma curve"},

    {{92, 0x10}, 68, 0x03ff, "cgamma", "loadable chroma gamma curve"},
};
// clang-format on

// Bits of the register at `index` of a row.
constexpr std::uint8_t mask_of(const Register& row, int index) {
  return static_cast<std::uint8_t>(row.mask > 0xff && index % 2 == 1 ? row.mask >> 8
                                                                     : row.mask & 0xff);
}

// Whether writes leave the register as it is.
constexpr bool is_read_only(Address address) {
  return std::ranges::any_of(kRegisters, [&](const Register& row) {
    return row.kind == Kind::kReadOnly && row.first.category == address.category &&
           row.first.byte <= address.byte && address.byte < row.first.byte + row.count;
  });
}

// The register of a row that has this name, or -1. The name of a row of
// several registers is none of theirs.
constexpr int index_of(const Register& row, std::string_view name) {
  if (!name.starts_with(row.name)) return -1;
  std::string_view suffix = name.substr(row.name.size());
  if (row.count == 1) return suffix.empty() ? 0 : -1;
  if (row.count == 2) return suffix == "_lo" ? 0 : suffix == "_hi" ? 1 : -1;
  if (suffix.size() < 2 || suffix[0] != '_' || (suffix[1] == '0' && suffix.size() > 2)) return -1;
  int index = 0;
  for (const char digit : suffix.substr(1)) {
    if (digit < '0' || digit > '9' || index >= row.count) return -1;
    index = 10 * index + (digit - '0');
  }
  return index < row.count ? index : -1;
}

// A register, or the part of one, that has a name.
struct Bits {
  Address address;
  std::uint8_t mask = 0xff;
  bool is_read_only = false;
};

void no_register_has_this_name();  // never defined: where the compiler reports a misspelt name

// By its name: "saturation", "monochrome", "fixed_gain_lo", "cgamma_3". A name
// that is not there does not compile.
consteval Bits bits(std::string_view name) {
  for (const Register& row : kRegisters) {
    const int index = index_of(row, name);
    if (index >= 0) return {row.first + index, mask_of(row, index), row.kind == Kind::kReadOnly};
  }
  no_register_has_this_name();
  return {};
}

consteval Address address(std::string_view name) { return bits(name).address; }

// True when the rows ascend without a register or a name twice, and
// parts lie within their register.
consteval bool is_in_order() {
  std::size_t last = 0;  // row that is no part of another
  for (std::size_t i = 0; i < std::size(kRegisters); ++i) {
    const Register& row = kRegisters[i];
    for (std::size_t before = 0; before < i; ++before) {
      if (kRegisters[before].name == row.name) return false;
    }
    const Register& whole = kRegisters[last];
    const bool is_next = row.first > whole.first + (whole.count - 1);
    if (row.kind != Kind::kBits) {
      if (i > 0 && !is_next) return false;
      last = i;
    } else {
      const int index = row.first.byte - whole.first.byte;
      if (is_next || row.count != 1 || index < 0 || (row.mask & ~mask_of(whole, index)) != 0)
        return false;
    }
  }
  return true;
}
static_assert(is_in_order());

}  // namespace ipcam::registers
