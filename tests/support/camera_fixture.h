// Fixture of the tests that drive the library over the real link against a simulated camera.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ipcam/camera/camera_interface.h"
#include "ipcam/camera/camera_request.h"
#include "ipcam/comm/port_inf.h"
#include "ipcam/platform/journal.h"
#include "sim/devices.h"
#include "sim/simulated_camera.h"
#include "tests/support/output.h"
#include "tests/support/stand_ins.h"

namespace ipcam::test {

using Lines = std::vector<std::string>;

// The stored settings record as bytes, all zero to begin with.
struct SettingsBytes {
  std::array<std::uint8_t, 880> bytes{};

  template <class Value>
  SettingsBytes& put(std::size_t offset, Value value) {
    std::memcpy(&bytes.at(offset), &value, sizeof(value));
    return *this;
  }
  SettingsBytes& i32(std::size_t offset, std::int32_t value) { return put(offset, value); }
  SettingsBytes& u8(std::size_t offset, std::uint8_t value) { return put(offset, value); }
  std::uint16_t u16(std::size_t offset) const;
};

// Each test begins with a running camera, a fake clock, devices, and
// neither settings nor adjustment files.
class CameraTest : public ::testing::Test {
 protected:
  CameraTest();
  ~CameraTest() override;

  void write_settings(const SettingsBytes& settings = {});
  SettingsBytes read_settings() const;
  void write_file(const std::string& path, std::string_view bytes);

  // Starts the control thread and waits until it serves requests.
  // Returns what new_camera_ctrl() returned.
  int start_control_thread();
  // Does nothing when it does not run. Also called at the end of the test.
  void stop_control_thread();

  static constexpr int kNotServed = -1000;
  // One request to the control thread: its result, or kNotServed.
  int request(int code, int value = 0);
  // One query: its answer, or kNotServed.
  int inquire(int code);

  sim::SimulatedCamera camera;
  std::optional<FakeClock> clock;
  sim::Devices devices;
};

}  // namespace ipcam::test
