// The binning engine: switches the sensor between full and binned readout.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "camera/control_thread.h"
#include "camera/factory_adjustment.h"
#include "camera/request_path.h"
#include "dsp/exposure_patterns.h"
#include "dsp/register_rows.h"
#include "ipcam/camera/parameter_tables.h"
#include "registers/register_values.h"

namespace ipcam::camera {

namespace {

constexpr int kAttempts = 5;

// Everything in which the two readouts differ.
struct Readout {
  bool is_binned;
  const char* wb_file;
  std::uint8_t old_status;  // readout_status as long as the sensor has not switched
  // Sensor timing, in the order sent: three commands.
  param_info first_timing[3];
  param_info second_timing[4];
  param_info third_timing[4];
};

// clang-format off
constexpr Readout kBinned = {
    .is_binned = true,
    .wb_file = kHalfPixelWbFile,
    .old_status = registers::kReadoutAllPixels,
    .first_timing = {row("timing_a", 0x09), row("timing_d", 0x02), row("timing_e", 0x09)},
    .second_timing = {row("timing_c_1", 0x0c), row("timing_c_0", 0xf4),
                      row("timing_c_3", 0x12), row("timing_c_2", 0x9a)},
    .third_timing = {row("timing_b_0", 0x4d), row("timing_b_1", 0x09),
                     row("timing_b_2", 0xf2), row("timing_b_3", 0x0f)},
};
constexpr Readout kAllPixels = {
    .is_binned = false,
    .wb_file = kAllPixelWbFile,
    .old_status = registers::kReadoutBinned,
    .first_timing = {row("timing_a", 0x0a), row("timing_d", 0x03), row("timing_e", 0x0c)},
    .second_timing = {row("timing_c_1", 0x0f), row("timing_c_0", 0xf2),
                      row("timing_c_3", 0x15), row("timing_c_2", 0x98)},
    .third_timing = {row("timing_b_0", 0x4a), row("timing_b_1", 0x0c),
                     row("timing_b_2", 0xef), row("timing_b_3", 0x12)},
};
// clang-format on

const Readout* find_readout(int value) {
  if (value == 0 || value == 74) return &kBinned;
  if (value == 1 || value == 75) return &kAllPixels;
  return nullptr;
}

void switch_readout(DspCommand& dsp, const Readout& readout) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    dsp.do_binning(readout.is_binned);
    usleep(200'000);
    if (read_register(dsp, read_row("readout_status")) != readout.old_status) return;
    std::fprintf(stderr, "do_binning retrying...\n");
    usleep(200'000);
  }
  std::fprintf(stderr, "do_binning timedout.\n");
}

constexpr param_info kFrameLength[] = {read_row("vmax_lo"), read_row("vmax_hi"),
                                       read_row("frame_lines_lo"), read_row("frame_lines_hi")};

// Frame length VMAX and the lines of one frame, which divide it, low byte first.
RegisterReply read_frame_length(DspCommand& dsp) {
  RegisterReply reply;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    reply = read_registers(dsp, kFrameLength);
    if (reply.result != -1) break;
    usleep(100'000);
    std::fprintf(stderr, "Retrying to get VMAX.\n");
  }
  return reply;
}

// Waits as many frames as a long exposure takes, so that no picture of the old readout is on its
// way. A shutdown does not wait for more than the sleep that it meets.
void wait_frame_length(DspCommand& dsp) {
  constexpr std::int64_t kFrame_us = 34'000;
  // The wait may be 37 minutes. glibc's usleep() takes any time, POSIX
  // lets others refuse a second or more.
  constexpr std::int64_t kLongestSleep_us = 900'000;

  const RegisterReply reply = read_frame_length(dsp);
  const std::int64_t vmax = reply.bytes[0] + 256 * reply.bytes[1];
  const std::int64_t divisor = reply.bytes[2] + 256 * reply.bytes[3];
  const std::int64_t frames = divisor == 0 ? 1 : std::max<std::int64_t>(vmax / divisor, 1);
  std::int64_t left = frames * kFrame_us;
  do {
    usleep(static_cast<useconds_t>(std::min(left, kLongestSleep_us)));
    left -= kLongestSleep_us;
  } while (left > 0 && !RequestPath::instance().stop_asked());
}

void write_timing(DspCommand& dsp, const Readout& readout) {
  write_registers(dsp, readout.first_timing);
  usleep(100'000);
  write_registers(dsp, readout.second_timing);
  usleep(100'000);
  write_registers(dsp, readout.third_timing);
}

void set_hdrsl(DspCommand& dsp) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    write_register(dsp, row("hdrsl", 1));
    usleep(500'000);
    if (read_register(dsp, read_row("hdrsl")) != 0) return;
    usleep(500'000);
    std::fprintf(stderr, "Retry to set HDRSL.\n");
  }
  std::fprintf(stderr, "Couldn't set HDRSL\n");
}

// Registers of gain ceilings.
constexpr param_info kFixedGain[] = {row("fixed_gain_lo"), row("fixed_gain_hi")};
constexpr param_info kNormalGains[] = {row("normal_gain_a_lo"), row("normal_gain_a_hi"),
                                       row("normal_gain_b_lo"), row("normal_gain_b_hi")};
constexpr param_info kSlowGains[] = {row("slow_gain_a_lo"), row("slow_gain_a_hi"),
                                     row("slow_gain_c_lo"), row("slow_gain_c_hi")};

// Writes one 16-bit value, or two, into two rows each.
template <std::size_t kRows, std::size_t kWords>
void write_words(DspCommand& dsp, const param_info (&named_rows)[kRows],
                 const std::uint16_t (&words)[kWords]) {
  static_assert(kRows == 2 * kWords);
  auto rows = std::to_array(named_rows);
  fill_words(rows.data(), words);
  write_registers(dsp, rows);
}

// Only the highest gain depends on the readout. The values are those
// of the tables that the setters send.
void write_gain_ceilings(DspCommand& dsp, const Readout& readout,
                         const SettingsSnapshot& settings) {
  const int level = highest_gain(readout.is_binned);
  const bool manual = settings.gain_level == kHighestGain && has_slow_fixed_shutter(settings);
  if (manual && settings.hold_iris_open == 0) {
    std::fprintf(stderr, "Pattern E(LF)\n");
    write_words(dsp, kFixedGain, {manual_gain_tbl[level]});
  } else if (manual) {
    std::fprintf(stderr, "Pattern G(LF)\n");
    const auto& held = agc_slow_max_gain_tbl[kHeldGainRow + level];
    write_words(dsp, kSlowGains, {held[0], held[3]});
  } else if (settings.agc_max_gain == kHighestGain) {
    std::fprintf(stderr, "Pattern A,C,C,D,F(LF)\n");
    const auto& normal = agc_normal_max_gain_tbl[level];
    const auto& slow = agc_slow_max_gain_tbl[level];
    write_words(dsp, kNormalGains, {normal[0], normal[2]});
    write_words(dsp, kSlowGains, {slow[0], slow[3]});
  }
}

}  // namespace

// Setters and writes that fail in between are not looked at: half a switch is worse than
// a whole one with a register missed.
int ControlThread::run_binning_engine(int value) {
  library_->object_detection->config();
  const Readout* readout = find_readout(value);
  if (readout == nullptr) return -1;

  // The pipeline scales up a binned picture: it is told before the
  // sensor bins and after it has stopped.
  if (readout->is_binned) {
    library_->post_process->waitReady();
    library_->post_process->changeBinningMode(true);
  }
  switch_readout(*dsp_, *readout);
  wait_frame_length(*dsp_);
  if (!readout->is_binned) {
    library_->post_process->waitReady();
    library_->post_process->changeBinningMode(false);
  }

  if (has_slow_fixed_shutter(snapshot_))
    dsp_->do_max_frm_exp(manual_frame_exposure(readout->is_binned));
  if (load_wb_adjustment(*dsp_, readout->wb_file) == AdjustmentFile::kCannotOpen) return -1;
  write_timing(*dsp_, *readout);
  set_hdrsl(*dsp_);
  write_gain_ceilings(*dsp_, *readout, snapshot_);

  // The sharpness registers mean something else in the new readout.
  sharpness(snapshot_.sharpness);
  return 0;
}

}  // namespace ipcam::camera
