// Register commands: the longest texts, what is refused before it is
// sent, and setters on several threads.
#include <algorithm>
#include <functional>
#include <thread>

#include "ipcam/camera/dsp_command.h"
#include "ipcam/camera/parameter_tables.h"
#include "tests/support/camera_fixture.h"

namespace ipcam::camera {
namespace {

using test::capture;
using test::Lines;
using test::Output;

class RegisterCommands : public test::CameraTest {
 protected:
  DspCommand dsp;
  unsigned char values[40];
};

TEST_F(RegisterCommands, AreAtMost256CharactersLong) {
  std::string longest = "r," + std::string(256, ';'), longer = longest + ";";
  const auto as_bytes = [](std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
  };
  const Output output = capture([&] {
    EXPECT_EQ(dsp.do_debug(as_bytes(longest), values), 0);
    EXPECT_EQ(dsp.do_debug(as_bytes(longer), values), -1);
    longest = "r,\r1,0";
    EXPECT_EQ(dsp.do_debug(as_bytes(longest), values), 1);
    longest.assign(256, ';');
    longer.assign(257, ';');
    EXPECT_EQ(dsp.execute_rw_cmd(1, longest.data(), values), 0);
    EXPECT_EQ(dsp.execute_rw_cmd(1, longer.data(), values), -1);
    longer.assign(257, 'r');
    EXPECT_EQ(dsp.do_debug(longer.data(), reinterpret_cast<char*>(values)), 0)
        << "and says nothing";
  });
  const std::string refusal = "dspset: [ERROR] argument too long (257, maximum length: 256)!\n";
  EXPECT_EQ(output.err, refusal + refusal);
  EXPECT_EQ(camera.traffic(), (Lines{"x", "r 1/0x00", "x"}));
}

TEST_F(RegisterCommands, RefuseWhatTheyCannotSendBeforeTheySend) {
  std::vector<param_info> wide(17, {.category = 255, .byte = 65535, .mask = 255, .data = 255});
  char list[] = "12,0";
  packet_info packet{.count = 3, .length = 124, .data = {}};
  const std::string argument = "argument error!\n";
  const std::string too_many = "too many commands! cmd:17 bytes:102\n";
  const struct {
    std::function<int()> call;
    std::string err;
  } cases[] = {
      {[&] { return dsp.execute_abs_cmd(nullptr, 1); }, argument},
      {[&] { return dsp.execute_abs_cmd(wide.data(), -1); }, argument},
      {[&] { return dsp.execute_abs_cmd(wide.data(), 17); }, too_many},
      {[&] { return dsp.execute_gamma_cmd(nullptr, 1); }, argument},
      {[&] { return dsp.execute_gamma_cmd(wide.data(), 0); }, argument},
      {[&] { return dsp.execute_rw_cmd(1, nullptr, values); }, argument},
      {[&] { return dsp.execute_rw_cmd(3, list, values); }, "invalid option! 3\n"},
      {[&] { return dsp.do_debug(static_cast<char*>(nullptr), nullptr); }, argument},
      {[&] { return dsp.do_debug(nullptr, values, 1, 1); }, argument},
      {[&] { return dsp.do_debug(wide.data(), values, 2, -1); }, argument},
      {[&] { return dsp.do_debug(wide.data(), values, 1, 17); }, too_many},
      {[&] { return dsp.do_debug(wide.data(), values, 16, 1); }, "invalid option! 10\n"},
      {[&] { return dsp.do_debug(wide.data(), values, 2, 16); },
       "argument too long (288, maximum length: 256)!\n"},
      {[&] { return dsp.add_cmd_packet(1, {}, nullptr); }, argument},
      {[&] { return dsp.add_cmd_packet(2, wide[0], &packet); },
       "too many commands! cmd:4 bytes:130\n"},
  };
  for (const auto& c : cases) {
    const Output output = capture([&] { EXPECT_EQ(c.call(), -1) << c.err; });
    EXPECT_EQ(output.err, "dspset: [ERROR] " + c.err);
  }
  EXPECT_EQ(camera.traffic(), Lines{});
}

TEST_F(RegisterCommands, OfTwoThreadsDoNotMixTheirBytesInOneTable) {
  constexpr int kRounds = 200;
  const auto repeat = [&](unsigned int level) {
    for (int i = 0; i < kRounds; ++i) EXPECT_EQ(dsp.do_rgain(level), 0);
  };
  std::thread low(repeat, 0u);
  repeat(255);
  low.join();
  const std::string low_gain = "w 12/0x7c=0xba 12/0x7d=0x27",
                    high_gain = "w 12/0x7c=0xdc 12/0x7d=0x05";
  const Lines traffic = camera.traffic();
  EXPECT_EQ(std::ranges::count(traffic, low_gain), kRounds);
  EXPECT_EQ(std::ranges::count(traffic, high_gain), kRounds);
  EXPECT_EQ(g_rgain[0].data, traffic.back() == low_gain ? 0xba : 0xdc);
}

}  // namespace
}  // namespace ipcam::camera
