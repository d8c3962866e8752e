// The link to the comm application: attaching, each fault of the other side, signals, lost peers.
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <thread>

#include "ipcam/camera/dsp_command.h"
#include "tests/support/camera_fixture.h"

namespace ipcam::camera {
namespace {

using sim::Fault;
using test::capture;
using test::fail_next;
using test::Output;

constexpr char kReadText[] = "r,12,0";

class CommLink : public test::CameraTest {
 protected:
  void TearDown() override { test::clear_failures(); }

  static int read_register(DspCommand& dsp) {
    char text[sizeof kReadText];
    std::copy(std::begin(kReadText), std::end(kReadText), text);
    char result[32];
    return dsp.do_debug(text, result);
  }
};

// Standard error of one read that the fault makes fail; the record is idle afterwards and the next read succeeds.
TEST_F(CommLink, EveryFaultCostsOneRequestOnly) {
  const std::string status = "dspset: [ERROR] shared memory status error!\n";
  const std::string silence = "dspset: [ERROR] wait sigusr2 failed!\n";
  const struct {
    Fault fault;
    std::string err;
    bool dies = false;
    int returned = -1;
  } cases[] = {
      {Fault::no_reply, silence},
      {Fault::late_reply, silence},
      {Fault::reply_without_signal, silence},
      {Fault::reply_255, "dspset: [ERROR] communication with comm application error!\n"},
      {Fault::foreign_pid, status},
      {Fault::signal_without_reply, status},
      {Fault::length_too_large, "dspset: [ERROR] reply too long (129, maximum length: 128)!\n"},
      {Fault::negative_length, "dspset: [ERROR] reply too long (-1, maximum length: 128)!\n"},
      {Fault::die_before, silence, true},
      {Fault::die_during, silence, true},
      {Fault::die_after, silence, true},
      {Fault::die_after_doorbell, "", true, 1},
  };
  DspCommand dsp;
  for (const auto& c : cases) {
    SCOPED_TRACE(sim::kFaultNames[static_cast<std::size_t>(c.fault)]);
    camera.fault(c.fault);
    int returned = -2;
    const Output output = capture([&] { returned = read_register(dsp); });
    EXPECT_EQ(returned, c.returned);
    EXPECT_EQ(output.err, c.err);
    EXPECT_TRUE(camera.record_is_clean());
    EXPECT_NE(camera.record().comm_pid, 0);
    camera.settle();
    if (c.dies) camera.restart();
    EXPECT_EQ(read_register(dsp), 1);
  }
}

TEST_F(CommLink, ExtraAndLateDoorbellsAreNotTakenForTheNextReply) {
  DspCommand dsp;
  for (const Fault fault : {Fault::extra_signals, Fault::late_doorbell}) {
    camera.fault(fault);
    read_register(dsp);
    camera.settle();
    camera.script(12, 0, {7});
    EXPECT_EQ(read_register(dsp), 1) << static_cast<int>(fault);
  }
}

TEST_F(CommLink, AFailedDoorbellLeavesTheRecordPostedUntilTheCommApplicationReturns) {
  DspCommand dsp;
  camera.kill9();
  Output output = capture([&] { EXPECT_EQ(read_register(dsp), -1); });
  EXPECT_TRUE(output.err.starts_with("dspset: [ERROR] send user signal1 to pid ")) << output.err;
  EXPECT_TRUE(output.err.ends_with(" failed!\n")) << output.err;
  EXPECT_EQ(camera.record().status, 1);
  EXPECT_EQ(camera.record().req_pid, getpid());

  output = capture([&] { EXPECT_EQ(read_register(dsp), -1); });
  EXPECT_EQ(output.out, "dspset: other process using now!\n");
  EXPECT_EQ(output.err, "");

  camera.start();
  EXPECT_EQ(read_register(dsp), 1);
}

TEST_F(CommLink, SignalsNoProcessGroup) {
  DspCommand dsp;
  for (const int pid : {0, -1, -getpid()}) {
    const Output output = capture([&] { EXPECT_EQ(dsp.send_sigusr2(pid), -1); });
    EXPECT_EQ(output.err, "dspset: [ERROR] send user signal1 to pid " + std::to_string(pid) + " failed!\n");
  }
}

TEST_F(CommLink, SaysWhatIsMissingWhenItAttaches) {
  camera.stop();
  const std::string semop = "dspset: [ERROR] semop failed!\n";
  int returned = 0;
  Output output = capture([&] {
    DspCommand dsp;
    returned = read_register(dsp);
  });
  EXPECT_EQ(output.err, "dspset: [ERROR] ftok failed!\ndspset: [ERROR] get_key failed!\n" + semop);
  EXPECT_EQ(returned, -1);

  camera.start();
  const struct {
    const char* call;
    std::string attach_err;
    std::string exchange_err;
  } cases[] = {
      {"semget", "dspset: [ERROR] semget failed!\n", semop},
      {"shmget", "dspset: [ERROR] shmget failed!\n", "dspset: [ERROR] shared memory is not attached!\n"},
      {"shmat", "dspset: [ERROR] shamat failed!\n", "dspset: [ERROR] shared memory is not attached!\n"},
      {"signal", "dspset: [ERROR] failed to set signal handle!\n", semop},
  };
  for (const auto& c : cases) {
    fail_next(c.call, ENOENT);
    output = capture([&] {
      DspCommand dsp;
      returned = read_register(dsp);
    });
    EXPECT_EQ(output.err, c.attach_err + c.exchange_err);
    EXPECT_EQ(returned, -1);
  }
  DspCommand dsp;
  EXPECT_EQ(read_register(dsp), 1);
}

TEST_F(CommLink, AFailedSemaphoreOperationFailsTheExchangeAndNothingElse) {
  DspCommand dsp;
  for (const char* call : {"lock", "unlock"}) {
    for (const int nth : {0, 1}) {  // of the posting, of the reply
      SCOPED_TRACE(std::string(call) + std::to_string(nth));
      fail_next(call, EINVAL, nth);
      const Output output = capture([&] { EXPECT_EQ(read_register(dsp), -1); });
      EXPECT_EQ(output.err, "dspset: [ERROR] semop failed!\n");
      camera.settle();
      // A lock that fails after the doorbell, or an unlock before it is heard of, leaves the reply behind.
      dsp.clean_ipc(nullptr);
      if (!camera.record_is_clean()) camera.restart();
      EXPECT_EQ(read_register(dsp), 1);
    }
  }
}

TEST_F(CommLink, ChecksTheRecordAndTheArguments) {
  DspCommand dsp;
  shm_info record{};
  packet_info packet{.count = 1, .length = 129, .data = {}};
  const struct {
    std::function<int()> call;
    std::string err;
  } cases[] = {
      {[&] { return dsp.check_ipc(&record, 1); }, "dspset: [ERROR] invalid status!\n"},
      {[&] { return dsp.check_ipc(&record, 2); }, "dspset: [ERROR] shared memory status error!\n"},
      {[&] { return dsp.check_ipc(nullptr, 0); }, "dspset: [ERROR] shared memory is not attached!\n"},
      {[&] { return dsp.send_to_comm(&packet); }, "dspset: [ERROR] too many parameter!\n"},
      {[&] { return packet.length = -1, dsp.send_to_comm(&packet); }, "dspset: [ERROR] too many parameter!\n"},
      {[&] { return dsp.send_to_comm(nullptr); }, "dspset: [ERROR] too many parameter!\n"},
  };
  for (const auto& c : cases) {
    const Output output = capture([&] { EXPECT_EQ(c.call(), -1); });
    EXPECT_EQ(output.err, c.err);
  }
  EXPECT_EQ(dsp.check_ipc(&record, 0), 0);
  record = {.status = 2, .comm_pid = 9, .req_pid = getpid(), .count = 3, .length = 4, .data = {1, 2}};
  EXPECT_EQ(dsp.check_ipc(&record, 2), 0);
  dsp.clean_ipc(&record);
  EXPECT_EQ(record.comm_pid, 9);
  EXPECT_EQ(record.status + record.req_pid + record.count + record.length + record.data[0] + record.data[1], 0);
}

TEST_F(CommLink, WaitsForTheSignalAndLeavesItBlocked) {
  DspCommand dsp;
  std::thread([&] {
    sigset_t doorbell;
    sigemptyset(&doorbell);
    sigaddset(&doorbell, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &doorbell, nullptr);
    for (const long seconds : {0L, 1L}) {
      pthread_kill(pthread_self(), SIGUSR1);
      EXPECT_EQ(dsp.wait_sigusr2(seconds), 10);
    }
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGUSR1), 1);
    g_signal_flg = 1;  // as if another thread had taken it
    EXPECT_LT(dsp.wait_sigusr2(1), 0);
    EXPECT_EQ(g_signal_flg, 1);
    fail_next("sigwaitinfo", EINTR);
    const Output output = capture([&] { EXPECT_LT(dsp.wait_sigusr2(0), 0); });
    EXPECT_EQ(output.err, "dspset: [ERROR] sigwaitinfo failed!\n");
  }).join();
}

