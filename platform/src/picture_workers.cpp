// Stand-ins for the camera's picture workers: they can be started, stopped and told values.
#include "ipcam/camera/auto_daynight.h"
#include "ipcam/camera/focus_assist.h"
#include "journal_note.h"
#include "thread_runs.h"

namespace ipcam::camera {

AutoDaynight::AutoDaynight(int function, DspCommand*) : Thread(THREAD_PRIORITY_DEFAULT, false) {
  platform::note("AutoDaynight::AutoDaynight", {function});
}

AutoDaynight::~AutoDaynight() {
  platform::note("AutoDaynight::~AutoDaynight");
  ThreadRuns::of(*this).stop();
  ThreadRuns::of(*this).wait_until_over();
}

int AutoDaynight::start_thread() {
  ThreadRuns::of(*this).idle_until_stopped();
  return 0;
}

int AutoDaynight::stop_thread() {
  platform::note("AutoDaynight::stop_thread");
  ThreadRuns::of(*this).stop();
  return 0;
}

int AutoDaynight::setCameraReady() {
  platform::note("AutoDaynight::setCameraReady");
  return 0;
}

int AutoDaynight::setAgcMaxGain(int level) {
  platform::note("AutoDaynight::setAgcMaxGain", {level});
  return 0;
}

int AutoDaynight::setDnLevel(int level) {
  platform::note("AutoDaynight::setDnLevel", {level});
  return 0;
}

int AutoDaynight::setDnHys(int hysteresis) {
  platform::note("AutoDaynight::setDnHys", {hysteresis});
  return 0;
}

int AutoDaynight::setConditionTime(int milliseconds) {
  platform::note("AutoDaynight::setConditionTime", {milliseconds});
  return 0;
}

int AutoDaynight::setCameraType(int type) {
  platform::note("AutoDaynight::setCameraType", {type});
  return 0;
}

FocusAssist::FocusAssist(ipcam::eptz::PostProcessInterface*, DspCommand*)
    : Thread(THREAD_PRIORITY_DEFAULT, false) {
  platform::note("FocusAssist::FocusAssist");
}

FocusAssist::~FocusAssist() {
  platform::note("FocusAssist::~FocusAssist");
  ThreadRuns::of(*this).stop();
  ThreadRuns::of(*this).wait_until_over();
}

int FocusAssist::start_thread() {
  ThreadRuns::of(*this).idle_until_stopped();
  return 0;
}

int FocusAssist::stop_thread() {
  platform::note("FocusAssist::stop_thread");
  ThreadRuns::of(*this).stop();
  return 0;
}

int FocusAssist::setLevel(int level) {
  platform::note("FocusAssist::setLevel", {level});
  return 0;
}

}  // namespace ipcam::camera
