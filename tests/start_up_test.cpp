// Start-up: what reaches the image processor from power-on to the first request, and what a failure leaves.
#include <filesystem>

#include "tests/support/story.h"

namespace ipcam::test {
namespace {

constexpr int kSaturation = 39, kUnused = 32, kNotServed = -1000;

const Lines kFixed = {"w 11/0x01=0x05", "w 2/0x03=0x01"};

// The camera adjustment file has the number of each byte as its data, but for a few.
const Lines kCameraFile = {
    "w 9/0x03=0x00 9/0x04=0x80 11/0x10=0x0c 11/0x11=0xff",
    "w 16/0x26=0x08 16/0x27=0x09 16/0x2a=0x0c 16/0x2b=0x0d 16/0x2e=0x10 16/0x2f=0x11 16/0x32=0x14 16/0x33=0x15",
    "w 16/0x28=0x0a 16/0x29=0x0b 16/0x2c=0x0e 16/0x2d=0x0f 16/0x30=0x12 16/0x31=0x13 16/0x34=0x16 16/0x35=0x17",
    "w 16/0x36=0x18 16/0x37=0x19 16/0x3a=0x1c 16/0x3b=0x1d 16/0x3e=0x20 16/0x3f=0x21 16/0x42=0x24 16/0x43=0x25",
    "w 16/0x38=0x1a 16/0x39=0x1b 16/0x3c=0x1e 16/0x3d=0x1f 16/0x40=0x22 16/0x41=0x23 16/0x44=0x26 16/0x45=0x27"};
const std::string kCameraLoaded =
    "Loaded CameraParam : w,9,3,0xff,0;9,4,0xff,128;11,16,0xff,12;11,17,0xff,255\n"
    "Loaded RYHUE : w,16,38,0xff,8;16,39,0xff,9;16,42,0xff,12;16,43,0xff,13;"
    "16,46,0xff,16;16,47,0xff,17;16,50,0xff,20;16,51,0xff,21\n"
    "Loaded BYHUE : w,16,40,0xff,10;16,41,0xff,11;16,44,0xff,14;16,45,0xff,15;"
    "16,48,0xff,18;16,49,0xff,19;16,52,0xff,22;16,53,0xff,23\n"
    "Loaded RYGAIN : w,16,54,0xff,24;16,55,0xff,25;16,58,0xff,28;16,59,0xff,29;"
    "16,62,0xff,32;16,63,0xff,33;16,66,0xff,36;16,67,0xff,37\n"
    "Loaded BYGAIN : w,16,56,0xff,26;16,57,0xff,27;16,60,0xff,30;16,61,0xff,31;"
    "16,64,0xff,34;16,65,0xff,35;16,68,0xff,38;16,69,0xff,39\n";
const Lines kWbFile = {"w 13/0x08=0x01 13/0x09=0x02 13/0x0a=0x03 13/0x0b=0x04 13/0x0c=0x05 13/0x0d=0xff"};
const std::string kWbLoaded =
    "Loaded WBParam : w,13,8,0xff,1;13,9,0xff,2;13,10,0xff,3;13,11,0xff,4;13,12,0xff,5;13,13,0xff,255\n";

std::string camera_file(char mark, char evr) {
  std::string bytes(40, '\0');
  for (std::size_t i = 8; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i);
  return bytes.replace(0, 6, {mark, 0, evr, '\x80', '\x0c', '\xff'});
}
const std::string kWbBytes("\1\0\1\2\3\4\5\xff", 8);

// A coloured picture with everything at a level of its own, and what it sends.
SettingsBytes coloured() {
  return SettingsBytes()
      .i32(16, 1)
      .i32(24, 4)
      .i32(48, 4)
      .i32(56, 9)
      .i32(68, 1)
      .i32(72, 5)
      .i32(112, 1)
      .u8(145, 1)
      .i32(140, 1)
      .i32(148, 2)
      .i32(152, 3)
      .i32(156, 2)
      .i32(536, 2)
      .u8(626, 1);
}
const Lines kColoured = {"w 10/0x0a=0x00",
                         "w 12/0x7c=0x11 12/0x7d=0x10 12/0x7e=0x11 12/0x7f=0x10 12/0x00=0x04",
                         "w 10/0x09=0xa0",
                         "w 16/0x06=0x02",
                         "w 11/0x03=0x00",
                         "w 11/0x0c=0x55 11/0x0d=0x0a",
                         "w 11/0x05=0x00 11/0x06=0x00",
                         "w 11/0x14=0x00 11/0x15=0x00 13/0x00=0x06 13/0x01=0x26 11/0x2c=0x00 11/0x2d=0x00 13/0x02=0x68 "
                         "13/0x03=0x20 11/0x1a=0xf5 11/0x1b=0x0b 13/0x04=0xa7 13/0x05=0x05 11/0x32=0xf5 11/0x33=0x0b "
                         "13/0x06=0xa7 13/0x07=0x02",
                         "w 11/0x00=0x00",
                         "w 11/0x0e=0x08 11/0x0f=0x08",
                         "w 11/0x04=0x02",
                         "r 0/0x03",
                         "w 10/0x07=0xaa",
                         "w 10/0x06=0x60"};
const Lines kFirstRequest = {"w 10/0x09=0xe0"};

class StartUpTest : public StoryTest {
 protected:
  static Lines join(std::initializer_list<Lines> parts) {
    Lines lines;
    for (const Lines& part : parts) lines.insert(lines.end(), part.begin(), part.end());
    return lines;
  }

