// Flash copy of the image processor's parameters, and the all-to-SDRAM request.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "dsp/cancellation.h"
#include "dsp/locking.h"
#include "ipcam/camera/dsp_command.h"
#include "registers/gpio.h"

namespace ipcam::camera {
namespace {

constexpr char kGpioPath[] = "/dev/corvo2_gpio-0";

constexpr char kFlashPath[] = "/dev/mtdblock3";
constexpr char kMemoryPath[] = "/dev/mem";

// The parameter area, and the block that stands for its first bytes in one hardware variant.
constexpr off_t kMemoryOffset = 0x1FFC000;
constexpr off_t kAreaFlashOffset = 0x7C000;
constexpr std::size_t kAreaSize = 0x3F00;
constexpr off_t kVariantFlashOffset = 0x40000;
constexpr std::size_t kVariantSize = 0x1000;

constexpr std::size_t kChunkSize = 1024;

constexpr std::uint8_t kAllToSdram[] = {6, 0, 'P', 'R', 'E', 'N', 2, 9, 6, 0, 'P', 'R', 'D', 'S'};
constexpr std::uint8_t kAllToSdramReply[] = {2, 1, 2, 1, 2, 1};

// Owner of a file descriptor.
class Device {
 public:
  Device(const char* path, int flags) : fd_(open(path, flags | O_CLOEXEC)) {}
  ~Device() {
    if (fd_ >= 0) close(fd_);
  }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  bool is_open() const { return fd_ >= 0; }
  int fd() const { return fd_; }

 private:
  int fd_;
};

// Asks the board which variant it is. Returns 0 or -1.
int read_variant(std::uint8_t& variant) {
  const Device device(kGpioPath, O_RDONLY);
  if (!device.is_open()) {
    std::fprintf(stderr, "%s: [ERROR] device file '%s' open error!\n", g_prgname, kGpioPath);
    return -1;
  }
  if (ioctl(device.fd(), gpio::kDirection, 0UL) < 0) {
    std::fprintf(stderr, "%s: [ERROR] TKV_Q5_IOCTL_GPIO_OUT failed!\n", g_prgname);
    return -1;
  }
  gpio::Record record = {.bits = 0x1F, .mask = 0x1F};
  if (ioctl(device.fd(), gpio::kRead, &record) < 0) {
    std::fprintf(stderr, "%s: [ERROR] TKV_Q5_IOCTL_GPIO_IN failed!\n", g_prgname);
    return -1;
  }
  variant = record.bits;
  return 0;
}

int seek_both(const Device& flash, off_t flash_offset, const Device& memory) {
  if (lseek(flash.fd(), flash_offset, SEEK_SET) < 0 ||
      lseek(memory.fd(), kMemoryOffset, SEEK_SET) < 0) {
    std::fprintf(stderr, "%s: [ERROR] lseek error!\n", g_prgname);
    return -1;
  }
  return 0;
}

int report_write() {
  std::fprintf(stderr, "%s: [ERROR] file write error!\n", g_prgname);
  return -1;
}

// Repeats a call that a signal interrupted before it did anything.
template <class Call>
ssize_t uninterrupted(Call call) {
  ssize_t result = -1;
  do {
    result = call();
  } while (result < 0 && errno == EINTR);
  return result;
}

int copy(const Device& source, const Device& destination, std::size_t size) {
  std::uint8_t chunk[kChunkSize];
  while (size > 0) {
    const std::size_t wanted = std::min(size, kChunkSize);
    const ssize_t got = uninterrupted([&] { return read(source.fd(), chunk, wanted); });
    // No data is an error as well: a device that is too short would keep the copy from ever ending.
    if (got <= 0) {
      std::fprintf(stderr, "%s: [ERROR] file read error!\n", g_prgname);
      return -1;
    }
    const auto filled = static_cast<std::size_t>(got);
    const ssize_t written = uninterrupted([&] { return write(destination.fd(), chunk, filled); });
    if (written < 0) return report_write();
    if (written < got) {
      std::fprintf(stderr, "%s: [ERROR] read %d byte but only write %d byte!\n", g_prgname,
                   static_cast<int>(got), static_cast<int>(written));
      return -1;
    }
    size -= filled;
  }
  return 0;
}

// The flash driver keeps the last block in memory until it is told to write it, and only then
// says whether it could: when the device is closed nobody hears of it. A device that keeps
// nothing refuses, which is no failure.
int flush(const Device& flash) {
  if (uninterrupted([&] { return fsync(flash.fd()); }) == 0) return 0;
  return errno == EINVAL || errno == ENOTSUP || errno == EROFS ? 0 : report_write();
}

int copy_parameters(unsigned char flag) {
  std::uint8_t variant = 0;
  if (read_variant(variant) != 0) return -1;

  const Device flash(kFlashPath, O_RDWR);
  if (!flash.is_open()) {
    std::fprintf(stderr, "%s: [ERROR] file '%s' open failed!\n", g_prgname, kFlashPath);
    return -1;
  }
  const Device memory(kMemoryPath, O_RDWR);
  if (!memory.is_open()) {
    std::fprintf(stderr, "%s: [ERROR] file '%s' open failed!\n", g_prgname, kMemoryPath);
    return -1;
  }
  if (seek_both(flash, kAreaFlashOffset, memory) != 0) return -1;

  if (flag == 0) {
    std::printf("%s: flash memory loading, please wait... \n", g_prgname);
  } else if (flag == 1) {
    std::printf("%s: flash memory storing, please wait... \n", g_prgname);
  } else {
    std::fprintf(stderr, "%s: [ERROR] invalid flag!\n", g_prgname);
    return -1;
  }
  const Device& source = flag == 0 ? flash : memory;
  const Device& destination = flag == 0 ? memory : flash;

  // The variant block covers the start of the area, so it comes second.
  if (copy(source, destination, kAreaSize) != 0) return -1;
  if (seek_both(flash, kVariantFlashOffset + variant * off_t{kVariantSize}, memory) != 0) return -1;
  if (copy(source, destination, kVariantSize) != 0) return -1;
  return flag == 1 ? flush(flash) : 0;
}

}  // namespace

int DspCommand::do_flash(unsigned char flag) {
  const CancellationBlock no_cancellation;  // half a copy is worse than a late end
  if (copy_parameters(flag) != 0) {
    std::fprintf(stderr, "%s: [ERROR]  ... failed!\n", g_prgname);
    return -1;
  }
  std::printf("%s:  ... done!\n", g_prgname);
  return 0;
}

int DspCommand::execute_alltosdram() {
  LockGuard lock(mutex);
  std::printf("%s: all to sdram command send!\n", g_prgname);
  const int result = request_alltosdram();
  clear_packets();
  return result;
}

int DspCommand::request_alltosdram() {
  command_packet.count = 3;
  command_packet.length = sizeof(kAllToSdram);
  std::memcpy(command_packet.data, kAllToSdram, sizeof(kAllToSdram));
  if (exchange() < 0) return -1;

  // The three acknowledgements alone decide, whatever the reply's own count says.
  if (std::memcmp(reply_packet.data, kAllToSdramReply, sizeof(kAllToSdramReply)) != 0) {
    std::fprintf(stderr, "%s: [ERROR] reply from dsp error!\n", g_prgname);
    return -1;
  }
  std::printf("%s: write success!\n\n", g_prgname);
  return 0;
}

}  // namespace ipcam::camera
