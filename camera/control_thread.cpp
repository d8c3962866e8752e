// The control thread: its life from start to end, and the dispatch of requests to their handlers.
#include "camera/control_thread.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <utility>

#include "camera/never_destroyed.h"
#include "dsp/cancellation.h"
#include "dsp/register_rows.h"

namespace ipcam::camera {

namespace {

using Handler = int (ControlThread::*)(int value);
using QueryHandler = int (ControlThread::*)(std::int32_t* answer);

struct DispatchRow {
  std::int32_t code;
  Handler handler = nullptr;
  QueryHandler query = nullptr;
};

// Ascending codes; every other code answers 0, the named ones
// included that are accepted without effect.
constexpr DispatchRow kDispatch[] = {
    {.code = REQUEST_COLOR, .handler = &ControlThread::color},
    {.code = REQUEST_WB_MODE, .handler = &ControlThread::wb_mode},
    {.code = REQUEST_EXP_COMP, .handler = &ControlThread::expcomp},
    {.code = REQUEST_GAIN, .handler = &ControlThread::gain},
    {.code = REQUEST_BL_COMP, .handler = &ControlThread::blcomp},
    {.code = REQUEST_SATURATION, .handler = &ControlThread::saturation},
    {.code = REQUEST_SHARPNESS, .handler = &ControlThread::sharpness},
    {.code = REQUEST_R_GAIN, .handler = &ControlThread::rgain},
    {.code = REQUEST_B_GAIN, .handler = &ControlThread::bgain},
    {.code = REQUEST_GET_ICR, .query = &ControlThread::icr_state},
    {.code = REQUEST_COLORBAR, .handler = &ControlThread::colorbar},
    {.code = REQUEST_EXP_MODE, .handler = &ControlThread::exposure_mode},
    {.code = REQUEST_ONE_PUSH_TRG, .handler = &ControlThread::onepush_trigger},
    {.code = REQUEST_CONTRAST, .handler = &ControlThread::contrast},
    {.code = REQUEST_HOLD_AUTO_IRIS_OPEN, .handler = &ControlThread::hold_iris_open},
    {.code = REQUEST_AGC_MAX_GAIN, .handler = &ControlThread::agc_max_gain},
    {.code = REQUEST_GAMMA, .handler = &ControlThread::gamma},
    {.code = REQUEST_BINNING_MODE, .handler = &ControlThread::binning_mode},
    {.code = REQUEST_BINNING, .handler = &ControlThread::binning},
    {.code = REQUEST_FORCE_BINNING, .handler = &ControlThread::force_binning},
    {.code = REQUEST_EXP_MODE_APPLY, .handler = &ControlThread::exposure_mode},
    {.code = REQUEST_BINNING_FUNC, .handler = &ControlThread::binning_function},
    {.code = REQUEST_HOLD_AUTO_IRIS_OPEN_INQ, .query = &ControlThread::hold_iris_state},
    {.code = REQUEST_DN_MODE, .handler = &ControlThread::daynight_mode},
    {.code = REQUEST_DN_HYS, .handler = &ControlThread::daynight_hysteresis},
    {.code = REQUEST_BN_TIME, .handler = &ControlThread::binning_time},
    {.code = REQUEST_BN_LEVEL, .handler = &ControlThread::binning_level},
};

constexpr bool by_code(const DispatchRow& a, const DispatchRow& b) { return a.code < b.code; }
static_assert(std::is_sorted(std::begin(kDispatch), std::end(kDispatch), by_code),
              "looked up by binary search");

constexpr unsigned int kMaxRawReply = 32;  // bytes of a raw command's reply that callers accept

constinit NeverDestroyed<ControlThread> g_control_thread;

}  // namespace

ControlThread& ControlThread::instance() { return *g_control_thread; }

void ControlThread::run(LibraryObjects& library) {
  const CancellationBlock cancellation_block;
  RequestPath& requests = RequestPath::instance();
  requests.begin_serving();
  library_ = &library;
  gpio0_ = open("/dev/gpio-0", O_RDWR);
  gpio4_ = open("/dev/gpio-4", O_RDWR);

  if (start_up()) serve(requests);
  requests.close();
  destroy_objects();
  library_ = nullptr;
  requests.end_serving();
}

void ControlThread::serve(RequestPath& requests) {
  for (;;) {
    RequestPath::Message message{};
    if (!requests.receive(message)) continue;
    switch (message.type) {
      case MESSAGE_SETTING: {
        auto& request = *static_cast<s_cam_cgi_cmd*>(message.record);
        request.result = dispatch(request);
        requests.answer(message);
        break;
      }
      case MESSAGE_RAW: {
        auto& request = *static_cast<s_ccdlsi_dbg*>(message.record);
        request.result = raw_command(request);
        requests.answer(message);
        break;
      }
      case MESSAGE_STOP:
        return;
      default:
        break;
    }
  }
}

void ControlThread::destroy_objects() {
  // The library's own workers have done with the registers before anything goes.
  if (onepush_wb_ != nullptr) {
    onepush_wb_->stop_thread();
    onepush_wb_->wait_until_idle();
  }
  if (evr_control_ != nullptr) {
    evr_control_->stop_thread();
    evr_control_->wait_until_idle();
  }

  // The camera's own workers are nobody's to stop, and may use the DspCommand until they are gone:
  // it detaches now, which is what others see of its end, and is freed after them.
  if (dsp_ != nullptr) dsp_->detach();
  focus_assist_.reset();
  auto_daynight_.reset();
  Worker::dispose(std::move(onepush_wb_));
  Worker::dispose(std::move(evr_control_));
  dsp_.reset();
  for (int* gpio : {&gpio0_, &gpio4_}) {
    if (*gpio >= 0) close(*gpio);
    *gpio = -1;
  }
}

int ControlThread::dispatch(s_cam_cgi_cmd& request) try {
  const DispatchRow key{.code = request.code};
  const auto* row = std::lower_bound(std::begin(kDispatch), std::end(kDispatch), key, by_code);
  if (row == std::end(kDispatch) || row->code != request.code) return 0;
  if (row->query != nullptr) return (this->*row->query)(&request.inq_value);
  return (this->*row->handler)(request.value);
} catch (...) {
  // Out of memory in a handler costs this request, not the thread.
  return -1;
}

int ControlThread::raw_command(s_ccdlsi_dbg& request) try {
  const bool is_terminated = memchr(request.cmd, '\0', sizeof request.cmd) != nullptr;
  const int length = is_terminated ? dsp_->do_debug(reinterpret_cast<unsigned char*>(request.cmd),
                                                    reinterpret_cast<unsigned char*>(request.reply))
                                   : -1;
  request.reply_len = length;
  if (static_cast<unsigned int>(length) > kMaxRawReply) {
    std::fprintf(stderr, "do_debug illegal length %d\n", length);
    request.reply_len = 0;
  }
  return 0;
} catch (...) {
  request.reply_len = 0;
  return -1;
}

}  // namespace ipcam::camera
