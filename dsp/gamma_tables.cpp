// Gamma curve parameter tables and the curves that other programs load by letter and number.
#include <array>
#include <span>

#include "ipcam/camera/parameter_tables.h"

namespace ipcam::camera {
namespace {

constexpr std::size_t kCurves = 8;

// One known row of a chroma curve table.
struct KnownRow {
  std::size_t row;
  std::uint8_t values[kCurves];
};

// Value of curve `curve` in row `row` of a sequence of known rows in ascending order: on the straight line
// between its two known neighbours, rounded to the nearest; behind the last known row that row's value.
consteval std::uint8_t value_at(std::span<const KnownRow> known, std::size_t row, std::size_t curve) {
  std::size_t next = 0;
  while (next < known.size() && known[next].row < row) ++next;
  if (next == known.size()) return known[next - 1].values[curve];
  const KnownRow& after = known[next];
  if (after.row == row) return after.values[curve];

  const KnownRow& before = known[next - 1];
  const std::size_t distance = after.row - before.row;
  const std::size_t sum = before.values[curve] * (after.row - row) + after.values[curve] * (row - before.row);
  return static_cast<std::uint8_t>((sum + distance / 2) / distance);
}

// A chroma curve table. Its even and its odd rows are two sequences of their own.
using ChromaCurves = std::array<std::uint8_t, sizeof g_ecgamma_val>;
consteval ChromaCurves chroma_curves(std::span<const KnownRow> even_rows,
                                                      std::span<const KnownRow> odd_rows) {
  ChromaCurves values{};
  for (std::size_t i = 0; i < values.size(); ++i) {
    const std::size_t row = i / kCurves;
    values[i] = value_at(row % 2 == 0 ? even_rows : odd_rows, row, i % kCurves);
  }
  return values;
}

// The known rows of the chroma curves. Even rows of 'e': all known, the same from row 4 to 32 and from row 34 to
// 60. Even rows of 'c': known and the same from row 2 to 10. Every other row that does not stand here is filled in.
// clang-format off
constexpr KnownRow kEvenRowsE[] = {
    { 0, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}},
    { 2, {0x10, 0x00, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10}},
    { 4, {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10}},
    {32, {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10}},
    {34, {0x20, 0x20, 0x20, 0x10, 0x10, 0x10, 0x10, 0x10}},
    {60, {0x20, 0x20, 0x20, 0x10, 0x10, 0x10, 0x10, 0x10}},
    {62, {0x08, 0x08, 0x08, 0x0e, 0x04, 0x02, 0x00, 0x10}},
    {64, {0x20, 0x20, 0x20, 0x10, 0x10, 0x10, 0x10, 0x10}},
    {66, {0x30, 0x30, 0x30, 0x10, 0x10, 0x10, 0x10, 0x10}},
};
constexpr KnownRow kOddRowsE[] = {
    { 1, {0xf8, 0xff, 0xf8, 0xe8, 0xd8, 0xc0, 0x9f, 0x86}},
    { 3, {0x08, 0xff, 0x08, 0x19, 0x29, 0x41, 0x61, 0x7c}},
    {67, {0x08, 0x08, 0x08, 0xce, 0x58, 0x32, 0x0c, 0x30}},
};
constexpr KnownRow kEvenRowsC[] = {
    { 0, {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}},
    { 2, {0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01}},
    {10, {0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01, 0x01}},
};
constexpr KnownRow kOddRowsC[] = {
    { 1, {0xf9, 0xfb, 0xef, 0xdd, 0xc1, 0xae, 0x90, 0x77}},
    { 3, {0x08, 0x02, 0x10, 0x24, 0x3a, 0x53, 0x71, 0x8a}},
};
// clang-format on

constexpr ChromaCurves kCurvesE = chroma_curves(kEvenRowsE, kOddRowsE);
constexpr ChromaCurves kCurvesC = chroma_curves(kEvenRowsC, kOddRowsC);

}  // namespace

// clang-format off
constinit param_info g_ygamma[] = {
    {.category = 91, .byte = 0x06, .mask = 0xff, .data = 0x00},
    {.category = 91, .byte = 0x07, .mask = 0xff, .data = 0x00},
    {.category = 91, .byte = 0x08, .mask = 0xff, .data = 0x00},
    {.category = 91, .byte = 0x09, .mask = 0xff, .data = 0x00},
    {.category = 91, .byte = 0x0a, .mask = 0xff, .data = 0x00},
    {.category = 91, .byte = 0x0b, .mask = 0xff, .data = 0x00},
    {.category = 91, .byte = 0x0c, .mask = 0xff, .data = 0x00},
    {.category = 91, .byte = 0x0d, .mask = 0xff, .data = 0x00},
    {.category = 91, .byte = 0x0e, .mask = 0xff, .data = 0x00},
    {.category = 91, .byte = 0x0f, .mask = 0xff, .data = 0x00},
};

