// The operations at which requests, answers and packets pass. Each goes on to the next definition
// of its name, whose results and exceptions are the caller's as before.
#include <pthread.h>

#include <atomic>
#include <bit>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <stdexcept>

#include "ipcam/camera/dsp_command.h"
#include "ipcam/comm/thd_if.h"
#include "recorder/next_definition.h"
#include "recorder/recorder.h"
#include "registers/words.h"

#define INTERPOSED __attribute__((visibility("default")))

namespace ipcam::recorder {

namespace {

constexpr int kLeastLimit = 64 << 10;
constexpr int kUsualLimit = 8 << 20;
constexpr int kMostLimit = 1 << 30;
constexpr auto kEndLimit = std::chrono::milliseconds(100);

// What the environment says when the program starts, which may change it, and its directory.
std::string* g_path = nullptr;
std::optional<int> g_limit = kUsualLimit;

// Nothing is asked before the first event: programs that do not use the library leave no file.
enum State : int { kOff, kReady, kRecording };
std::atomic<int> g_state{kOff};
std::timed_mutex g_mutex;
Recorder* g_recorder = nullptr;  // never destroyed: threads may be inside while the process exits
thread_local Asked* t_asked = nullptr;

__attribute__((constructor)) void read_environment() {
  const char* const path = std::getenv("CAMERA_CTRL_RECORD_FILE");
  const char* const limit = std::getenv("CAMERA_CTRL_RECORD_LIMIT");
  if (path == nullptr || *path == '\0') return;
  std::error_code error;
  g_path = new std::string(std::filesystem::absolute(path, error));
  if (limit != nullptr) g_limit = registers::parse_number(limit);
  // After a fork only the process goes on that the recording is of. It may hold the lock just then.
  const auto leave_recording = [] {
    int recording = kRecording;
    g_state.compare_exchange_strong(recording, kOff);
  };
  if (pthread_atfork(nullptr, nullptr, leave_recording) == 0) g_state.store(kReady);
}

// A signal handler may end the program while its thread is inside.
__attribute__((destructor)) void end_recording() {
  if (g_state.load() != kRecording) return;
  const std::unique_lock lock(g_mutex, kEndLimit);
  try {
    if (lock.owns_lock() && g_recorder != nullptr) g_recorder->end();
  } catch (...) {  // what is missing then is the last line
  }
  g_state.store(kOff);
}

void begin_recording() {
  try {
    if (!g_limit || *g_limit < kLeastLimit || *g_limit > kMostLimit)
      throw std::runtime_error("CAMERA_CTRL_RECORD_LIMIT is no number from 65536 to 1073741824");
    g_recorder = new Recorder(*g_path, *g_limit);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "camera_ctrl_recorder: %s is not recorded to: %s\n", g_path->c_str(),
                 error.what());
    g_state.store(kOff);
  }
}

// Lets the recorder take a step, which waits for nothing but another thread's and changes nothing
// for the program. The first step of some kinds begins the recording.
template <class Step>
void record(Step step, bool begins = false) {
  const int error = errno;
  int cancel_state = PTHREAD_CANCEL_ENABLE;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
  int ready = kReady;
  if (begins) g_state.compare_exchange_strong(ready, kRecording);
  if (g_state.load() == kRecording) {
    const std::lock_guard lock(g_mutex);
    try {
      const bool is_on = g_state.load() == kRecording;
      if (is_on && g_recorder == nullptr) begin_recording();
      if (is_on && g_recorder != nullptr) step(*g_recorder);
    } catch (...) {
      if (g_recorder != nullptr) g_recorder->lose();
    }
  }
  pthread_setcancelstate(cancel_state, nullptr);
  errno = error;
}

// A call of the library's: what this thread queues meanwhile with the call's record is its request.
// Other programs' queues hold messages of the same types, whose records are none of ours.
struct Call : Asked {
  Call(const camera::s_cam_cgi_cmd* cmd, const camera::s_ccdlsi_dbg* dbg) : Asked{cmd, dbg} {
    t_asked = this;
  }
  ~Call() {
    t_asked = nullptr;
    if (!is_answered) recorder::record([this](Recorder& recorder) { recorder.leave(*this); });
  }
};

}  // namespace

}  // namespace ipcam::recorder

using ipcam::recorder::next;
using ipcam::recorder::record;
using ipcam::recorder::Recorder;

namespace ipcam::camera {

INTERPOSED int new_camera_ctrl(comm::s_port_inf* port) {
  record([](Recorder& recorder) { recorder.tell_changes(); });
  return next<&new_camera_ctrl>("_ZN5ipcam6camera15new_camera_ctrlEPNS_4comm10s_port_infE")(port);
}

INTERPOSED int cam_cgi_command(s_cam_cgi_cmd* cmd) {
  recorder::Call call(cmd, nullptr);
  return next<&cam_cgi_command>("_ZN5ipcam6camera15cam_cgi_commandEPNS0_13s_cam_cgi_cmdE")(cmd);
}

INTERPOSED int cam_ccd_debug(s_ccdlsi_dbg* dbg) {
  recorder::Call call(nullptr, dbg);
  return next<&cam_ccd_debug>("_ZN5ipcam6camera13cam_ccd_debugEPNS0_12s_ccdlsi_dbgE")(dbg);
}

INTERPOSED void DspCommand::prt_gcmdbuf(int direction, packet_info* packet) {
  const auto copy = std::bit_cast<wire::Packet>(*packet);
  record([&](Recorder& recorder) { recorder.exchange(direction, copy); }, direction == 0);
  next<&DspCommand::prt_gcmdbuf, void (*)(DspCommand*, int, packet_info*)>(
      "_ZN5ipcam6camera10DspCommand11prt_gcmdbufEiPNS0_11packet_infoE")(this, direction, packet);
}

}  // namespace ipcam::camera

namespace ipcam::comm {

INTERPOSED int ThdIf_send(int type, void* message, s_thdIf_ctl* ctl) {
  const auto send = next<&ThdIf_send>("_ZN5ipcam4comm10ThdIf_sendEiPvPNS0_11s_thdIf_ctlE");
  recorder::Asked* const asked = recorder::t_asked;
  if (asked == nullptr || asked->record != message) return send(type, message, ctl);
  record([&](Recorder& recorder) { recorder.queue(*asked); }, true);
  // A message that is not queued, for whatever reason, is no request.
  asked->is_refused = true;
  const int result = send(type, message, ctl);
  asked->is_refused = result != 0;
  return result;
}

INTERPOSED int ThdIf_timed_receive(int* type, void* message, unsigned int* timeout_ms,
                                   s_thdIf_ctl* ctl) {
  record([&](Recorder& recorder) { recorder.finish(ctl); });
  const int result =
      next<&ThdIf_timed_receive>("_ZN5ipcam4comm19ThdIf_timed_receiveEPiPvPjPNS0_11s_thdIf_ctlE")(
          type, message, timeout_ms, ctl);
  const void* const received = result == 0 ? *static_cast<void**>(message) : nullptr;
  if (received != nullptr) record([&](Recorder& recorder) { recorder.take(received, ctl); });
  return result;
}

}  // namespace ipcam::comm
