// Flash copy of the parameter area, and the all-to-SDRAM request.
#include <filesystem>
#include <fstream>

#include "ipcam/camera/dsp_command.h"
#include "tests/support/camera_fixture.h"

namespace ipcam::test {
namespace {

using camera::DspCommand;
using sim::Fault;

constexpr long kMemory = 0x1FFC000;
constexpr long kArea = 0x7C000;
constexpr std::size_t kAreaSize = 0x3F00;
constexpr std::size_t kBlockSize = 0x1000;

// Bytes that differ from place to place and from seed to seed.
std::string pattern(std::size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 7 + i / 251 + seed * 31) & 0xff);
  return bytes;
}

std::ptrdiff_t open_descriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return std::distance(begin(entries), end(entries));
}

class FlashTest : public CameraTest {
 protected:
  void put(const char* device, long offset, const std::string& bytes) {
    std::fstream file(devices.redirect(device), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(offset);
    file << bytes;
    ASSERT_TRUE(file.flush().good());
  }
  std::string get(const char* device, long offset, std::size_t size) {
    std::ifstream file(devices.redirect(device), std::ios::binary);
    std::string bytes(size, '\0');
    file.seekg(offset);
    file.read(bytes.data(), static_cast<std::streamsize>(size));
    return bytes;
  }
  // Each area and block of both devices gets a pattern of its own.
  void fill(char variant) {
    put("/dev/corvo2_gpio-0", 0, std::string(1, variant));
    put("/dev/mtdblock3", 0x40000, pattern(0x20 * kBlockSize, 1));
    put("/dev/mtdblock3", kArea, pattern(kAreaSize, 2));
    put("/dev/mem", kMemory, pattern(kAreaSize, 3));
  }
  std::string flash_area() { return get("/dev/mtdblock3", kArea, kAreaSize); }
  std::string flash_block(long variant) { return get("/dev/mtdblock3", 0x40000 + variant * 0x1000, kBlockSize); }
  std::string memory_area() { return get("/dev/mem", kMemory, kAreaSize); }

  DspCommand dsp;
};

TEST_F(FlashTest, LoadsTheAreaAndLaysTheVariantBlockOverIt) {
  for (const char variant : {'\0', '\x1f'}) {
    fill(variant);
    const std::string block = flash_block(variant);
    int result = -2;
    const Output output = capture([&] { result = dsp.do_flash(0); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(output.out, "dspset: flash memory loading, please wait... \ndspset:  ... done!\n");
    EXPECT_EQ(output.err, "");
    EXPECT_TRUE(memory_area() == block + pattern(kAreaSize, 2).substr(kBlockSize));
    EXPECT_TRUE(flash_area() == pattern(kAreaSize, 2));
  }
  EXPECT_EQ(devices.journal(),
            (Lines{"corvo2_gpio-0 out 0", "corvo2_gpio-0 in 1f/1f", "corvo2_gpio-0 out 0", "corvo2_gpio-0 in 1f/1f"}));
}

TEST_F(FlashTest, StoresTheAreaAndItsStartInTheVariantBlock) {
  fill(3);
  const std::string before = flash_block(2), after = flash_block(4);
  const Output output = capture([&] { EXPECT_EQ(dsp.do_flash(1), 0); });
  EXPECT_EQ(output.out, "dspset: flash memory storing, please wait... \ndspset:  ... done!\n");
  EXPECT_TRUE(flash_area() == pattern(kAreaSize, 3));
  EXPECT_TRUE(flash_block(3) == pattern(kBlockSize, 3));
  EXPECT_TRUE(flash_block(2) == before && flash_block(4) == after);
  EXPECT_TRUE(memory_area() == pattern(kAreaSize, 3));
}

TEST_F(FlashTest, AStoreAfterALoadKeepsTheVariantBlockAlsoWhenInterrupted) {
  fill(0);
  const std::string block = flash_block(0);
  fail_next("read", EINTR, 3);
  fail_next("write", EINTR, 2);
  EXPECT_EQ(dsp.do_flash(0), 0);
  EXPECT_EQ(dsp.do_flash(1), 0);
  EXPECT_EQ(failures_left(), 0);
  EXPECT_TRUE(flash_block(0) == block);
  EXPECT_TRUE(flash_area() == block + pattern(kAreaSize, 2).substr(kBlockSize));
}

TEST_F(FlashTest, StopsAtTheFirstFailureAndClosesWhatItOpened) {
  const std::string loading = "dspset: flash memory loading, please wait... \n";
  struct {
    const char* function;
    int nth;
    int error;
    long result;
    std::string out, err;
  } const kFailures[] = {
      {"open", 0, ENOENT, -1, "", "dspset: [ERROR] device file '/dev/corvo2_gpio-0' open error!\n"},
      {"ioctl", 0, EIO, -1, "", "dspset: [ERROR] TKV_Q5_IOCTL_GPIO_OUT failed!\n"},
      {"ioctl", 1, EIO, -1, "", "dspset: [ERROR] TKV_Q5_IOCTL_GPIO_IN failed!\n"},
      {"open", 1, EACCES, -1, "", "dspset: [ERROR] file '/dev/mtdblock3' open failed!\n"},
      {"open", 2, EACCES, -1, "", "dspset: [ERROR] file '/dev/mem' open failed!\n"},
      {"lseek", 0, EINVAL, -1, "", "dspset: [ERROR] lseek error!\n"},
      {"lseek", 1, EINVAL, -1, "", "dspset: [ERROR] lseek error!\n"},
      {"read", 0, EIO, -1, loading, "dspset: [ERROR] file read error!\n"},
      {"read", 15, 0, 0, loading, "dspset: [ERROR] file read error!\n"},
      {"write", 0, EIO, -1, loading, "dspset: [ERROR] file write error!\n"},
      {"write", 15, 0, 767, loading, "dspset: [ERROR] read 768 byte but only write 767 byte!\n"},
      {"write", 16, 0, 0, loading, "dspset: [ERROR] read 1024 byte but only write 0 byte!\n"},
      {"lseek", 2, EINVAL, -1, loading, "dspset: [ERROR] lseek error!\n"},
      {"lseek", 3, EINVAL, -1, loading, "dspset: [ERROR] lseek error!\n"},
      {"read", 19, EIO, -1, loading, "dspset: [ERROR] file read error!\n"},
  };
  fill(1);
  for (const auto& row : kFailures) {
    SCOPED_TRACE(std::string(row.function) + " " + std::to_string(row.nth));
    const auto descriptors = open_descriptors();
    int result = -2;
    const Output output = capture([&] {
      fail_next(row.function, row.error, row.nth, row.result);
      result = dsp.do_flash(0);
    });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(output.out, row.out);
    EXPECT_EQ(output.err, row.err + "dspset: [ERROR]  ... failed!\n");
    EXPECT_EQ(failures_left(), 0);
    EXPECT_EQ(open_descriptors(), descriptors);
  }
}

TEST_F(FlashTest, RefusesOtherFlagsAfterPositioningTheDevices) {
  fill(1);
  for (const std::uint8_t flag : std::vector<std::uint8_t>{2, 255}) {
    const Output output = capture([&] { EXPECT_EQ(dsp.do_flash(flag), -1); });
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "dspset: [ERROR] invalid flag!\ndspset: [ERROR]  ... failed!\n");
  }
  EXPECT_TRUE(memory_area() == pattern(kAreaSize, 3));
  EXPECT_TRUE(flash_area() == pattern(kAreaSize, 2));
}

TEST_F(FlashTest, SendsTheAllToSdramRequest) {
  const std::string sent = "dspset: all to sdram command send!\n";
  const std::string done = "dspset: write success!\n\n";
  struct {
    const char* name;
    Fault fault;
    sim::FaultPlan plan;
    int result;
    std::string out, err;
  } const kReplies[] = {
      {"acknowledged", Fault::none, {}, 0, sent + done, ""},
      {"wrong count", Fault::count_too_large, {}, 0, sent + done, ""},
      {"last entry failed", Fault::wrong_status, {.entry = 2}, -1, sent, "dspset: [ERROR] reply from dsp error!\n"},
      {"empty reply", Fault::empty_reply, {}, -1, sent, "dspset: [ERROR] reply from dsp error!\n"},
      {"failed", Fault::reply_255, {}, -1, sent, "dspset: [ERROR] communication with comm application error!\n"},
  };
  for (const auto& row : kReplies) {
    SCOPED_TRACE(row.name);
    camera.fault(row.fault, row.plan);
    camera.clear_traffic();
    int result = -2;
    const Output output = capture([&] { result = dsp.execute_alltosdram(); });
    EXPECT_EQ(result, row.result);
    EXPECT_EQ(output.out, row.out);
    EXPECT_EQ(output.err, row.err);
    EXPECT_EQ(camera.traffic().at(0).substr(0, 43), "x 06 00 50 52 45 4e 02 09 06 00 50 52 44 53");
  }
}

}  // namespace
}  // namespace ipcam::test
