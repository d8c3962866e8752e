// Per-camera adjustment values: from the files of the factory into the image processor's registers.
#include "camera/factory_adjustment.h"

#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string_view>

#include "camera/control_thread.h"
#include "camera/register_text.h"

namespace ipcam::camera {

namespace {

constexpr std::size_t kCameraBytesRead = 48;
constexpr std::size_t kCameraBytesUsed = 40;
constexpr std::size_t kWbBytesRead = 12;
constexpr std::size_t kWbBytesUsed = 8;

constexpr unsigned kValidMark = 1;
constexpr std::size_t kEvrOffset = 2;

// One register of a write command: the text before its data, and the file offset of its data.
struct AdjustmentRow {
  WritePrefix prefix;
  std::uint8_t offset;
};
using AdjustmentRows = std::span<const AdjustmentRow>;

// clang-format off
constexpr AdjustmentRow kAdjustmentRows[] = {
    // Camera parameters.
    {first_write("evrdata4"), 2}, {next_write("factory_adjust_a"), 3},
    {next_write("factory_adjust_b"), 4}, {next_write("factory_adjust_c"), 5},
    // R-Y hue.
    {first_write("hue_coefficient_0"), 8}, {next_write("hue_coefficient_1"), 9},
    {next_write("hue_coefficient_4"), 12}, {next_write("hue_coefficient_5"), 13},
    {next_write("hue_coefficient_8"), 16}, {next_write("hue_coefficient_9"), 17},
    {next_write("hue_coefficient_12"), 20}, {next_write("hue_coefficient_13"), 21},
    // B-Y hue.
    {first_write("hue_coefficient_2"), 10}, {next_write("hue_coefficient_3"), 11},
    {next_write("hue_coefficient_6"), 14}, {next_write("hue_coefficient_7"), 15},
    {next_write("hue_coefficient_10"), 18}, {next_write("hue_coefficient_11"), 19},
    {next_write("hue_coefficient_14"), 22}, {next_write("hue_coefficient_15"), 23},
    // R-Y gain.
    {first_write("gain_coefficient_0"), 24}, {next_write("gain_coefficient_1"), 25},
    {next_write("gain_coefficient_4"), 28}, {next_write("gain_coefficient_5"), 29},
    {next_write("gain_coefficient_8"), 32}, {next_write("gain_coefficient_9"), 33},
    {next_write("gain_coefficient_12"), 36}, {next_write("gain_coefficient_13"), 37},
    // B-Y gain.
    {first_write("gain_coefficient_2"), 26}, {next_write("gain_coefficient_3"), 27},
    {next_write("gain_coefficient_6"), 30}, {next_write("gain_coefficient_7"), 31},
    {next_write("gain_coefficient_10"), 34}, {next_write("gain_coefficient_11"), 35},
    {next_write("gain_coefficient_14"), 38}, {next_write("gain_coefficient_15"), 39},
    // White balance, from a file of its own.
    {first_write("wb_adjust_0"), 2}, {next_write("wb_adjust_1"), 3},
    {next_write("wb_adjust_2"), 4},
    {next_write("wb_adjust_3"), 5}, {next_write("wb_adjust_4"), 6},
    {next_write("wb_adjust_5"), 7},
};

// The rows that make one command, and the command's name in the log.
struct AdjustmentCommand {
  const char* name;
  AdjustmentRows rows;
};

constexpr AdjustmentCommand kCameraCommands[] = {
    {"CameraParam", AdjustmentRows(kAdjustmentRows).subspan(0, 4)},
    {"RYHUE", AdjustmentRows(kAdjustmentRows).subspan(4, 8)},
    {"BYHUE", AdjustmentRows(kAdjustmentRows).subspan(12, 8)},
    {"RYGAIN", AdjustmentRows(kAdjustmentRows).subspan(20, 8)},
    {"BYGAIN", AdjustmentRows(kAdjustmentRows).subspan(28, 8)},
};
constexpr AdjustmentCommand kWbCommand = {"WBParam",
                                           AdjustmentRows(kAdjustmentRows).subspan(36, 6)};
// clang-format on

using CommandText = std::array<char, 256>;

// Characters of the command at its longest, when every data byte has
// three digits, with the terminator.
constexpr std::size_t longest_text(const AdjustmentCommand& command) {
  std::size_t size = 1;
  for (const AdjustmentRow& row : command.rows)
    size += std::string_view(row.prefix.text).size() + 3;
  return size;
}

constexpr bool every_command_fits() {
  for (const AdjustmentCommand& command : kCameraCommands) {
    if (longest_text(command) > std::tuple_size_v<CommandText>) return false;
  }
  return longest_text(kWbCommand) <= std::tuple_size_v<CommandText>;
}
static_assert(every_command_fits());
static_assert(kWbCommand.rows.back().offset < kWbBytesUsed);

CommandText build_command(AdjustmentRows rows, const unsigned char* file) {
  CommandText text{};
  std::size_t used = 0;
  for (const AdjustmentRow& row : rows) {
    used += static_cast<std::size_t>(
        std::snprintf(&text[used], text.size() - used, "%s%d", row.prefix.text, file[row.offset]));
  }
  return text;
}

void send_adjustment(DspCommand& dsp, const AdjustmentCommand& command, const unsigned char* file) {
  CommandText text = build_command(command.rows, file);
  // Printed first: the text is split in place when it is run.
  std::fprintf(stderr, "Loaded %s : %s\n", command.name, text.data());
  unsigned char reply[32] = {};
  dsp.do_debug(reinterpret_cast<unsigned char*>(text.data()), reply);
}

// Reads the start of an adjustment file into `file`. Fewer than `used` bytes are refused, so that
// no register is set from a byte that is not there.
AdjustmentFile read_adjustment_file(const char* path, std::span<unsigned char> file,
                                    std::size_t used) {
  // To open a pipe would wait for somebody who writes, and the camera would not start.
  struct stat about {};
  if (stat(path, &about) == 0 && S_ISFIFO(about.st_mode)) return AdjustmentFile::kCannotOpen;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(path, "rb"),
                                                               &std::fclose);
  if (!stream) return AdjustmentFile::kCannotOpen;
  if (std::fread(file.data(), 1, file.size(), stream.get()) < used) return AdjustmentFile::kInvalid;
  return file[0] + 256u * file[1] == kValidMark ? AdjustmentFile::kValid : AdjustmentFile::kInvalid;
}

}  // namespace

