// The camera interface as its callers see it: slots, requests, answers, stubs,
// and the life of the control thread.
#include "ipcam/camera/camera_interface.h"

#include <bit>
#include <functional>
#include <utility>

#include "tests/support/camera_fixture.h"

namespace {

constexpr int kAbsent = -1;  // the base class's answer, nothing sent
constexpr int kStub = 0;     // nothing sent
constexpr int kRaw = 2;      // a raw register command; all other numbers are request codes
constexpr int kCodeWithoutHandler = 200;

std::vector<std::pair<int, int>> g_sent;

// Notes the requests' codes and values, and lets setting requests go on without effect.
void note_request(int type, void* message) {
  if (type == 1) {
    auto& request = *static_cast<ipcam::camera::s_cam_cgi_cmd*>(message);
    g_sent.emplace_back(request.code, request.value);
    request.code = kCodeWithoutHandler;
  } else {
    g_sent.emplace_back(kRaw, 0);
  }
}

}  // namespace

namespace ipcam::test {
namespace {

using camera::CameraController;
using Camera = camera::CameraInterface;

static_assert(sizeof(CameraController) == sizeof(void*));

// Every operation is called with these.
constexpr int kArgument = 7;
int g_output = 0;
char g_text[] = "unchanged";

template <class T>
T argument() {
  if constexpr (std::is_same_v<T, int>) {
    return kArgument;
  } else if constexpr (std::is_same_v<T, int*>) {
    return &g_output;
  } else if constexpr (std::is_same_v<T, const char*>) {
    return "r,0,3;;";  // as long as kArgument says
  } else if constexpr (std::is_same_v<T, char*>) {
    return g_text;
  } else {
    return T{};
  }
}

struct Operation {
  std::size_t slot;
  int kind;
  std::function<int(Camera&)> call;
};

template <class... Args>
Operation op(int (Camera::*operation)(Args...), int kind) {
  // A pointer to a virtual function holds its offset in the table of virtual
  // functions; the lowest bit is a mark.
  const std::size_t slot = std::bit_cast<std::array<std::size_t, 2>>(operation)[0] / sizeof(void*);
  return {slot, kind,
          [operation](Camera& camera) { return (camera.*operation)(argument<Args>()...); }};
}

#define OP(name, kind) op(&Camera::name, kind)
// clang-format off
std::vector<Operation> all_operations() {
  return {
      OP(Color, 31), OP(WBMode, 33), OP(OnePushTrg, 64), OP(ExpMode, 62), OP(BLComp, 37),
      OP(Shutter, 38), OP(ExpCompMode, kStub), OP(ExpComp, 34), OP(SetICR, 50), OP(GetICR, 51),
      OP(Sharpness, 40), OP(Stabilizer, kStub), OP(AELevel, kStub), OP(DualWBRGain, kStub),
      OP(DualWBBGain, kStub), OP(SetCurrentCodecPlaneSizeInfo, kAbsent), OP(Move, kStub),
      OP(AreaZoom, kAbsent), OP(Relative, kAbsent), OP(RelativePanTilt, kStub),
      OP(AbsolutePanTilt, kStub), OP(AbsoluteZoom, kStub), OP(RelativeZoom, kStub),
      OP(AbsoluteFocus, kStub), OP(LimitPanTilt, kStub), OP(Cancel, kStub), OP(AbsolutePTZF, kStub),
      OP(PresetCall, kStub), OP(PresetSet, kStub), OP(PresetClear, kStub), OP(HomePos, kStub),
      OP(RGain, 41), OP(BGain, 42), OP(AutoSlowShutter, 66), OP(Iris, kStub), OP(ImageMute, kStub),
      OP(ZoomMode, kStub), OP(FocusMode, kStub), OP(GetPTZM, kStub), OP(InqPTZF, kStub),
      OP(korra_command, kStub), OP(korra_inquiry, kStub), OP(CamDirect_send_korra, kStub),
      OP(CamDirect_receive_korra, kStub), OP(Agc, 36), OP(LensAdjust, kStub), OP(Saturation, 39),
      OP(sif_inquiry, kRaw), OP(onoffStabilizerFlag, kStub), OP(Flickerless, 65), OP(Colorbar, 61),
      OP(Contrast, 67), OP(HoldAutoIrisOpenButton, 78), OP(HoldAutoIrisOpen, 68),
      OP(HoldAutoIrisOpenInq, 79), OP(AutoShutter, 69), OP(AutoSlowShutterMinSpeed, 70),
      OP(Gain, 35), OP(AGCMaxGain, 71), OP(Gamma, 72), OP(BinningMode, 73), OP(Binning, 74),
      OP(ForceBinning, 75), OP(BinningFunc, 77), OP(DnMode, 80), OP(DnHys, 81), OP(DnTime, 53),
      OP(BnTime, 82), OP(DnLevel, 52), OP(BnLevel, 83), OP(AutoMode, 84),
      OP(loadEptzConfig, kAbsent), OP(AbsoluteArea, kAbsent), OP(updateTime, kAbsent)};
}
// clang-format on
#undef OP

class CameraInterfaceTest : public CameraTest {
 protected:
  ~CameraInterfaceTest() override { delete camera_if_; }

  void start() {
    write_settings();
    ASSERT_EQ(0, start_control_thread());
    camera.clear_traffic();
  }

