// Register commands: texts, tables, packets, the results and messages of each.
#include <gtest/gtest.h>

#include <functional>

#include "ipcam/camera/dsp_command.h"
#include "tests/support/camera_fixture.h"

namespace ipcam::camera {
namespace {

using test::capture;
using test::Lines;
using test::Output;

class RegisterCommands : public test::CameraTest {
 protected:
  RegisterCommands() {
    for (int i = 0; i < 20; ++i)
      camera.set_reg(14, static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(0xa0 + i));
    camera.set_reg(12, 0, 0xa5);
    camera.set_reg(12, 3, 0x11);
  }

  int run(std::string text) {
    result.assign(32, 0xee);
    text.push_back('\0');
    return dsp.do_debug(text.data(), reinterpret_cast<char*>(result.data()));
  }

  DspCommand dsp;
  std::vector<unsigned char> result;
};

struct TextCase {
  std::string text;
  int returned;
  Lines traffic;
  std::string out;
  std::string err;
};

std::string many(const std::string& entry, int count, const std::string& head) {
  std::string text = head;
  for (int i = 0; i < count; ++i) text += entry + ";";
  return text;
}

TEST_F(RegisterCommands, RunsWhatTheTextSaysOrSaysWhyNot) {
  const std::string read = "dspset: read result:\n";
  const TextCase cases[] = {
      {"r,12,0", 1, {"r 12/0x00"}, read, ""},
      {"r,0x10,010", 1, {"r 16/0x08"}, read, ""},
      {"r,12,,3;;", 1, {"r 12/0x03"}, read, ""},
      {"r, 12,\t+3", 1, {"r 12/0x03"}, read, ""},
      {"r,255,65535", 1, {"r 255/0xffff"}, read, ""},
      {"r,14,0;14,1;14,2;14,3", 4, {"r 14/0x00 14/0x01 14/0x02 14/0x03"}, read, ""},
      {"r", 0, {"x"}, read, ""},
      {"rX12,0", 1, {"r 12/0x00"}, read, ""},
      {"w,12,0,0x07,1",
       1,
       {"r 12/0x00", "w 12/0x00=0xa1"},
       read + "dspset: write result:\ndspset: \tcategory(0x0c) byte(0x00) -> 0xa1 success\n",
       ""},
      {"w,12,0,0,0xff;12,3,0xff,0x5a",
       1,
       {"r 12/0x00 12/0x03", "w 12/0x00=0xa5 12/0x03=0x5a"},
       read + "dspset: write result:\ndspset: \tcategory(0x0c) byte(0x00) -> 0xa5 success\n"
              "dspset: \tcategory(0x0c) byte(0x03) -> 0x5a success\n",
       ""},
      {"w", 0, {"x", "x"}, read + "dspset: write result:\n", ""},
      {"x,1,2", -1, {}, "", "dspset: [ERROR] invalid option! 78\n"},
      {"", -1, {}, "", "dspset: [ERROR] invalid option! 0\n"},
      {"w,9,3,0xff,300", -1, {}, "", "dspset: [ERROR] must set data value between 0x00 to 0xff!\n"},
      {"w,9,3,256,3", -1, {}, "", "dspset: [ERROR] must set bit value between 0x00 to 0xff!\n"},
      {"w,16,-1,0xff,1", -1, {}, "", "dspset: [ERROR] must set byte number between 0x0000 to 0xffff!\n"},
      {"r,12,0x10000", -1, {}, "", "dspset: [ERROR] must set byte number between 0x0000 to 0xffff!\n"},
      {"r,256,3", -1, {}, "", "dspset: [ERROR] must set category number between 0x00 to 0xff!\n"},
      {"r,4294967308,3", -1, {}, "", "dspset: [ERROR] must set category number between 0x00 to 0xff!\n"},
      {"r,-4294967284,3", -1, {}, "", "dspset: [ERROR] must set category number between 0x00 to 0xff!\n"},
      {"r,12", -1, {}, "", "dspset: [ERROR] read argument length error!\n"},
      {"r,12,3,4", -1, {}, "", "dspset: [ERROR] read argument length error!\n"},
      {"r,,;", -1, {}, "", "dspset: [ERROR] read argument length error!\n"},
      {"w,12,0,0x07", -1, {}, "", "dspset: [ERROR] write argument length error!\n"},
      {"w,12,0,7,1,1", -1, {}, "", "dspset: [ERROR] write argument length error!\n"},
      {"r,12,3x", -1, {}, "", "dspset: [ERROR] argument error!\n"},
      {"r,12, ", -1, {}, "", "dspset: [ERROR] argument error!\n"},
      {"r,12,0b1", -1, {}, "", "dspset: [ERROR] argument error!\n"},
      {"w,12,0,7,1,y", -1, {}, "", "dspset: [ERROR] argument error!\n"},
      {many("14,1", 17, "r,"), -1, {}, "", "dspset: [ERROR] too many commands! cmd:17 bytes:102\n"},
      {many("14,1", 16, "r,") + "14,1x", -1, {}, "", "dspset: [ERROR] argument error!\n"},
      {"r," + std::string(255, ';'), 0, {}, "", ""},
  };
  for (const TextCase& c : cases) {
    SCOPED_TRACE(c.text);
    camera.set_reg(12, 0, 0xa5);
    camera.set_reg(12, 3, 0x11);
    camera.clear_traffic();
    int returned = -2;
    const Output output = capture([&] { returned = run(c.text); });
    EXPECT_EQ(returned, c.returned);
    EXPECT_EQ(camera.traffic(), c.traffic);
    EXPECT_EQ(output.out, c.out);
    EXPECT_EQ(output.err, c.err);
  }
}

TEST_F(RegisterCommands, FillsTheResultWithTheValuesFound) {
  EXPECT_EQ(run("r,14,3;14,0;14,15"), 3);
  EXPECT_EQ(std::vector(result.begin(), result.begin() + 4), (std::vector<unsigned char>{0xa3, 0xa0, 0xaf, 0xee}));
  EXPECT_EQ(run("w,14,3,0xff,1;14,0,0xff,2"), 1);
  EXPECT_EQ(result[0], 0xa3);  // a write gives the values before it
  EXPECT_EQ(result[1], 0xa0);
  EXPECT_EQ(camera.reg(14, 3), 1);
  EXPECT_EQ(run(many("14,1", 16, "r,")), 16);
}

TEST_F(RegisterCommands, LimitsTheListToItsLength) {
  std::string list(257, ';');
  unsigned char byte[32];
  int returned = 0;
  Output output = capture([&] { returned = dsp.execute_rw_cmd(1, list.data(), byte); });
  EXPECT_EQ(returned, -1);
  EXPECT_EQ(output.err, "dspset: [ERROR] argument too long (257, maximum length: 256)!\n");

  std::string text = "r," + std::string(257, ';');
  output = capture([&] { returned = dsp.do_debug(reinterpret_cast<unsigned char*>(text.data()), byte); });
  EXPECT_EQ(returned, -1);
  EXPECT_EQ(output.err, "dspset: [ERROR] argument too long (257, maximum length: 256)!\n");
  EXPECT_EQ(camera.traffic(), Lines{});

  list.assign(256, ';');
  EXPECT_EQ(dsp.execute_rw_cmd(1, list.data(), byte), 0);
}

TEST_F(RegisterCommands, AppliesATableByReadModifyWrite) {
  param_info table[] = {{.category = 12, .byte = 0, .mask = 0x0f, .data = 0x03},
                        {.category = 12, .byte = 3, .mask = 0xff, .data = 0x77}};
  int returned = -2;
  const Output output = capture([&] { returned = dsp.execute_abs_cmd(table, 2); });
  EXPECT_EQ(returned, 0);
  EXPECT_EQ(output.out, "dspset: write success!\n\n");
  EXPECT_EQ(camera.traffic(), (Lines{"r 12/0x00 12/0x03", "w 12/0x00=0xa3 12/0x03=0x77"}));
  EXPECT_EQ(table[0].data, 0xa3);
  EXPECT_EQ(table[1].data, 0x77);
}

TEST_F(RegisterCommands, WritesABlockOfUpTo122Registers) {
  std::vector<param_info> table(123);
  for (std::size_t i = 0; i < table.size(); ++i) table[i].data = static_cast<std::uint8_t>(i + 1);
  table[0].category = 91;
  table[0].byte = 0x106;
  int returned = -2;
  Output output = capture([&] { returned = dsp.execute_gamma_cmd(table.data(), 122); });
  EXPECT_EQ(returned, 0);
  EXPECT_EQ(output.out, "dspset: write success!\n\n");
  EXPECT_EQ(camera.reg(91, 0x106), 1);
  EXPECT_EQ(camera.reg(91, 0x106 + 121), 122);

  camera.clear_traffic();
  output = capture([&] { returned = dsp.execute_gamma_cmd(table.data(), 123); });
  EXPECT_EQ(returned, -1);
  EXPECT_EQ(output.err, "dspset: [ERROR] too many parameter!\n");
  EXPECT_EQ(camera.traffic(), Lines{});
}

TEST_F(RegisterCommands, RunsTheRowsOfATableAsText) {
  unsigned char values[32] = {};
  param_info table[] = {{.category = 12, .byte = 0, .mask = 0x0f, .data = 0x03}, {.category = 14, .byte = 5}};
  EXPECT_EQ(dsp.do_debug(table, values, 1, 2), 2);
  EXPECT_EQ(values[0], 0xa5);
  EXPECT_EQ(values[1], 0xa5);
  EXPECT_EQ(dsp.do_debug(table, values, 2, 1), 1);
  EXPECT_EQ(camera.reg(12, 0), 0xa3);
}

TEST_F(RegisterCommands, RefusesWhatItCannotSendBeforeItSends) {
  std::vector<param_info> wide(17, {.category = 255, .byte = 65535, .mask = 255, .data = 255});
  unsigned char values[32];
  char list[] = "12,0";
  packet_info packet{};
  const std::string argument = "dspset: [ERROR] argument error!\n";
  const std::string too_many = "dspset: [ERROR] too many commands! cmd:17 bytes:102\n";
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
      {[&] { return dsp.execute_rw_cmd(3, list, values); }, "dspset: [ERROR] invalid option! 3\n"},
      {[&] { return dsp.do_debug(static_cast<char*>(nullptr), nullptr); }, argument},
      {[&] { return dsp.do_debug(nullptr, values, 1, 1); }, argument},
      {[&] { return dsp.do_debug(wide.data(), values, 2, -1); }, argument},
      {[&] { return dsp.do_debug(wide.data(), values, 1, 17); }, too_many},
      {[&] { return dsp.do_debug(wide.data(), values, 16, 1); }, "dspset: [ERROR] invalid option! 10\n"},
      {[&] { return dsp.do_debug(wide.data(), values, 2, 16); },
       "dspset: [ERROR] argument too long (288, maximum length: 256)!\n"},
      {[&] { return dsp.add_cmd_packet(1, {}, nullptr); }, argument},
      {[&] {
         packet = {.count = 3, .length = 124, .data = {}};
         return dsp.add_cmd_packet(2, wide[0], &packet);
       },
       "dspset: [ERROR] too many commands! cmd:4 bytes:130\n"},
  };
  for (const auto& c : cases) {
    int returned = 0;
    const Output output = capture([&] { returned = c.call(); });
    EXPECT_EQ(returned, -1) << c.err;
    EXPECT_EQ(output.err, c.err);
  }
  EXPECT_EQ(camera.traffic(), Lines{});
}

// The reply is data of another process: what each operation makes of a wrong one.
TEST_F(RegisterCommands, BelievesNoWrongReply) {
  using sim::Fault;
  const std::string table_error = "dspset: [ERROR] reply from dsp error!\n";
  const std::string failed = "dspset: read result:\ndspset: \tcategory(0x0c) byte(0x00) = failed! (0x1)\n";
  const struct {
    Fault fault;
    std::uint32_t entry;
    std::string read_out;       // of a read text for 12/0 and 12/3
    std::uint8_t merged_first;  // data of the table's first row afterwards
  } cases[] = {
      {Fault::wrong_status, 0, "dspset: read result:\ndspset: \tcategory(0x0c) byte(0x00) = failed! (0x2)\n", 0x03},
      {Fault::wrong_status, 1, "dspset: read result:\ndspset: \tcategory(0x0c) byte(0x03) = failed! (0x2)\n", 0xa3},
      {Fault::wrong_length_byte, 1, "dspset: read result:\ndspset: \tcategory(0x0c) byte(0x03) = failed! (0x1)\n",
       0xa3},
      {Fault::count_too_small, 0, failed, 0x03},
      {Fault::count_too_large, 0, failed, 0x03},
      {Fault::negative_count, 0, failed, 0x03},
      {Fault::torn_entry, 1, failed, 0x03},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(sim::kFaultNames[static_cast<std::size_t>(c.fault)]);
    int returned = 0;
    camera.fault(c.fault, {.entry = c.entry});
    Output output = capture([&] { returned = run("r,12,0;12,3"); });
    EXPECT_EQ(returned, -1);
    EXPECT_EQ(output.out, c.read_out);

    param_info table[] = {{.category = 12, .byte = 0, .mask = 0x0f, .data = 0x03},
                          {.category = 12, .byte = 3, .mask = 0xff, .data = 0x77}};
    camera.fault(c.fault, {.entry = c.entry});
    output = capture([&] { returned = dsp.execute_abs_cmd(table, 2); });
    EXPECT_EQ(returned, -1);
    EXPECT_EQ(output.err, table_error);
    EXPECT_EQ(table[0].data, c.merged_first);
    EXPECT_EQ(table[1].data, 0x77);
    EXPECT_EQ(camera.reg(12, 3), 0x11);  // the write has not been sent

    camera.fault(c.fault, {.exchange = 1, .entry = c.entry});
    output = capture([&] { returned = run("w,12,0,0x0f,5;12,3,0,0"); });
    EXPECT_EQ(returned, -1);
    EXPECT_NE(output.out.find("-> failed!"), std::string::npos) << output.out;
    camera.set_reg(12, 0, 0xa5);
  }

  camera.fault(Fault::empty_reply, {.exchange = 1});
  EXPECT_EQ(run("w,12,3,0xff,0x11"), 0);
  camera.fault(Fault::wrong_status);
  param_info row{.category = 91, .byte = 6};
  EXPECT_EQ(dsp.execute_gamma_cmd(&row, 1), -1);
  EXPECT_EQ(run("r,12,3"), 1);
}

}  // namespace
}  // namespace ipcam::camera
