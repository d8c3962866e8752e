// Register commands: texts, tables, packets, the results and messages of each.
#include <algorithm>
#include <functional>

#include "ipcam/camera/dsp_command.h"
#include "tests/support/call_cases.h"

namespace ipcam::camera {
namespace {

using test::capture;
using test::Lines;
using test::Output;

class RegisterCommands : public test::CallTest {
 protected:
  RegisterCommands() {
    for (std::uint32_t i = 0; i < 20; ++i) camera.set_reg(14, i, 0xa0 + i);
  }

  int run(std::string text) { return dsp.do_debug(text.data(), reinterpret_cast<char*>(values)); }

  void note(const char* what, std::uint8_t value) {
    char text[40];
    std::snprintf(text, sizeof text, "%s 0x%02x", what, value);
    notes.emplace_back(text);
  }

  // Notes what a call has put where 0xee was.
  int with_values(int result) {
    for (const std::uint8_t* value = values; *value != 0xee; ++value) note("found", *value);
    return result;
  }

  // A call with the table {12/0x00 mask 0x0f data 0x03, 12/0x03 mask 0xff data 0x77}, and its data afterwards.
  int with_table(const std::function<int(param_info*)>& call) {
    param_info table[] = {{.category = 12, .byte = 0, .mask = 0x0f, .data = 0x03},
                          {.category = 12, .byte = 3, .mask = 0xff, .data = 0x77}};
    const int result = with_values(call(table));
    for (const param_info& row : table) note("data", row.data);
    return result;
  }

  int write_block(const std::string& rows) {
    std::vector<param_info> table(200, {.category = 91, .byte = 0x106});
    for (std::size_t i = 0; i < table.size(); ++i) table[i].data = static_cast<std::uint8_t>(i + 1);
    return dsp.execute_gamma_cmd(table.data(), std::stoi(rows));
  }

  DspCommand dsp;
  unsigned char values[40];
};

TEST_F(RegisterCommands, DoWhatTheyAreToldOrSayWhyNot) {
  const std::map<std::string, Call> calls = {
      {"text", [&](const std::string& text) { return with_values(run(text)); }},
      {"text-r-and-semicolons",
       [&](const std::string& n) {
         std::string text = "r," + std::string(std::stoul(n), ';');
         return dsp.do_debug(reinterpret_cast<unsigned char*>(text.data()), values);
       }},
      {"list-of-semicolons",
       [&](const std::string& n) { return dsp.execute_rw_cmd(1, std::string(std::stoul(n), ';').data(), values); }},
      {"table",
       [&](const std::string&) { return with_table([&](auto* rows) { return dsp.execute_abs_cmd(rows, 2); }); }},
      {"table-as-text",
       [&](const std::string& option) {
         return with_table([&](auto* rows) { return dsp.do_debug(rows, values, std::stoi(option), 2); });
       }},
      {"block", [&](const std::string& rows) { return write_block(rows); }},
  };
  check_calls("register_commands.txt", calls, [&] {
    std::ranges::fill(values, std::uint8_t{0xee});
    camera.set_reg(12, 0, 0xa5);
    camera.set_reg(12, 3, 0x11);
  });
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
      {[&] { return dsp.do_debug(wide.data(), values, 2, 16); }, "argument too long (288, maximum length: 256)!\n"},
      {[&] { return dsp.add_cmd_packet(1, {}, nullptr); }, argument},
      {[&] { return dsp.add_cmd_packet(2, wide[0], &packet); }, "too many commands! cmd:4 bytes:130\n"},
  };
  for (const auto& c : cases) {
    const Output output = capture([&] { EXPECT_EQ(c.call(), -1) << c.err; });
    EXPECT_EQ(output.err, "dspset: [ERROR] " + c.err);
  }
  EXPECT_EQ(camera.traffic(), Lines{});
}

}  // namespace
}  // namespace ipcam::camera
