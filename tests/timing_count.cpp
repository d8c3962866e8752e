// What each operation costs and which registers it reads and writes, printed for docs/timing.md and
// docs/registers.md. Costs, from exchanges and from waits on the faked clock: "OPERATION", then the
// best, the worst and the one without replies as exchanges, microseconds, and sleeps in
// milliseconds. Registers: "read" or "write", category, byte number, operation.
#include <algorithm>
#include <iostream>
#include <map>
#include <set>
#include <tuple>

#include "ipcam/camera/parameter_tables.h"
#include "registers/register_map.h"
#include "tests/support/operations.h"
#include "wire/packet_entries.h"
#include "workers/evr_control.h"

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

// What the camera does meanwhile: it answers, keeps to a readout (as the
// sensor status gives it), or is silent.
enum Link : std::uint8_t { kAnswers = 0, kStaysFull = 0x08, kStaysBinned = 0x10, kSilent = 0xff };

std::ostream& operator<<(std::ostream& out, const Cost& cost) {
  out << '\t' << cost.exchanges << ' ' << cost.us;
  for (const auto& [ms, times] : cost.sleeps) out << ' ' << times << '*' << ms;
  return out;
}

using Registers = std::vector<registers::Address>;

Registers registers_of(const wire::Command& command) {
  Registers addresses;
  for (const wire::CommandEntry& entry : command.entries)
    addresses.push_back({entry.category, entry.byte});
  return addresses;
}

class Timing : public FaultTest {
 protected:
  // Settings with which requests have little or much to do, in different ways.
  void start_with(unsigned bits) {
    const bool automatic = bits & 1, slow = bits & 2, much = bits & 4, held = bits & 8;
    // White-balance modes that set different registers: one-push, atwpro and manual.
    const int wb_mode = std::array{3, 6, 5, 3}[bits & 3];
    SettingsBytes settings;
    settings.i32(16, wb_mode)
        .i32(20, much ? 0 : 1)
        .i32(32, 6)
        .i32(40, slow ? 0 : 9)
        .i32(68, much)
        .u8(96, slow);
    write_settings(
        settings.i32(140, much ? 3 : 0).u8(145, automatic).i32(152, 6).i32(780, much ? 4 : 1));
    stop_control_thread();
    ASSERT_EQ(start_control_thread(), 0);
    request(68, held ? 0 : 1);
    request(75, held ? 0 : 29);
  }

  void count(Costs& costs, Link link, const std::string& name,
             const std::function<void()>& action) {
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
    if (link != kSilent) note_accesses(name);
    if (link == kSilent) {
      costs.silent = std::max(costs.silent, cost);
    } else {
      costs.best = std::min(costs.best, cost);
      costs.worst = std::max(costs.worst, cost);
    }
  }

  // Who reads and who writes, of the traffic since it was last cleared. The read
  // that a write begins with is no read.
  void note_accesses(const std::string& who) {
    const auto note = [&](const char* access, const Registers& addresses) {
      for (const registers::Address& at : addresses) accesses.insert({access, at, who});
    };
    const sim::Switchboard& board = camera.board();
    Registers read;
    for (std::uint32_t i = board.trace_begin; i != board.trace_end; ++i) {
      const wire::Command command =
          wire::decode_command(board.trace[i % sim::Switchboard::kTraceSize].command);
      const Registers addresses = registers_of(command);
      const bool is_read = command.access == wire::Access::read;
      if (is_read || addresses != read) note("read", read);
      if (!is_read) note("write", addresses);
      read = is_read ? addresses : Registers();
    }
    note("read", read);
    camera.clear_traffic();
  }

  void run(const std::string& who, const std::function<void()>& action) {
    camera.clear_traffic();
    action();
    note_accesses(who);
  }

  void call(const std::string& who, int (camera::DspCommand::*setter)(unsigned char*),
            std::string text) {
    run(who, [&] { (dsp.*setter)(reinterpret_cast<unsigned char*>(text.data())); });
  }
  template <class... Arguments>
  void call(const std::string& who, int (camera::DspCommand::*setter)(Arguments...),
            Arguments... arguments) {
    run(who, [&] { (dsp.*setter)(arguments...); });
  }

