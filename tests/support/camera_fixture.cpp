// Fixture of the tests that drive the library over the real link against a simulated camera.
#include "tests/support/camera_fixture.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace ipcam::test {
namespace {

namespace fs = std::filesystem;

// All of them below the program's own /tmp and /var/tmp.
const fs::path kConfigDirectory = "/tmp/config";
const fs::path kDeviceDirectory = "/tmp/devices";
const fs::path kSettingsFile = kConfigDirectory / "all.conf";

constexpr int kUnusedCode = 32;

}  // namespace

std::uint16_t SettingsBytes::u16(std::size_t offset) const {
  std::uint16_t value = 0;
  std::memcpy(&value, &bytes.at(offset), sizeof(value));
  return value;
}

CameraTest::CameraTest() : devices(kDeviceDirectory) {
  for (const fs::path& directory : {kConfigDirectory, kDeviceDirectory}) {
    fs::remove_all(directory);
    fs::create_directory(directory);
  }
  for (const char* file : {"AdjCamera.txt", "AdjWbHalfPixels.txt", "AdjWbAllPixels.txt"}) {
    fs::remove(fs::path("/var/tmp") / file);
  }
  setenv("IPCAM_CONFIG_DIR", kConfigDirectory.c_str(), 1);
  EXPECT_TRUE(devices.create());
  use_devices(&devices);
  platform::clear_journal();
  camera.start();
  clock.emplace(&camera.board());
}

CameraTest::~CameraTest() {
  clear_failures();
  stop_control_thread();
  use_devices(nullptr);
}

void CameraTest::write_settings(const SettingsBytes& settings) {
  write_file(kSettingsFile,
             {reinterpret_cast<const char*>(settings.bytes.data()), settings.bytes.size()});
}

SettingsBytes CameraTest::read_settings() const {
  SettingsBytes settings;
  std::ifstream file(kSettingsFile, std::ios::binary);
  file.read(reinterpret_cast<char*>(settings.bytes.data()),
            static_cast<std::streamsize>(settings.bytes.size()));
  EXPECT_TRUE(file) << kSettingsFile;
  return settings;
}

void CameraTest::write_file(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  EXPECT_TRUE(file) << path;
}

int CameraTest::start_control_thread() {
  static comm::s_port_inf port{};
  const int result = camera::new_camera_ctrl(&port);
  if (result == 0) request(kUnusedCode);
  return result;
}

void CameraTest::stop_control_thread() { camera::delete_camera_IF(nullptr); }

int CameraTest::request(int code, int value) {
  camera::s_cam_cgi_cmd command{};
  command.code = code;
  command.value = value;
  return camera::cam_cgi_command(&command) == 0 ? command.result : kNotServed;
}

int CameraTest::inquire(int code) {
  camera::s_cam_cgi_cmd command{};
  command.code = code;
  return camera::cam_cgi_command(&command) == 0 ? command.inq_value : kNotServed;
}

}  // namespace ipcam::test
