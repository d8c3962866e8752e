// Either side of the link is killed or stopped at any moment, and two processes use it at once.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <random>
#include <thread>

#include "ipcam/camera/dsp_command.h"
#include "tests/support/camera_fixture.h"

namespace ipcam::test {
namespace {

using camera::DspCommand;

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
    const pid_t other = start_requester([&](DspCommand& link) { return wrong_reads(link, 2, 0x22) != 0; });
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

TEST_F(KillAndStop, ARequesterKilledAtAnyMomentBlocksTheRecordAtMostUntilTheCommApplicationClearsIt) {
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
