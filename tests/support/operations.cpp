// Every operation of the library with typical arguments, and what must be the same after it.
#include "tests/support/operations.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>

#include "workers/onepush_wb.h"

namespace ipcam::test {
namespace {

const char* text_of(const char* variable, const char* otherwise) {
  const char* text = std::getenv(variable);
  return text != nullptr ? text : otherwise;
}

std::ptrdiff_t entries(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory),
                       std::filesystem::directory_iterator());
}

std::vector<camera::param_info> table(int rows) {
  std::vector<camera::param_info> all;
  for (int i = 0; i < rows; ++i)
    all.push_back({.category = 12, .byte = 300 + i, .mask = 0x0f, .data = 0x55});
  return all;
}

}  // namespace

std::vector<int> Request::values() const {
  std::vector<int> all = accepted;
  for (const auto& more : {depending, refused}) all.insert(all.end(), more.begin(), more.end());
  return all;
}

bool Request::may_answer(int value, int result) const {
  const auto has = [value](const std::vector<int>& values) {
    return std::ranges::count(values, value) != 0;
  };
  return has(depending) ? result == 0 || result == -1 : result == (has(refused) ? -1 : 0);
}

bool whole_proof() { return std::strcmp(text_of("CAMERA_PROOF", ""), "whole") == 0; }

int figure(const char* variable, int otherwise) {
  return std::atoi(text_of(variable, std::to_string(otherwise).c_str()));
}

std::uint32_t proof_seed() {
  static const auto kSeed =
      static_cast<std::uint32_t>(figure("CAMERA_SEED", static_cast<int>(std::random_device{}())));
  return kSeed;
}

Leftovers Leftovers::now() {
  std::ifstream maps("/proc/self/maps");
  std::ptrdiff_t attachments = 0;
  for (std::string line; std::getline(maps, line);)
    attachments += line.find("/SYSV") != std::string::npos;
  return {entries("/proc/self/fd"), entries("/proc/self/task"), attachments};
}

bool Leftovers::exceed(const Leftovers& before) const {
  // Requests may leave the camera's day/night and focus-assist workers running, each on one thread.
  return descriptors != before.descriptors || attachments != before.attachments ||
         threads > before.threads + 2;
}

std::ostream& operator<<(std::ostream& stream, const Leftovers& leftovers) {
  return stream << leftovers.descriptors << " descriptors, " << leftovers.threads << " threads, "
                << leftovers.attachments << " attachments";
}

FaultTest::FaultTest(char evr_data4) {
  // Colour, automatic shutter and binning, highest gain.
  write_settings(
      SettingsBytes{}.i32(16, 4).i32(68, 1).i32(140, 1).u8(145, 1).i32(152, 6).i32(780, 4));
  std::string adjustment(48, '\x05');
  adjustment[0] = 1;
  adjustment[1] = 0;
  adjustment[2] = evr_data4;
  write_file("/var/tmp/AdjCamera.txt", adjustment);
  for (const char* file : {"HalfPixels", "AllPixels"}) {
    write_file(std::string("/var/tmp/AdjWb") + file + ".txt", adjustment.substr(0, 12));
  }
}

std::vector<Operation> FaultTest::request_operations(bool every_value) {
  std::vector<Operation> all;
  for (const Request& row : kRequests) {
    std::vector<int> values = row.values();
    if (!every_value) values = {values[(row.accepted.size() + row.depending.size()) / 2]};
    for (const int code : row.codes) {
      for (const int value : values) {
        all.push_back({"request " + std::to_string(code) + " with " + std::to_string(value),
                       [this, code, value] { return request(code, value); },
                       Operation::kHidesFailures});
      }
    }
  }
  const auto colour = [this] {
    return request(31, 3) + request(31, 2);
  };  // the same colour again does nothing
  all.push_back({"monochrome and colour", colour, Operation::kHidesFailures});
  const auto inquiry = [] {
    const std::unique_ptr<camera::CameraInterface> interface(
        camera::create_camera_IF(nullptr, nullptr));
    char reply[256];
    int length = 0;
    return interface == nullptr
               ? 0
               : interface->sif_inquiry("w,12,0,0xff,1;12,1,1,1", 22, reply, &length);
  };
  all.push_back({"sif_inquiry", inquiry, Operation::kHidesFailures});
  return all;
}

std::vector<Operation> FaultTest::direct_operations() {
  const auto text = [](camera::DspCommand& link, const char* command) {
    char copy[64] = {};
    char result[16];
    std::strncpy(copy, command, sizeof copy - 1);
    return link.do_debug(copy, result);
  };
  const auto new_object = [text] {
    camera::DspCommand link;
    return text(link, "r,12,0");
  };
  const auto measure = [this] {
    camera::OnepushWB worker(&dsp);
    return worker.start_thread();
  };
  using enum Operation::Result;
  return {
      {"do_debug read", [this, text] { return text(dsp, "r,12,0;12,1;12,2"); }, kTellsFailures},
      {"do_debug write", [this, text] { return text(dsp, "w,12,0,0xff,1;12,1,0xff,2"); },
       kTellsFailures},
      {"execute_abs_cmd",
       [this, rows = table(12)]() mutable { return dsp.execute_abs_cmd(rows.data(), 12); },
       kTellsFailures},
      {"execute_gamma_cmd",
       [this, rows = table(16)]() mutable { return dsp.execute_gamma_cmd(rows.data(), 16); },
       kTellsFailures},
      {"execute_alltosdram", [this] { return dsp.execute_alltosdram(); }, kTellsFailures},
      {"do_flash load", [this] { return dsp.do_flash(0); }, kTellsFailures},
      {"do_flash store", [this] { return dsp.do_flash(1); }, kTellsFailures},
      {"a DspCommand of its own", new_object, kTellsFailures},
      {"one-push run", measure, kEither},
  };
}

std::vector<Operation> FaultTest::all_operations(bool every_value) {
  std::vector<Operation> all = request_operations(every_value);
  for (const Operation& operation : direct_operations()) all.push_back(operation);
  return all;
}

void FaultTest::expect_working_link() {
  // First a raw command, whose reply tells what a handler would hide.
  camera::s_ccdlsi_dbg raw{};
  std::strcpy(raw.cmd, "r,12,0;12,1");
  EXPECT_EQ(camera::cam_ccd_debug(&raw), 0);
  EXPECT_EQ(raw.reply_len, 2);
  EXPECT_EQ(request(39, 3), 0);
}

}  // namespace ipcam::test
