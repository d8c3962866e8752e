// One-push white balance: measures the scene once, then holds the result.
#include "workers/onepush_wb.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>

#include "camera/settings_record.h"

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

std::uint16_t gain_of(char low, char high) {
  return static_cast<std::uint16_t>(static_cast<std::uint8_t>(low) | static_cast<std::uint8_t>(high) << 8);
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
    // Out of memory, or a failure inside the configuration library, costs this measurement and not the process.
  }
  setInactive();
  return result;
}

// Every write is preceded by a look at the stop, which may arrive at any time: a mode chosen meanwhile must stay.
int OnepushWB::measure() {
  // Zeros keep the first readings from settling before five of them are there.
  red_samples_.assign(kSamples, 0);
  blue_samples_.assign(kSamples, 0);

  if (!may_go_on()) return -1;
  char start_text[] = "w,12,0,0x07,1";
  char start_reply[16] = {};
  if (dsp_->do_debug(start_text, start_reply) == -1) {
    std::fprintf(stderr, "%d@%s#%s: OnepushWB  failed to set Onepush mode to ARM7\n", 66, "OnepushWB", "start_thread");
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
  char text[] = "r,14,140;14,141;14,142;14,143";
  char reply[10] = {};
  if (dsp_->do_debug(text, reply) == -1) {
    std::fprintf(stderr, "%d@%s#%s: -OnepushWB- : couldn't get R/BGain.\n", 137, "OnepushWB", "getRBGainFromARM7");
    return -1;
  }
  red_gain_ = gain_of(reply[0], reply[1]);
  blue_gain_ = gain_of(reply[2], reply[3]);
  add_sample(red_samples_, red_gain_);
  add_sample(blue_samples_, blue_gain_);
  gains_known_ = true;
  return 0;
}

int OnepushWB::setRBGainToARM7() {
  if (is_stopped()) return -1;
  char gains_text[96];
  std::snprintf(gains_text, sizeof(gains_text), "w,12,128,0xff,%d;12,129,0xff,%d;12,130,0xff,%d;12,131,0xff,%d",
                red_gain_ & 0xff, red_gain_ >> 8, blue_gain_ & 0xff, blue_gain_ >> 8);
  std::fprintf(stderr, "%d@%s#%s: OnepushWB  R:%04x B:%04x\n", 176, "OnepushWB", "setRBGainToARM7", red_gain_,
               blue_gain_);
  char reply[16] = {};
  if (dsp_->do_debug(gains_text, reply) == -1) {
    std::fprintf(stderr, "%d@%s#%s: -OnepushWB- : couldn't set USER1.\n", 178, "OnepushWB", "setRBGainToARM7");
    return -1;
  }

  if (is_stopped()) return -1;
  char select_text[] = "w,12,0,0x07,5";
  if (dsp_->do_debug(select_text, reply) == -1) {
    std::fprintf(stderr, "%d@%s#%s: -OnepushWB- : couldn't set preset1 to WBmode.\n", 184, "OnepushWB",
                 "setRBGainToARM7");
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
    std::fprintf(stderr, "%d@%s#%s: -OnepushWB- : config file write error\n", 208, "OnepushWB", "setRBGainToConf");
  }
  if (update == RecordUpdate::kReadFailed) {
    std::fprintf(stderr, "%d@%s#%s: -OnepushWB- : config file read error.\n", 213, "OnepushWB", "setRBGainToConf");
  }
  return update == RecordUpdate::kDone ? 0 : -1;
}

}  // namespace ipcam::camera
