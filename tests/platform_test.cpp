// The host platform: queue, reply semaphores, worker threads, stored record and journal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <future>

#include "ipcam/camera/auto_daynight.h"
#include "ipcam/comm/thd_if.h"
#include "ipcam/comm/wit_end.h"
#include "ipcam/config/config_file.h"
#include "ipcam/platform/journal.h"
#include "ipcam/system.h"
#include "tests/support/stand_ins.h"

namespace {

using namespace ipcam::comm;
using namespace std::chrono_literals;

struct RequestPathTest : testing::Test {
  RequestPathTest() {
    EXPECT_EQ(ThdIf_new(nullptr, 0, nullptr, nullptr, &queue), 0);
    EXPECT_EQ(WitEnd_new(sems.data(), 10, &pool), 0);
  }
  ~RequestPathTest() override {
    ThdIf_delete(&queue);
    WitEnd_delete(&pool);
  }
  s_thdIf_ctl queue{};
  std::array<s_witEnd_sem, 10> sems{};
  s_witEnd_ctl pool{};
};

TEST_F(RequestPathTest, DeliversInOrderThenGivesUpAtTheTimeLimit) {
  for (int i = 0; i < 1024; ++i) ASSERT_EQ(ThdIf_send(i, this, &queue), 0);
  EXPECT_EQ(ThdIf_send(3, nullptr, &queue), -1) << "the queue is full";
  int type = -1;
  for (int i = 0; i < 1024; ++i) {
    RequestPathTest* message = nullptr;
    ASSERT_EQ(ThdIf_timed_receive(&type, &message, nullptr, &queue), 0);
    ASSERT_EQ(type, i);
    ASSERT_EQ(message, this);
  }
  void* message = &type;
  unsigned int limit_ms = 30;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(ThdIf_timed_receive(&type, &message, &limit_ms, &queue), -1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
  EXPECT_EQ(message, &type) << "nothing is stored";
}

TEST_F(RequestPathTest, CallersBeyondThePoolWaitAndAreServedInTurn) {
  const auto get = [this] {
    int number = -1;
    return WitEnd_get(&number, &pool) == 0 ? number : -1;
  };
  for (int i = 0; i < 10; ++i) EXPECT_EQ(get(), i);
  auto eleventh = std::async(std::launch::async, get);
  ASSERT_EQ(eleventh.wait_for(50ms), std::future_status::timeout);
  auto twelfth = std::async(std::launch::async, get);
  ASSERT_EQ(twelfth.wait_for(50ms), std::future_status::timeout);

  EXPECT_EQ(WitEnd_post(4, &pool), 0);
  EXPECT_EQ(WitEnd_post(4, &pool), -1) << "a second answer to one request";
  EXPECT_EQ(WitEnd_wait_put(4, &pool), 0);
  EXPECT_EQ(eleventh.get(), 4);
  // A caller that comes back waits behind those who wait already.
  auto again = std::async(std::launch::async, get);
  ASSERT_EQ(again.wait_for(50ms), std::future_status::timeout);
  for (auto* const next : {&twelfth, &again}) {
    EXPECT_EQ(WitEnd_post(9, &pool), 0);
    EXPECT_EQ(next->wait_for(0s), std::future_status::timeout);
    EXPECT_EQ(WitEnd_wait_put(9, &pool), 0);
    EXPECT_EQ(next->get(), 9);
  }
}

TEST_F(RequestPathTest, RefusesWhatIsNotReservedOrDoesNotExist) {
  EXPECT_EQ(WitEnd_post(0, &pool), -1);
  EXPECT_EQ(WitEnd_wait_put(0, &pool), -1);
  EXPECT_EQ(WitEnd_post(-1, &pool), -1);
  EXPECT_EQ(WitEnd_wait_put(10, &pool), -1);
  ThdIf_send(1, this, &queue);
  for (int expected : {0, -1}) {
    EXPECT_EQ(ThdIf_delete(&queue), expected);
    EXPECT_EQ(WitEnd_delete(&pool), expected);
    int number = 0;
    void* message = nullptr;
    EXPECT_EQ(ThdIf_send(1, nullptr, &queue), -1);
    EXPECT_EQ(ThdIf_timed_receive(&number, &message, nullptr, &queue), -1);
    EXPECT_EQ(WitEnd_get(&number, &pool), -1);
    EXPECT_EQ(WitEnd_wait_put(0, &pool), -1);
    EXPECT_EQ(WitEnd_post(0, &pool), -1);
  }
}

// A worker that counts its runs' first and last steps.
struct CountedWorker : ipcam::camera::AutoDaynight {
  CountedWorker() : AutoDaynight(1, nullptr) {}
  int start_thread() override {
    ++entered;
    held.wait(true);
    AutoDaynight::start_thread();
    return ++left;
  }
  std::atomic<bool> held = false;
  std::atomic<int> entered = 0;
  std::atomic<int> left = 0;
};

void wait_for(const std::atomic<int>& count, int value) {
  for (int i = 0; i < 10000 && count != value; ++i) std::this_thread::sleep_for(1ms);
  EXPECT_EQ(count, value);
}

TEST(WorkerTest, StopEndsTheRunsBeforeItAndNoLaterOne) {
  CountedWorker worker;
  EXPECT_EQ(worker.stop_thread(), 0) << "idle";
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(worker.execute_process(), 0);
    EXPECT_EQ(worker.stop_thread(), 0) << "mostly before the run's first step";
  }
  EXPECT_EQ(worker.execute_process(), 0);
  EXPECT_EQ(worker.execute_process(), 0);
  wait_for(worker.entered, 102);
  wait_for(worker.left, 101);
  std::this_thread::sleep_for(20ms);
  EXPECT_EQ(worker.left, 101) << "one of the last two goes on";
  worker.stop_thread();
  wait_for(worker.left, 102);

  worker.held = true;
  EXPECT_EQ(worker.execute_process(), 0);
  auto direct = std::async(std::launch::async, [&] { return worker.AutoDaynight::start_thread(); });
  while (direct.wait_for(1ms) == std::future_status::timeout) worker.stop_thread();
  worker.held = false;
  worker.held.notify_all();
  wait_for(worker.left, 103);  // on its way, it was stopped together with the direct one
}

TEST(ConfigFileTest, GivesUpAnotherWriterAfterFiveSeconds) {
  setenv("IPCAM_CONFIG_DIR", "/tmp", 1);
  const int lock = open("/tmp/all.conf.lock", O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  const ipcam::test::FakeClock clock;
  char name[] = "all.conf";
  ipcam::config::ConfigFile file(name);
  std::array<char, 880> record{};
  EXPECT_EQ(file.write_record(record.data(), 3), -1);
  EXPECT_EQ(clock.advanced_us(), 5'000'000);
  close(lock);
  EXPECT_EQ(file.write_record(record.data(), 3), 0);
}

TEST(JournalTest, KeepsTheNewestCallsInOrder) {
  for (int i = 0; i < 516; ++i) staticsInfoUpdate(i, 0);
  const std::vector<std::string> lines = ipcam::platform::journal();
  ASSERT_EQ(lines.size(), 512U);
  EXPECT_EQ(lines.front(), "staticsInfoUpdate(4, 0)");
  EXPECT_EQ(lines.back(), "staticsInfoUpdate(515, 0)");
}

}  // namespace