  Camera* camera_if_ = camera::create_camera_IF(nullptr, nullptr);
};

TEST_F(CameraInterfaceTest, OperationsFollowTheDestructorInTheAgreedOrder) {
  std::size_t slot = 2;
  for (const Operation& operation : all_operations()) EXPECT_EQ(slot++, operation.slot);
  EXPECT_EQ(2u + 74u, slot);
}

TEST_F(CameraInterfaceTest, EachOperationSendsItsOwnRequestOrNothing) {
  start();
  observe_messages(note_request);
  for (const Operation& operation : all_operations()) {
    SCOPED_TRACE("slot " + std::to_string(operation.slot));
    EXPECT_EQ(operation.kind == kAbsent ? -1 : 0, operation.call(*camera_if_));
    const bool has_value = operation.kind != kRaw && operation.kind != 51 && operation.kind != 78 &&
                           operation.kind != 79;
    std::vector<std::pair<int, int>> expected;
    if (operation.kind > kStub) expected.emplace_back(operation.kind, has_value ? kArgument : 0);
    EXPECT_EQ(expected, std::exchange(g_sent, {}));
  }
  observe_messages(nullptr);
}

TEST_F(CameraInterfaceTest, NothingIsServedWithoutAControlThread) {
  for (const Operation& operation : all_operations()) {
    SCOPED_TRACE("slot " + std::to_string(operation.slot));
    g_output = -5;
    std::strcpy(g_text, "unchanged");
    EXPECT_EQ(operation.kind == kStub ? 0 : -1, operation.call(*camera_if_));
    EXPECT_EQ(operation.kind == kRaw ? 0 : -5, g_output);  // only a raw reply has a length to tell
    EXPECT_STREQ("unchanged", g_text);
  }
}

TEST_F(CameraInterfaceTest, BaseClassAnswersForWhatACameraLeavesOut) {
  CameraController c;
  int held = -5;
  const int sum =
      c.Camera::Flickerless(0) + c.Camera::Colorbar(0) + c.Camera::Contrast(0) +
      c.Camera::Gamma(0) + c.Camera::HoldAutoIrisOpenButton() + c.Camera::HoldAutoIrisOpen(0) +
      c.Camera::AutoShutter(0) + c.Camera::HoldAutoIrisOpenInq(&held) +
      c.Camera::AutoSlowShutterMinSpeed(0) + c.Camera::Gain(0) + c.Camera::AGCMaxGain(0) +
      c.Camera::BinningMode(0) + c.Camera::Binning(0) + c.Camera::ForceBinning(0) +
      c.Camera::BinningFunc(0) + c.Camera::DnMode(0) + c.Camera::DnHys(0) + c.Camera::DnTime(0) +
      c.Camera::BnTime(0) + c.Camera::DnLevel(0) + c.Camera::BnLevel(0) + c.Camera::AutoMode(0);
  EXPECT_EQ(22 * -1, sum);
  EXPECT_EQ(-5, held);
}

TEST_F(CameraInterfaceTest, HandsOutResultsAndAnswers) {
  start();
  EXPECT_EQ(-1, camera_if_->Saturation(7));
  camera.set_reg(17, 27, 0x01);
  int icr = -5, hold = -5;
  EXPECT_EQ(0, camera_if_->GetICR(&icr));
  EXPECT_EQ(0, camera_if_->HoldAutoIrisOpenInq(&hold));
  EXPECT_EQ(59, icr);
  EXPECT_EQ(0, hold);
  EXPECT_EQ(-1, camera_if_->GetICR(nullptr));
  EXPECT_EQ(-1, camera_if_->HoldAutoIrisOpenInq(nullptr));
}

TEST_F(CameraInterfaceTest, RawCommandsBringTheirReply) {
  start();
  const std::string longest = "r,13,140" + std::string(247, ';');
  const struct {
    const char* cmd;
    int len, result;
    std::string reply;
  } cases[] = {
      {"r,13,140;13,141;13,142", 22, 0, "\x42\xff\x07"},
      {"w,13,140,0x0f,0x1", 17, 0, "\x42"},  // the value before
      {longest.c_str(), 255, 0, "\x41"},
      {"", 0, 0, ""},
      {longest.c_str(), 256, -1, ""},
      {"r,0,3", -1, -1, ""},
      {nullptr, 5, -1, ""},
  };
  for (const std::uint32_t byte : {140u, 141u, 142u})
    camera.set_reg(13, byte, static_cast<std::uint8_t>(cases[0].reply[byte - 140]));
  char reply[40];
  int reply_len = -5;
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.cmd == nullptr ? "null" : c.cmd) + ", " + std::to_string(c.len));
    std::strcpy(reply, "unchanged");
    EXPECT_EQ(c.result, camera_if_->sif_inquiry(c.cmd, c.len, reply, &reply_len));
    EXPECT_EQ(static_cast<int>(c.reply.size()), reply_len);
    EXPECT_EQ(c.reply + std::string("unchanged").substr(c.reply.size()), reply);
  }
  camera.clear_traffic();
  reply_len = -5;
  EXPECT_EQ(-1, camera_if_->sif_inquiry("r,0,3", 5, nullptr, &reply_len));
  EXPECT_EQ(0, reply_len);
  EXPECT_EQ(-1, camera_if_->sif_inquiry("r,0,3", 5, reply, nullptr));
  EXPECT_EQ(Lines{}, camera.take_traffic());
}

}  // namespace
}  // namespace ipcam::test