constinit param_info g_cgamma[] = {
    {.category = 92, .byte = 0x10, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x11, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x12, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x13, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x14, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x15, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x16, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x17, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x18, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x19, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x1a, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x1b, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x1c, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x1d, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x1e, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x1f, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x20, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x21, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x22, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x23, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x24, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x25, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x26, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x27, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x28, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x29, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x2a, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x2b, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x2c, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x2d, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x2e, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x2f, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x30, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x31, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x32, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x33, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x34, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x35, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x36, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x37, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x38, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x39, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x3a, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x3b, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x3c, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x3d, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x3e, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x3f, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x40, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x41, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x42, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x43, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x44, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x45, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x46, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x47, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x48, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x49, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x4a, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x4b, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x4c, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x4d, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x4e, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x4f, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x50, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x51, .mask = 0x03, .data = 0x00},
    {.category = 92, .byte = 0x52, .mask = 0xff, .data = 0x00},
    {.category = 92, .byte = 0x53, .mask = 0x03, .data = 0x00},
};

const std::uint8_t g_eygamma_val[] = {
    0x38, 0x34, 0x28, 0x21, 0x0b, 0x01, 0x01, 0x01,
    0x48, 0x4a, 0x58, 0x69, 0x76, 0x80, 0x80, 0x80,
    0x58, 0x75, 0x88, 0x98, 0xa6, 0xb2, 0xbb, 0xc2,
    0x68, 0xaf, 0xb8, 0xc1, 0xc7, 0xcc, 0xd2, 0xd5,
    0x78, 0xe3, 0xe3, 0xe3, 0xe3, 0xdb, 0xdb, 0xdb,
    0x88, 0xdb, 0xdb, 0xdb, 0xdb, 0xd5, 0xd5, 0xd5,
    0x98, 0xd3, 0xd3, 0xd3, 0xd3, 0xcf, 0xcf, 0xcf,
    0xa8, 0xcb, 0xcb, 0xcb, 0xcb, 0xc9, 0xc9, 0xc9,
    0xb8, 0xc3, 0xc3, 0xc3, 0xc3, 0xc3, 0xc3, 0xc3,
    0xc8, 0xbb, 0xbb, 0xbb, 0xbb, 0xbd, 0xbd, 0xbd,
};

const std::uint8_t g_cygamma_val[] = {
    0x39, 0x3c, 0x32, 0x28, 0x1b, 0x0f, 0x01, 0x01,
    0x48, 0x42, 0x4d, 0x59, 0x66, 0x72, 0x80, 0x80,
    0x58, 0x5b, 0x6a, 0x79, 0x85, 0x90, 0x9b, 0xa6,
    0x68, 0x79, 0x86, 0x91, 0x99, 0x90, 0xa7, 0xaa,
    0x78, 0x9d, 0xa3, 0xa7, 0xaa, 0xac, 0xae, 0xb1,
    0x88, 0xc3, 0xbd, 0xba, 0xb7, 0xb4, 0xb2, 0xb0,
    0x98, 0xed, 0xdd, 0xcd, 0xc4, 0xbd, 0xb6, 0xb2,
    0xa7, 0xf2, 0xe7, 0xe1, 0xd2, 0xc5, 0xba, 0xb2,
    0xb8, 0xc5, 0xc5, 0xc5, 0xdc, 0xce, 0xbe, 0xb4,
    0xc6, 0xba, 0xba, 0xbb, 0xa2, 0xc6, 0xc2, 0xb3,
};

// The exported tables are plain arrays, which only a list can fill: all 68 rows of the curves computed above.
#define CURVE_ROW(curves, row)                                                          \
  curves[8 * (row) + 0], curves[8 * (row) + 1], curves[8 * (row) + 2], curves[8 * (row) + 3], \
  curves[8 * (row) + 4], curves[8 * (row) + 5], curves[8 * (row) + 6], curves[8 * (row) + 7]
#define CURVE_ROWS_4(curves, row) \
  CURVE_ROW(curves, row), CURVE_ROW(curves, (row) + 1), CURVE_ROW(curves, (row) + 2), CURVE_ROW(curves, (row) + 3)
#define CURVE_ROWS_16(curves, row) \
  CURVE_ROWS_4(curves, row), CURVE_ROWS_4(curves, (row) + 4), CURVE_ROWS_4(curves, (row) + 8), CURVE_ROWS_4(curves, (row) + 12)
#define CURVE_ROWS(curves) \
  CURVE_ROWS_16(curves, 0), CURVE_ROWS_16(curves, 16), CURVE_ROWS_16(curves, 32), CURVE_ROWS_16(curves, 48), CURVE_ROWS_4(curves, 64)

const std::uint8_t g_ecgamma_val[] = {CURVE_ROWS(kCurvesE)};
const std::uint8_t g_ccgamma_val[] = {CURVE_ROWS(kCurvesC)};
// clang-format on

}  // namespace ipcam::camera
