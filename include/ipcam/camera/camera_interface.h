// The camera interface: one operation per image setting, for the camera's server programs.
#pragma once

#include "ipcam/camera/camera_types.h"
#include "ipcam/camera/export.h"
#include "ipcam/comm/port_inf.h"

namespace ipcam::camera {

// Settings of a camera. The declaration serves a whole family of cameras; what follows is how this
// camera answers. The order of the operations is part of the binary interface.
//
// Threads: any thread, any number at once. An operation that is served blocks its caller until the
// control thread has carried it out, one operation at a time; at most 10 callers wait. On the
// control thread itself none is served.
//
// Results: 0 when the value was accepted, -1 when it was refused or no control thread runs (before
// new_camera_ctrl(), after delete_camera_IF(), after a failed start-up). Accepted is not applied:
// when the image processor cannot be reached, the failure is printed on standard error and the
// result still is 0. A refused value changes nothing, except where it is said.
//
// The library does not store settings. Store a setting in "all.conf" first (settings_record.h has
// its layout), then call the operation. Operations that read the stored record say so.
class IPCAM_CAMERA_API CameraInterface {
 public:
  virtual ~CameraInterface();

  // Colour (2) or monochrome (3) picture. Nothing is sent when the picture is that way already.
  // Going to colour also applies the stored white-balance mode again and then the saturation last
  // set. Returns -1 for another value; 0, without effect, when the stored record cannot be read.
  virtual int Color(int value) = 0;

  // White-balance mode: 5 indoor, 6 outdoor, 7 one-push (the stored result of the last
  // measurement), 8 atw, 9 manual (the stored red and blue gain), 21 atwpro, 64 fluorescent, 65
  // mercury lamp. Ends a running one-push measurement, also when the value is refused. Returns -1
  // for another value or an unreadable stored record.
  virtual int WBMode(int mode) = 0;

  // Starts a one-push white-balance measurement and returns without waiting for it. It takes about
  // 3 s at most, applies its gains and writes them into the stored record. The value is ignored. A
  // running measurement is ended first. Returns -1 unless the mode is one-push (WBMode 7).
  virtual int OnePushTrg(int value) = 0;

  // Applies the stored exposure settings: mode, shutter, slow shutter, gain and
  // gain limit. The value is ignored. Always 0 when served, also, without effect,
  // when the stored record cannot be read.
  virtual int ExpMode(int value) = 0;

  // Backlight compensation: 0 off, 2 and 4 the two steps. Always 0 when served, also for another
  // value, which is remembered but not sent.
  virtual int BLComp(int value) = 0;

  // Shutter. Accepted without effect: the stored shutter is applied by ExpMode().
  virtual int Shutter(int speed) = 0;

  // Not supported: 0, nothing is done.
  virtual int ExpCompMode(int mode) = 0;

  // Exposure compensation: 0 (darkest, offset -9) to 18 (brightest, offset +9), 9 is none. Returns
  // -1 for another level. While the stored exposure settings do not allow compensation, the level
  // is remembered but not sent, and the result is 0.
  virtual int ExpComp(int level) = 0;

  // Accepted without effect; DnMode() moves the IR-cut filter.
  virtual int SetICR(int value) = 0;
  // State of the IR-cut filter as the image processor has it: 59 or 60 (59 while its state bit
  // is set, 60 also when it cannot be read). Returns -1 for a null `state` or an unserved
  // request, and leaves `*state` as it was.
  virtual int GetICR(int* state) = 0;

  // Sharpness: 0 (softest) to 6 (sharpest), 3 is neutral. Returns -1 for another level, which is
  // remembered although it is not sent.
  virtual int Sharpness(int level) = 0;

  // Not supported: 0, nothing is done.
  virtual int Stabilizer(int value) = 0;
  virtual int AELevel(int level) = 0;
  virtual int DualWBRGain(int level) = 0;
  virtual int DualWBBGain(int level) = 0;

