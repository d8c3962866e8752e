// Flash copy of the parameter area, and the all-to-SDRAM request.
#include <pthread.h>

#include <filesystem>
#include <fstream>

#include "ipcam/camera/dsp_command.h"
#include "tests/support/call_cases.h"
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
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 7 + i / 251 + seed * 31) & 0xff);
  return bytes;
}

std::ptrdiff_t open_descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

class FlashTest : public CallTest {
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
  std::string flash_block(long variant) { return get("/dev/mtdblock3", 0x40000 + variant * 0x1000, kBlockSize); }
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
  EXPECT_EQ(devices.journal(),
            (Lines{"corvo2_gpio-0 out 0", "corvo2_gpio-0 in 1f/1f", "corvo2_gpio-0 out 0", "corvo2_gpio-0 in 1f/1f"}));
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
  pthread_create(&thread, nullptr, store, &dsp);
  pthread_join(thread, &end);
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
  for (const int error : {EINTR, EINVAL}) fail_next("fsync", error);  // the latter: it has nothing to flush
  EXPECT_EQ(dsp.do_flash(0), 0);
  EXPECT_EQ(dsp.do_flash(1), 0);
  EXPECT_EQ(failures_left(), 0);
  EXPECT_TRUE(flash_block(0) == block);
  EXPECT_TRUE(flash_area() == block + pattern(kAreaSize, 2).substr(kBlockSize));
}

TEST_F(FlashTest, StopsAtTheFirstFailureAndClosesWhatItOpened) {
  const auto flash = [&](const std::string& flag) {
    fill(3);
    const auto flash_device = [&] { return get("/dev/mtdblock3", 0x40000, kArea + kAreaSize - 0x40000); };
    const std::string flash_before = flash_device(), memory_before = memory_area();
    const auto descriptors = open_descriptors();
    const int result = dsp.do_flash(static_cast<unsigned char>(std::stoi(flag)));
    EXPECT_EQ(open_descriptors(), descriptors);
    if (flash_device() != flash_before) notes.emplace_back("flash has changed");
    if (memory_area() != memory_before) notes.emplace_back("memory has changed");
    return result;
  };
  check_calls("flash_store.txt",
              {{"flash", flash}, {"all-to-sdram", [&](const std::string&) { return dsp.execute_alltosdram(); }}});
}

}  // namespace
}  // namespace ipcam::test
