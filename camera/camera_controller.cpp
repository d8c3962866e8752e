// This camera's interface object: an operation becomes one request to the
// control thread, or is answered at once.
#include <cstring>
#include <new>

#include "camera/lifecycle.h"
#include "dsp/cancellation.h"
#include "ipcam/camera/camera_interface.h"
#include "ipcam/camera/camera_request.h"

namespace ipcam::camera {

namespace {

int request(e_request_code code, int value) {
  s_cam_cgi_cmd cmd{};
  cmd.code = code;
  cmd.value = value;
  cam_cgi_command(&cmd);
  return cmd.result;
}

// A request that was not served has no answer to hand out.
int query(e_request_code code, int* answer) {
  if (answer == nullptr) return -1;
  s_cam_cgi_cmd cmd{};
  cmd.code = code;
  if (cam_cgi_command(&cmd) != 0) return -1;
  *answer = cmd.inq_value;
  return cmd.result;
}

}  // namespace

CameraInterface::~CameraInterface() = default;

// --- White balance ---
int CameraController::WBMode(int mode) { return request(REQUEST_WB_MODE, mode); }
int CameraController::RGain(int level) { return request(REQUEST_R_GAIN, level); }
int CameraController::BGain(int level) { return request(REQUEST_B_GAIN, level); }
int CameraController::OnePushTrg(int value) { return request(REQUEST_ONE_PUSH_TRG, value); }

// --- Picture ---
int CameraController::Color(int value) { return request(REQUEST_COLOR, value); }
int CameraController::Saturation(int level) { return request(REQUEST_SATURATION, level); }
int CameraController::Contrast(int level) { return request(REQUEST_CONTRAST, level); }
int CameraController::Sharpness(int level) { return request(REQUEST_SHARPNESS, level); }
int CameraController::Colorbar(int value) { return request(REQUEST_COLORBAR, value); }
int CameraController::Gamma(int curve) { return request(REQUEST_GAMMA, curve); }

// --- Exposure ---
int CameraController::ExpMode(int value) { return request(REQUEST_EXP_MODE, value); }
int CameraController::BLComp(int value) { return request(REQUEST_BL_COMP, value); }
int CameraController::ExpComp(int level) { return request(REQUEST_EXP_COMP, level); }
int CameraController::Shutter(int speed) { return request(REQUEST_SHUTTER, speed); }
int CameraController::AutoShutter(int value) { return request(REQUEST_AUTO_SHUTTER, value); }
int CameraController::AutoSlowShutter(int value) {
  return request(REQUEST_AUTO_SLOW_SHUTTER, value);
}
int CameraController::AutoSlowShutterMinSpeed(int speed) {
  return request(REQUEST_AUTO_SLOW_SHUTTER_MIN_SPEED, speed);
}
int CameraController::Flickerless(int value) { return request(REQUEST_FLICKERLESS, value); }
int CameraController::Gain(int level) { return request(REQUEST_GAIN, level); }
int CameraController::Agc(int value) { return request(REQUEST_AGC, value); }
int CameraController::AGCMaxGain(int level) { return request(REQUEST_AGC_MAX_GAIN, level); }
int CameraController::HoldAutoIrisOpen(int value) {
  return request(REQUEST_HOLD_AUTO_IRIS_OPEN, value);
}
int CameraController::HoldAutoIrisOpenButton() {
  return request(REQUEST_HOLD_AUTO_IRIS_OPEN_BUTTON, 0);
}
int CameraController::HoldAutoIrisOpenInq(int* held) {
  return query(REQUEST_HOLD_AUTO_IRIS_OPEN_INQ, held);
}

// --- Binning, day/night ---
int CameraController::BinningMode(int value) { return request(REQUEST_BINNING_MODE, value); }
int CameraController::Binning(int value) { return request(REQUEST_BINNING, value); }
int CameraController::ForceBinning(int value) { return request(REQUEST_FORCE_BINNING, value); }
int CameraController::BinningFunc(int value) { return request(REQUEST_BINNING_FUNC, value); }
int CameraController::SetICR(int value) { return request(REQUEST_SET_ICR, value); }
int CameraController::GetICR(int* state) { return query(REQUEST_GET_ICR, state); }
int CameraController::DnMode(int mode) { return request(REQUEST_DN_MODE, mode); }
int CameraController::DnHys(int hysteresis) { return request(REQUEST_DN_HYS, hysteresis); }
int CameraController::DnTime(int seconds) { return request(REQUEST_DN_TIME, seconds); }
int CameraController::DnLevel(int level) { return request(REQUEST_DN_LEVEL, level); }
int CameraController::BnTime(int seconds) { return request(REQUEST_BN_TIME, seconds); }
int CameraController::BnLevel(int level) { return request(REQUEST_BN_LEVEL, level); }
int CameraController::AutoMode(int mode) { return request(REQUEST_AUTO_MODE, mode); }

// --- What other cameras of the family have ---
int CameraController::ExpCompMode(int) { return 0; }
int CameraController::Stabilizer(int) { return 0; }
int CameraController::onoffStabilizerFlag(bool) { return 0; }
int CameraController::AELevel(int) { return 0; }
int CameraController::DualWBRGain(int) { return 0; }
int CameraController::DualWBBGain(int) { return 0; }
int CameraController::Iris(int) { return 0; }
int CameraController::ImageMute(int) { return 0; }
int CameraController::LensAdjust(int) { return 0; }
int CameraController::Move(int, int) { return 0; }
int CameraController::RelativePanTilt(int, int, int) { return 0; }
int CameraController::AbsolutePanTilt(int, int, int) { return 0; }
int CameraController::LimitPanTilt(int, int, int, int) { return 0; }
int CameraController::AbsoluteZoom(int) { return 0; }
int CameraController::RelativeZoom(int) { return 0; }
int CameraController::ZoomMode(int) { return 0; }
int CameraController::AbsoluteFocus(int) { return 0; }
int CameraController::FocusMode(int) { return 0; }
int CameraController::AbsolutePTZF(int, int, int, int) { return 0; }
int CameraController::GetPTZM(int*, int*, int*, int*) { return 0; }
int CameraController::InqPTZF(int*, int*, int*, int*) { return 0; }
int CameraController::Cancel(int) { return 0; }
int CameraController::PresetCall(int, int) { return 0; }
int CameraController::PresetSet(int, char*) { return 0; }
int CameraController::PresetClear(int) { return 0; }
int CameraController::HomePos(int) { return 0; }
int CameraController::korra_command(const char*, int) { return 0; }
int CameraController::korra_inquiry(const char*, int, char*, int*) { return 0; }
int CameraController::CamDirect_send_korra(const char*, int) { return 0; }
int CameraController::CamDirect_receive_korra(char*, int*) { return 0; }

int CameraController::sif_inquiry(const char* cmd, int len, char* reply, int* reply_len) {
  s_ccdlsi_dbg dbg{};
  if (reply_len != nullptr) *reply_len = 0;
  // The field's last byte stays zero: the control thread goes by the terminating NUL.
  if (cmd == nullptr || reply == nullptr || reply_len == nullptr) return -1;
  if (len < 0 || static_cast<std::size_t>(len) >= sizeof dbg.cmd) return -1;

  std::memcpy(dbg.cmd, cmd, static_cast<std::size_t>(len));
  dbg.cmd_len = len;
  cam_ccd_debug(&dbg);
  *reply_len = dbg.reply_len;
  std::memcpy(reply, dbg.reply, static_cast<std::size_t>(dbg.reply_len));
  return dbg.result;
}

CameraInterface* create_camera_IF(ipcam::comm::s_port_inf* /*port*/, s_ctrl_inf* /*ctrl*/) {
  return new (std::nothrow) CameraController;
}

void delete_camera_IF(CameraInterface* camera) {
  const CancellationBlock cancellation_block;
  // The object goes even when there is no control thread to end.
  shut_down_camera_ctrl();
  delete camera;
}

}  // namespace ipcam::camera
