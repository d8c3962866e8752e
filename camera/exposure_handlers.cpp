// Handlers of the exposure, gain, iris, day/night and binning requests.
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>

#include "camera/control_thread.h"
#include "dsp/exposure_patterns.h"
#include "dsp/register_rows.h"
#include "registers/gpio.h"
#include "registers/register_values.h"

namespace ipcam::camera {

namespace {

// --- Exposure patterns ---

// A row index: a setting of the snapshot, or 0 without one, moved by an offset.
struct RowIndex {
  std::int32_t SettingsSnapshot::*setting;
  std::int32_t offset;

  // Settings out of their range may not overflow; the setter refuses what comes out.
  std::int32_t of(const SettingsSnapshot& settings) const {
    const std::int32_t base = setting == nullptr ? 0 : settings.*setting;
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(base) +
                                     static_cast<std::uint32_t>(offset));
  }
};

constexpr auto kMinSpeed = &SettingsSnapshot::slow_shutter_min_speed;
constexpr auto kSpeed = &SettingsSnapshot::shutter_speed;
constexpr auto kAgcGain = &SettingsSnapshot::agc_max_gain;
constexpr auto kGainLevel = &SettingsSnapshot::gain_level;

struct PatternRow {
  // Applies when these three are as given. The shutter is slow when the automatic shutter may go
  // slow, or the fixed one is at a slow speed.
  bool automatic, slow, held_open;
  const char* log_line;
  RowIndex shutter, gain;
  ExposureMode mode;
};

// One row for each combination of the three conditions. The maximum frame exposure is
// slow_shutter_min_speed, but depends on the readout in the manual mode.
// clang-format off
constexpr PatternRow kPatterns[] = {
    // auto slow   held                shutter         gain                        mode
    {true,  true,  true,  "Pattern D", {kMinSpeed, 5}, {kAgcGain, 0},              kSlowShutter},
    {true,  true,  false, "Pattern C", {kMinSpeed, 0}, {kAgcGain, 0},              kSlowShutter},
    {true,  false, true,  "Pattern B", {nullptr, 0},   {kAgcGain, 0},              kNormalExposure},
    {true,  false, false, "Pattern A", {nullptr, 1},   {kAgcGain, 0},              kNormalExposure},
    {false, true,  true,  "Pattern G", {kSpeed, 5},    {kGainLevel, kHeldGainRow}, kSlowShutter},
    {false, true,  false, "Pattern E", {kSpeed, 0},    {kGainLevel, 0},            kManualExposure},
    {false, false, true,  "Pattern F", {kSpeed, 6},    {kAgcGain, 0},              kNormalExposure},
    {false, false, false, "Pattern A", {kSpeed, -4},   {kAgcGain, 0},              kNormalExposure},
};
// clang-format on

const PatternRow& find_pattern(const SettingsSnapshot& settings, bool held_open) {
  const bool automatic = settings.auto_shutter != 0;
  const bool slow =
      automatic ? settings.auto_slow_shutter != 0 : is_slow_shutter(settings.shutter_speed);
  std::size_t row = 0;
  while (kPatterns[row].automatic != automatic || kPatterns[row].slow != slow ||
         kPatterns[row].held_open != held_open) {
    ++row;
  }
  return kPatterns[row];
}

// --- GPIO lines of the IR-cut filter ---

constexpr std::uint8_t kFilterLines = 0xc0;  // gpio-0: the two inputs of the filter's drive
constexpr std::uint8_t kLevelLine = 0x08;    // gpio-4: holds its level while the filter stays

int gpio_request(int device, unsigned long request, std::uint8_t bits, std::uint8_t mask) {
  gpio::Record record{.bits = bits, .mask = mask};
  return ioctl(device, request, &record);
}

struct FilterSwitch {
  unsigned char mode[4];  // for the image processor
  std::uint8_t drive;     // pulse on the filter lines
  std::uint8_t level;     // on the level line, kept
};

FilterSwitch filter_switch(int value) {
  switch (value) {
    case 61:
    case 69:
    case 71:
      return {.mode = "on", .drive = 0x80, .level = 0x08};
    case 62:
    case 70:
    case 72:
      return {.mode = "off", .drive = 0x40, .level = 0x00};
    default:
      return {.mode = "off", .drive = 0x00, .level = 0x00};
  }
}

// --- Binning ---

// Binning modes.
constexpr std::int32_t kModeStopped = 1;
constexpr std::int32_t kModeByHand = 2;
constexpr std::int32_t kModeAutomatic = 4;

// Values of the binning mode request, and the modes that they choose.
struct ModeRequest {
  int value;
  std::int32_t mode;
};
constexpr ModeRequest kModeRequests[] = {
    {34, kModeStopped}, {9, kModeByHand}, {30, 3}, {4, kModeAutomatic}};

// Values of the other binning requests.
constexpr int kSwitchOn = 0;
constexpr int kSwitchOff = 1;
constexpr int kFunctionAutomatic = 4;
constexpr int kFunctionStop = 34;
constexpr int kUnforce = 29;

// The stored levels 0 and 1 stand for the day/night worker's own levels.
int daynight_level(std::int32_t stored) {
  return stored == 0 || stored == 1 ? stored + 32 : stored;
}

}  // namespace