  // Each setter with arguments that reach all its registers, and what else no request does.
  void run_others() {
#define CALL(setter, ...) call(#setter, &camera::DspCommand::setter, __VA_ARGS__)
    CALL(do_saturation, "1"), CALL(do_contrast, "1"), CALL(do_sharpness, "1"),
        CALL(do_brightness, "1");
    CALL(do_hue, "1"), CALL(do_colorbar, "1"), CALL(do_effect, "monochrome1"),
        CALL(do_effect, "negative1");
    CALL(do_gamma, 1), CALL(do_ygamma, "e1"), CALL(do_cgamma, "e1"), CALL(do_whitebalance, "atw");
    CALL(do_whitebalance, "atwpro"), CALL(do_whitebalance, "indoor"), CALL(do_rgain, 1u),
        CALL(do_bgain, 1u);
    CALL(do_rbgain_preset1, std::uint16_t{1}, std::uint16_t{1}), CALL(do_blcomp, 2),
        CALL(do_expcomp, "1");
    CALL(do_aereference, "1"), CALL(do_expmode, 1), CALL(do_max_frm_exp, 1),
        CALL(do_autoexposure, "auto");
    CALL(do_autoexposure, "manual1"), CALL(do_shutter, 1u), CALL(do_gain, 1),
        CALL(do_flickerless, 1);
    CALL(do_autoslowshutter, true), CALL(do_agc, "on"), CALL(do_agc_max_gain, 1),
        CALL(do_miris_mode, true);
    CALL(do_iris_modifier, 1, 1, 1, true), CALL(do_binning, true), CALL(do_sensormode, "vga");
    CALL(do_dnmode, "on"), CALL(do_dnlevel, "low");
    for (const int mode : {0, 1, 2, 3})
      CALL(do_shutter_gain, {.shutter = 1, .gain = 1, .mode = mode, .max_frm_exp = 1});
#undef CALL
    run("other programs, by execute_abs_cmd(g_lens_adjust)",
        [&] { dsp.execute_abs_cmd(camera::g_lens_adjust, 1); });
    run("EVR worker", [&] {
      constexpr registers::Address kAdjustMode = registers::address("adjust_mode");
      camera.script(kAdjustMode.category, kAdjustMode.byte, {0, 1});  // it ends in the second turn
      camera::EVRControl(1, &dsp).start_thread();
    });
  }

  std::set<std::tuple<std::string, registers::Address, std::string>> accesses;
};

TEST_F(Timing, OfEachOperation) {
  std::vector<Operation> operations = all_operations(true);
  const auto onepush = std::ranges::find(operations, "request 64 with 0", &Operation::name);
  onepush->run = operations.back().run;  // what it starts, on this thread
  const auto start_up = [&] { return stop_control_thread(), start_control_thread(); };
  operations.back() = {"start-up", start_up, Operation::kEither};

  std::vector<Costs> costs(operations.size());
  const auto let_go = {"request 68 with 68", "request 68 with 1",
                       "request 75 with 29"};  // iris and binning
  capture([&] {
    for (unsigned pass = 0; pass < 64; ++pass) {
      const Link link = std::array{kAnswers, kStaysFull, kStaysBinned, kSilent}[pass / 16];
      start_with(pass);
      for (std::size_t i = 0; i < 2 * costs.size(); ++i) {
        const Operation& operation = operations[i / 2];
        const bool is_kept_out = (pass & 8) != 0 && std::ranges::count(let_go, operation.name) != 0;
        if (!is_kept_out) count(costs[i / 2], link, operation.name, operation.run);
      }
    }
    run_others();
  });

  for (std::size_t i = 0; i < costs.size(); ++i) {
    std::cout << operations[i].name << costs[i].best << costs[i].worst << costs[i].silent << "\n";
  }
  for (const auto& [access, at, who] : accesses) {
    std::cout << access << '\t' << int{at.category} << '\t' << at.byte << '\t' << who << "\n";
  }
}

}  // namespace
}  // namespace ipcam::test
