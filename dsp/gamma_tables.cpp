// Gamma curve parameter tables and the curves that other programs load by letter and number.
#include <array>
#include <span>

#include "dsp/register_rows.h"
#include "ipcam/camera/parameter_tables.h"

namespace ipcam::camera {
namespace {

constexpr std::size_t kCurves = 8;

// One known row of a chroma curve table.
struct KnownRow {
  std::size_t row;
  std::uint8_t values[kCurves];
};

// Value of curve `curve` in row `row` of a sequence of known rows in ascending order:
// on the straight line between its two known neighbours, rounded to the nearest; behind
// the last known row that row's value.
consteval std::uint8_t value_at(std::span<const KnownRow> known, std::size_t row,
                                std::size_t curve) {
  std::size_t next = 0;
  while (next < known.size() && known[next].row < row) ++next;
  if (next == known.size()) return known[next - 1].values[curve];
  const KnownRow& after = known[next];
  if (after.row == row) return after.values[curve];

  const KnownRow& before = known[next - 1];
  const std::size_t distance = after.row - before.row;
  const std::size_t sum =
      before.values[curve] * (after.row - row) + after.values[curve] * (row - before.row);
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

// The known rows of the chroma curves. Even rows of 'e': all known, the same from row 4 to 32
// and from row 34 to 60. Even rows of 'c': known and the same from row 2 to 10. Every other row
// that does not stand here is filled in.
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
    row("ygamma_0"), row("ygamma_1"), row("ygamma_2"), row("ygamma_3"), row("ygamma_4"),
    row("ygamma_5"), row("ygamma_6"), row("ygamma_7"), row("ygamma_8"), row("ygamma_9"),
};

constinit param_info g_cgamma[] = {
    row("cgamma_0"), row("cgamma_1"), row("cgamma_2"), row("cgamma_3"),
    row("cgamma_4"), row("cgamma_5"), row("cgamma_6"), row("cgamma_7"),
    row("cgamma_8"), row("cgamma_9"), row("cgamma_10"), row("cgamma_11"),
    row("cgamma_12"), row("cgamma_13"), row("cgamma_14"), row("cgamma_15"),
    row("cgamma_16"), row("cgamma_17"), row("cgamma_18"), row("cgamma_19"),
    row("cgamma_20"), row("cgamma_21"), row("cgamma_22"), row("cgamma_23"),
    row("cgamma_24"), row("cgamma_25"), row("cgamma_26"), row("cgamma_27"),
    row("cgamma_28"), row("cgamma_29"), row("cgamma_30"), row("cgamma_31"),
    row("cgamma_32"), row("cgamma_33"), row("cgamma_34"), row("cgamma_35"),
    row("cgamma_36"), row("cgamma_37"), row("cgamma_38"), row("cgamma_39"),
    row("cgamma_40"), row("cgamma_41"), row("cgamma_42"), row("cgamma_43"),
    row("cgamma_44"), row("cgamma_45"), row("cgamma_46"), row("cgamma_47"),
    row("cgamma_48"), row("cgamma_49"), row("cgamma_50"), row("cgamma_51"),
    row("cgamma_52"), row("cgamma_53"), row("cgamma_54"), row("cgamma_55"),
    row("cgamma_56"), row("cgamma_57"), row("cgamma_58"), row("cgamma_59"),
    row("cgamma_60"), row("cgamma_61"), row("cgamma_62"), row("cgamma_63"),
    row("cgamma_64"), row("cgamma_65"), row("cgamma_66"), row("cgamma_67"),
};

const std::uint8_t g_eygamma_val[] = {
    // curves 0 to 7
    0x38, 0x34, 0x28, 0x21, 0x0b, 0x01, 0x01, 0x01,  // ygamma_0
    0x48, 0x4a, 0x58, 0x69, 0x76, 0x80, 0x80, 0x80,  // ygamma_1
    0x58, 0x75, 0x88, 0x98, 0xa6, 0xb2, 0xbb, 0xc2,  // ygamma_2
    0x68, 0xaf, 0xb8, 0xc1, 0xc7, 0xcc, 0xd2, 0xd5,  // ygamma_3
    0x78, 0xe3, 0xe3, 0xe3, 0xe3, 0xdb, 0xdb, 0xdb,  // ygamma_4
    0x88, 0xdb, 0xdb, 0xdb, 0xdb, 0xd5, 0xd5, 0xd5,  // ygamma_5
    0x98, 0xd3, 0xd3, 0xd3, 0xd3, 0xcf, 0xcf, 0xcf,  // ygamma_6
    0xa8, 0xcb, 0xcb, 0xcb, 0xcb, 0xc9, 0xc9, 0xc9,  // ygamma_7
    0xb8, 0xc3, 0xc3, 0xc3, 0xc3, 0xc3, 0xc3, 0xc3,  // ygamma_8
    0xc8, 0xbb, 0xbb, 0xbb, 0xbb, 0xbd, 0xbd, 0xbd,  // ygamma_9
};

const std::uint8_t g_cygamma_val[] = {
    // curves 0 to 7
    0x39, 0x3c, 0x32, 0x28, 0x1b, 0x0f, 0x01, 0x01,  // ygamma_0
    0x48, 0x42, 0x4d, 0x59, 0x66, 0x72, 0x80, 0x80,  // ygamma_1
    0x58, 0x5b, 0x6a, 0x79, 0x85, 0x90, 0x9b, 0xa6,  // ygamma_2
    0x68, 0x79, 0x86, 0x91, 0x99, 0x90, 0xa7, 0xaa,  // ygamma_3
    0x78, 0x9d, 0xa3, 0xa7, 0xaa, 0xac, 0xae, 0xb1,  // ygamma_4
    0x88, 0xc3, 0xbd, 0xba, 0xb7, 0xb4, 0xb2, 0xb0,  // ygamma_5
    0x98, 0xed, 0xdd, 0xcd, 0xc4, 0xbd, 0xb6, 0xb2,  // ygamma_6
    0xa7, 0xf2, 0xe7, 0xe1, 0xd2, 0xc5, 0xba, 0xb2,  // ygamma_7
    0xb8, 0xc5, 0xc5, 0xc5, 0xdc, 0xce, 0xbe, 0xb4,  // ygamma_8
    0xc6, 0xba, 0xba, 0xbb, 0xa2, 0xc6, 0xc2, 0xb3,  // ygamma_9
};

// The exported tables are plain arrays, which only a list can fill: all 68 rows of the curves
// computed above.
#define CURVE_ROW(curves, row)                                                                \
  curves[8 * (row) + 0], curves[8 * (row) + 1], curves[8 * (row) + 2], curves[8 * (row) + 3], \
  curves[8 * (row) + 4], curves[8 * (row) + 5], curves[8 * (row) + 6], curves[8 * (row) + 7]
#define CURVE_ROWS_4(curves, row)                         \
  CURVE_ROW(curves, row), CURVE_ROW(curves, (row) + 1),   \
  CURVE_ROW(curves, (row) + 2), CURVE_ROW(curves, (row) + 3)
#define CURVE_ROWS_16(curves, row)                              \
  CURVE_ROWS_4(curves, row), CURVE_ROWS_4(curves, (row) + 4),   \
  CURVE_ROWS_4(curves, (row) + 8), CURVE_ROWS_4(curves, (row) + 12)
#define CURVE_ROWS(curves)                                      \
  CURVE_ROWS_16(curves, 0), CURVE_ROWS_16(curves, 16),          \
  CURVE_ROWS_16(curves, 32), CURVE_ROWS_16(curves, 48), CURVE_ROWS_4(curves, 64)

const std::uint8_t g_ecgamma_val[] = {CURVE_ROWS(kCurvesE)};
const std::uint8_t g_ccgamma_val[] = {CURVE_ROWS(kCurvesC)};
// clang-format on

}  // namespace ipcam::camera
