// The request path: start, stop, admission, and every request answered exactly once.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <memory>
#include <thread>

#include "ipcam/camera/camera_request.h"
#include "tests/support/camera_fixture.h"

namespace ipcam::camera {
namespace {

using test::Lines;

class RequestPath : public test::CameraTest {
 protected:
  RequestPath() { write_settings(test::SettingsBytes{}.i32(68, 1).i32(140, 1)); }

  static std::ptrdiff_t calls_of(const char* call) { return std::ranges::count(ipcam::platform::journal(), call); }

  // A request that must not be served.
  void expect_refused() {
    ipcam::platform::clear_journal();
    s_cam_cgi_cmd setting{
        .code = 32, .value = 0, .reserved8 = 0, .result = 7, .inq_value = 8, .reserved20 = 0, .reply_slot = 0};
    EXPECT_EQ(cam_cgi_command(&setting), -1);
    EXPECT_EQ(setting.result, -1);
    s_ccdlsi_dbg raw{};
    std::strcpy(raw.cmd, "r,12,0");
    raw.reply_len = 9;
    EXPECT_EQ(cam_ccd_debug(&raw), -1);
    EXPECT_EQ(raw.result, -1);
    EXPECT_EQ(raw.reply_len, 0);
    EXPECT_EQ(calls_of("staticsInfoUpdate(3, 0)"), 2);
  }
};

TEST_F(RequestPath, ServesOnlyBetweenStartAndShutdownHoweverOftenItIsStarted) {
  ipcam::comm::s_port_inf port{};
  expect_refused();
  EXPECT_EQ(new_camera_ctrl(nullptr), -1);
  for (int round = 0; round < 3; ++round) {
    test::fail_next("pthread_create", EAGAIN);
    EXPECT_EQ(new_camera_ctrl(&port), -1);
    expect_refused();
    ASSERT_EQ(new_camera_ctrl(&port), 0);
    EXPECT_EQ(calls_of("ObjectDetectionIF::~ObjectDetectionIF()"), 1) << "of the start that failed";
    EXPECT_EQ(new_camera_ctrl(&port), -1);
    EXPECT_EQ(request(32), 0);
    const std::unique_ptr<CameraInterface> second(create_camera_IF(nullptr, nullptr));
    EXPECT_EQ(second->Saturation(3), 0);
    delete_camera_IF(create_camera_IF(&port, nullptr));
    expect_refused();
    delete_camera_IF(nullptr);  // a second shutdown touches nothing
    expect_refused();
  }
}

// The doorbell must reach whichever thread of the host program is open for it.
TEST_F(RequestPath, LeavesTheCallersSignalMaskAsItWas) {
  sigset_t mask;
  start_control_thread();
  request(39, 3);
  stop_control_thread();
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGUSR1), 0);
}

// More callers than reply semaphores, with a shutdown in their midst: each call returns, and a request that was
// served is the only kind that has reached the camera.
TEST_F(RequestPath, AnswersEachOfManyCallersOnceAlsoWhenStoppedInBetween) {
  for (int round = 0; round < 10; ++round) {
    start_control_thread();
    camera.clear_traffic();
    std::atomic<int> served{0};
    std::atomic<int> returned{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < 32; ++i) {
      callers.emplace_back([&] {
        for (int k = 0; k < 4; ++k) {
          served += request(61, 1) == 0;
          ++returned;
        }
      });
    }
    if (round % 2 == 0) stop_control_thread();
    for (std::thread& caller : callers) caller.join();
    stop_control_thread();
    EXPECT_EQ(returned, 128);
    const Lines traffic = camera.traffic();
    EXPECT_EQ(std::count(traffic.begin(), traffic.end(), "r 10/0x0b"), served);
    EXPECT_TRUE(served == 128 || round % 2 == 0) << served;
  }
}

}  // namespace
}  // namespace ipcam::camera
