// Plays the cases of tests/data/*.cases; tests/README.md explains their notation.
#include "tests/support/cases.h"

#include <dlfcn.h>

#include <algorithm>
#include <bit>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "camera/control_thread.h"
#include "tests/support/setter_calls.h"
#include "tests/support/timeline.h"
#include "tools/settings_table.h"
#include "workers/evr_control.h"
#include "workers/onepush_wb.h"

namespace ipcam::test {
namespace {

constexpr unsigned char kUntouched = 0xee;

std::string hex(const std::string& head, const std::string& bytes) {
  std::string text = head;
  for (const char byte : bytes) {
    char word[8];
    std::snprintf(word, sizeof word, " 0x%02x", byte & 0xff);
    text += word;
  }
  return text;
}

// Bytes in hexadecimal, "08-27" for all from the one to the other.
std::string bytes_of(std::istream& words) {
  std::string bytes;
  for (std::string word; words >> word;) {
    const int first = std::stoi(word, nullptr, 16), last = std::stoi(word.substr(word.find('-') + 1), nullptr, 16);
    for (int byte = first; byte <= last; ++byte) bytes += static_cast<char>(byte);
  }
  return bytes;
}

// What stands between the quotation marks.
std::string text_of(std::istream& words) {
  const std::string text(std::istreambuf_iterator<char>(words), {});
  return text.substr(text.find('"') + 1, text.rfind('"') - text.find('"') - 1);
}

std::string join(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

// An exported table as it is now.
struct Table {
  std::span<char> bytes;
  std::size_t row_size;

  std::string text() const { return {bytes.begin(), bytes.end()}; }
};

std::map<std::string, Table> exported_tables() {
  std::map<std::string, Table> tables;
  std::ifstream file(TEST_SOURCE_DIR "/tests/data/tables.txt");
  std::size_t rows = 0, row_size = 0;
  for (std::string name, checksum; file >> name >> rows >> row_size >> checksum;) {
    tables[name] = {{static_cast<char*>(dlsym(RTLD_DEFAULT, name.c_str())), rows * row_size}, row_size};
  }
  return tables;
}

// The fields of the settings that differ, "saturation=3"; bytes without a name "b600=171".
std::string changes(std::span<const char> before, std::span<const char> after) {
  std::string text;
  for (std::size_t at = 0; at < std::min(before.size(), after.size());) {
    std::string name = "b" + std::to_string(at);
    std::size_t width = 1;
    for (const tools::Field& field : tools::stored_fields()) {
      if (field.offset != at) continue;
      name = field.name;
      width = field.width;
    }
    std::int32_t value = 0;
    std::memcpy(&value, &after[at], width);
    if (!std::equal(&before[at], &before[at] + width, &after[at])) text += " " + name + "=" + std::to_string(value);
    at += width;
  }
  return text;
}

class CasesTest : public CameraTest, public ::testing::WithParamInterface<Case> {
 protected:
  // Tables outlive a test: they go back to what the library was loaded with.
  ~CasesTest() override {
    for (const auto& [name, table] : tables_) {
      if (loaded_.at(name) != table.text()) std::ranges::copy(loaded_.at(name), table.bytes.begin());
    }
  }
  void play(const Step& step);

 private:
  using Words = std::istringstream;

  camera::DspCommand& dsp();
  std::map<std::string, std::string> table_texts() const;
  std::string with_table_rows(const std::string& line) const;

  int settings(Words& words);
  int registers(Words& words);
  int reads(Words& words);
  int gains(Words& words);
  int fault(Words& words);
  int control_camera(Words& words);
  int raw_command(Words& words);
  int set(Words& words);
  int with_values(const std::function<int(unsigned char*)>& call);
  int with_table(const std::function<int(camera::param_info*)>& call);

  const std::map<std::string, std::function<int(Words&)>> verbs_ = {
      // --- What there is ---
      {"settings", [this](Words& words) { return settings(words); }},
      {"registers", [this](Words& words) { return registers(words); }},
      {"reads", [this](Words& words) { return reads(words); }},
      {"gains", [this](Words& words) { return gains(words); }},
      {"file",
       [this](Words& words) {
         std::string path;
         words >> path;
         return write_file(path, bytes_of(words)), 0;
       }},
      {"remove",
       [](Words& words) {
         std::string path;
         words >> path;
         return std::filesystem::remove(path) ? 0 : -1;
       }},
      // --- What fails ---
      {"fault", [this](Words& words) { return fault(words); }},
      {"fail",
       [](Words& words) {
         std::string name;
         int nth = 0, result = -1;
         words >> name >> nth >> result;
         return fail_next(name, EIO, nth, words ? result : -1), 0;
       }},
      {"camera", [this](Words& words) { return control_camera(words); }},
      // --- The control thread ---
      {"start", [this](Words&) { return start_control_thread(); }},
      {"stop", [this](Words&) { return stop_control_thread(), 0; }},
      {"request",
       [this](Words& words) {
         int code = 0, value = 0;
         words >> code >> value;
         return request(code, value);
       }},
      {"inquire",
       [this](Words& words) {
         int code = 0;
         words >> code;
         return inquire(code);
       }},
      {"raw", [this](Words& words) { return raw_command(words); }},
      // --- A DspCommand of the test's own ---
      {"detach", [this](Words&) { return dsp_.reset(), 0; }},
      {"set", [this](Words& words) { return set(words); }},
      {"text",
       [this](Words& words) {
         std::string text = text_of(words);
         return with_values([&](auto* values) { return dsp().do_debug(text.data(), reinterpret_cast<char*>(values)); });
       }},
      {"table", [this](Words&) { return with_table([this](auto* rows) { return dsp().execute_abs_cmd(rows, 2); }); }},
      {"table-as-text",
       [this](Words& words) {
         int option = 0;
         words >> option;
         return with_values([&](auto* values) {
           return with_table([&](auto* rows) { return dsp().do_debug(rows, values, option, 2); });
         });
       }},
      {"block",
       [this](Words& words) {
         std::vector<camera::param_info> table(200, {.category = 91, .byte = 0x106});
         for (std::size_t i = 0; i < table.size(); ++i) table[i].data = static_cast<std::uint8_t>(i + 1);
         int rows = 0;
         words >> rows;
         return dsp().execute_gamma_cmd(table.data(), rows);
       }},
      {"all-to-sdram", [this](Words&) { return dsp().execute_alltosdram(); }},
      // --- Workers, on this thread ---
      {"measure",
       [this](Words&) {
         onepush_ = std::make_unique<camera::OnepushWB>(&dsp());
         return onepush_->start_thread();
       }},
      {"measure-again", [this](Words&) { return onepush_->start_thread(); }},
      {"evr", [this](Words&) { return camera::EVRControl(0x37, &dsp()).start_thread(); }},
      {"sensor-mode", [this](Words&) { return camera::EVRControl(0x37, &dsp()).getCPUMode(); }},
  };

  const std::map<std::string, Table> tables_ = exported_tables();
  const std::map<std::string, std::string> loaded_ = table_texts();
  std::unique_ptr<camera::DspCommand> dsp_;
  std::unique_ptr<camera::OnepushWB> onepush_;
  Lines notes_;  // what the action alone can tell
};

camera::DspCommand& CasesTest::dsp() {
  if (dsp_ == nullptr) dsp_ = std::make_unique<camera::DspCommand>();
  return *dsp_;
}

std::map<std::string, std::string> CasesTest::table_texts() const {
  std::map<std::string, std::string> texts;
  for (const auto& [name, table] : tables_) texts[name] = table.text();
  return texts;
}

// "w g_ae_slow[12:24]=agc_slow_max_gain_tbl[3]": the registers of a parameter table, or of some of its rows, and the
// values from one row of a value table after the other; of a block from one column. Anything else is left as it is.
std::string CasesTest::with_table_rows(const std::string& line) const {
  static const std::regex kExchange(R"(([rwb]) (g_\w+)(?:\[(\d+):(\d+)\])?(?:=(\S*))?(.*))");
  static const std::regex kRow(R"((\w+)\[(\d+)\])");
  std::smatch found;
  if (!std::regex_match(line, found, kExchange)) return line;
  const bool is_block = found[1] == "b";
  const Table& table = tables_.at(found[2]);
  const std::size_t begin = found[3].matched ? std::stoul(found[3]) : 0;
  const std::size_t end = found[4].matched ? std::stoul(found[4]) : table.bytes.size() / table.row_size;
  const std::string rows = found[5];
  const std::size_t width = (end - begin) / static_cast<std::size_t>(1 + std::ranges::count(rows, '+'));
  std::string bytes;
  for (std::sregex_iterator row(rows.begin(), rows.end(), kRow), none; row != none; ++row) {
    const Table& values = tables_.at((*row)[1]);
    const std::size_t index = std::stoul((*row)[2]);
    if (!is_block) bytes += values.text().substr(index * values.row_size, width);
    for (std::size_t i = index; is_block && i < values.bytes.size(); i += values.row_size) bytes += values.bytes[i];
  }
  std::string text = found[1];
  for (std::size_t i = begin; i < end; ++i) {
    const auto& row = reinterpret_cast<const camera::param_info*>(table.bytes.data())[i];
    char address[32], value[16];
    std::snprintf(address, sizeof address, " %d/0x%02x", row.category, static_cast<unsigned>(row.byte));
    if (!is_block || i == begin) text += address;
    if (found[1] == "r") continue;
    std::snprintf(value, sizeof value, is_block && i > begin ? " 0x%02x" : "=0x%02x", bytes.at(i - begin) & 0xff);
    text += value;
  }
  return text + found[6].str();
}

int CasesTest::settings(Words& words) {
  SettingsBytes settings;
  for (std::string word; words >> word;) {
    const std::size_t sign = word.find('=');
    const tools::Field* const field = tools::find_field(word.substr(0, sign));
    const std::size_t offset = field != nullptr ? field->offset : std::stoul(word.substr(1));
    const std::int32_t value = std::stoi(word.substr(sign + 1));
    std::memcpy(&settings.bytes.at(offset), &value, field != nullptr ? field->width : 1);
  }
  write_settings(settings);
  return 0;
}

int CasesTest::registers(Words& words) {
  unsigned category = 0, byte = 0, value = 0;
  for (std::string word; words >> word;) {
    if (std::sscanf(word.c_str(), "%u/%x=%x", &category, &byte, &value) != 3) return -1;
    camera.set_reg(category, byte, value);
  }
  return 0;
}

int CasesTest::reads(Words& words) {
  std::string name;
  words >> name;
  unsigned category = 0, byte = 0;
  if (std::sscanf(name.c_str(), "%u/%x", &category, &byte) != 2) return -1;
  const std::string script = bytes_of(words);
  camera.script(category, byte, {script.begin(), script.end()});
  return 0;
}

// "red 3650 3730 blue 2029": what successive polls of a measurement read; the last one stays. "6651..9000" moves in
// steps that are just too large to settle.
int CasesTest::gains(Words& words) {
  constexpr int kStep = 81;
  std::uint32_t byte = 0;
  std::vector<std::uint8_t> low, high;
  for (std::string word; words >> word;) {
    if (word == "red" || word == "blue") {
      byte = word == "red" ? 140 : 142;
      low.clear();
      high.clear();
      continue;
    }
    const int last = std::stoi(word.substr(word.rfind('.') + 1));
    for (int gain = std::stoi(word); gain <= last; gain += kStep) {
      low.push_back(static_cast<std::uint8_t>(gain & 0xff));
      high.push_back(static_cast<std::uint8_t>(gain >> 8));
    }
    camera.script(14, byte, low);
    camera.script(14, byte + 1, high);
  }
  return 0;
}

int CasesTest::fault(Words& words) {
  std::string name;
  words >> name;
  const auto fault = static_cast<std::uint32_t>(std::ranges::find(sim::kFaultNames, name) - sim::kFaultNames.begin());
  if (fault == sim::kFaultNames.size()) return -1;
  sim::FaultPlan plan;
  while (words >> name) words >> (name == "exchange" ? plan.exchange : name == "count" ? plan.count : plan.entry);
  camera.fault(sim::Fault{fault}, plan);
  return 0;
}

int CasesTest::control_camera(Words& words) {
  std::string what;
  words >> what;
  what == "stop" ? camera.stop() : what == "start" ? camera.start() : camera.restart();
  return 0;
}

int CasesTest::raw_command(Words& words) {
  camera::s_ccdlsi_dbg record{};
  text_of(words).copy(record.cmd, sizeof record.cmd);
  const int result = camera::cam_ccd_debug(&record);
  if (record.reply_len > 0) notes_.push_back(hex("found", std::string(record.reply, record.reply_len)));
  return result == 0 ? record.result : kNotServed;
}

int CasesTest::set(Words& words) {
  std::string name, arguments;
  words >> name >> std::ws;
  std::getline(words, arguments);
  const auto tables = table_texts();
  const int result = kSetters.at(name)(dsp(), arguments);
  // One that is refused; one that cannot be sent has filled its table.
  const bool is_refused = result != 0 && camera.traffic().empty();
  EXPECT_TRUE(!is_refused || table_texts() == tables) << "changed by a refusal";
  return result;
}

// A call with room for values read, and what it has put there.
int CasesTest::with_values(const std::function<int(unsigned char*)>& call) {
  unsigned char values[40];
  std::ranges::fill(values, kUntouched);
  const int result = call(values);
  const std::string found(values, std::ranges::find(values, kUntouched));
  if (!found.empty()) notes_.insert(notes_.begin(), hex("found", found));
  return result;
}

// A call with the table {12/0x00 mask 0x0f data 0x03, 12/0x03 mask 0xff data 0x77}, and its data afterwards.
int CasesTest::with_table(const std::function<int(camera::param_info*)>& call) {
  camera::param_info table[] = {{.category = 12, .byte = 0, .mask = 0x0f, .data = 0x03},
                                {.category = 12, .byte = 3, .mask = 0xff, .data = 0x77}};
  const int result = call(table);
  notes_.push_back(hex("data", {static_cast<char>(table[0].data), static_cast<char>(table[1].data)}));
  return result;
}

void CasesTest::play(const Step& step) {
  Words words(step.action);
  std::string verb;
  words >> verb;
  const auto record = [] {
    std::ifstream file("/tmp/config/all.conf", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  };
  const auto snapshot = [] {
    const auto& now = camera::ControlThread::instance().snapshot();
    return std::string(reinterpret_cast<const char*>(&now), sizeof now);
  };
  const std::string record_before = record(), snapshot_before = snapshot();
  notes_.clear();
  int result = 0;
  Lines seen = Timeline(camera, devices, *clock).of([&] { result = verbs_.at(verb)(words); });
  seen.insert(seen.end(), notes_.begin(), notes_.end());
  if (verb != "settings") {
    if (const std::string text = changes(record_before, record()); !text.empty()) seen.push_back("record" + text);
  }
  if (const std::string text = changes(snapshot_before, snapshot()); !text.empty()) seen.push_back("snapshot" + text);
  if (camera.pid() != 0 && !camera.record_is_clean()) seen.emplace_back("exchange left behind");
  if (result != 0) seen.push_back("-> " + (result == kNotServed ? "not served" : std::to_string(result)));

  if (!step.only.empty()) {
    std::erase_if(seen, [&](const std::string& line) {
      return !Timeline::breaks_rule(line) &&
             std::ranges::none_of(step.only, [&](const std::string& word) { return line.find(word) != line.npos; });
    });
  }
  Lines expected;
  for (const std::string& line : step.expected) expected.push_back(with_table_rows(line));
  EXPECT_EQ(join(expected), join(seen));
  EXPECT_TRUE(step.expected.empty() || failures_left() == 0) << "a failure has not happened";
}

INSTANTIATE_TEST_SUITE_P(Data, CasesTest, ::testing::ValuesIn(read_cases()),
                         [](const auto& test) { return test.param.name; });

TEST_P(CasesTest, HappenAsWritten) {
  for (const Step& step : GetParam().steps) {
    SCOPED_TRACE("line " + std::to_string(step.line_number) + ": " + step.action);
    play(step);
  }
}

}  // namespace
}  // namespace ipcam::test