  // Pan, tilt, zoom, focus and presets. Not supported: 0, or -1 for
  // those with a body; nothing is done.
  virtual int SetCurrentCodecPlaneSizeInfo(e_codec_type /*codec*/,
                                           s_codec_plane_size_inf /*size*/) {
    return -1;
  }
  virtual int Move(int direction, int speed) = 0;
  virtual int AreaZoom(int /*x*/, int /*y*/, int /*width*/, int /*height*/,
                       e_codec_type /*codec*/) {
    return -1;
  }
  virtual int Relative(int /*kind*/, int /*amount*/) { return -1; }
  virtual int RelativePanTilt(int pan, int tilt, int speed) = 0;
  virtual int AbsolutePanTilt(int pan, int tilt, int speed) = 0;
  virtual int AbsoluteZoom(int position) = 0;
  virtual int RelativeZoom(int amount) = 0;
  virtual int AbsoluteFocus(int position) = 0;
  virtual int LimitPanTilt(int left, int right, int up, int down) = 0;
  virtual int Cancel(int kind) = 0;
  virtual int AbsolutePTZF(int pan, int tilt, int zoom, int focus) = 0;
  virtual int PresetCall(int number, int speed) = 0;
  virtual int PresetSet(int number, char* name) = 0;
  virtual int PresetClear(int number) = 0;
  virtual int HomePos(int value) = 0;

  // Manual red and blue gain: 0 (least red or blue, register gain 10170) to 255 (most,
  // register gain 1500). Set in every mode, in effect in WBMode 9. Return -1 for another
  // level or an unreadable stored record.
  virtual int RGain(int level) = 0;
  virtual int BGain(int level) = 0;

  // Accepted without effect: the stored setting is applied by ExpMode().
  virtual int AutoSlowShutter(int value) = 0;

  // Not supported: 0, nothing is done and outputs keep their values.
  virtual int Iris(int value) = 0;
  virtual int ImageMute(int value) = 0;
  virtual int ZoomMode(int mode) = 0;
  virtual int FocusMode(int mode) = 0;
  virtual int GetPTZM(int* pan, int* tilt, int* zoom, int* mode) = 0;
  virtual int InqPTZF(int* pan, int* tilt, int* zoom, int* focus) = 0;
  virtual int korra_command(const char* cmd, int len) = 0;
  virtual int korra_inquiry(const char* cmd, int len, char* reply, int* reply_len) = 0;
  virtual int CamDirect_send_korra(const char* data, int len) = 0;
  virtual int CamDirect_receive_korra(char* data, int* len) = 0;

  // Accepted without effect; Gain() and AGCMaxGain() set the gain.
  virtual int Agc(int value) = 0;

  // Not supported: 0, nothing is done.
  virtual int LensAdjust(int value) = 0;

  // Colour saturation: 0 (least) to 6 (most), 3 is neutral. Returns -1 for another level.
  virtual int Saturation(int level) = 0;

  // Runs the register command text `cmd` of `len` characters, 0 to 255, e.g. "r,0,3" (see
  // DspCommand::execute_rw_cmd), and copies its reply into `reply`: of a read one byte per
  // register, of a write one byte however many registers it writes, the first one's value before.
  // `*reply_len` is their number. Returns 0 when the command was run; one that fails has the
  // result 0 too, with `*reply_len` 0. Returns -1 for a null pointer, another length or an
  // unserved request, with `*reply_len` 0.
  virtual int sif_inquiry(const char* cmd, int len, char* reply, int* reply_len) = 0;

  // Not supported: 0, nothing is done.
  virtual int onoffStabilizerFlag(bool on) = 0;

  // From here on a camera may leave an operation out: it then answers -1 and does nothing.

  // Accepted without effect: the stored exposure settings are applied by ExpMode().
  virtual int Flickerless(int /*value*/) { return -1; }

  // Colour-bar test pattern: 0 off, 1 on. Returns -1 for another value.
  virtual int Colorbar(int /*value*/) { return -1; }

  // Contrast: 0 (least) to 6 (most), 3 is neutral. Returns -1 for another level, which is
  // remembered although it is not sent.
  virtual int Contrast(int /*level*/) { return -1; }