  // The outcome of start-up, as the other libraries are told.
  static Lines outcome() {
    Lines calls = platform::journal();
    std::erase_if(calls, [](const std::string& call) {
      return !call.starts_with("writeSyslog") && !call.starts_with("AutoDaynight::setCameraReady");
    });
    return calls;
  }
};

TEST_F(StartUpTest, AppliesFactoryFilesThenSettingsThenServes) {
  const std::string invalid_wb = "Invalid WB Parameter!\n", invalid_camera = "Invalid Camera Parameter!\n";
  const struct {
    const char* name;
    std::string camera, half, all;  // adjustment files; "-" for none
    int half_pixel_wb;
    std::string err;
    Lines factory;
  } cases[] = {
      {"all pixels", camera_file(1, 0), "-", kWbBytes, 0, kCameraLoaded + kWbLoaded, join({kCameraFile, kWbFile})},
      {"half pixels", camera_file(1, 0), kWbBytes, "-", 255, kCameraLoaded + kWbLoaded, join({kCameraFile, kWbFile})},
      {"no files", "-", kWbBytes, kWbBytes, 0, "", {}},
      {"the other readout's file only", camera_file(1, 0), "-", kWbBytes, 1, kCameraLoaded, kCameraFile},
      {"white balance too short", camera_file(1, 0), "-", kWbBytes.substr(0, 7), 0, kCameraLoaded + invalid_wb,
       kCameraFile},
      {"white balance invalid", camera_file(1, 0), "-", "\2" + kWbBytes.substr(1), 0, kCameraLoaded + invalid_wb,
       kCameraFile},
      {"camera file invalid", camera_file(2, 9), "-", kWbBytes, 0, invalid_camera, {}},
      {"camera file too short", camera_file(1, 9).substr(0, 39), "-", kWbBytes, 0, invalid_camera, {}},
      {"camera file empty", "", "-", kWbBytes, 0, invalid_camera, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::pair<std::string, std::string> files[] = {
        {"AdjCamera.txt", c.camera}, {"AdjWbHalfPixels.txt", c.half}, {"AdjWbAllPixels.txt", c.all}};
    for (const auto& [name, bytes] : files) {
      std::filesystem::remove("/var/tmp/" + name);
      if (bytes != "-") write_file("/var/tmp/" + name, bytes);
    }
    write_settings(coloured().u8(868, static_cast<std::uint8_t>(c.half_pixel_wb)));
    forget();
    const Output output = capture([&] {
      EXPECT_EQ(0, start_control_thread());
      EXPECT_EQ(0, request(kSaturation, 6));
    });
    EXPECT_EQ(c.err + "Pattern A\nAutoBN : 1 1 0\n", output.err);
    Lines expected;
    for (const std::string& line : join({kFixed, c.factory, kColoured, kFirstRequest})) {
      if (line[0] == 'w') expected.push_back(read_pass(line));
      expected.push_back(line);
    }
    EXPECT_EQ(expected, camera.traffic());
    EXPECT_EQ(Lines{"AutoDaynight::setCameraReady()"}, outcome());
    EXPECT_EQ(Lines{}, clock->waits());
    stop_control_thread();
  }
}

TEST_F(StartUpTest, AFailedStartServesNothingAndTheNextOneWorks) {
  const Lines monochrome = {"w 10/0x0a=0x01",
                            "w 16/0x06=0x00",
                            "w 11/0x03=0xf7",
                            "w 11/0x0c=0x55 11/0x0d=0x0a",
                            "w 11/0x14=0x00 11/0x15=0x00 13/0x00=0x13 13/0x01=0x23 11/0x2c=0x00 11/0x2d=0x00 "
                            "13/0x02=0x75 13/0x03=0x1d 11/0x1a=0x00 11/0x1b=0x00 13/0x04=0xa7 13/0x05=0x05 "
                            "11/0x32=0x00 11/0x33=0x00 13/0x06=0xa7 13/0x07=0x02",
                            "w 11/0x00=0x00",
                            "w 11/0x0e=0x1e 11/0x0f=0x1e",
                            "w 11/0x04=0x00",
                            "r 0/0x03",
                            "w 10/0x07=0x0c",
                            "w 10/0x06=0x50"};
  const struct {
    const char* name;
    SettingsBytes settings;
    std::size_t changes;  // of the picture that have been sent by then
  } cases[] = {
      {"colour 2", SettingsBytes().i32(68, 2), 0},
      {"colour -1", SettingsBytes().i32(68, -1), 0},
      {"exposure compensation 19", SettingsBytes().i32(56, 19), 2},
      {"sharpness 7", SettingsBytes().i32(72, 7), 9},
      {"contrast 7", SettingsBytes().i32(112, 7), 10},
  };
  const Lines failure = {"writeSyslog(Camera control, Failed to communicate with the sub CPU.)",
                         "AutoDaynight::setCameraReady()"};
  const auto expect_failure = [&](const Lines& sent) {
    forget();
    EXPECT_EQ(0, start_control_thread());
    EXPECT_EQ(kNotServed, request(kSaturation, 6));
    stop_control_thread();
    EXPECT_EQ(sent, changes(camera.traffic()));
    EXPECT_EQ(failure, outcome());
  };
  expect_failure({});  // no record
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    write_settings(c.settings);
    expect_failure(join({kFixed, Lines(monochrome.begin(), monochrome.begin() + static_cast<long>(c.changes))}));

    write_settings();
    forget();
    EXPECT_EQ(0, start_control_thread());
    EXPECT_EQ(0, request(kSaturation, 6));
    EXPECT_EQ(join({kFixed, monochrome, kFirstRequest}), changes(camera.traffic()));
    stop_control_thread();
  }
}

TEST_F(StartUpTest, TheFactoryFileEnablesTheEvrWorker) {
  write_settings();
  write_file("/var/tmp/AdjCamera.txt", camera_file(1, 0x37));
  for (const int round : {1, 2}) {
    clock->hold("usleep(1000000)");
    if (round == 2) std::filesystem::remove("/var/tmp/AdjCamera.txt");  // the value is kept
    forget();
    ASSERT_EQ(0, start_control_thread());
    ASSERT_TRUE(clock->wait_until_held("usleep(1000000)"));
    const Lines traffic = camera.traffic();
    EXPECT_EQ(1, std::count(traffic.begin(), traffic.end(), "r 17/0x1c"));
    EXPECT_EQ(0x37, camera.reg(9, 3));
    clock->release_all();
    stop_control_thread();
  }
  write_file("/var/tmp/AdjCamera.txt", camera_file(1, 0));  // and taken back by the next file
  forget();
  ASSERT_EQ(0, start_control_thread());
  stop_control_thread();
  EXPECT_EQ(Lines{}, clock->waits());
}

TEST_F(StartUpTest, AutomaticBinningIsSwitchedOffWhileTheExposureIsApplied) {
  for (const int mode : {4, 1, 5}) {
    write_settings(SettingsBytes().i32(780, mode));
    forget();
    ASSERT_EQ(0, start_control_thread());
    const Lines traffic = camera.traffic();
    EXPECT_EQ(mode == 4 ? 1 : 0, std::count(traffic.begin(), traffic.end(), "w 0/0x03=0x00")) << mode;
    stop_control_thread();
  }
}

TEST_F(StartUpTest, RequestsAreServedAlsoWithoutTheCommApplication) {
  camera.stop();
  write_settings();
  const Output output = capture([&] {
    EXPECT_EQ(0, start_control_thread());
    EXPECT_EQ(0, request(kSaturation, 6));
    EXPECT_EQ(-1, request(kSaturation, 7));
  });
  std::string err = "dspset: [ERROR] ftok failed!\ndspset: [ERROR] get_key failed!\n";
  for (int i = 0; i < 6; ++i) err += "dspset: [ERROR] semop failed!\n";  // up to the exposure
  err += "Flickerless\n";
  for (int i = 0; i < 6; ++i) err += "dspset: [ERROR] semop failed!\n";
  EXPECT_EQ(err, output.err);
  EXPECT_EQ(Lines{"AutoDaynight::setCameraReady()"}, outcome());
}

TEST_F(StartUpTest, InitCameraIsRefusedOutsideTheControlThread) {
  EXPECT_FALSE(camera::InitCamera());
  start();
  EXPECT_FALSE(camera::InitCamera());
  EXPECT_EQ(Lines{}, camera.traffic());
  EXPECT_EQ(0, request(kUnused));
}

}  // namespace
}  // namespace ipcam::test
