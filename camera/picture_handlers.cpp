// Handlers of the picture, white balance, and backlight and exposure compensation requests.
#include <cstdio>
#include <iterator>
#include <string_view>

#include "camera/control_thread.h"
#include "dsp/register_rows.h"
#include "registers/white_balance_modes.h"

namespace ipcam::camera {

namespace {

using TextSetter = int (DspCommand::*)(unsigned char*);

// Register values by level; the middle level is neutral.
constexpr const char* kSaturationTexts[] = {"0x20", "0x40", "0x60", "0x80", "0xa0", "0xc0", "0xe0"};
constexpr const char* kContrastTexts[] = {"0x50", "0x60", "0x70", "0x80", "0x90", "0xa0", "0xb0"};
constexpr const char* kSharpnessTexts[] = {"0x0c", "0x33", "0x5a", "0x80", "0x95", "0xaa", "0xc0"};
constexpr const char* kBinnedSharpnessTexts[] = {"0x0e", "0x34", "0x5a", "0x80",
                                                 "0x9c", "0xb8", "0xd6"};
static_assert(std::size(kSaturationTexts) == 7 && std::size(kContrastTexts) == 7);
static_assert(std::size(kSharpnessTexts) == 7 && std::size(kBinnedSharpnessTexts) == 7);

// Exposure offsets -9 to 9 as two's-complement bytes.
constexpr const char* kExpCompTexts[] = {"0xf7", "0xf8", "0xf9", "0xfa", "0xfb", "0xfc", "0xfd",
                                         "0xfe", "0xff", "0x00", "0x01", "0x02", "0x03", "0x04",
                                         "0x05", "0x06", "0x07", "0x08", "0x09"};
static_assert(std::size(kExpCompTexts) == 19);

// The highest levels run with a range of their own.
constexpr int kFirstHighExpComp = 16;
constexpr param_info kHighExpCompRange[] = {row("expcomp_range_a", 0x04),
                                            row("expcomp_range_b", 0x04)};
constexpr param_info kExpCompRange[] = {row("expcomp_range_a", 0x55), row("expcomp_range_b", 0x0a)};

// The last stored mode that colour re-applies, and the request for
// mode 0, which the mode handler refuses.
constexpr std::int32_t kLastReappliedMode = 6;
constexpr int kRefusedRequest = 4;

// Compared unsigned, so that a negative level is above every range.
bool above(int level, unsigned highest) { return static_cast<unsigned>(level) > highest; }

// The setters take a writable text, though they leave it as it is.
void set_text(DspCommand& dsp, TextSetter setter, const char* text) {
  char copy[64] = {};
  std::string_view(text).copy(copy, sizeof copy - 1);
  (dsp.*setter)(reinterpret_cast<unsigned char*>(copy));
}

bool read_own_settings(SettingsRecord& record) {
  ipcam::config::ConfigFile config(g_settings_file);
  return read_settings(config, record);
}

// When this returns, the measurement that was running can change nothing any more: neither the mode
// that is about to be set nor the gains of the run that is about to start.
void end_measurement(OnepushWB& worker) {
  worker.stop_thread();
  worker.wait_until_idle();
}

// Red and blue gain. The stored record only has to be readable; the level comes from the request.
int set_manual_gain(DspCommand& dsp, int (DspCommand::*setter)(unsigned), std::int32_t& stored,
                    int level) {
  SettingsRecord record{};
  if (!read_own_settings(record)) return -1;
  if (above(level, 255)) return -1;
  stored = level;
  (dsp.*setter)(static_cast<unsigned>(level));
  return 0;
}

}  // namespace

int ControlThread::saturation(int level) {
  if (above(level, 6)) return -1;
  snapshot_.saturation = level;
  library_->object_detection->config();
  set_text(*dsp_, &DspCommand::do_saturation, kSaturationTexts[level]);
  return 0;
}

int ControlThread::color(int value) {
  SettingsRecord record{};
  if (!read_settings(*library_->config, record)) return 0;
  const std::int32_t previous = snapshot_.color;
  if (value != 2 && value != 3) return -1;
  snapshot_.color = value == 2 ? 1 : 0;
  if (forced_apply_ == 0 && snapshot_.color == previous) return 0;

  library_->object_detection->config();
  if (snapshot_.color == 0) {
    set_text(*dsp_, &DspCommand::do_effect, "monochrome0x1");
    return 0;
  }
  set_text(*dsp_, &DspCommand::do_effect, "monochrome0x0");

  // White balance and saturation go with the colour picture. As long as they could not
  // be applied, the flag stays set, so that the next request for colour tries again
  // although the picture is in colour already.
  const std::uint8_t kept = forced_apply_;
  forced_apply_ = 1;
  const std::int32_t mode = record.snapshot.wb_mode;
  if (mode < 0 || mode > kLastReappliedMode) return 0;
  const auto* stored_mode = registers::find_mode(&registers::WhiteBalanceMode::stored, mode);
  if (wb_mode(stored_mode != nullptr ? stored_mode->request : kRefusedRequest) != 0) return 0;
  saturation(snapshot_.saturation);
  forced_apply_ = kept;
  return 0;
}

int ControlThread::contrast(int level) {
  library_->object_detection->config();
  snapshot_.contrast = level;
  if (above(level, 6)) return -1;
  set_text(*dsp_, &DspCommand::do_contrast, kContrastTexts[level]);
  return 0;
}

int ControlThread::sharpness(int level) {
  library_->object_detection->config();
  snapshot_.sharpness = level;
  // The binned picture has half the pixels and takes other edge gains.
  const auto& texts = sensor_is_binned() ? kBinnedSharpnessTexts : kSharpnessTexts;
  if (above(level, 6)) return -1;
  set_text(*dsp_, &DspCommand::do_sharpness, texts[level]);
  return 0;
}

int ControlThread::colorbar(int value) {
  if (value != 0 && value != 1) return -1;
  set_text(*dsp_, &DspCommand::do_colorbar, value == 1 ? "0x01" : "0x00");
  return 0;
}

int ControlThread::gamma(int curve) {
  library_->object_detection->config();
  dsp_->do_gamma(curve);
  return 0;
}

int ControlThread::wb_mode(int value) {
  library_->object_detection->config();
  SettingsRecord record{};
  if (!read_own_settings(record)) return -1;
  end_measurement(*onepush_wb_);

  const auto* mode = registers::find_mode(&registers::WhiteBalanceMode::request, value);
  if (mode == nullptr) return -1;
  snapshot_.wb_mode = mode->stored;

  // The measurement that has just ended may have saved its gains.
  SettingsRecord saved{};
  if (value == registers::kOnepushRequest && read_own_settings(saved)) record = saved;

  // Gains first: the mode register selects them the moment it is written.
  const SettingsSnapshot& stored = record.snapshot;
  if (value == registers::kOnepushRequest) {
    std::fprintf(stderr, "Saved RGain:%d, BGain:%d\n", stored.onepush_rgain, stored.onepush_bgain);
    dsp_->do_rbgain_preset1(stored.onepush_rgain, stored.onepush_bgain);
  }
  if (value == registers::kManualRequest) {
    dsp_->do_rgain(static_cast<unsigned>(stored.rgain));
    dsp_->do_bgain(static_cast<unsigned>(stored.bgain));
  }
  set_text(*dsp_, &DspCommand::do_whitebalance, mode->keyword.data());
  return 0;
}

int ControlThread::rgain(int level) {
  return set_manual_gain(*dsp_, &DspCommand::do_rgain, snapshot_.rgain, level);
}

int ControlThread::bgain(int level) {
  return set_manual_gain(*dsp_, &DspCommand::do_bgain, snapshot_.bgain, level);
}

int ControlThread::onepush_trigger(int /*value*/) {
  if (snapshot_.wb_mode != registers::kOnepushStored) return -1;
  end_measurement(*onepush_wb_);
  onepush_wb_->start();
  return 0;
}

int ControlThread::blcomp(int value) {
  snapshot_.blcomp = value;
  library_->object_detection->config();
  dsp_->do_blcomp(snapshot_.blcomp);
  return 0;
}

int ControlThread::expcomp(int level) {
  if (above(level, 18)) return -1;
  snapshot_.expcomp = level;
  const std::int32_t gate = snapshot_.expcomp_gate;
  if (gate != 0 && gate != 3 && gate != 4 && gate != 5) return 0;

  set_text(*dsp_, &DspCommand::do_expcomp, kExpCompTexts[level]);
  write_registers(*dsp_, level >= kFirstHighExpComp ? kHighExpCompRange : kExpCompRange);
  return 0;
}

}  // namespace ipcam::camera
