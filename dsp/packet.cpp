// Building command packets.
#include "dsp/packet.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace ipcam::camera {

void DspCommand::clear_param_info(param_info* entry) {
  if (entry != nullptr) *entry = {};
}

void DspCommand::clear_packet_info(packet_info* packet) {
  if (packet != nullptr) *packet = {};
}

void DspCommand::clear_packets() {
  clear_packet_info(&command_packet);
  clear_packet_info(&reply_packet);
}

int DspCommand::add_cmd_packet(int type, param_info entry, packet_info* packet) {
  if (packet == nullptr) {
    std::fprintf(stderr, "%s: [ERROR] argument error!\n", g_prgname);
    return -1;
  }
  const auto byte = static_cast<std::uint32_t>(entry.byte);
  const std::uint8_t command[kCommandSize] = {kCommandSize,
                                              static_cast<std::uint8_t>(type),
                                              entry.category,
                                              static_cast<std::uint8_t>(byte >> 8),
                                              static_cast<std::uint8_t>(byte),
                                              entry.data};

  // A packet that is already full is still counted up, for the message,
  // but nothing is put outside its bytes.
  const int position = packet->length;
  const bool fits =
      position >= 0 && position <= static_cast<int>(sizeof packet->data) - kCommandSize;
  if (fits) {
    std::copy(std::begin(command), std::end(command), &packet->data[position]);
  }
  packet->count = std::min(packet->count, INT32_MAX - 1) + 1;
  packet->length = std::min(packet->length, INT32_MAX - kCommandSize) + kCommandSize;
  if (!fits || packet->count > kMaxCommands || packet->length > kMaxCommandBytes) {
    std::fprintf(stderr, "%s: [ERROR] too many commands! cmd:%d bytes:%d\n", g_prgname,
                 packet->count, packet->length);
    return -1;
  }
  return 0;
}

void DspCommand::prt_gcmdbuf(int /*direction*/, packet_info* /*packet*/) {}

void DspCommand::dummy_reply(int /*reserved*/, packet_info* /*command*/, packet_info* /*reply*/) {}

}  // namespace ipcam::camera
