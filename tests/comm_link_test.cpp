// The link to the comm application: signals, lost peers, and arguments that it refuses.
#include <fcntl.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <thread>

#include "ipcam/camera/dsp_command.h"
#include "tests/support/camera_fixture.h"

namespace ipcam::camera {
namespace {

using test::capture;
using test::eventually;
using test::fail_next;
using test::Output;

class CommLink : public test::CameraTest {
 protected:
  static int run(DspCommand& dsp, std::string text) {
    char result[32];
    return dsp.do_debug(text.data(), result);
  }
  static int read_register(DspCommand& dsp) { return run(dsp, "r,12,0"); }
  static void mask_doorbell(int how) {
    sigset_t doorbell;
    sigemptyset(&doorbell);
    sigaddset(&doorbell, SIGUSR1);
    pthread_sigmask(how, &doorbell, nullptr);
  }

  DspCommand dsp;
};

TEST_F(CommLink, AFailedDoorbellLeavesTheRecordPostedUntilTheCommApplicationReturns) {
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

TEST_F(CommLink, ChecksTheRecordAndTheArguments) {
  shm_info record{};
  packet_info packet{.count = 1, .length = 129, .data = {}};
  packet_info read{.count = 1, .length = 6, .data = {6, 1, 12, 0, 0, 1}};
  packet_info negative{.count = 0, .length = -12, .data = {}};
  int id = 0;
  std::intptr_t address = 0;
  const struct {
    std::function<int()> call;
    std::string err;
  } cases[] = {
      {[&] { return dsp.check_ipc(&record, 1); }, "dspset: [ERROR] invalid status!\n"},
      {[&] { return dsp.check_ipc(&record, 2); }, "dspset: [ERROR] shared memory status error!\n"},
      {[&] { return dsp.check_ipc(nullptr, 0); },
       "dspset: [ERROR] shared memory is not attached!\n"},
      {[&] { return dsp.check_ipc(nullptr, 3); }, "dspset: [ERROR] invalid status!\n"},
      {[&] { return dsp.get_key(nullptr); }, "dspset: [ERROR] ftok failed!\n"},
      {[&] { return dsp.getinfo_ipc(&id, nullptr, 1, &address); },
       "dspset: [ERROR] argument error!\n"},
      {[&] { return dsp.getinfo_ipc(&id, &id, -1, &address); }, "dspset: [ERROR] shmget failed!\n"},
      {[&] { return dsp.add_cmd_packet(1, {}, nullptr); }, "dspset: [ERROR] argument error!\n"},
      {[&] { return dsp.add_cmd_packet(1, {}, &negative); },
       "dspset: [ERROR] too many commands! cmd:1 bytes:-6\n"},
      {[&] { return dsp.send_to_comm(&packet); }, "dspset: [ERROR] too many parameter!\n"},
      {[&] { return packet.length = -1, dsp.send_to_comm(&packet); },
       "dspset: [ERROR] too many parameter!\n"},
      {[&] { return dsp.send_to_comm(nullptr); }, "dspset: [ERROR] too many parameter!\n"},
      {[&] {
         camera.fault(sim::Fault::length_too_large);
         return dsp.send_to_comm(&read) + dsp.get_from_comm(&read);
       },
       "dspset: [ERROR] reply too long (129, maximum length: 128)!\n"},
      {[&] { return fail_next("lock", EIDRM), dsp.send_to_comm(&read); },
       "dspset: [ERROR] semop failed!\n"},
      {[&] { return dsp.send_to_comm(&read) + dsp.get_from_comm(nullptr); },
       "dspset: [ERROR] argument error!\n"},
      {[&] { return dsp.send_sigusr2(0); }, "dspset: [ERROR] send user signal1 to pid 0 failed!\n"},
      {[&] { return dsp.send_sigusr2(-getpid()); },
       "dspset: [ERROR] send user signal1 to pid " + std::to_string(-getpid()) + " failed!\n"},
  };
  for (const auto& c : cases) {
    const Output output = capture([&] { EXPECT_EQ(c.call(), -1); });
    EXPECT_EQ(output.err, c.err);
  }
  EXPECT_EQ(address, 0) << "nothing is attached";
  param_info row = {.category = 10, .byte = 9, .mask = 1, .data = 2};
  dsp.clear_param_info(&row);
  dsp.clear_param_info(nullptr);
  EXPECT_EQ(row.category + row.byte + row.mask + row.data, 0);
  EXPECT_EQ(dsp.check_ipc(&record, 0), 0);
  record.req_pid = 9;
  EXPECT_EQ(dsp.check_ipc(&record, 0), -1);
  record = {
      .status = 2, .comm_pid = 9, .req_pid = getpid(), .count = 3, .length = 4, .data = {1, 2}};
  EXPECT_EQ(dsp.check_ipc(&record, 2), 0);
  dsp.clean_ipc(&record);
  EXPECT_EQ(record.comm_pid, 9);
  EXPECT_EQ(record.status + record.req_pid + record.count + record.length + record.data[0] +
                record.data[1],
            0);
}

TEST_F(CommLink, WaitsForTheSignalAndLeavesItBlocked) {
  std::thread([&] {
    mask_doorbell(SIG_BLOCK);
    for (const long seconds : {0L, 1L}) {
      pthread_kill(pthread_self(), SIGUSR1);
      EXPECT_EQ(dsp.wait_sigusr2(seconds), 10);
    }
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGUSR1), 1);
    g_signal_flg = 1;  // as if another thread had taken one, while this one is pending
    pthread_kill(pthread_self(), SIGUSR1);
    EXPECT_EQ(dsp.wait_sigusr2(1), 10);
    EXPECT_LT(dsp.wait_sigusr2(1), 0);
    EXPECT_EQ(g_signal_flg, 1);
    fail_next("sigwaitinfo", EINTR);
    const Output output = capture([&] { EXPECT_LT(dsp.wait_sigusr2(0), 0); });
    EXPECT_EQ(output.err, "dspset: [ERROR] sigwaitinfo failed!\n");
  }).join();
}

TEST_F(CommLink, AThreadIsCancelledBehindItsOperationAndNotWithin) {
  clock.reset();
  const struct Operation {
    std::function<void()> run;
    std::size_t exchanges;
  } operations[] = {{[&] { read_register(dsp); }, 1},
                    {[&] { dsp.do_shutter_gain({}); }, 6},
                    {[&] {
                       packet_info packet{};
                       dsp.send_to_comm(&packet);
                       dsp.get_from_comm(&packet);
                     },
                     1}};
  for (const Operation& operation : operations) {
    const auto run_operation = [](void* what) -> void* {
      return static_cast<Operation*>(what)->run(), nullptr;
    };
    camera.clear_traffic();
    camera.fault(sim::Fault::late_reply, {.delay_ms = 100});
    pthread_t thread{};
    void* end = nullptr;
    pthread_create(&thread, nullptr, run_operation, const_cast<Operation*>(&operation));
    EXPECT_TRUE(eventually([&] { return !camera.traffic().empty(); }));
    pthread_cancel(thread);
    pthread_join(thread, &end);
    EXPECT_EQ(end, PTHREAD_CANCELED);
    EXPECT_EQ(camera.traffic().size(), operation.exchanges);
    EXPECT_EQ(read_register(dsp), 1);
  }
}

TEST_F(CommLink, AnObjectMadeMeanwhileLeavesADoorbellToItsExchange) {
  std::thread([&] {
    packet_info packet{};
    ASSERT_EQ(dsp.send_to_comm(&packet), 0);
    mask_doorbell(SIG_UNBLOCK);  // here or in the main thread the handler takes it
    EXPECT_TRUE(eventually([] { return g_signal_flg == 1; }));
    { const DspCommand other; }
    EXPECT_EQ(dsp.get_from_comm(&packet), 0);
    EXPECT_EQ(g_signal_flg, 0);
    g_signal_flg = 1;
    { const DspCommand other; }
    EXPECT_EQ(g_signal_flg, 0);
  }).join();
}

TEST_F(CommLink, TheWaitForALateDoorbellTakesNoOtherObjects) {
  clock.reset();
  DspCommand other;
  camera.fault(sim::Fault::reply_without_signal);
  const Output output = capture([&] {
    std::thread late([&] { EXPECT_EQ(read_register(dsp), -1); });
    EXPECT_TRUE(eventually([&] { return !camera.record_is_clean(); }));
    EXPECT_TRUE(eventually([&] { return read_register(other) == 1; }));
    late.join();
  });
  EXPECT_EQ(output.err, "dspset: [ERROR] wait sigusr2 failed!\n");
}

TEST_F(CommLink, WhoCannotPrintHoldsNoSemaphore) {
  packet_info packet{};
  ASSERT_EQ(dsp.send_to_comm(&packet), 0);
  int key = 0, pipe_ends[2];
  ASSERT_EQ(dsp.get_key(&key), 0);
  ASSERT_EQ(pipe2(pipe_ends, O_NONBLOCK), 0);
  while (write(pipe_ends[1], &packet, 1) == 1) continue;
  fcntl(pipe_ends[1], F_SETFL, 0);
  const pid_t other = fork();
  if (other == 0) {
    dup2(pipe_ends[1], STDOUT_FILENO);
    setvbuf(stdout, nullptr, _IONBF, 0);
    _exit(dsp.send_to_comm(&packet));
  }
  EXPECT_TRUE(eventually([&] { return semctl(semget(key, 1, 0), 0, GETPID) == other; }));
  EXPECT_EQ(dsp.sem_operation(-1, SEM_UNDO), 0);
  EXPECT_EQ(dsp.sem_operation(+1, SEM_UNDO), 0);
  kill(other, SIGKILL);
  waitpid(other, nullptr, 0);
  for (const int end : pipe_ends) close(end);
  EXPECT_EQ(dsp.get_from_comm(&packet), 0);
}

// The main thread is open for the signal and takes most doorbells;
// none may cost the caller a second.
TEST_F(CommLink, NoExchangeWaitsForADoorbellThatAnotherThreadTook) {
  mask_doorbell(SIG_UNBLOCK);
  clock.reset();
  int failed = 0;
  auto longest = std::chrono::steady_clock::duration::zero();
  const Output output = capture([&] {
    std::thread([&] {
      for (int i = 0; i < 1'000; ++i) {
        for (const char* text : {"r,12,0", "w,12,0,0xff,1", "r,12,0"}) {
          const auto begin = std::chrono::steady_clock::now();
          failed += run(dsp, text) != 1;
          longest = std::max(longest, std::chrono::steady_clock::now() - begin);
        }
      }
    }).join();
  });
  EXPECT_EQ(failed, 0) << output.err.substr(0, 500);
  EXPECT_LT(longest, std::chrono::milliseconds(900));
}

}  // namespace
}  // namespace ipcam::camera