  // Accepted without effect.
  virtual int HoldAutoIrisOpenButton() { return -1; }
  // Automatic iris: 0 hold open, 1 release, 68 the other of the two. Holding stops the
  // automatic day/night worker and starts the focus assist, releasing stops the focus
  // assist; both apply the stored exposure settings and write the state into the stored
  // record. Returns -1 for another value.
  virtual int HoldAutoIrisOpen(int /*value*/) { return -1; }
  // Whether the automatic iris is held open: 1 or 0. Returns -1 for a null `held` or an unserved
  // request, and leaves `*held` as it was.
  virtual int HoldAutoIrisOpenInq(int* /*held*/) { return -1; }

  // Accepted without effect: the stored settings are applied by ExpMode().
  virtual int AutoShutter(int /*value*/) { return -1; }
  virtual int AutoSlowShutterMinSpeed(int /*speed*/) { return -1; }

  // Manual gain: 0 (none) to 6 (most); 6 counts as 5 unless pixels are binned. Always 0 when
  // served, also for another level, which is remembered but not sent.
  virtual int Gain(int /*level*/) { return -1; }

  // Limit of the automatic gain: 0 (none) to 6 (most); 6 counts as 5 unless pixels are
  // binned; 7 to 13 hold the gain at the levels 0 to 6. Always 0 when served, also for
  // another level, which is remembered but not sent.
  virtual int AGCMaxGain(int /*level*/) { return -1; }

  // Gamma curve: 0 to 6. Always 0 when served, also for another curve, which is not sent.
  virtual int Gamma(int /*curve*/) { return -1; }

  // Who decides about pixel binning: 34 mode 1, 9 the function BinningFunc(),
  // 30 mode 3, 4 automatic. Only remembered. Always 0 when served, also for
  // another value, which changes nothing.
  virtual int BinningMode(int /*value*/) { return -1; }
  // Pixel binning: 0 or 74 on, 1 or 75 off. Takes about a second, in which nothing else is
  // served. Returns -1 for another value, and when the white-balance adjustment file of
  // the new readout is missing: the readout has been switched then, but timing, gain
  // limits and sharpness have not been adapted.
  virtual int Binning(int /*value*/) { return -1; }
  // Forces binning on (0) or off (1) until 29 gives the decision back to the mode. Returns -1 for
  // another value; else as Binning() or, for 29, BinningFunc().
  virtual int ForceBinning(int /*value*/) { return -1; }
  // Binning by hand on (0) or off (1), or left to the day/night worker (4); 34 stops that worker
  // and returns -1, as any other value does. Returns as Binning() for 0 and 1. While binning is
  // forced, the value is only remembered and the result is -1.
  virtual int BinningFunc(int /*value*/) { return -1; }

  // Day/night: 61, 69, 71 on, 62, 70, 72 off; another value counts as off and leaves the IR-cut
  // filter where it is. Takes a second, in which nothing else is served. Always 0 when served.
  virtual int DnMode(int /*mode*/) { return -1; }
  // Hysteresis of the automatic day/night switch: 0 to 65535. Switches binning off
  // first. Returns -1 for another value.
  virtual int DnHys(int /*hysteresis*/) { return -1; }
  // Accepted without effect.
  virtual int DnTime(int /*seconds*/) { return -1; }
  // How long the light must have changed before the automatic switch: 2 or 30 seconds. Switches
  // binning off first. Returns -1 for another value.
  virtual int BnTime(int /*seconds*/) { return -1; }
  // Accepted without effect.
  virtual int DnLevel(int /*level*/) { return -1; }
  // Light level of the automatic switch: 0 to 4095. Switches binning off
  // first. Returns -1 for another level.
  virtual int BnLevel(int /*level*/) { return -1; }
  // Accepted without effect.
  virtual int AutoMode(int /*mode*/) { return -1; }

  // Not supported: -1, nothing is done.
  virtual int loadEptzConfig() { return -1; }
  virtual int AbsoluteArea(int /*x*/, int /*y*/, int /*width*/, int /*height*/, int /*speed*/) {
    return -1;
  }
  virtual int updateTime() { return -1; }
};

// This camera's interface. It holds no state: any number of objects reach the one control thread.
class IPCAM_CAMERA_API CameraController : public CameraInterface {
 public:
  CameraController() = default;
  ~CameraController() override = default;

