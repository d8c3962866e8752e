// What the simulated camera answers, its sensor, and the traffic that it keeps.
#include <algorithm>

#include "ipcam/camera/dsp_command.h"
#include "tests/support/camera_fixture.h"

namespace ipcam::sim {
namespace {

using Bytes = std::vector<std::uint8_t>;
using test::Lines;

class SimulatedCameraTest : public test::CameraTest {
 protected:
  Bytes exchange(int count, const Bytes& data) {
    camera::packet_info packet{.count = count, .length = static_cast<int>(data.size()), .data = {}};
    std::ranges::copy(data, packet.data);
    EXPECT_EQ(dsp.send_to_comm(&packet), 0);
    EXPECT_EQ(dsp.get_from_comm(&packet), 0);
    EXPECT_EQ(packet.count, count);
    return {packet.data, packet.data + packet.length};
  }

  std::uint8_t read(std::uint8_t category, std::uint8_t byte) {
    return exchange(1, {6, 1, category, 0, byte, 1}).at(2);
  }

  camera::DspCommand dsp;
};

TEST_F(SimulatedCameraTest, AnswersEachKindOfEntry) {
  camera.set_reg(10, 0x0109, 0x80);
  const struct {
    const char* traffic;
    int count;
    Bytes command;
    Bytes reply;
  } cases[] = {
      {"x", 0, {}, {}},
      {"r 10/0x109 9/0x03", 2, {6, 1, 10, 1, 9, 1, 6, 1, 9, 0, 3, 1}, {3, 1, 0x80, 3, 1, 0}},
      {"w 10/0x109=0x7f 9/0x03=0xff", 2, {6, 2, 10, 1, 9, 0x7f, 6, 2, 9, 0, 3, 0xff}, {2, 1, 2, 1}},
      {"r 10/0x109 9/0x03", 2, {6, 1, 10, 1, 9, 1, 6, 1, 9, 0, 3, 1}, {3, 1, 0x7f, 3, 1, 0xff}},
      {"b 91/0x06=0x38 0x48 0x58", 1, {8, 2, 91, 0, 6, 0x38, 0x48, 0x58}, {2, 1}},
      {"r 91/0x08", 1, {6, 1, 91, 0, 8, 1}, {3, 1, 0x58}},
      {"x 06 00 50 52 45 4e 02 09 06 00 50 52 44 53",
       3,
       {6, 0, 'P', 'R', 'E', 'N', 2, 9, 6, 0, 'P', 'R', 'D', 'S'},
       {2, 1, 2, 1, 2, 1}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(exchange(c.count, c.command), c.reply) << c.traffic;
    EXPECT_EQ(camera.take_traffic(), Lines{c.traffic});
  }
}

TEST_F(SimulatedCameraTest, TheReadoutFollowsTheBinningRegister) {
  camera.board().readout_lag_reads = 1;
  EXPECT_EQ(read(2, 0), 0x08);
  exchange(1, {6, 2, 0, 0, 3, 1});
  for (const int value : {0x08, 0x10, 0x10}) EXPECT_EQ(read(2, 0), value);
  camera.board().sensor_off = 1;
  exchange(1, {6, 2, 0, 0, 3, 0});
  for (const int value : {0x10, 0x10}) EXPECT_EQ(read(2, 0), value);
}

TEST_F(SimulatedCameraTest, GainsMoveToTheirTargetsWhileAOnePushMeasurementRuns) {
  camera.board().onepush_settle_reads = 2;
  const Bytes gains = {6, 1, 14, 0, 140, 1, 6, 1, 14, 0, 141, 1, 6, 1, 14, 0, 142, 1, 6, 1, 14, 0, 143, 1};
  EXPECT_EQ(exchange(4, gains), (Bytes{3, 1, 0, 3, 1, 0, 3, 1, 0, 3, 1, 0}));
  exchange(1, {6, 2, 12, 0, 0, 1});
  EXPECT_EQ(exchange(4, gains), (Bytes{3, 1, 0x21, 3, 1, 0x07, 3, 1, 0xf6, 3, 1, 0x03}));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(exchange(4, gains), (Bytes{3, 1, 0x42, 3, 1, 0x0e, 3, 1, 0xed, 3, 1, 0x07}));
}

TEST_F(SimulatedCameraTest, KeepsTheNewestTrafficAndSaysHowMuchWasDropped) {
  for (std::uint32_t i = 0; i < Switchboard::kTraceSize + 2; ++i) read(12, static_cast<std::uint8_t>(i));
  const Lines lines = camera.take_traffic();
  ASSERT_EQ(lines.size(), Switchboard::kTraceSize + 1);
  EXPECT_EQ(lines.front(), "dropped 2");
  EXPECT_EQ(lines.back(), "r 12/0x01");
  EXPECT_TRUE(camera.traffic().empty());
}

}  // namespace
}  // namespace ipcam::sim
