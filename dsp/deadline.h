// Deadlines on the monotonic clock, for waits that go on after an
// interruption with the time that is left.
#pragma once

#include <algorithm>
#include <cstdint>
#include <ctime>

namespace ipcam::camera {

inline constexpr std::int64_t kNsPerSecond = 1'000'000'000;

// Seconds as nanoseconds; more than 30 years counts as 30 years, so that no sum overflows.
constexpr std::int64_t seconds_to_ns(long seconds) {
  constexpr std::int64_t kMaxSeconds = 1'000'000'000;
  return std::clamp<std::int64_t>(seconds, 0, kMaxSeconds) * kNsPerSecond;
}

constexpr timespec to_timespec(std::int64_t ns) {
  timespec time{};
  time.tv_sec = static_cast<decltype(time.tv_sec)>(ns / kNsPerSecond);
  time.tv_nsec = static_cast<decltype(time.tv_nsec)>(ns % kNsPerSecond);
  return time;
}

class Deadline {
 public:
  explicit Deadline(std::int64_t limit_ns) : end_ns_(now_ns() + limit_ns) {}

  // Nanoseconds until the deadline, 0 when it has passed.
  std::int64_t remaining_ns() const { return std::max<std::int64_t>(end_ns_ - now_ns(), 0); }

 private:
  static std::int64_t now_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * kNsPerSecond + now.tv_nsec;
  }

  std::int64_t end_ns_;
};

}  // namespace ipcam::camera
