// Either side of the link is killed or stopped at any moment, and two processes use it at once.
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

using sim::Fault;

constexpr char kBusy[] = "dspset: other process using now!\n";

std::size_t count(const std::string& text, const std::string& part) {
  std::size_t found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
  return found;
}

// Reads one register: its value, or -1.
int read_register(camera::DspCommand& link, int byte) {
  std::string text = "r,12," + std::to_string(byte);
  char value = 0;
  return link.do_debug(text.data(), &value) == 1 ? static_cast<unsigned char>(value) : -1;
}

int write_register(camera::DspCommand& link) {
  char text[] = "w,12,9,0xff,1";
  char value = 0;
  return link.do_debug(text, &value);
}

// A second requester. Ends with the process that started it, and reports nothing but its exit code.
class Requester {
 public:
  explicit Requester(const std::function<int(camera::DspCommand&)>& work) : pid_(fork()) {
    if (pid_ != 0) return;
    camera::DspCommand link;
    _exit(work(link));
  }
  ~Requester() { kill9(); }
  Requester(const Requester&) = delete;
  Requester& operator=(const Requester&) = delete;

  void kill9() {
    if (pid_ > 0) kill(pid_, SIGKILL);
    wait();
  }
  int wait() {
    int status = -1;
    if (pid_ > 0) waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void wait_until_stopped() const { waitpid(pid_, nullptr, WUNTRACED); }

 private:
  pid_t pid_;
};

class KillAndStop : public CameraTest {
 protected:
  KillAndStop() {
    camera.set_reg(12, 1, 0x11);
    camera.set_reg(12, 2, 0x22);
  }

  camera::DspCommand dsp;
  std::mt19937 random{std::random_device{}()};
};

TEST_F(KillAndStop, AKilledCommApplicationIsNoticedWithinTwoSeconds) {
  clock.reset();
  for (const Fault fault : {Fault::die_before, Fault::die_during}) {
    camera.fault(fault);
    const auto begin = std::chrono::steady_clock::now();
    const Output output = capture([&] { EXPECT_EQ(read_register(dsp, 1), -1); });
    EXPECT_EQ(output.err, "dspset: [ERROR] wait sigusr2 failed!\n");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
    camera.restart();
    EXPECT_EQ(read_register(dsp, 1), 0x11);
  }
}

// While the lock is held for longer than its limit, the record cannot be put back; the next request does it.
TEST_F(KillAndStop, ACommApplicationStoppedAtAnyStepCostsOneRequest) {
  const std::string silence = "dspset: [ERROR] wait sigusr2 failed!\n";
  const struct {
    const char* step;
    Fault fault;  // in whose delay it is stopped
    std::string err;
    bool is_clean;
  } cases[] = {
      {"before it takes the request", Fault::none, silence, true},
      {"while it holds the semaphore", Fault::late_reply, silence + "dspset: [ERROR] semop failed!\n", false},
      {"before it rings", Fault::late_doorbell, silence, true},
  };
  clock.reset();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.step);
    const std::uint32_t traced = camera.board().trace_end;
    const std::uint32_t rung = camera.board().replies_rung;
    if (c.fault == Fault::none) {
      camera.pause();
    } else {
      camera.fault(c.fault, {.delay_ms = 500});
    }
    const Output output = capture([&] {
      std::thread requester([&] { EXPECT_EQ(read_register(dsp, 1), -1); });
      if (c.fault != Fault::none) {
        EXPECT_TRUE(eventually([&] { return camera.board().trace_end != traced; }));
        camera.pause();
      }
      requester.join();
    });
    EXPECT_EQ(output.err, c.err);
    EXPECT_EQ(camera.record_is_clean(), c.is_clean);
    camera.resume();
    const bool rings = c.fault != Fault::none;
    EXPECT_TRUE(eventually([&] { return !rings || camera.board().replies_rung != rung; }));
    EXPECT_EQ(read_register(dsp, 1), 0x11);
    EXPECT_TRUE(camera.record_is_clean());
  }
}

TEST_F(KillAndStop, RequestsSucceedAgainHoweverOftenTheCommApplicationIsKilledOrStopped) {
  std::atomic<bool> done{false};
  std::atomic<int> succeeded{0};
  std::thread requester;
  const Output output = capture([&] {
    requester = std::thread([&] {
      while (!done) {
        if (write_register(dsp) == 1 && read_register(dsp, 1) == 0x11) ++succeeded;
      }
    });
    for (int round = 0; round < 100; ++round) {
      const int before = succeeded;
      EXPECT_TRUE(eventually([&] { return succeeded != before; })) << "round " << round;
      std::this_thread::yield();
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
  constexpr int kReads = 2000;
  clock.reset();
  const auto read_all = [](camera::DspCommand& link, int byte, int value) {
    int wrong = 0;
    for (int i = 0; i < kReads; ++i) {
      const int read = read_register(link, byte);
      wrong += read != value && read != -1;
    }
    return wrong;
  };
  int wrong = -1;
  const Output output = capture([&] {
    Requester other([&](camera::DspCommand& link) { return read_all(link, 2, 0x22) == 0 ? 0 : 1; });
    wrong = read_all(dsp, 1, 0x11);
    EXPECT_EQ(other.wait(), 0);
  });
  EXPECT_EQ(wrong, 0);
  // The only reason for a failure is that the other one is being served.
  EXPECT_EQ(output.err, "");
  EXPECT_LT(count(output.out, kBusy), 2u * kReads);
  EXPECT_EQ(read_register(dsp, 1), 0x11);
}

TEST_F(KillAndStop, ARequesterKilledWithTheSemaphoreGivesItBack) {
  Requester holder([](camera::DspCommand& link) {
    link.sem_operation(-1, SEM_UNDO);
    return raise(SIGSTOP);
  });
  holder.wait_until_stopped();
  holder.kill9();
  EXPECT_EQ(read_register(dsp, 1), 0x11);
}

TEST_F(KillAndStop, ARequesterKilledAtAnyMomentBlocksTheRecordUntilTheCommApplicationClearsIt) {
  clock.reset();
  Requester poster([](camera::DspCommand& link) {
    camera::packet_info packet{.count = 1, .length = 6, .data = {6, 1, 12, 0, 1, 1}};
    link.send_to_comm(&packet);
    return raise(SIGKILL);
  });
  poster.wait();
  const Output output = capture([&] { EXPECT_EQ(read_register(dsp, 1), -1); });
  EXPECT_EQ(output.out, kBusy);
  camera.restart();
  EXPECT_EQ(read_register(dsp, 1), 0x11);

  for (int round = 0; round < 30; ++round) {
    Requester endless([](camera::DspCommand& link) {
      for (;;) write_register(link);
      return 0;
    });
    real_pause_ms(static_cast<int>(3 + random() % 5));
    endless.kill9();
    if (read_register(dsp, 1) != 0x11) {
      camera.restart();
      EXPECT_EQ(read_register(dsp, 1), 0x11) << round;
    }
  }
}

}  // namespace
}  // namespace ipcam::test
