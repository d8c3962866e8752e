// Many callers, every fault, every schedule: each request is
// answered once, and nothing is left behind.
#include <malloc.h>

#include <atomic>
#include <fstream>
#include <random>
#include <thread>

#include "tests/support/operations.h"

// Counts what is allocated: everything, since operator new takes its memory here as well.
// Sanitizers have a malloc of their own, which is not counted.
std::atomic<long> g_allocations{0};
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" void* __libc_malloc(std::size_t size);
extern "C" __attribute__((visibility("default"))) void* malloc(std::size_t size) noexcept {
  ++g_allocations;
  return __libc_malloc(size);
}
#endif

namespace ipcam::test {
namespace {

using Random = std::mt19937;

int pick(Random& random, int below) {
  return static_cast<int>(random() % static_cast<unsigned>(below));
}

template <class Values>
const auto& one_of(const Values& values, Random& random) {
  return values[random() % values.size()];
}

std::int64_t real_now_ms() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);  // which no clock of these tests moves
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

long resident_pages() {
  std::ifstream file("/proc/self/statm");
  long size = 0;
  long resident = 0;
  file >> size >> resident;
  return resident;
}

struct Counts {
  // Of a request that was not served the result is -1.
  void note(int served, int result, bool is_right) {
    ++sent;
    if (served == 0) ++answered;
    if (served == 0 ? !is_right : result != -1) ++wrong;
  }

  std::atomic<int> sent = 0, answered = 0, wrong = 0;
};

// One request or raw command, of all codes and values.
void send_one(Random& random, Counts& counts) {
  if (pick(random, 8) == 0) {
    camera::s_ccdlsi_dbg raw{};
    std::strcpy(raw.cmd, pick(random, 2) == 0 ? "r,12,0;12,1" : "w,12,0,0xff,1");
    raw.result = 99;
    const int served = camera::cam_ccd_debug(&raw);
    return counts.note(served, raw.result, raw.result == 0);
  }
  const Request& row = one_of(kRequests, random);
  const std::vector<int> values = row.values();
  camera::s_cam_cgi_cmd command{};
  command.code = one_of(row.codes, random);
  command.value = one_of(values, random);
  command.result = 99;
  const int served = camera::cam_cgi_command(&command);
  counts.note(served, command.result, row.may_answer(command.value, command.result));
}

class Stress : public FaultTest {
 protected:
  using FaultTest::FaultTest;

  // Lets callers send while `act` is called for the time of a stress.
  void send_meanwhile(int callers, const std::function<void(Random&)>& act) {
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < callers; ++i) {
      threads.emplace_back([&, seed = proof_seed() + static_cast<std::uint32_t>(i)] {
        Random random(seed);
        while (!done) send_one(random, counts);
      });
    }
    Random random(proof_seed());
    const std::int64_t end = real_now_ms() + 1000 * figure("CAMERA_STRESS_SECONDS", 5);
    while (real_now_ms() < end) act(random);
    done = true;
    for (std::thread& thread : threads) thread.join();
  }

  Counts counts;
};

class StressWithEvr : public Stress {
 protected:
  StressWithEvr() : Stress(7) {}
};

TEST_F(Stress, AnswersEveryRequestOnceWhateverTheCameraDoes) {
  ASSERT_EQ(start_control_thread(), 0);
  const Leftovers before = Leftovers::now();
  const Output output = capture([&] {
    send_meanwhile(16, [&](Random& random) {
      for (int i = 0; i < 3; ++i) {
        camera.fault(sim::Fault{static_cast<std::uint32_t>(pick(random, sim::kFaultNames.size()))},
                     {.exchange = static_cast<std::uint32_t>(pick(random, 20)),
                      .entry = static_cast<std::uint32_t>(pick(random, 4))});
      }
      real_pause_ms(2);
      camera.clear_faults();
      if (camera.board().running == 0) camera.restart();
      clock->clear_waits();
    });
    camera.clear_faults();
    camera.restart();
    request(68, 1);  // ends measurement, focus assist and day/night
    request(33, 8);
    expect_working_link();
  });
  std::printf("seed %u: %d requests, %d answered\n", proof_seed(), counts.sent.load(),
              counts.answered.load());
  EXPECT_EQ(counts.answered.load(), counts.sent.load());
  EXPECT_EQ(counts.wrong, 0);
  EXPECT_TRUE(camera.record_is_clean());
  EXPECT_TRUE(eventually([&] { return !Leftovers::now().exceed(before); }))
      << before << " / " << Leftovers::now();
}

TEST_F(StressWithEvr, BearsAnyScheduleOfStartsStopsAndTriggers) {
  int starts = 0;
  const Output output = capture([&] {
    vary_schedules(proof_seed());
    send_meanwhile(6, [&](Random& random) {
      EXPECT_EQ(start_control_thread(), 0);
      ++starts;
      for (int i = pick(random, 12); i > 0; --i) {
        static constexpr int kActions[][2] = {{33, 7}, {64, 0},  {64, 0}, {33, 8},
                                              {62, 0}, {68, 68}, {77, 4}};
        const auto& action = kActions[pick(random, std::size(kActions))];
        request(action[0], action[1]);
      }
      stop_control_thread();
      clock->clear_waits();
    });
    vary_schedules(0);
  });
  std::printf("seed %u: %d starts, %d requests, %d answered\n", proof_seed(), starts,
              counts.sent.load(), counts.answered.load());
  EXPECT_EQ(counts.wrong, 0);
  EXPECT_EQ(request(39, 3), kNotServed);
  EXPECT_TRUE(camera.record_is_clean());
}

TEST_F(StressWithEvr, StartingAndStoppingLeavesNothingBehind) {
  const int cycles = figure("CAMERA_CYCLES", 60);
  mallopt(M_ARENA_MAX, 1);  // threads that meet in malloc() would get more memory to keep
  const auto run_cycles = [&] {
    for (int i = 0; i < cycles; ++i) {
      EXPECT_EQ(start_control_thread(), 0);
      request(64);
      stop_control_thread();
      clock->clear_waits();
    }
  };
  capture(run_cycles);  // memory that is kept for later use is in place afterwards
  const Leftovers before = Leftovers::now();
  const long pages_before = resident_pages();
  capture(run_cycles);
  EXPECT_TRUE(eventually([&] { return !Leftovers::now().exceed(before); }))
      << before << " / " << Leftovers::now();
  std::printf("%d cycles, %ld pages more\n", cycles, resident_pages() - pages_before);
// Sanitizers, and the emulator that runs the 32-bit tests, keep freed memory for a while.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !defined(__arm__)
  EXPECT_LT(resident_pages() - pages_before, 64);
#endif
}

TEST_F(Stress, ExchangesAllocateNothing) {
  const std::vector<Operation> operations = direct_operations();
  for (int i = 0; i < 5; ++i) {
    const Operation& operation = operations[static_cast<std::size_t>(i)];
    operation.run();
    fail_next("new", ENOMEM);
    const long before = g_allocations;
    for (int k = 0; k < 100; ++k) operation.run();
    EXPECT_EQ(g_allocations, before) << operation.name;
    EXPECT_EQ(failures_left(), 1) << operation.name;
    clear_failures();
  }
}

}  // namespace
}  // namespace ipcam::test
