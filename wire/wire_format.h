// The record and the packets that the comm application and its requesters
// share, as the comm application sees them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ipcam::wire {

inline constexpr char kKeyFile[] = "/tmp/comm.log";
inline constexpr int kKeyProject = 0x6e;
// Signal that announces a request and, the other way, its reply.
inline constexpr int kDoorbell = 10;
inline constexpr int kDataBytes = 128;

// Entries back to back, each led by its own length in bytes.
struct Packet {
  std::int32_t count;
  std::int32_t length;
  std::uint8_t data[kDataBytes];
};
static_assert(sizeof(Packet) == 136);

enum Status : std::int32_t { kIdle = 0, kPosted = 1, kAnswered = 2, kFailed = 255 };

struct Record {
  std::int32_t status;    // one of Status
  std::int32_t comm_pid;  // process id of the comm application
  std::int32_t req_pid;   // process id of the requester, 0 when idle
  Packet packet;          // the request, then its reply
};
static_assert(sizeof(Record) == 148);
static_assert(offsetof(Record, status) == 0 && offsetof(Record, comm_pid) == 4 &&
              offsetof(Record, req_pid) == 8 && offsetof(Record, packet) == 12 &&
              offsetof(Packet, count) == 0 && offsetof(Packet, length) == 4 &&
              offsetof(Packet, data) == 8);

}  // namespace ipcam::wire
