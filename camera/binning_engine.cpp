// The binning engine: switches the sensor between full and binned readout.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "camera/control_thread.h"
#include "camera/factory_adjustment.h"
#include "camera/register_text.h"
#include "camera/request_path.h"

namespace ipcam::camera {

namespace {

constexpr int kAttempts = 5;

// Readout field of the sensor status register.
constexpr unsigned char kReadoutMask = 0x1c;

// Everything in which the two readouts differ.
struct Readout {
  bool binned;
  const char* wb_file;
  unsigned char old_field;      // readout field as long as the sensor has not switched
  int manual_frame_exposure;    // maximum frame exposure index with a slow fixed shutter
  const char* timing[3];        // sensor timing, in the order sent
  const char* manual_ceiling;   // gain ceilings at level 6: exposed by hand,
  const char* held_ceiling;     // by hand with the iris held open,
  const char* agc_ceilings[2];  // and automatic, normal then slow shutter
};

// clang-format off
constexpr Readout kBinned = {
    .binned = true,
    .wb_file = kHalfPixelWbFile,
    .old_field = 0x08,
    .manual_frame_exposure = 0,
    .timing = {"w,16,9,0xff,0x09;91,0,0x03,0x02;91,2,0x0f,0x09",
               "w,16,21,0xff,0x0c;16,20,0xff,0xf4;16,23,0xff,0x12;16,22,0xff,0x9a",
               "w,16,14,0xff,0x4d;16,15,0xff,0x09;16,16,0xff,0xf2;16,17,0xff,0x0f"},
    .manual_ceiling = "w,11,106,0xff,0xeb;11,107,0xff,0x17",
    .held_ceiling = "w,11,34,0xff,0xfa;11,35,0xff,0x06;11,58,0xff,0xfc;11,59,0xff,0x03",
    .agc_ceilings = {"w,11,26,0xff,0xeb;11,27,0xff,0x17;11,50,0xff,0xeb;11,51,0xff,0x17",
                     "w,11,34,0xff,0xeb;11,35,0xff,0x17;11,58,0xff,0xeb;11,59,0xff,0x17"},
};

// All pixels are noisier: the ceilings are those of gain level 5.
constexpr Readout kAllPixels = {
    .binned = false,
    .wb_file = kAllPixelWbFile,
    .old_field = 0x10,
    .manual_frame_exposure = 22,
    .timing = {"w,16,9,0xff,0x0a;91,0,0x03,0x03;91,2,0x0f,0x0c",
               "w,16,21,0xff,0x0f;16,20,0xff,0xf2;16,23,0xff,0x15;16,22,0xff,0x98",
               "w,16,14,0xff,0x4a;16,15,0xff,0x0c;16,16,0xff,0xef;16,17,0xff,0x12"},
    .manual_ceiling = "w,11,106,0xff,0xee;11,107,0xff,0x13",
    .held_ceiling = "w,11,34,0xff,0xfd;11,35,0xff,0x02;11,58,0xff,0x00;11,59,0xff,0x00",
    .agc_ceilings = {"w,11,26,0xff,0xee;11,27,0xff,0x13;11,50,0xff,0xee;11,51,0xff,0x13",
                     "w,11,34,0xff,0xee;11,35,0xff,0x13;11,58,0xff,0xee;11,59,0xff,0x13"},
};
// clang-format on

const Readout* find_readout(int value) {
  if (value == 0 || value == 74) return &kBinned;
  if (value == 1 || value == 75) return &kAllPixels;
  return nullptr;
}

void switch_readout(DspCommand& dsp, const Readout& readout) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    dsp.do_binning(readout.binned);
    usleep(200'000);
    if ((run_text(dsp, "r,2,0").bytes[0] & kReadoutMask) != readout.old_field) return;
    std::fprintf(stderr, "do_binning retrying...\n");
    usleep(200'000);
  }
  std::fprintf(stderr, "do_binning timedout.\n");
}

// Frame length VMAX and a second 16-bit value, which divides it, low byte first.
RegisterReply read_frame_length(DspCommand& dsp) {
  RegisterReply reply;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    reply = run_text(dsp, "r,81,10;81,11;81,86;81,87");
    if (reply.result != -1) break;
    usleep(100'000);
    std::fprintf(stderr, "Retrying to get VMAX.\n");
  }
  return reply;
}

// Waits as many frames as a long exposure takes, so that no picture of the old readout is on its way. A shutdown does
// not wait for more than the sleep that it meets.
void wait_frame_length(DspCommand& dsp) {
  constexpr std::int64_t kFrame_us = 34'000;
  // The wait may be 37 minutes. glibc's usleep() takes any time, POSIX lets others refuse a second or more.
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
  run_text(dsp, readout.timing[0]);
  usleep(100'000);
  run_text(dsp, readout.timing[1]);
  usleep(100'000);
  run_text(dsp, readout.timing[2]);
}

void set_hdrsl(DspCommand& dsp) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    run_text(dsp, "w,2,3,0x03,1");
    usleep(500'000);
    if ((run_text(dsp, "r,2,3").bytes[0] & 0x03) != 0) return;
    usleep(500'000);
    std::fprintf(stderr, "Retry to set HDRSL.\n");
  }
  std::fprintf(stderr, "Couldn't set HDRSL\n");
}

// Only gain level 6 depends on the readout.
void write_gain_ceilings(DspCommand& dsp, const Readout& readout, const SettingsSnapshot& settings) {
  const bool manual = settings.gain_level == 6 && has_slow_fixed_shutter(settings);
  if (manual && settings.hold_iris_open == 0) {
    std::fprintf(stderr, "Pattern E(LF)\n");
    run_text(dsp, readout.manual_ceiling);
  } else if (manual) {
    std::fprintf(stderr, "Pattern G(LF)\n");
    run_text(dsp, readout.held_ceiling);
  } else if (settings.agc_max_gain == 6) {
    std::fprintf(stderr, "Pattern A,C,C,D,F(LF)\n");
    run_text(dsp, readout.agc_ceilings[0]);
    run_text(dsp, readout.agc_ceilings[1]);
  }
}

}  // namespace

// Setters and writes that fail in between are not looked at: half a switch is worse than a whole one with a
// register missed.
int ControlThread::run_binning_engine(int value) {
  library_->object_detection->config();
  const Readout* readout = find_readout(value);
  if (readout == nullptr) return -1;

  // The pipeline scales up a binned picture: it is told before the sensor bins and after it has stopped.
  if (readout->binned) {
    library_->post_process->waitReady();
    library_->post_process->changeBinningMode(true);
  }
  switch_readout(*dsp_, *readout);
  wait_frame_length(*dsp_);
  if (!readout->binned) {
    library_->post_process->waitReady();
    library_->post_process->changeBinningMode(false);
  }

  if (has_slow_fixed_shutter(snapshot_)) dsp_->do_max_frm_exp(readout->manual_frame_exposure);
  if (load_wb_adjustment(*dsp_, readout->wb_file) == AdjustmentFile::kCannotOpen) return -1;
  write_timing(*dsp_, *readout);
  set_hdrsl(*dsp_);
  write_gain_ceilings(*dsp_, *readout, snapshot_);

  // The sharpness registers mean something else in the new readout.
  sharpness(snapshot_.sharpness);
  return 0;
}

}  // namespace ipcam::camera
