// A server program in small: raw registers, the IR-cut filter, a setting that is stored and
// requested, and requests from several threads at once.
#include <array>
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "ipcam/camera/camera_interface.h"
#include "ipcam/camera/camera_request.h"
#include "ipcam/camera/settings_record.h"
#include "ipcam/comm/port_inf.h"
#include "ipcam/config/config_file.h"

namespace {

using ipcam::camera::CameraInterface;

std::atomic<int> failures = 0;

// Prints one step and whether it went as expected.
void check(const std::string& step, bool as_expected) {
  std::printf("%s: %s\n", step.c_str(), as_expected ? "as expected" : "NOT AS EXPECTED");
  if (!as_expected) ++failures;
}

// Runs one register command text, and compares its reply bytes: the
// values read, for a write those before it.
void check_registers(CameraInterface& camera, const std::string& command,
                     const std::vector<int>& expected) {
  std::array<char, 32> reply{};
  int length = -1;
  const int result =
      camera.sif_inquiry(command.c_str(), static_cast<int>(command.size()), reply.data(), &length);

  std::string step = "registers \"" + command + "\" ->";
  std::vector<int> values;
  for (int i = 0; i < length; ++i) {
    values.push_back(static_cast<unsigned char>(reply.at(static_cast<std::size_t>(i))));
    step += ' ' + std::to_string(values.back());
  }
  check(step, result == 0 && values == expected);
}

void check_icr(CameraInterface& camera, int expected) {
  int state = 0;
  const int result = camera.GetICR(&state);
  check("IR-cut filter -> " + std::to_string(state), result == 0 && state == expected);
}

// The next start takes what is stored; the request shows it at once.
void change_saturation(CameraInterface& camera, int level) {
  using ipcam::camera::kSettingsKind;
  char name[] = "all.conf";
  ipcam::config::ConfigFile file(name);
  ipcam::camera::SettingsRecord record{};
  bool is_stored = file.read_record(&record, kSettingsKind) == 0;
  record.snapshot.saturation = level;
  is_stored = is_stored && file.write_record(&record, kSettingsKind) == 0;
  check("saturation " + std::to_string(level) + " is stored", is_stored);
  check("and requested", camera.Saturation(level) == 0);
}

// Each thread writes a register of its own and reads it back, so that a mixed-up reply would show.
void check_threads(CameraInterface& camera) {
  constexpr int kThreads = 4;
  std::vector<std::thread> callers;
  for (int i = 0; i < kThreads; ++i) {
    callers.emplace_back([&camera, i] {
      const std::string address = "200," + std::to_string(i);
      check_registers(camera, "w," + address + ",0xff," + std::to_string(10 + i), {0});
      check_registers(camera, "r," + address, {10 + i});
    });
  }
  for (std::thread& caller : callers) caller.join();
}

}  // namespace

int main() {
  // The library prints to both streams; line by line they stay in order when both go into one pipe.
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);

  ipcam::comm::s_port_inf port{};
  check("start", ipcam::camera::new_camera_ctrl(&port) == 0);
  CameraInterface* camera = ipcam::camera::create_camera_IF(nullptr, nullptr);

  check_registers(*camera, "w,200,9,0xff,0xa0", {0});
  check_registers(*camera, "w,200,9,0x0f,5", {0xa0});
  check_registers(*camera, "r,200,9", {0xa5});
  check_registers(*camera, "r,200", {});
  check_icr(*camera, 60);
  change_saturation(*camera, 5);
  check_registers(*camera, "r,10,9", {0xc0});
  check("saturation 7 is refused", camera->Saturation(7) == -1);
  check_threads(*camera);

  ipcam::camera::delete_camera_IF(camera);
  int state = 0;
  CameraInterface* after = ipcam::camera::create_camera_IF(nullptr, nullptr);
  check("no request after the end", after->GetICR(&state) == -1);
  ipcam::camera::delete_camera_IF(after);

  std::printf("%d steps not as expected\n", failures.load());
  return failures == 0 ? 0 : 1;
}
