// Flash copy of the parameter area.
#include <pthread.h>

#include <filesystem>
#include <fstream>

#include "ipcam/camera/dsp_command.h"
#include "tests/support/camera_fixture.h"
#include "tests/support/interpose.h"

namespace ipcam::test {
namespace {

constexpr long kMemory = 0x1FFC000;
constexpr long kArea = 0x7C000;
constexpr std::size_t kAreaSize = 0x3F00;
constexpr std::size_t kBlockSize = 0x1000;

// Bytes that differ from place to place and from seed to seed.
std::string pattern(std::size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<char>((i * 7 + i / 251 + seed * 31) & 0xff);
  return bytes;
}

std::ptrdiff_t open_descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                       std::filesystem::directory_iterator());
}

class FlashTest : public CameraTest {
 protected:
  void put(const char* device, long offset, const std::string& bytes) {
    const Unfailing unfailing;
    std::fstream file(devices.redirect(device), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(offset);
    file << bytes;
    ASSERT_TRUE(file.flush().good());
  }
  std::string get(const char* device, long offset, std::size_t size) {
    const Unfailing unfailing;
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
  std::string flash_block(long variant) {
    return get("/dev/mtdblock3", 0x40000 + variant * 0x1000, kBlockSize);
  }
  std::string memory_area() { return get("/dev/mem", kMemory, kAreaSize); }

  camera::DspCommand dsp;
};

TEST_F(FlashTest, LoadsTheAreaAndLaysTheVariantBlockOverIt) {
  for (const char variant : {'\0', '\x1f'}) {
    fill(variant);
    EXPECT_EQ(dsp.do_flash(0), 0);
    EXPECT_TRUE(memory_area() == flash_block(variant) + pattern(kAreaSize, 2).substr(kBlockSize));
    EXPECT_TRUE(flash_area() == pattern(kAreaSize, 2));
  }
  EXPECT_EQ(devices.journal(), (Lines{"corvo2_gpio-0 out 0", "corvo2_gpio-0 in 1f/1f",
                                      "corvo2_gpio-0 out 0", "corvo2_gpio-0 in 1f/1f"}));
}

TEST_F(FlashTest, StoresTheAreaAndItsStartInTheVariantBlockAlsoWhenCancelled) {
  fill(3);
  const std::string before = flash_block(2), after = flash_block(4);
  const auto store = [](void* link) -> void* {
    pthread_cancel(pthread_self());
    return static_cast<camera::DspCommand*>(link)->do_flash(1), nullptr;
  };
  pthread_t thread{};
  void* end = nullptr;
  const Output output = capture([&] {
    pthread_create(&thread, nullptr, store, &dsp);
    pthread_join(thread, &end);
  });
  EXPECT_EQ(output.out, "dspset: flash memory storing, please wait... \ndspset:  ... done!\n");
  EXPECT_EQ(end, PTHREAD_CANCELED);
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
  // The latter: it has nothing to flush.
  for (const int error : {EINTR, EINVAL}) fail_next("fsync", error);
  EXPECT_EQ(dsp.do_flash(0), 0);
  EXPECT_EQ(dsp.do_flash(1), 0);
  EXPECT_EQ(failures_left(), 0);
  EXPECT_TRUE(flash_block(0) == block);
  EXPECT_TRUE(flash_area() == block + pattern(kAreaSize, 2).substr(kBlockSize));
}

TEST_F(FlashTest, StopsAtTheFirstFailureAndClosesWhatItOpened) {
  const std::string loading = "dspset: flash memory loading, please wait... \n";
  const struct {
    std::string out, err;
    std::string call;  // that fails
    int nth = 0;
    long result = -1;
    unsigned char flag = 0;
    bool changes_memory = false;
  } cases[] = {
      {"", "invalid flag!", "", 0, -1, 2},
      {"", "invalid flag!", "", 0, -1, 255},
      {"", "device file '/dev/corvo2_gpio-0' open error!", "open"},
      {"", "TKV_Q5_IOCTL_GPIO_OUT failed!", "ioctl"},
      {"", "TKV_Q5_IOCTL_GPIO_IN failed!", "ioctl", 1},
      {"", "file '/dev/mtdblock3' open failed!", "open", 1},
      {"", "file '/dev/mem' open failed!", "open", 2},
      {"", "lseek error!", "lseek"},
      {"", "lseek error!", "lseek", 1},
      {loading, "file read error!", "read"},
      {loading, "file read error!", "read", 15, 0, 0, true},
      {loading, "file write error!", "write"},
      {loading, "read 768 byte but only write 767 byte!", "write", 15, 767, 0, true},
      {loading, "read 1024 byte but only write 0 byte!", "write", 16, 0, 0, true},
      {loading, "lseek error!", "lseek", 2, -1, 0, true},
      {loading, "lseek error!", "lseek", 3, -1, 0, true},
      {loading, "file read error!", "read", 19, -1, 0, true},
  };
  const auto flash_device = [&] {
    return get("/dev/mtdblock3", 0x40000, kArea + kAreaSize - 0x40000);
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.call + " " + std::to_string(c.nth) + ": " + c.err);
    fill(3);
    const std::string flash_before = flash_device(), memory_before = memory_area();
    const auto descriptors = open_descriptors();
    if (!c.call.empty()) fail_next(c.call, EIO, c.nth, c.result);
    const Output output = capture([&] { EXPECT_EQ(dsp.do_flash(c.flag), -1); });
    EXPECT_EQ(output.out, c.out);
    EXPECT_EQ(output.err, "dspset: [ERROR] " + c.err + "\ndspset: [ERROR]  ... failed!\n");
    EXPECT_EQ(failures_left(), 0);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_TRUE(flash_device() == flash_before);
    EXPECT_EQ(memory_area() != memory_before, c.changes_memory);
  }
  fail_next("fsync", EIO);
  const Output output =
      capture([&] { EXPECT_EQ(dsp.do_flash(1), -1) << "what is not flushed is not stored"; });
  EXPECT_EQ(output.err, "dspset: [ERROR] file write error!\ndspset: [ERROR]  ... failed!\n");
}

}  // namespace
}  // namespace ipcam::test