AdjustmentFile load_wb_adjustment(DspCommand& dsp, const char* path) {
  unsigned char file[kWbBytesRead] = {};
  const AdjustmentFile read = read_adjustment_file(path, file, kWbBytesUsed);
  if (read == AdjustmentFile::kCannotOpen) return read;
  if (read == AdjustmentFile::kInvalid) {
    std::fprintf(stderr, "Invalid WB Parameter!\n");
    return read;
  }
  send_adjustment(dsp, kWbCommand, file);
  return read;
}

int ControlThread::apply_factory_adjustment(bool half_pixel_wb) {
  write_register(*dsp_, row("flickerless", 5));
  write_register(*dsp_, row("hdrsl", 1));

  unsigned char file[kCameraBytesRead] = {};
  const AdjustmentFile read = read_adjustment_file(kCameraFile, file, kCameraBytesUsed);
  if (read == AdjustmentFile::kCannotOpen) return -1;
  if (read == AdjustmentFile::kInvalid) {
    std::fprintf(stderr, "Invalid Camera Parameter!\n");
    return -1;
  }
  evr_enable_ = file[kEvrOffset];
  for (const AdjustmentCommand& command : kCameraCommands) send_adjustment(*dsp_, command, file);

  const char* wb_file = half_pixel_wb ? kHalfPixelWbFile : kAllPixelWbFile;
  return load_wb_adjustment(*dsp_, wb_file) == AdjustmentFile::kValid ? 0 : -1;
}

}  // namespace ipcam::camera
