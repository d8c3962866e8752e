// Plays the cases of tests/data/*.cases; tests/README.md explains their notation.
#include "tests/support/cases.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <span>
#include <sstream>

#include "camera/control_thread.h"
#include "tests/support/arguments.h"
#include "tests/support/timeline.h"
#include "tools/settings_table.h"
#include "workers/evr_control.h"
#include "workers/onepush_wb.h"

namespace ipcam::test {
namespace {

using camera::DspCommand;
using Words = std::vector<std::string>;

#define SETTER(name) \
  { #name, reading(&DspCommand::do_##name) }
// clang-format off
const std::map<std::string, std::function<int(DspCommand&, std::istream&)>> kSetters = {
    SETTER(saturation), SETTER(contrast), SETTER(sharpness), SETTER(brightness), SETTER(hue),
    SETTER(colorbar), SETTER(effect), SETTER(gamma), SETTER(ygamma), SETTER(cgamma), SETTER(rgain),
    SETTER(bgain), SETTER(whitebalance), SETTER(rbgain_preset1), SETTER(blcomp), SETTER(expcomp),
    SETTER(aereference), SETTER(expmode), SETTER(shutter_gain), SETTER(max_frm_exp),
    SETTER(shutter), SETTER(gain), SETTER(flickerless), SETTER(autoexposure),
    SETTER(autoslowshutter), SETTER(agc), SETTER(agc_max_gain), SETTER(miris_mode),
    SETTER(iris_modifier), SETTER(binning), SETTER(sensormode), SETTER(dnmode), SETTER(dnlevel)};
// clang-format on
#undef SETTER

std::string in_hex(const std::string& head, const std::string& bytes) {
  std::string text = head;
  for (const char byte : bytes) {
    char word[8];
    std::snprintf(word, sizeof word, " 0x%02x", byte & 0xff);
    text += word;
  }
  return text;
}

std::string join(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

// An exported table as it is now.
struct Table {
  std::span<char> bytes;
  std::size_t row_size = 0;

  std::string text() const { return {bytes.begin(), bytes.end()}; }
};

std::map<std::string, Table> exported_tables() {
  std::map<std::string, Table> tables;
  std::ifstream file(TEST_SOURCE_DIR "/tests/data/tables.txt");
  std::size_t rows = 0, row_size = 0;
  for (std::string name, checksum; file >> name >> rows >> row_size >> checksum;) {
    tables[name] = {{static_cast<char*>(dlsym(RTLD_DEFAULT, name.c_str())), rows * row_size},
                    row_size};
  }
  return tables;
}

std::int32_t value_of(const tools::Field& field, const std::string& record) {
  std::int32_t value = 0;
  record.copy(reinterpret_cast<char*>(&value), field.width, field.offset);
  return value;
}

// The fields that differ in two records of the same size, " saturation=3".
std::string changed_fields(std::string before, const std::string& after) {
  std::string text;
  if (before.size() != after.size()) return text;
  for (const tools::Field& field : tools::stored_fields()) {
    if (field.offset >= after.size() || value_of(field, before) == value_of(field, after)) continue;
    text += " " + std::string(field.name) + "=" + std::to_string(value_of(field, after));
    before.replace(field.offset, field.width, after, field.offset, field.width);
  }
  return before == after ? text : text + " and bytes without a name";
}

class CasesTest : public CameraTest, public ::testing::WithParamInterface<Case> {
 protected:
  // Tables outlive a test: they go back to what the library was loaded with.
  ~CasesTest() override {
    for (const auto& [name, table] : tables_) {
      if (loaded_.at(name) != table.text())
        std::ranges::copy(loaded_.at(name), table.bytes.begin());
    }
  }

  void play(const Step& step);

 private:
  DspCommand& dsp() {
    if (dsp_ == nullptr) dsp_ = std::make_unique<DspCommand>();
    return *dsp_;
  }
  std::map<std::string, std::string> table_texts() const;
  std::string with_table_rows(const std::string& line) const;
  int store(const Words& fields);
  int plan_fault(const std::string& name, const Words& words);
  int raw_command(const std::string& text);
  int set(std::istream& words);
  int with_values(const std::function<int(char*)>& call);
  int with_table(const std::function<int(camera::param_info*)>& call);

  const std::map<std::string, std::function<int(std::istream&)>> actions_ = {
      // What there is, and what fails.
      {"settings", reading([this](const Words& fields) { return store(fields); })},
      {"registers", reading([this](const std::vector<Register>& all) {
         for (const Register& one : all) camera.set_reg(one.category, one.byte, one.value);
         return 0;
       })},
      {"reads", reading([this](Register one, const Bytes& bytes) {
         return camera.script(one.category, one.byte, {bytes.all.begin(), bytes.all.end()}), 0;
       })},
      {"file", reading([this](const std::string& path, const Bytes& bytes) {
         return write_file(path, bytes.all), 0;
       })},
      {"remove",
       reading([](const std::string& path) { return std::filesystem::remove(path) ? 0 : -1; })},
      {"fault", reading([this](const std::string& name, const Words& words) {
         return plan_fault(name, words);
       })},
      {"fail", reading([](const std::string& name, int nth, const std::vector<int>& result) {
         return fail_next(name, EIO, nth, result.empty() ? -1 : result[0]), 0;
       })},
      {"camera", reading([this](const std::string& what) {
         what == "stop" ? camera.stop() : what == "start" ? camera.start() : camera.restart();
         return 0;
       })},
      // The control thread.
      {"start", reading([this] { return start_control_thread(); })},
      {"stop", reading([this] { return stop_control_thread(), 0; })},
      {"request", reading([this](int code, int value) { return request(code, value); })},
      {"init-camera", reading([] { return camera::InitCamera() ? 1 : 0; })},
      {"inquire", reading([this](int code) { return inquire(code); })},
      {"raw", reading([this](const Quoted& command) { return raw_command(*command.text); })},
      // A DspCommand of the test's own.
      {"detach", reading([this] { return dsp_.reset(), 0; })},
      {"set", [this](std::istream& words) { return set(words); }},
      {"text", reading([this](Quoted command) {
         return with_values(
             [&](char* values) { return dsp().do_debug(command.text->data(), values); });
       })},
      {"table", reading([this] {
         return with_table([this](auto* rows) { return dsp().execute_abs_cmd(rows, 2); });
       })},
      {"table-as-text", reading([this](int option) {
         return with_values([&](char* values) {
           auto* const bytes = reinterpret_cast<unsigned char*>(values);
           return with_table([&](auto* rows) { return dsp().do_debug(rows, bytes, option, 2); });
         });
       })},
      {"block", reading([this](int n) {
         std::vector<camera::param_info> rows(200, {.category = 91, .byte = 0x106});
         for (std::size_t i = 0; i < rows.size(); ++i)
           rows[i].data = static_cast<std::uint8_t>(i + 1);
         return dsp().execute_gamma_cmd(rows.data(), n);
       })},
      {"fetch-unattached", reading([] {
         fail_next("ftok", EIO);
         DspCommand link;
         camera::packet_info packet{};
         camera::g_signal_flg = 1;
         return link.get_from_comm(&packet);
       })},
      {"all-to-sdram", reading([this] { return dsp().execute_alltosdram(); })},
      // Workers, on this thread.
      {"measure", reading([this] {
         onepush_ = std::make_unique<camera::OnepushWB>(&dsp());
         return onepush_->start_thread();
       })},
      {"measure-again", reading([this] { return onepush_->start_thread(); })},
      {"evr", reading([this] { return camera::EVRControl(0x37, &dsp()).start_thread(); })},
      {"sensor-mode", reading([this] { return camera::EVRControl(0x37, &dsp()).getCPUMode(); })},
  };

  const std::map<std::string, Table> tables_ = exported_tables();
  const std::map<std::string, std::string> loaded_ = table_texts();
  std::unique_ptr<DspCommand> dsp_;
  std::unique_ptr<camera::OnepushWB> onepush_;
  Lines notes_;  // what the action alone can tell
};

std::map<std::string, std::string> CasesTest::table_texts() const {
  std::map<std::string, std::string> texts;
  for (const auto& [name, table] : tables_) texts[name] = table.text();
  return texts;
}

// "w g_ae_slow[12:24]=agc_slow_max_gain_tbl[3]": the registers of a parameter table, or of some of
// its rows, and the values from one row of a value table after the other; of a block from one
// column. Anything else is left as it is.
std::string CasesTest::with_table_rows(const std::string& line) const {
  if (line.find(" g_") != 1) return line;
  const bool is_block = line[0] == 'b';
  const std::size_t fault = std::min(line.find(" !"), line.size());
  std::string text = line.substr(2, fault - 2);
  const auto value_rows = static_cast<std::size_t>(1 + std::ranges::count(text, '+'));
  const bool has_range = text.find(':') != text.npos;
  std::ranges::replace_if(
      text, [](char c) { return std::string("[:]=+").find(c) != std::string::npos; }, ' ');
  std::istringstream words(text);
  std::string name;
  words >> name;
  const Table& table = tables_.at(name);
  std::size_t begin = 0, end = table.bytes.size() / table.row_size, index = 0;
  if (has_range) words >> begin >> end;
  std::string bytes;
  while (words >> name >> index) {
    const Table& values = tables_.at(name);
    if (!is_block)
      bytes += values.text().substr(index * values.row_size, (end - begin) / value_rows);
    for (std::size_t i = index; is_block && i < values.bytes.size(); i += values.row_size)
      bytes += values.bytes[i];
  }
  text = line.substr(0, 1);
  for (std::size_t i = begin; i < end; ++i) {
    const auto& row = reinterpret_cast<const camera::param_info*>(table.bytes.data())[i];
    char address[32], value[16];
    std::snprintf(address, sizeof address, " %d/0x%02x", row.category,
                  static_cast<unsigned>(row.byte));
    if (!is_block || i == begin) text += address;
    if (line[0] == 'r') continue;
    std::snprintf(value, sizeof value, is_block && i > begin ? " 0x%02x" : "=0x%02x",
                  bytes.at(i - begin) & 0xff);
    text += value;
  }
  return text + line.substr(fault);
}

int CasesTest::store(const Words& fields) {
  SettingsBytes settings;
  for (const std::string& text : fields) {
    const std::size_t sign = text.find('=');
    const tools::Field* const field = tools::find_field(text.substr(0, sign));
    const std::size_t offset = field != nullptr ? field->offset : std::stoul(text.substr(1));
    const std::int32_t value = std::stoi(text.substr(sign + 1));
    std::memcpy(&settings.bytes.at(offset), &value, field != nullptr ? field->width : 1);
  }
  return write_settings(settings), 0;
}

int CasesTest::plan_fault(const std::string& name, const Words& words) {
  const auto* const fault = std::ranges::find(sim::kFaultNames, name);
  if (fault == sim::kFaultNames.end()) return -1;
  sim::FaultPlan plan;
  for (std::size_t i = 0; i + 1 < words.size(); i += 2) {
    auto& field = words[i] == "exchange" ? plan.exchange
                  : words[i] == "count"  ? plan.count
                                         : plan.entry;
    field = static_cast<std::uint32_t>(std::stoul(words[i + 1]));
  }
  return camera.fault(sim::Fault{static_cast<std::uint32_t>(fault - sim::kFaultNames.begin())},
                      plan),
         0;
}

int CasesTest::raw_command(const std::string& text) {
  camera::s_ccdlsi_dbg record{};
  text.copy(record.cmd, sizeof record.cmd);
  if (camera::cam_ccd_debug(&record) != 0) return kNotServed;
  if (record.reply_len > 0)
    notes_.push_back(in_hex("found", {record.reply, static_cast<std::size_t>(record.reply_len)}));
  return record.result;
}

int CasesTest::set(std::istream& words) {
  std::string name;
  words >> name;
  const auto tables = table_texts();
  const int result = kSetters.at(name)(dsp(), words);
  // One that is refused; one that cannot be sent has filled its table.
  const bool is_refused = result != 0 && camera.traffic().empty();
  EXPECT_TRUE(!is_refused || table_texts() == tables) << "changed by a refusal";
  return result;
}

// A call with room for values read, and what it has put there.
int CasesTest::with_values(const std::function<int(char*)>& call) {
  constexpr char kUntouched = '\xee';
  std::string values(40, kUntouched);
  const int result = call(values.data());
  values.resize(values.find(kUntouched));
  if (!values.empty()) notes_.insert(notes_.begin(), in_hex("found", values));
  return result;
}

// A call with the table {12/0x00 mask 0x0f data 0x03, 12/0x03 mask 0xff
// data 0x77}, and its data afterwards.
int CasesTest::with_table(const std::function<int(camera::param_info*)>& call) {
  camera::param_info table[] = {{.category = 12, .byte = 0, .mask = 0x0f, .data = 0x03},
                                {.category = 12, .byte = 3, .mask = 0xff, .data = 0x77}};
  const int result = call(table);
  notes_.push_back(
      in_hex("data", {static_cast<char>(table[0].data), static_cast<char>(table[1].data)}));
  return result;
}

void CasesTest::play(const Step& step) {
  std::istringstream words(step.action);
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
  Lines actual = Timeline(camera, devices, *clock).of([&] { result = actions_.at(verb)(words); });
  actual.insert(actual.end(), notes_.begin(), notes_.end());
  const std::string in_record = changed_fields(record_before, record());
  if (!in_record.empty() && verb != "settings") actual.push_back("record" + in_record);
  const std::string in_snapshot = changed_fields(snapshot_before, snapshot());
  if (!in_snapshot.empty()) actual.push_back("snapshot" + in_snapshot);
  if (camera.is_started() && !camera.record_is_clean()) actual.emplace_back("exchange left behind");
  if (result != 0)
    actual.push_back("-> " + (result == kNotServed ? "not served" : std::to_string(result)));

  std::erase_if(actual, [&](const std::string& line) {
    const auto has = [&](const std::string& word) { return line.find(word) != line.npos; };
    return !step.only.empty() && !Timeline::breaks_rule(line) &&
           std::ranges::none_of(step.only, has);
  });
  Lines expected;
  for (const std::string& line : step.expected) expected.push_back(with_table_rows(line));
  EXPECT_EQ(join(expected), join(actual));
  EXPECT_TRUE(expected.empty() || failures_left() == 0) << "a failure has not happened";
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