TEST_F(CommLink, LockThatNobodyGivesBackFailsAfterItsLimit) {
  clock.reset();
  DspCommand dsp;
  const int sem = semget(ftok("/tmp/comm.log", 'n'), 1, 0);
  sembuf take{0, -1, 0};
  sembuf give{0, +1, 0};
  ASSERT_EQ(semop(sem, &take, 1), 0);
  const auto begin = std::chrono::steady_clock::now();
  const Output output = capture([&] { EXPECT_EQ(read_register(dsp), -1); });
  EXPECT_EQ(output.err, "dspset: [ERROR] semop failed!\n");
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(4900));
  ASSERT_EQ(semop(sem, &give, 1), 0);
  EXPECT_EQ(read_register(dsp), 1);
}

// The main thread stays open for the signal and takes most doorbells; none may cost the caller a second.
TEST_F(CommLink, NoExchangeWaitsForADoorbellThatAnotherThreadTook) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)
  constexpr int kExchanges = 5'000;
#else
  constexpr int kExchanges = 100'000;
#endif
  clock.reset();
  DspCommand dsp;
  int failed = 0;
  auto longest = std::chrono::steady_clock::duration::zero();
  const Output output = capture([&] {
    std::thread([&] {
      for (int i = 0; i < kExchanges / 2; ++i) {  // each write is two exchanges, each read one
        const auto begin = std::chrono::steady_clock::now();
        char write[] = "w,12,0,0xff,1";
        char result[32];
        if (i % 2 != 0 ? read_register(dsp) != 1 : dsp.do_debug(write, result) != 1) ++failed;
        if (i % 2 != 0 && read_register(dsp) != 1) ++failed;
        longest = std::max(longest, std::chrono::steady_clock::now() - begin);
      }
    }).join();
  });
  EXPECT_EQ(failed, 0) << output.err.substr(0, 500);
  EXPECT_LT(longest, std::chrono::milliseconds(900));
}

}  // namespace
}  // namespace ipcam::camera