// --- Exposure ---

bool ControlThread::sensor_is_binned() {
  return read_register(*dsp_, read_row("sensor_mode")) != 0;
}

int ControlThread::gain_for_readout(int level) {
  return level == kHighestGain ? highest_gain(sensor_is_binned()) : level;
}

s_ae_ptn ControlThread::choose_exposure_pattern() {
  if (snapshot_.exposure_mode == 0) {
    std::fprintf(stderr, "Flickerless\n");
    return {.shutter = 2,
            .gain = snapshot_.agc_max_gain,
            .mode = kNormalExposure,
            .max_frm_exp = snapshot_.slow_shutter_min_speed};
  }
  if (iris_hold_ == 0) dsp_->do_miris_mode(false);

  const PatternRow& row = find_pattern(snapshot_, iris_hold_ != 0);
  std::fprintf(stderr, "%s\n", row.log_line);
  s_ae_ptn pattern = {.shutter = row.shutter.of(snapshot_),
                      .gain = row.gain.of(snapshot_),
                      .mode = row.mode,
                      .max_frm_exp = snapshot_.slow_shutter_min_speed};
  if (row.mode == kManualExposure) {
    pattern.max_frm_exp = manual_frame_exposure(sensor_is_binned());
    dsp_->do_miris_mode(true);
  }
  return pattern;
}

int ControlThread::exposure_mode(int /*value*/) {
  SettingsRecord record{};
  if (!read_settings(*library_->config, record)) return 0;
  snapshot_ = record.snapshot;

  s_ae_ptn pattern = choose_exposure_pattern();
  pattern.gain = gain_for_readout(pattern.gain);
  dsp_->do_shutter_gain(pattern);

  rerun_automatic_binning();
  if (static_cast<std::uint32_t>(snapshot_.agc_max_gain) > 2) {
    std::fprintf(stderr, "AutoBN : %d %d %d\n", snapshot_.auto_shutter, snapshot_.exposure_mode,
                 snapshot_.shutter_speed);
  }
  apply_agc_limit_to_daynight();
  return 0;
}

// --- Gain ---

void ControlThread::apply_agc_limit_to_daynight() {
  const bool low_gain = static_cast<std::uint32_t>(snapshot_.agc_max_gain) <= 2;
  const bool manual_gain = has_slow_fixed_shutter(snapshot_) && snapshot_.exposure_mode == 3;
  auto_daynight_->setAgcMaxGain(low_gain || manual_gain ? 0 : snapshot_.agc_max_gain);
}

int ControlThread::gain(int level) {
  library_->object_detection->config();
  snapshot_.gain_level = level;
  dsp_->do_gain(gain_for_readout(level));
  return 0;
}

int ControlThread::agc_max_gain(int level) {
  library_->object_detection->config();
  snapshot_.agc_max_gain = level;
  dsp_->do_agc_max_gain(gain_for_readout(level));
  rerun_automatic_binning();
  apply_agc_limit_to_daynight();
  return 0;
}

// --- Iris ---

void ControlThread::drive_iris(bool open) {
  for (int attempt = 0; attempt < 5; ++attempt) {
    if (dsp_->do_miris_mode(open) != -1) return;
    sleep(1);
  }
}

int ControlThread::hold_iris_open(int value) {
  if (value == 68) value = iris_hold_ == 1 ? 1 : 0;
  if (value != 0 && value != 1) return -1;

  // Focus assist moves the focus only while the iris stands still and the picture has settled.
  constexpr useconds_t kSettle_us = 200'000;
  if (value == 0) {
    iris_hold_ = 1;
    drive_iris(true);
    auto_daynight_->stop_thread();
    exposure_mode(0);
    usleep(kSettle_us);
    // The level counts also when the read reports a failure; nothing read is the level 0.
    SettingsRecord record{};
    read_settings(*library_->config, record);
    focus_assist_->setLevel(record.focus_assist_level);
    focus_assist_->execute_process();
  } else {
    focus_assist_->stop_thread();
    usleep(kSettle_us);
    iris_hold_ = 0;
    drive_iris(false);
    exposure_mode(0);
  }

  const auto save_flag = [this](SettingsRecord& record) {
    record.snapshot.hold_iris_open = iris_hold_;
    return true;
  };
  // The iris has been moved already, so a state that could not be
  // saved is no failure of the request.
  if (update_settings(*library_->config, save_flag) != RecordUpdate::kDone) return 0;
  library_->post_process->loadConfig();
  return 0;
}

int ControlThread::hold_iris_state(std::int32_t* answer) {
  *answer = iris_hold_ != 0 ? 1 : 0;
  return 0;
}

// --- Day/night ---

