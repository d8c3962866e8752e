// Either side of the link is killed or stopped at any moment, and two processes use it at once.
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <random>
#include <thread>

#include "ipcam/camera/dsp_command.h"
#include "tests/support/camera_fixture.h"

namespace ipcam::test {
namespace {

using camera::DspCommand;
using sim::Fault;

// Reads one register: its value, or -1.
int read_register(DspCommand& link, int byte) {
  std::string text = "r,12," + std::to_string(byte);
  char value = 0;
  return link.do_debug(text.data(), &value) == 1 ? static_cast<unsigned char>(value) : -1;
}

int write_register(DspCommand& link) {
  char text[] = "w,12,9,0xff,1";
  char value = 0;
  return link.do_debug(text, &value);
}

// Starts a second requester. It reports nothing but its exit code.
pid_t start_requester(const std::function<int(DspCommand&)>& work) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  DspCommand link;
  _exit(work(link));
}

void kill9(pid_t pid) {
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

class KillAndStop : public CameraTest {
 protected:
  KillAndStop() {
    camera.set_reg(12, 1, 0x11);
    camera.set_reg(12, 2, 0x22);
  }

  DspCommand dsp;
  std::mt19937 random{std::random_device{}()};
};

// While the lock is held for longer than its limit, the record cannot be
// put back; the next request does it.
TEST_F(KillAndStop, ACommApplicationStoppedAtAnyStepCostsOneRequestWithinItsLimit) {
  const std::string silence = "dspset: [ERROR] wait sigusr2 failed!\n";
  const struct {
    const char* step;
    Fault fault;  // in whose delay it is stopped
    std::string err;
    bool is_clean;
    int limit_s;
  } cases[] = {
      {"before it takes the request", Fault::none, silence, true, 1},
      {"while it holds the semaphore", Fault::late_reply,
       silence + "dspset: [ERROR] semop failed!\n", false, 6},
      {"before it rings", Fault::late_doorbell, silence, true, 1},
  };
  int key = 0;
  ASSERT_EQ(dsp.get_key(&key), 0);
  const int lock = semget(key, 1, 0);
  clock.reset();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.step);
    const bool takes_it = c.fault != Fault::none;
    const std::uint32_t traced = camera.board().trace_end;
    const std::uint32_t rung = camera.board().replies_rung;
    takes_it ? camera.fault(c.fault, {.delay_ms = 500}) : camera.pause();
    const auto begin = std::chrono::steady_clock::now();
    const Output output = capture([&] {
      std::thread requester([&] { EXPECT_EQ(read_register(dsp, 1), -1); });
      EXPECT_TRUE(!takes_it || eventually([&] {
        const int free_locks = c.fault == Fault::late_reply ? 0 : 1;
        return camera.board().trace_end != traced && semctl(lock, 0, GETVAL) == free_locks;
      }));
      if (takes_it) camera.pause();
      requester.join();
    });
    const std::chrono::duration<double> duration = std::chrono::steady_clock::now() - begin;
    EXPECT_NEAR(duration.count(), c.limit_s + 0.4, 0.5);
    EXPECT_EQ(output.err, c.err);
    EXPECT_EQ(camera.record_is_clean(), c.is_clean);
    camera.resume();
    EXPECT_TRUE(!takes_it || eventually([&] { return camera.board().replies_rung != rung; }));
    EXPECT_EQ(read_register(dsp, 1), 0x11);
    EXPECT_TRUE(camera.record_is_clean());
  }
}

TEST_F(KillAndStop, RequestsSucceedAgainHoweverOftenTheCommApplicationIsKilledOrStopped) {
  std::atomic<bool> done{false};
  std::atomic<int> succeeded{0};
  const Output output = capture([&] {
    std::thread requester([&] {
      while (!done) succeeded += write_register(dsp) == 1 && read_register(dsp, 1) == 0x11;
    });
    for (int round = 0; round < 100; ++round) {
      const int before = succeeded;
      EXPECT_TRUE(eventually([&] { return succeeded != before; })) << "round " << round;
      for (auto spin = random() % 100'000; spin > 0; --spin) static_cast<void>(done.load());
      if (round % 2 == 0) {
        camera.restart();
      } else {
        camera.pause();
        real_pause_ms(2);
        camera.resume();
      }
    }
    done = true;
    requester.join();
  });
  EXPECT_EQ(read_register(dsp, 1), 0x11) << output.err.substr(0, 1000);
  EXPECT_TRUE(camera.record_is_clean());
}

TEST_F(KillAndStop, TwoProcessesNeverGetEachOthersReplies) {
  clock.reset();
  const auto wrong_reads = [](DspCommand& link, int byte, int value) {
    int wrong = 0;
    for (int i = 0; i < 2000; ++i) {
      const int read = read_register(link, byte);
      wrong += read != value && read != -1;
    }
    return wrong;
  };
  int status = -1;
  const Output output = capture([&] {
    const pid_t other =
        start_requester([&](DspCommand& link) { return wrong_reads(link, 2, 0x22) != 0; });
    EXPECT_EQ(wrong_reads(dsp, 1, 0x11), 0);
    waitpid(other, &status, 0);
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(output.err, "");  // the only reason for a failure is that the other one is being served
}

TEST_F(KillAndStop, ARequesterKilledWithTheSemaphoreGivesItBack) {
  const pid_t holder = start_requester([](DspCommand& link) {
    link.sem_operation(-1, SEM_UNDO);
    return raise(SIGSTOP);
  });
  waitpid(holder, nullptr, WUNTRACED);
  kill9(holder);
  EXPECT_EQ(read_register(dsp, 1), 0x11);
}

TEST_F(KillAndStop,
       ARequesterKilledAtAnyMomentBlocksTheRecordAtMostUntilTheCommApplicationClearsIt) {
  clock.reset();
  for (int round = 0; round < 30; ++round) {
    const pid_t endless = start_requester([](DspCommand& link) {
      while (true) write_register(link);
      return 0;
    });
    real_pause_ms(static_cast<int>(3 + random() % 5));
    kill9(endless);
    if (read_register(dsp, 1) != 0x11) {
      camera.restart();
      EXPECT_EQ(read_register(dsp, 1), 0x11) << round;
    }
  }
}

}  // namespace
}  // namespace ipcam::test
