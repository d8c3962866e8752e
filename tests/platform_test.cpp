// The host platform: queue, reply semaphores, worker threads, stored record and journal.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>

#include "ipcam/camera/auto_daynight.h"
#include "ipcam/camera/focus_assist.h"
#include "ipcam/comm/thd_if.h"
#include "ipcam/comm/wit_end.h"
#include "ipcam/config/config_file.h"
#include "ipcam/eptz/post_process_interface.h"
#include "ipcam/platform/journal.h"
#include "ipcam/system.h"

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
  EXPECT_EQ(WitEnd_post(9, &pool), 0);
  EXPECT_EQ(eleventh.get(), 4);
  EXPECT_EQ(twelfth.wait_for(20ms), std::future_status::timeout);
  // A caller that comes back passes the one that waits, but only once.
  EXPECT_EQ(WitEnd_wait_put(9, &pool), 0);
  EXPECT_EQ(get(), 9);
  EXPECT_EQ(WitEnd_post(9, &pool), 0);
  EXPECT_EQ(twelfth.wait_for(0s), std::future_status::timeout);
  EXPECT_EQ(WitEnd_wait_put(9, &pool), 0);
  EXPECT_EQ(twelfth.get(), 9);
}

TEST_F(RequestPathTest, EachOfManyCallersIsAnsweredOnce) {
  struct Request {
    int slot = -1;
    int answers = 0;
  };
  std::thread server([this] {
    int type = 0;
    Request* request = nullptr;
    while (ThdIf_timed_receive(&type, &request, nullptr, &queue) == 0 && type == 1) {
      ++request->answers;
      WitEnd_post(request->slot, &pool);
    }
  });
  std::atomic<int> answered_once = 0;
  std::vector<std::thread> callers;
  for (int i = 0; i < 64; ++i) {
    callers.emplace_back([&] {
      for (int round = 0; round < 100; ++round) {
        Request request;
        if (WitEnd_get(&request.slot, &pool) != 0 || ThdIf_send(1, &request, &queue) != 0) return;
        if (WitEnd_wait_put(request.slot, &pool) == 0 && request.answers == 1) ++answered_once;
      }
    });
  }
  for (std::thread& caller : callers) caller.join();
  ThdIf_send(3, nullptr, &queue);
  server.join();
  EXPECT_EQ(answered_once, 6400);
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
    AutoDaynight::start_thread();
    return ++left;
  }
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
}

TEST(WorkerTest, DestructorEndsARunHoweverEarly) {
  for (int i = 0; i < 200; ++i) {
    ipcam::camera::FocusAssist worker(nullptr, nullptr);
    EXPECT_EQ(worker.execute_process(), 0);
    if (i % 2 == 0) std::this_thread::sleep_for(100us);
  }
}

// A worker whose run looks at its signal mask, and which may be deleted as soon as that is done.
struct OneStepWorker : ipcam::Thread {
  explicit OneStepWorker(std::promise<bool>& result) : Thread(ipcam::THREAD_PRIORITY_DEFAULT, false), blocked(result) {}
  int start_thread() override {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    blocked.set_value(sigismember(&mask, SIGUSR1) == 1);
    return 0;
  }
  int stop_thread() override { return 0; }
  std::promise<bool>& blocked;
};

