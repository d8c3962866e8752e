// One-push white balance: measures the scene once, then holds the result.
#include "workers/onepush_wb.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>

#include "dsp/register_rows.h"
#include "registers/register_values.h"
#include "settings/settings_record.h"

namespace ipcam::camera {
namespace {

constexpr int kPolls = 30;
constexpr useconds_t kPollInterval_us = 100000;
constexpr std::size_t kSamples = 5;
constexpr int kSettleThreshold = 80;  // largest minus smallest register gain of the samples

// The newest sample takes the place of the oldest.
void add_sample(std::list<unsigned short>& samples, std::uint16_t gain) {
  samples.push_front(gain);
  samples.pop_back();
}

bool has_settled(const std::list<unsigned short>& samples) {
  const auto [smallest, largest] = std::minmax_element(samples.begin(), samples.end());
  return *largest - *smallest <= kSettleThreshold;
}

std::uint16_t gain_of(std::uint8_t low, std::uint8_t high) {
  return static_cast<std::uint16_t>(low | high << 8);
}

}  // namespace

OnepushWB::OnepushWB(DspCommand* dsp) : Worker("OnepushWB"), dsp_(dsp) {}

int OnepushWB::start_thread() {
  const Turn turn(*this);
  if (!turn.is_mine()) return -1;
  setActive();
  int result = -1;
  try {
    result = measure();
  } catch (...) {
    // Out of memory, or a failure inside the configuration library, costs
    // this measurement and not the process.
  }
  setInactive();
  return result;
}

// Every write is preceded by a look at the stop, which may arrive at any
// time: a mode chosen meanwhile must stay.
int OnepushWB::measure() {
  // Zeros keep the first readings from settling before five of them are there.
  red_samples_.assign(kSamples, 0);
  blue_samples_.assign(kSamples, 0);

  if (!may_go_on()) return -1;
  if (write_register(*dsp_, row("wb_mode", registers::kWbAtw)) == -1) {
    std::fprintf(stderr, "%d@%s#%s: OnepushWB  failed to set Onepush mode to ARM7\n", 66,
                 "OnepushWB", "start_thread");
    return -1;
  }

  int result = -1;
  int polls = kPolls;
  while (polls > 0 && may_go_on()) {
    if (getRBGainFromARM7() == 0 && settled() && may_go_on()) {
      result = setRBGainToConf();
      if (result == 0) {
        setRBGainToARM7();
        setInactive();
      }
    }
    --polls;
    // Gains that were saved by this very poll have ended the measurement: no time-out then.
    if (polls == 0 && may_go_on()) {
      std::fprintf(stderr, "%d@%s#%s: OnepushWB  timed out.\n", 91, "OnepushWB", "start_thread");
      save_and_apply_last_reading();
    }
    usleep(kPollInterval_us);
  }
  return result;
}

// Gains that never settled are still the best guess; without any reading there is nothing to hold.
void OnepushWB::save_and_apply_last_reading() {
  if (!gains_known_) return;
  if (setRBGainToConf() == 0) setRBGainToARM7();
}

bool OnepushWB::settled() const { return has_settled(red_samples_) && has_settled(blue_samples_); }

int OnepushWB::getRBGainFromARM7() {
  static constexpr param_info kRows[] = {
      read_row("measured_red_gain_lo"), read_row("measured_red_gain_hi"),
      read_row("measured_blue_gain_lo"), read_row("measured_blue_gain_hi")};
  const RegisterReply reply = read_registers(*dsp_, kRows);
  if (reply.result == -1) {
    std::fprintf(stderr, "%d@%s#%s: -OnepushWB- : couldn't get R/BGain.\n", 137, "OnepushWB",
                 "getRBGainFromARM7");
    return -1;
  }
  red_gain_ = gain_of(reply.bytes[0], reply.bytes[1]);
  blue_gain_ = gain_of(reply.bytes[2], reply.bytes[3]);
  add_sample(red_samples_, red_gain_);
  add_sample(blue_samples_, blue_gain_);
  gains_known_ = true;
  return 0;
}

int OnepushWB::setRBGainToARM7() {
  if (is_stopped()) return -1;
  param_info rows[] = {row("preset1_red_gain_lo"), row("preset1_red_gain_hi"),
                       row("preset1_blue_gain_lo"), row("preset1_blue_gain_hi")};
  fill_words(rows, std::array{red_gain_, blue_gain_});
  std::fprintf(stderr, "%d@%s#%s: OnepushWB  R:%04x B:%04x\n", 176, "OnepushWB", "setRBGainToARM7",
               red_gain_, blue_gain_);
  if (write_registers(*dsp_, rows) == -1) {
    std::fprintf(stderr, "%d@%s#%s: -OnepushWB- : couldn't set USER1.\n", 178, "OnepushWB",
                 "setRBGainToARM7");
    return -1;
  }

  if (is_stopped()) return -1;
  if (write_register(*dsp_, row("wb_mode", registers::kWbPreset1)) == -1) {
    std::fprintf(stderr, "%d@%s#%s: -OnepushWB- : couldn't set preset1 to WBmode.\n", 184,
                 "OnepushWB", "setRBGainToARM7");
    return -1;
  }
  return 0;
}

int OnepushWB::setRBGainToConf() {
  ipcam::config::ConfigFile config(g_settings_file);
  const RecordUpdate update = update_settings(config, [this](SettingsRecord& record) {
    // The last moment: the stop may have come while this thread waited for the lock.
    if (is_stopped()) return false;
    record.snapshot.onepush_rgain = red_gain_;
    record.snapshot.onepush_bgain = blue_gain_;
    return true;
  });
  if (update == RecordUpdate::kWriteFailed) {
    std::fprintf(stderr, "%d@%s#%s: -OnepushWB- : config file write error\n", 208, "OnepushWB",
                 "setRBGainToConf");
  }
  if (update == RecordUpdate::kReadFailed) {
    std::fprintf(stderr, "%d@%s#%s: -OnepushWB- : config file read error.\n", 213, "OnepushWB",
                 "setRBGainToConf");
  }
  return update == RecordUpdate::kDone ? 0 : -1;
}

}  // namespace ipcam::camera
