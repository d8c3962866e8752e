// The operations at which requests, answers and packets pass. Each goes on to the next definition
// of its name, whose result and exceptions are the caller's as before.
#include <bit>

#include "ipcam/camera/camera_request.h"
#include "ipcam/camera/dsp_command.h"
#include "ipcam/comm/thd_if.h"
#include "ipcam/comm/wit_end.h"
#include "recorder/next_definition.h"
#include "recorder/recorder.h"

#define INTERPOSED __attribute__((visibility("default")))

namespace recorder = ipcam::recorder;

namespace {

// A message that is not queued, for whatever reason, is forgotten.
class Sending {
 public:
  explicit Sending(const void* message) : message_(message) { recorder::note_send(message); }
  ~Sending() {
    if (!is_queued_) recorder::note_failed_send(message_);
  }
  Sending(const Sending&) = delete;
  Sending& operator=(const Sending&) = delete;
  int end(int result) {
    is_queued_ = result == 0;
    return result;
  }

 private:
  const void* const message_;
  bool is_queued_ = false;
};

}  // namespace

namespace ipcam::camera {

INTERPOSED int cam_cgi_command(s_cam_cgi_cmd* cmd) {
  static const auto next = recorder::next_definition<decltype(&cam_cgi_command)>(
      "_ZN5ipcam6camera15cam_cgi_commandEPNS0_13s_cam_cgi_cmdE");
  const recorder::Asked asked(cmd);
  return next(cmd);
}

INTERPOSED int cam_ccd_debug(s_ccdlsi_dbg* dbg) {
  static const auto next = recorder::next_definition<decltype(&cam_ccd_debug)>(
      "_ZN5ipcam6camera13cam_ccd_debugEPNS0_12s_ccdlsi_dbgE");
  const recorder::Asked asked(dbg);
  return next(dbg);
}

INTERPOSED void DspCommand::prt_gcmdbuf(int direction, packet_info* packet) {
  static const auto next = recorder::next_definition<void (*)(DspCommand*, int, packet_info*)>(
      "_ZN5ipcam6camera10DspCommand11prt_gcmdbufEiPNS0_11packet_infoE");
  recorder::note_packet(direction, std::bit_cast<wire::Packet>(*packet));
  next(this, direction, packet);
}

}  // namespace ipcam::camera

namespace ipcam::comm {

INTERPOSED int ThdIf_send(int type, void* message, s_thdIf_ctl* ctl) {
  static const auto next = recorder::next_definition<decltype(&ThdIf_send)>(
      "_ZN5ipcam4comm10ThdIf_sendEiPvPNS0_11s_thdIf_ctlE");
  Sending sending(message);
  return sending.end(next(type, message, ctl));
}

INTERPOSED int ThdIf_timed_receive(int* type, void* message, unsigned int* timeout_ms,
                                   s_thdIf_ctl* ctl) {
  static const auto next = recorder::next_definition<decltype(&ThdIf_timed_receive)>(
      "_ZN5ipcam4comm19ThdIf_timed_receiveEPiPvPjPNS0_11s_thdIf_ctlE");
  const int result = next(type, message, timeout_ms, ctl);
  if (result == 0) recorder::note_receive(*static_cast<void**>(message));
  return result;
}

INTERPOSED int WitEnd_post(int number, s_witEnd_ctl* ctl) {
  static const auto next = recorder::next_definition<decltype(&WitEnd_post)>(
      "_ZN5ipcam4comm11WitEnd_postEiPNS0_12s_witEnd_ctlE");
  recorder::note_post(number);
  return next(number, ctl);
}

}  // namespace ipcam::comm
