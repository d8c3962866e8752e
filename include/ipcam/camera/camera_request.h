// Request codes, request records and the request path to the camera control thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ipcam/camera/export.h"

namespace ipcam::comm {
struct s_port_inf;
}

namespace ipcam::camera {

// What a request asks for. Codes without a name here, inside and outside 31 to 83, are accepted, do
// nothing and are answered with result 0.
enum e_request_code : std::int32_t {
  REQUEST_COLOR = 31,
  REQUEST_WB_MODE = 33,
  REQUEST_EXP_COMP = 34,
  REQUEST_GAIN = 35,
  REQUEST_AGC = 36,
  REQUEST_BL_COMP = 37,
  REQUEST_SHUTTER = 38,
  REQUEST_SATURATION = 39,
  REQUEST_SHARPNESS = 40,
  REQUEST_R_GAIN = 41,
  REQUEST_B_GAIN = 42,
  REQUEST_SET_ICR = 50,
  REQUEST_GET_ICR = 51,
  REQUEST_DN_LEVEL = 52,
  REQUEST_DN_TIME = 53,
  REQUEST_COLORBAR = 61,
  REQUEST_EXP_MODE = 62,
  REQUEST_ONE_PUSH_TRG = 64,
  REQUEST_FLICKERLESS = 65,
  REQUEST_AUTO_SLOW_SHUTTER = 66,
  REQUEST_CONTRAST = 67,
  REQUEST_HOLD_AUTO_IRIS_OPEN = 68,
  REQUEST_AUTO_SHUTTER = 69,
  REQUEST_AUTO_SLOW_SHUTTER_MIN_SPEED = 70,
  REQUEST_AGC_MAX_GAIN = 71,
  REQUEST_GAMMA = 72,
  REQUEST_BINNING_MODE = 73,
  REQUEST_BINNING = 74,
  REQUEST_FORCE_BINNING = 75,
  REQUEST_EXP_MODE_APPLY = 76,
  REQUEST_BINNING_FUNC = 77,
  REQUEST_HOLD_AUTO_IRIS_OPEN_BUTTON = 78,
  REQUEST_HOLD_AUTO_IRIS_OPEN_INQ = 79,
  REQUEST_DN_MODE = 80,
  REQUEST_DN_HYS = 81,
  REQUEST_BN_TIME = 82,
  REQUEST_BN_LEVEL = 83,
  REQUEST_AUTO_MODE = 84,
};

// One setting or query request. The caller owns the record and keeps
// it alive until the call returns.
struct s_cam_cgi_cmd {
  std::int32_t code;        // what is asked for, one of e_request_code
  std::int32_t value;       // the caller's value, in the request's own terms
  std::int32_t reserved8;   // neither read nor written
  std::int32_t result;      // out: the handler's result; -1 when the request was not served
  std::int32_t inq_value;   // out: answer of the two queries, otherwise untouched
  std::int32_t reserved20;  // neither read nor written
  std::int32_t reply_slot;  // out: number of the reply semaphore used
};
static_assert(sizeof(s_cam_cgi_cmd) == 28);
static_assert(offsetof(s_cam_cgi_cmd, code) == 0 && offsetof(s_cam_cgi_cmd, value) == 4 &&
              offsetof(s_cam_cgi_cmd, reserved8) == 8 && offsetof(s_cam_cgi_cmd, result) == 12 &&
              offsetof(s_cam_cgi_cmd, inq_value) == 16 &&
              offsetof(s_cam_cgi_cmd, reserved20) == 20 &&
              offsetof(s_cam_cgi_cmd, reply_slot) == 24);

// One raw register command. The caller owns the record and keeps it alive until the call returns.
struct s_ccdlsi_dbg {
  std::int32_t reserved0;  // zero
  char cmd[256];           // register command text, NUL-terminated within the field
  std::int32_t cmd_len;    // length as given by the sender; the terminating NUL decides
  std::int32_t result;  // out: 0 when the command was run, also when it failed; -1 when not served
  char reply[256];      // out: one byte per register, its value before a write
  std::int32_t reply_len;   // out: of a read its registers, of a write 1 however many it writes; 0
                            // when it failed
  std::int32_t reply_slot;  // out: number of the reply semaphore used
};
static_assert(sizeof(s_ccdlsi_dbg) == 532);
static_assert(offsetof(s_ccdlsi_dbg, reserved0) == 0 && offsetof(s_ccdlsi_dbg, cmd) == 4 &&
              offsetof(s_ccdlsi_dbg, cmd_len) == 260 && offsetof(s_ccdlsi_dbg, result) == 264 &&
              offsetof(s_ccdlsi_dbg, reply) == 268 && offsetof(s_ccdlsi_dbg, reply_len) == 524 &&
              offsetof(s_ccdlsi_dbg, reply_slot) == 528);

// Queues one request to the control thread and blocks until it has been served.
// Returns 0 when it was answered: the outcome is in `cmd->result`. Returns -1 at once, with
// `cmd->result` -1, when no control thread runs (not started, start-up failed, stopping or
// stopped), when the camera's own libraries fail, and on the control thread itself, where it could
// not be served; and -1 for a null `cmd`. At most 10 requests wait at a time; a further caller
// waits for a place. Signal 10 is blocked in the calling thread during the call, and a cancellation
// of the thread takes effect at the return. Any thread.
IPCAM_CAMERA_API int cam_cgi_command(s_cam_cgi_cmd* cmd);

// The same for a raw register command. A command that fails, or a `cmd` without a
// terminating NUL, is answered with `result` 0 and `reply_len` 0; one that is not served
// with `result` -1 and `reply_len` 0.
IPCAM_CAMERA_API int cam_ccd_debug(s_ccdlsi_dbg* dbg);

// Creates the request path and starts the control thread, which applies the stored settings before
// it serves the first request. `port` is kept but not used, and must stay valid until the shutdown.
// Returns 0; -1 for a null `port`, when a control thread has been started already and not been shut
// down (also when its start-up failed; so always on the control thread itself), or when a resource
// could not be had. A constructor of the camera's own libraries that throws passes its exception
// on. What a failed call created is released by the next call.
// Any thread. The thread is ended by delete_camera_IF().
IPCAM_CAMERA_API int new_camera_ctrl(ipcam::comm::s_port_inf* port);

// Reads the stored settings, applies the factory adjustment files and pushes the stored picture and
// exposure settings to the image processor. Returns true when every step succeeded; false at the
// first that failed, with the steps before it applied. Control thread only, which calls it once
// when it starts; anywhere else it returns false and does nothing.
IPCAM_CAMERA_API bool InitCamera();

}  // namespace ipcam::camera