int ControlThread::daynight_mode(int value) {
  library_->object_detection->config();
  if (gpio_request(gpio0_, gpio::kDirection, kFilterLines, kFilterLines) < 0) {
    std::fprintf(stderr, "/dev/gpio-0 TKV_Q5_IOCTL_GPIO_DIR error !!!\n");
  }
  if (gpio_request(gpio4_, gpio::kDirection, kLevelLine, kLevelLine) < 0) {
    std::fprintf(stderr, "/dev/gpio-4 TKV_Q5_IOCTL_GPIO_DIR error !!!\n");
  }

  FilterSwitch filter = filter_switch(value);
  for (int attempt = 0; attempt < 3; ++attempt) {
    if (dsp_->do_dnmode(filter.mode) != -1) break;
    std::fprintf(stderr, "Change ICR mode... try again!\n");
    usleep(100'000);
  }

  // The filter moves on a pulse; its drive must not stay powered.
  gpio_request(gpio0_, gpio::kWrite, filter.drive, kFilterLines);
  sleep(1);
  gpio_request(gpio0_, gpio::kWrite, 0x00, kFilterLines);
  gpio_request(gpio4_, gpio::kWrite, filter.level, kLevelLine);
  return 0;
}

int ControlThread::icr_state(std::int32_t* answer) {
  const bool is_set = read_register(*dsp_, read_row("icr_state")) != 0;
  *answer = is_set ? registers::kFilterStateSet : registers::kFilterStateClear;
  return 0;
}

int ControlThread::daynight_hysteresis(int value) {
  if (static_cast<std::uint32_t>(value) > 0xffff) return -1;
  run_binning_engine(1);
  auto_daynight_->setDnHys(value);
  return 0;
}

int ControlThread::binning_time(int value) {
  if (value != 30 && value != 2) return -1;
  run_binning_engine(1);
  auto_daynight_->setConditionTime(value * 1000);
  return 0;
}

int ControlThread::binning_level(int value) {
  if (static_cast<std::uint32_t>(value) > 4095) return -1;
  run_binning_engine(1);
  auto_daynight_->setDnLevel(value);
  return 0;
}

// --- Binning ---

void ControlThread::rerun_automatic_binning() {
  if (binning_mode_ == kModeAutomatic && forced_binning_ == 0) run_binning_engine(kSwitchOff);
}

int ControlThread::binning_mode(int value) {
  for (const ModeRequest& row : kModeRequests) {
    if (row.value == value) binning_mode_ = row.mode;
  }
  return 0;
}

int ControlThread::binning(int value) { return run_binning_engine(value); }

int ControlThread::force_binning(int value) {
  if (value == kSwitchOn || value == kSwitchOff) {
    const int result = run_binning_engine(value);
    forced_binning_ = 1;
    return result;
  }
  if (value != kUnforce) return -1;

  forced_binning_ = 0;
  switch (binning_mode_) {
    case kModeByHand:
      return binning_function(binning_on_ != 0 ? kSwitchOn : kSwitchOff);
    case kModeAutomatic:
      return binning_function(kFunctionAutomatic);
    case kModeStopped:
      return binning_function(kFunctionStop);
    default:
      return -1;
  }
}

int ControlThread::binning_function(int value) {
  if (forced_binning_ != 0) return record_binning_function(value);
  switch (value) {
    case kSwitchOn:
    case kSwitchOff:
      return switch_binning_by_hand(value);
    case kFunctionAutomatic:
      return start_automatic_binning();
    case kFunctionStop:
      binning_mode_ = kModeStopped;
      auto_daynight_->stop_thread();
      return -1;
    default:
      return -1;
  }
}

// While binning is forced, a request only changes what will be restored.
int ControlThread::record_binning_function(int value) {
  if (value == kSwitchOn) binning_on_ = 1;
  if (value == kSwitchOff) binning_on_ = 0;
  if (value == kFunctionAutomatic) binning_mode_ = kModeAutomatic;
  if (value == kFunctionStop) binning_mode_ = kModeStopped;
  return -1;
}

int ControlThread::switch_binning_by_hand(int value) {
  auto_daynight_->stop_thread();
  const int result = run_binning_engine(value);
  binning_mode_ = kModeByHand;
  binning_on_ = value == kSwitchOn ? 1 : 0;
  return result;
}

int ControlThread::start_automatic_binning() {
  run_binning_engine(kSwitchOff);
  if (binning_on_ == 1) binning_on_ = 0;
  binning_mode_ = kModeAutomatic;

  // The level counts also when the read reports a failure.
  SettingsRecord record{};
  if (!read_settings(*library_->config, record)) record.daynight_seconds = 30;
  // In 32-bit arithmetic, also for a time that does not fit.
  auto_daynight_->setConditionTime(
      static_cast<int>(1000u * static_cast<std::uint32_t>(record.daynight_seconds)));
  auto_daynight_->setDnLevel(daynight_level(record.daynight_level));
  apply_agc_limit_to_daynight();
  auto_daynight_->setCameraType(1);
  auto_daynight_->execute_process();
  return 0;
}

}  // namespace ipcam::camera
