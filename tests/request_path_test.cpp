// The request path: start, stop, admission, and every request answered exactly once.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <memory>
#include <string_view>
#include <thread>

#include "ipcam/camera/camera_request.h"
#include "ipcam/detection/object_detection_if.h"
#include "tests/support/camera_fixture.h"

namespace {

// Called on the control thread by each request that announces a change of the picture.
void (*g_on_control_thread)() = nullptr;

}  // namespace

__attribute__((visibility("default"))) int ipcam::detection::ObjectDetectionIF::config() {
  if (g_on_control_thread != nullptr) g_on_control_thread();
  return 0;
}

namespace ipcam::camera {
namespace {

using test::Lines;

class RequestPath : public test::CameraTest {
 protected:
  RequestPath() { write_settings(test::SettingsBytes{}.i32(68, 1).i32(140, 1)); }

  static std::ptrdiff_t calls_of(const char* call) {
    return std::ranges::count(ipcam::platform::journal(), call);
  }

  // A request that must not be served.
  void expect_refused() {
    ipcam::platform::clear_journal();
    s_cam_cgi_cmd setting{32, 0, 0, /*result=*/7, /*inq_value=*/8, 0, 0};
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
    const std::pair<const char*, int> calls[] = {
        {"WitEnd_new", 0}, {"ThdIf_new", 0}, {"ThdIf_new", 1}, {"pthread_create", 0}};
    for (const auto& [call, nth] : calls) {
      test::fail_next(call, EAGAIN, nth);
      EXPECT_EQ(new_camera_ctrl(&port), -1) << call << nth;
      expect_refused();
    }
    // The system gives a new thread the id of the last one that has ended: a control thread's.
    std::thread([&] { EXPECT_EQ(new_camera_ctrl(&port), 0); }).join();
    EXPECT_EQ(calls_of("ObjectDetectionIF::~ObjectDetectionIF()"), 1) << "of the start that failed";
    EXPECT_EQ(new_camera_ctrl(&port), -1);
    EXPECT_EQ(request(32), 0);
    const std::unique_ptr<CameraInterface> second(create_camera_IF(nullptr, nullptr));
    EXPECT_EQ(second->Saturation(3), 0);
    delete_camera_IF(create_camera_IF(&port, nullptr));
    EXPECT_EQ(calls_of("ObjectDetectionIF::~ObjectDetectionIF()"), 2);
    EXPECT_EQ(calls_of("PostProcessInterface::~PostProcessInterface()"), 2);
    expect_refused();
    delete_camera_IF(nullptr);  // a second shutdown touches nothing
    expect_refused();
  }
}

// A number that the camera's own library has not reserved: neither wait nor post know it.
TEST_F(RequestPath, AnswersWhateverTheNumberOfTheReplySemaphore) {
  start_control_thread();
  for (const int number : {-1, 10, 1 << 30}) {
    test::fail_next("WitEnd_get", 0, 0, 0);  // "succeeds", and leaves the number alone
    s_cam_cgi_cmd setting{39, 7, 0, 0, 0, 0, /*reply_slot=*/number};
    EXPECT_EQ(cam_cgi_command(&setting), 0);
    EXPECT_EQ(setting.result, -1);
  }
}

TEST_F(RequestPath, LosesOneRequestAtMostByAnExceptionOfTheCamerasOwnLibraries) {
  start_control_thread();
  for (const char* call :
       {"WitEnd_get", "ThdIf_send", "WitEnd_wait_put", "WitEnd_post", "ThdIf_timed_receive"}) {
    test::fail_next(call, 0, 0, test::kThrows);
    const int result = request(39, 3);
    // Before it is queued, the request is lost; later, it is served all the same.
    const bool is_lost =
        std::string_view(call) == "WitEnd_get" || std::string_view(call) == "ThdIf_send";
    EXPECT_EQ(result, is_lost ? kNotServed : 0) << call;
    EXPECT_EQ(request(39, 7), -1) << call;
    EXPECT_EQ(test::failures_left(), 0) << call;
  }
  test::fail_next("Mutex::lock", 0, 0, test::kThrows);
  s_ccdlsi_dbg raw{};
  std::strcpy(raw.cmd, "r,10,9");
  raw.reply_len = 9;
  EXPECT_EQ(cam_ccd_debug(&raw), 0);
  EXPECT_EQ(std::pair(raw.result, raw.reply_len), std::pair(-1, 0));
  stop_control_thread();
  test::fail_next("staticsInfoUpdate", 0, 0, test::kThrows);
  EXPECT_EQ(request(39, 3), kNotServed);
}

// As long as its record is queued, it cannot leave. AddressSanitizer takes the
// stack that it leaves for one in use.
#if !defined(__SANITIZE_ADDRESS__)
TEST_F(RequestPath, CancelsACallerAtItsReturn) {
  start_control_thread();
  clock->hold("sleep(1)");
  bool goes_on = false;
  std::thread caller([&] {
    request(80);
    goes_on = true;
  });
  ASSERT_TRUE(clock->wait_until_held("sleep(1)"));
  pthread_cancel(caller.native_handle());
  clock->release_all();
  caller.join();
  EXPECT_FALSE(goes_on);
  EXPECT_EQ(request(32), 0);
  stop_control_thread();  // comes back: nobody is inside
}
#endif

// A caller whose wait for the answer has ended early is still inside, and uses what a shutdown
// releases.
TEST_F(RequestPath, StopsOnlyWhenTheLastCallerHasLeft) {
  start_control_thread();
  clock->hold("sleep(1)");
  clock->hold("usleep(1000)");
  test::fail_next("WitEnd_wait_put", 0, 0, test::kThrows);
  std::thread caller([&] { EXPECT_EQ(request(80), 0); });
  EXPECT_TRUE(clock->wait_until_held("sleep(1)"));
  EXPECT_TRUE(clock->wait_until_held("usleep(1000)"));
  clock->release("sleep(1)");
  std::atomic<bool> has_stopped{false};
  std::thread stopper([&] {
    stop_control_thread();
    has_stopped = true;
  });
  test::real_pause_ms(30);
  EXPECT_FALSE(has_stopped);
  clock->release_all();
  stopper.join();
  caller.join();
}

TEST_F(RequestPath, RefusesOnTheControlThreadWhatWouldWaitForIt) {
  start_control_thread();
  g_on_control_thread = [] {
    s_cam_cgi_cmd setting{};
    s_ccdlsi_dbg raw{};
    ipcam::comm::s_port_inf port{};
    EXPECT_EQ(cam_cgi_command(&setting) + cam_ccd_debug(&raw) + new_camera_ctrl(&port), -3);
    EXPECT_EQ(setting.result + raw.result, -2);
    delete_camera_IF(create_camera_IF(nullptr, nullptr));
  };
  EXPECT_EQ(request(39, 3), 0);
  g_on_control_thread = [] { throw std::bad_alloc(); };
  EXPECT_EQ(request(39, 3), -1);
  g_on_control_thread = nullptr;
  EXPECT_EQ(request(39, 3), 0);
}

// The host program's signals are for its own threads: no handler of
// theirs shortens a pause of the library.
TEST_F(RequestPath, KeepsSignalsOutOfItsOwnThreadsOnly) {
  static sigset_t mask;
  g_on_control_thread = [] { pthread_sigmask(SIG_SETMASK, nullptr, &mask); };
  start_control_thread();
  g_on_control_thread = nullptr;
  for (const int signal : {SIGUSR1, SIGALRM, SIGTERM, SIGSEGV})
    EXPECT_EQ(sigismember(&mask, signal), signal != SIGSEGV);
  request(39, 3);
  stop_control_thread();
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  EXPECT_TRUE(sigisemptyset(&mask));
}

// More callers than reply semaphores, with a shutdown in their midst: each call returns, and a
// request that was served is the only kind that has reached the camera.
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

// A frame length of garbage, 37 minutes: a shutdown ends the wait, and concerns its own start only.
TEST_F(RequestPath, DoesNotKeepAShutdownWaitingForALongFrame) {
  const std::string sleep = "usleep(900000)";
  write_settings();
  for (const unsigned byte : {10u, 11u, 86u, 87u})
    camera.set_reg(81, byte, byte < 86 ? 255 : 87 - byte);
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(0, start_control_thread());
    clock->clear_waits();
    ipcam::platform::clear_journal();
    clock->hold(sleep);
    std::thread caller([&] { request(74, 1); });
    EXPECT_TRUE(clock->wait_until_held(sleep));
    clock->release(sleep);
    EXPECT_TRUE(clock->wait_until_held(sleep));
    std::thread server([&] { stop_control_thread(); });
    const auto is_stopping = [] {
      return std::ranges::count(ipcam::platform::journal(), "ThdIf_send(3)") == 1;
    };
    EXPECT_TRUE(test::eventually(is_stopping));
    clock->release_all();
    caller.join();
    server.join();
    EXPECT_EQ(2, std::ranges::count(clock->waits(), sleep));
  }
}

}  // namespace
}  // namespace ipcam::camera
