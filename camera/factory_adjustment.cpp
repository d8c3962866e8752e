// Per-camera adjustment values: from the files of the factory into the image processor's registers.
#include "camera/factory_adjustment.h"

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

constexpr char kCameraFile[] = "/var/tmp/AdjCamera.txt";
constexpr std::size_t kCameraBytesRead = 48;
constexpr std::size_t kCameraBytesUsed = 40;
constexpr std::size_t kWbBytesRead = 12;
constexpr std::size_t kWbBytesUsed = 8;

constexpr unsigned kValidMark = 1;
constexpr std::size_t kEvrOffset = 2;

// One register of a write command: the text before its data, and the file offset of its data.
struct AdjustmentRow {
  const char* prefix;
  std::uint8_t offset;
};
using AdjustmentRows = std::span<const AdjustmentRow>;

// clang-format off
constexpr AdjustmentRow kAdjustmentRows[] = {
    // Camera parameters.
    {"w,9,3,0xff,", 2}, {";9,4,0xff,", 3}, {";11,16,0xff,", 4}, {";11,17,0xff,", 5},
    // R-Y hue.
    {"w,16,38,0xff,", 8}, {";16,39,0xff,", 9}, {";16,42,0xff,", 12}, {";16,43,0xff,", 13},
    {";16,46,0xff,", 16}, {";16,47,0xff,", 17}, {";16,50,0xff,", 20}, {";16,51,0xff,", 21},
    // B-Y hue.
    {"w,16,40,0xff,", 10}, {";16,41,0xff,", 11}, {";16,44,0xff,", 14}, {";16,45,0xff,", 15},
    {";16,48,0xff,", 18}, {";16,49,0xff,", 19}, {";16,52,0xff,", 22}, {";16,53,0xff,", 23},
    // R-Y gain.
    {"w,16,54,0xff,", 24}, {";16,55,0xff,", 25}, {";16,58,0xff,", 28}, {";16,59,0xff,", 29},
    {";16,62,0xff,", 32}, {";16,63,0xff,", 33}, {";16,66,0xff,", 36}, {";16,67,0xff,", 37},
    // B-Y gain.
    {"w,16,56,0xff,", 26}, {";16,57,0xff,", 27}, {";16,60,0xff,", 30}, {";16,61,0xff,", 31},
    {";16,64,0xff,", 34}, {";16,65,0xff,", 35}, {";16,68,0xff,", 38}, {";16,69,0xff,", 39},
    // White balance, from a file of its own.
    {"w,13,8,0xff,", 2}, {";13,9,0xff,", 3}, {";13,10,0xff,", 4},
    {";13,11,0xff,", 5}, {";13,12,0xff,", 6}, {";13,13,0xff,", 7},
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
constexpr AdjustmentCommand kWbCommand = {"WBParam", AdjustmentRows(kAdjustmentRows).subspan(36, 6)};
// clang-format on

using CommandText = std::array<char, 256>;

// Characters of the command at its longest, when every data byte has three digits, with the terminator.
constexpr std::size_t longest_text(const AdjustmentCommand& command) {
  std::size_t size = 1;
  for (const AdjustmentRow& row : command.rows) size += std::string_view(row.prefix).size() + 3;
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
    used +=
        static_cast<std::size_t>(std::snprintf(&text[used], text.size() - used, "%s%d", row.prefix, file[row.offset]));
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

// Reads the start of an adjustment file into `file`. Fewer than `used` bytes are refused, so that no register is set
// from a byte that is not there.
AdjustmentFile read_adjustment_file(const char* path, std::span<unsigned char> file, std::size_t used) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(path, "rb"), &std::fclose);
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
  run_text(*dsp_, "w,11,1,0x07,5");
  run_text(*dsp_, "w,2,3,0x03,1");

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