TEST(WorkerTest, RunInheritsTheSignalMaskAndMayOutliveItsObject) {
  sigset_t doorbell, before;
  sigemptyset(&doorbell);
  sigaddset(&doorbell, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &doorbell, &before);
  for (int i = 0; i < 100; ++i) {
    std::promise<bool> blocked;
    auto result = blocked.get_future();
    auto worker = std::make_unique<OneStepWorker>(blocked);
    ASSERT_EQ(worker->execute_process(), 0);
    EXPECT_TRUE(result.get());
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

using Record = std::array<unsigned char, 880>;

Record filled_with(unsigned char byte) {
  Record record;
  record.fill(byte);
  return record;
}

struct ConfigFileTest : testing::Test {
  ConfigFileTest() {
    directory = mkdtemp(pattern);
    setenv("IPCAM_CONFIG_DIR", pattern, 1);
  }
  ~ConfigFileTest() override {
    unsetenv("IPCAM_CONFIG_DIR");
    std::filesystem::remove_all(directory);
  }
  char pattern[27] = "/tmp/platform_test.XXXXXX";
  char name[9] = "all.conf";
  std::filesystem::path directory;
};

TEST_F(ConfigFileTest, RefusesWhatIsNotTheRecordAndChangesNothing) {
  const auto make_file = [this](const char* entry, std::size_t size) {
    std::ofstream(directory / entry) << std::string(size, 'x');
  };
  make_file("good", 880);
  make_file("short", 879);
  make_file("long", 881);
  mkdir((directory / "folder").c_str(), 0700);
  mkfifo((directory / "pipe").c_str(), 0600);
  struct {
    std::string name;
    int kind;
    int write_result;
  } cases[] = {{"good", 2, -1},
               {"short", 3, 0},
               {"long", 3, 0},
               {"missing", 3, 0},
               {"pipe", 3, 0},
               {"folder", 3, -1},
               {"", 3, -1},
               {"missing/all.conf", 3, -1},
               {std::string(300, 'n'), 3, -1}};
  for (auto& [entry, kind, write_result] : cases) {
    SCOPED_TRACE(entry);
    ipcam::config::ConfigFile file(entry.data());
    Record record = filled_with(0x77);
    EXPECT_EQ(file.read_record(&record, kind), -1);
    EXPECT_EQ(record, filled_with(0x77));
    EXPECT_EQ(file.write_record(&record, kind), write_result);
  }
  char good[] = "good";
  Record record{};
  EXPECT_EQ(ipcam::config::ConfigFile(good).read_record(&record, 3), 0);
  EXPECT_EQ(record, filled_with('x')) << "the file is the record as it stands";
}

TEST_F(ConfigFileTest, FailedWriteLeavesTheStoredRecord) {
  ipcam::config::ConfigFile file(name);
  Record record = filled_with(1);
  ASSERT_EQ(file.write_record(&record, 3), 0);
  // The disk is full after 500 bytes.
  const rlimit limit = {.rlim_cur = 500, .rlim_max = RLIM_INFINITY};
  const auto handler = signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &limit);
  record = filled_with(2);
  EXPECT_EQ(file.write_record(&record, 3), -1);
  const rlimit no_limit = {.rlim_cur = RLIM_INFINITY, .rlim_max = RLIM_INFINITY};
  setrlimit(RLIMIT_FSIZE, &no_limit);
  signal(SIGXFSZ, handler);
  EXPECT_FALSE(std::filesystem::exists(directory / "all.conf.new"));
  EXPECT_EQ(file.read_record(&record, 3), 0);
  EXPECT_EQ(record, filled_with(1));
}

TEST_F(ConfigFileTest, ReadersSeeWholeRecordsWhileProcessesAndThreadsWrite) {
  const auto write = [this](unsigned char byte, int times) {
    ipcam::config::ConfigFile file(name);
    Record record = filled_with(byte);
    int failures = 0;
    for (int i = 0; i < times; ++i) failures += file.write_record(&record, 3) != 0;
    return failures;
  };
  ASSERT_EQ(write(1, 1), 0);
  chmod((directory / name).c_str(), 0600);
  const pid_t child = fork();
  if (child == 0) _exit(write(2, 100));
  auto thread_failures = std::async(std::launch::async, write, 3, 100);
  ipcam::config::ConfigFile file(name);
  while (thread_failures.wait_for(0s) == std::future_status::timeout) {
    Record record{};
    ASSERT_EQ(file.read_record(&record, 3), 0);
    ASSERT_EQ(record, filled_with(record[0]));
  }
  EXPECT_EQ(thread_failures.get(), 0);
  int child_failures = -1;
  ASSERT_EQ(waitpid(child, &child_failures, 0), child);
  EXPECT_EQ(child_failures, 0);
  EXPECT_EQ(std::filesystem::status(directory / name).permissions(), std::filesystem::perms(0600)) << "kept";
}

TEST_F(ConfigFileTest, JournalKeepsTheNewestCallsInOrder) {
  for (int i = 0; i < 4096; ++i) staticsInfoUpdate(i, 0);
  EXPECT_EQ(ipcam::platform::journal().front(), "staticsInfoUpdate(0, 0)");
  {
    ipcam::camera::FocusAssist focus(nullptr, nullptr);
    focus.setLevel(-2);
    focus.execute_process();
    ipcam::eptz::PostProcessInterface().changeBinningMode(true);
    ipcam::config::ConfigFile(name).read_record(nullptr, 3);
  }
  std::vector<std::string> lines = ipcam::platform::journal();
  ASSERT_EQ(lines.size(), 4096U);
  EXPECT_EQ(lines.front(), "staticsInfoUpdate(10, 0)");
  lines.erase(lines.begin(), lines.end() - 10);
  const std::vector<std::string> expected = {
      "FocusAssist::FocusAssist()",
      "FocusAssist::setLevel(-2)",
      "Thread::execute_process(FocusAssist)",
      "PostProcessInterface::PostProcessInterface()",
      "PostProcessInterface::changeBinningMode(1)",
      "PostProcessInterface::~PostProcessInterface()",
      "ConfigFile::ConfigFile(all.conf)",
      "ConfigFile::read_record(all.conf, 3) = -1",
      "ConfigFile::~ConfigFile(all.conf)",
      "FocusAssist::~FocusAssist()",
  };
  EXPECT_EQ(lines, expected);
}

}  // namespace