  int Color(int value) override;
  int WBMode(int mode) override;
  int OnePushTrg(int value) override;
  int ExpMode(int value) override;
  int BLComp(int value) override;
  int Shutter(int speed) override;
  int ExpCompMode(int mode) override;
  int ExpComp(int level) override;
  int SetICR(int value) override;
  int GetICR(int* state) override;
  int Sharpness(int level) override;
  int Stabilizer(int value) override;
  int AELevel(int level) override;
  int DualWBRGain(int level) override;
  int DualWBBGain(int level) override;
  int Move(int direction, int speed) override;
  int RelativePanTilt(int pan, int tilt, int speed) override;
  int AbsolutePanTilt(int pan, int tilt, int speed) override;
  int AbsoluteZoom(int position) override;
  int RelativeZoom(int amount) override;
  int AbsoluteFocus(int position) override;
  int LimitPanTilt(int left, int right, int up, int down) override;
  int Cancel(int kind) override;
  int AbsolutePTZF(int pan, int tilt, int zoom, int focus) override;
  int PresetCall(int number, int speed) override;
  int PresetSet(int number, char* name) override;
  int PresetClear(int number) override;
  int HomePos(int value) override;
  int RGain(int level) override;
  int BGain(int level) override;
  int AutoSlowShutter(int value) override;
  int Iris(int value) override;
  int ImageMute(int value) override;
  int ZoomMode(int mode) override;
  int FocusMode(int mode) override;
  int GetPTZM(int* pan, int* tilt, int* zoom, int* mode) override;
  int InqPTZF(int* pan, int* tilt, int* zoom, int* focus) override;
  int korra_command(const char* cmd, int len) override;
  int korra_inquiry(const char* cmd, int len, char* reply, int* reply_len) override;
  int CamDirect_send_korra(const char* data, int len) override;
  int CamDirect_receive_korra(char* data, int* len) override;
  int Agc(int value) override;
  int LensAdjust(int value) override;
  int Saturation(int level) override;
  int sif_inquiry(const char* cmd, int len, char* reply, int* reply_len) override;
  int onoffStabilizerFlag(bool on) override;
  int Flickerless(int value) override;
  int Colorbar(int value) override;
  int Contrast(int level) override;
  int HoldAutoIrisOpenButton() override;
  int HoldAutoIrisOpen(int value) override;
  int HoldAutoIrisOpenInq(int* held) override;
  int AutoShutter(int value) override;
  int AutoSlowShutterMinSpeed(int speed) override;
  int Gain(int level) override;
  int AGCMaxGain(int level) override;
  int Gamma(int curve) override;
  int BinningMode(int value) override;
  int Binning(int value) override;
  int ForceBinning(int value) override;
  int BinningFunc(int value) override;
  int DnMode(int mode) override;
  int DnHys(int hysteresis) override;
  int DnTime(int seconds) override;
  int BnTime(int seconds) override;
  int DnLevel(int level) override;
  int BnLevel(int level) override;
  int AutoMode(int mode) override;
};

// Returns a new interface object, which the caller gives back to delete_camera_IF(), or null when
// there is no memory. Neither argument is used, and both may be null; the control thread is not
// started, new_camera_ctrl() does that. Any thread.
IPCAM_CAMERA_API CameraInterface* create_camera_IF(ipcam::comm::s_port_inf* port, s_ctrl_inf* ctrl);

// Ends the library's one control thread, whichever object is given, and waits until it has
// ended. Requests queued by then are served first; callers that still wait for a place in the
// queue get -1. Then destroys `camera`, which may be null. A thread that has been ended already
// is no error. Called on the control thread itself, it only destroys `camera`. Any thread; no
// operation may be running on `camera` itself.
IPCAM_CAMERA_API void delete_camera_IF(CameraInterface* camera);

}  // namespace ipcam::camera
