// What each operation costs: counts its exchanges and waits on the faked clock, and prints them for docs/timing.md: of
// each operation the best, the worst and the one without replies, as exchanges, microseconds, and sleeps in
// milliseconds.
#include <algorithm>
#include <iostream>
#include <map>

#include "tests/support/operations.h"

namespace ipcam::test {
namespace {

struct Cost {
  std::int64_t us = 0;  // of all waits: for replies that do not come, and the sleeps
  std::size_t exchanges = 0;
  std::map<int, int> sleeps = {};  // by their milliseconds

  auto operator<=>(const Cost&) const = default;
};

struct Costs {
  Cost best = {.us = INT64_MAX}, worst = {}, silent = {};
};

// What the camera does meanwhile: it answers, keeps to a readout (as the sensor status gives it), or is silent.
enum Link : std::uint8_t { kAnswers = 0, kStaysFull = 0x08, kStaysBinned = 0x10, kSilent = 0xff };

std::ostream& operator<<(std::ostream& out, const Cost& cost) {
  out << '\t' << cost.exchanges << ' ' << cost.us;
  for (const auto& [ms, times] : cost.sleeps) out << ' ' << times << '*' << ms;
  return out;
}

class Timing : public FaultTest {
 protected:
  // Settings with which requests have little or much to do, in different ways.
  void start_with(unsigned bits) {
    const bool automatic = bits & 1, slow = bits & 2, much = bits & 4, held = bits & 8;
    SettingsBytes settings;
    settings.i32(16, 3).i32(20, much ? 0 : 1).i32(32, 6).i32(40, slow ? 0 : 9).i32(68, much).u8(96, slow);
    write_settings(settings.i32(140, much ? 3 : 0).u8(145, automatic).i32(152, 6).i32(780, much ? 4 : 1));
    stop_control_thread();
    ASSERT_EQ(start_control_thread(), 0);
    request(68, held ? 0 : 1);
    request(75, held ? 0 : 29);
  }

  void count(Costs& costs, Link link, const std::function<void()>& action) {
    if (link == kSilent) camera.fault(sim::Fault::no_reply, {.count = 1000});
    if (link == kStaysFull || link == kStaysBinned) {
      const std::uint8_t registers[][3] = {{2, 0, link},   {2, 3, 0},   {81, 10, 0xff},
                                           {81, 11, 0xff}, {81, 86, 1}, {81, 87, 0}};
      for (const auto& [category, byte, value] : registers) camera.script(category, byte, {value});
      std::vector<std::uint8_t> unsteady_gain;
      while (unsteady_gain.size() < 256) unsteady_gain.insert(unsteady_gain.end(), {0, 0xff});
      camera.script(14, 141, unsteady_gain);
    }
    camera.clear_traffic();
    clock->clear_waits();
    const std::int64_t begin = clock->advanced_us();
    action();
    Cost cost = {.us = clock->advanced_us() - begin, .exchanges = camera.traffic().size()};
    for (const std::string& wait : clock->waits()) {
      const int number = std::stoi(wait.substr(wait.find('(') + 1));
      ++cost.sleeps[wait[0] == 'u' ? number / 1000 : 1000 * number];
    }
    camera.clear_faults();
    camera.board().clear_scripts();
    if (link == kSilent) {
      costs.silent = std::max(costs.silent, cost);
    } else {
      costs.best = std::min(costs.best, cost);
      costs.worst = std::max(costs.worst, cost);
    }
  }
};

TEST_F(Timing, OfEachOperation) {
  std::vector<Operation> operations = all_operations(true);
  const auto onepush = std::ranges::find(operations, "request 64 with 0", &Operation::name);
  onepush->run = operations.back().run;  // what it starts, on this thread
  const auto start_up = [&] { return stop_control_thread(), start_control_thread(); };
  operations.back() = {"start-up", start_up, Operation::kEither};

  std::vector<Costs> costs(operations.size());
  const auto let_go = {"request 68 with 68", "request 68 with 1", "request 75 with 29"};  // iris and binning
  capture([&] {
    for (unsigned pass = 0; pass < 64; ++pass) {
      const Link link = std::array{kAnswers, kStaysFull, kStaysBinned, kSilent}[pass / 16];
      start_with(pass);
      for (std::size_t i = 0; i < 2 * costs.size(); ++i) {
        const Operation& operation = operations[i / 2];
        const bool is_kept_out = (pass & 8) != 0 && std::ranges::count(let_go, operation.name) != 0;
        if (!is_kept_out) count(costs[i / 2], link, operation.run);
      }
    }
  });

  for (std::size_t i = 0; i < costs.size(); ++i) {
    std::cout << operations[i].name << costs[i].best << costs[i].worst << costs[i].silent << "\n";
  }
}

}  // namespace
}  // namespace ipcam::test
