// Register commands: parameter tables, block writes and command texts through the comm application.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "dsp/command_text.h"
#include "dsp/locking.h"
#include "dsp/packet.h"

namespace ipcam::camera {

namespace {

int refuse_argument() {
  std::fprintf(stderr, "%s: [ERROR] argument error!\n", g_prgname);
  return -1;
}

int refuse_length(std::size_t length) {
  std::fprintf(stderr, "%s: [ERROR] argument too long (%d, maximum length: %d)!\n", g_prgname,
               static_cast<int>(length), static_cast<int>(kMaxListLength));
  return -1;
}

int refuse_option(int option) {
  std::fprintf(stderr, "%s: [ERROR] invalid option! %x\n", g_prgname,
               static_cast<unsigned int>(option));
  return -1;
}

int report_bad_reply() {
  std::fprintf(stderr, "%s: [ERROR] reply from dsp error!\n", g_prgname);
  return -1;
}

void print_line(const char* line) { std::printf("%s: %s\n", g_prgname, line); }

int report_failed_read(const param_info& entry, std::uint8_t status) {
  char line[64];
  std::snprintf(line, sizeof line, "\tcategory(0x%02x) byte(0x%02x) = failed! (0x%x)",
                entry.category, static_cast<unsigned int>(entry.byte), status);
  print_line(line);
  return -1;
}

int report_failed_write(const param_info& entry, std::uint8_t status) {
  char line[64];
  std::snprintf(line, sizeof line, "\tcategory(0x%02x) byte(0x%02x) -> failed! (0x%x)",
                entry.category, static_cast<unsigned int>(entry.byte), status);
  print_line(line);
  return -1;
}

void report_write(const param_info& entry) {
  char line[64];
  std::snprintf(line, sizeof line, "\tcategory(0x%02x) byte(0x%02x) -> 0x%x success",
                entry.category, static_cast<unsigned int>(entry.byte), entry.data);
  print_line(line);
}

// The final byte of a read entry.
param_info as_read(param_info entry) {
  entry.data = 1;
  return entry;
}

}  // namespace

int DspCommand::exchange() {
  prt_gcmdbuf(0, &command_packet);
  if (post_request(command_packet) < 0) return -1;
  if (fetch_reply(&reply_packet) < 0) return -1;
  prt_gcmdbuf(1, &reply_packet);
  return 0;
}

int DspCommand::execute_abs_cmd(param_info* table, int n) {
  if (table == nullptr || n < 0) return refuse_argument();
  LockGuard lock(mutex);
  const int result = apply_table(table, n);
  clear_packets();
  return result;
}

int DspCommand::apply_table(param_info* table, int n) {
  for (int i = 0; i < n; ++i) {
    if (add_cmd_packet(ACCESS_READ, as_read(table[i]), &command_packet) < 0) return -1;
  }
  if (exchange() < 0) return -1;

  if (!reply_matches(reply_packet, n, kReadReplySize)) return report_bad_reply();
  for (int j = 0; j < n; ++j) {
    const std::uint8_t* reply = reply_entry(reply_packet, j, kReadReplySize);
    if (!is_success(reply, kReadReplySize)) return report_bad_reply();
    table[j].data = merge(table[j], reply[2]);
  }

  clear_packets();
  // As many as were read.
  for (int i = 0; i < n; ++i) add_cmd_packet(ACCESS_WRITE, table[i], &command_packet);
  if (exchange() < 0) return -1;

  if (!reply_matches(reply_packet, n, kWriteReplySize)) return report_bad_reply();
  for (int j = 0; j < n; ++j) {
    if (!is_success(reply_entry(reply_packet, j, kWriteReplySize), kWriteReplySize))
      return report_bad_reply();
  }
  std::printf("%s: write success!\n\n", g_prgname);
  return 0;
}

int DspCommand::execute_gamma_cmd(param_info* table, int n) {
  if (table == nullptr || n <= 0) return refuse_argument();
  LockGuard lock(mutex);
  const int result = write_block(table, n);
  clear_packets();
  return result;
}

int DspCommand::write_block(const param_info* table, int n) {
  constexpr int kHeaderSize = 5;
  if (n > kMaxCommandBytes - kHeaderSize) {
    std::fprintf(stderr, "%s: [ERROR] too many parameter!\n", g_prgname);
    return -1;
  }

  const auto byte = static_cast<std::uint32_t>(table[0].byte);
  std::uint8_t* data = command_packet.data;
  *data++ = static_cast<std::uint8_t>(n + kHeaderSize);
  *data++ = ACCESS_WRITE;
  *data++ = table[0].category;
  *data++ = static_cast<std::uint8_t>(byte >> 8);
  *data++ = static_cast<std::uint8_t>(byte);
  std::transform(table, table + n, data, [](const param_info& row) { return row.data; });
  command_packet.count = 1;
  command_packet.length = n + kHeaderSize;
  if (exchange() < 0) return -1;

  if (!reply_matches(reply_packet, 1, kWriteReplySize)) return report_bad_reply();
  if (!is_success(reply_packet.data, kWriteReplySize)) return report_bad_reply();
  std::printf("%s: write success!\n\n", g_prgname);
  return 0;
}

int DspCommand::execute_rw_cmd(int mode, char* list, unsigned char* result) {
  if (list == nullptr || result == nullptr) return refuse_argument();
  if (mode != 1 && mode != 2) return refuse_option(mode);
  LockGuard lock(mutex);
  const int count = run_list(mode, list, result);
  clear_packets();
  return count;
}

int DspCommand::run_list(int mode, char* list, unsigned char* result) {
  const std::size_t length = std::strlen(list);
  if (length > kMaxListLength) return refuse_length(length);

  // The whole list is read before anything is sent.
  std::array<param_info, kMaxCommands> entries{};
  int n = 0;
  while (char* text = next_piece(&list, ';')) {
    param_info entry;
    if (!parse_entry(mode, text, entry)) return -1;
    if (add_cmd_packet(ACCESS_READ, as_read(entry), &command_packet) < 0) return -1;
    entries[static_cast<std::size_t>(n++)] = entry;
  }
  if (exchange() < 0) return -1;

  std::printf("%s: read result:\n", g_prgname);
  for (int i = 0; i < n; ++i) {
    param_info& entry = entries[static_cast<std::size_t>(i)];
    const std::uint8_t* reply = reply_entry(reply_packet, i, kReadReplySize);
    if (!is_success(reply, kReadReplySize)) return report_failed_read(entry, status_of(reply));
    result[i] = reply[2];
    entry.data = merge(entry, reply[2]);
  }
  if (reply_packet.count != n) return report_bad_reply();
  if (mode == 1) return n;

  clear_packets();
  for (int i = 0; i < n; ++i) {
    add_cmd_packet(ACCESS_WRITE, entries[static_cast<std::size_t>(i)],
                   &command_packet);  // as many as were read
  }
  if (exchange() < 0) return -1;

  std::printf("%s: write result:\n", g_prgname);
  if (reply_packet.count == 0) return 0;
  for (int i = 0; i < n; ++i) {
    const param_info& entry = entries[static_cast<std::size_t>(i)];
    const std::uint8_t* reply = reply_entry(reply_packet, i, kWriteReplySize);
    if (!is_success(reply, kWriteReplySize)) return report_failed_write(entry, status_of(reply));
    report_write(entry);
  }
  if (reply_packet.count != n) return report_bad_reply();
  return 1;
}

int DspCommand::do_debug(char* text, char* result) {
  if (text == nullptr || result == nullptr) return refuse_argument();
  const std::size_t length = strnlen(text, kMaxListLength + 1);
  if (length > kMaxListLength) return 0;

  unsigned char copy[kMaxListLength + 1] = {};
  std::memcpy(copy, text, length);
  return do_debug(copy, reinterpret_cast<unsigned char*>(result));
}

int DspCommand::do_debug(unsigned char* text, unsigned char* result) {
  if (text == nullptr || result == nullptr) return refuse_argument();
  int mode = 0;
  if (text[0] == 'r') mode = 1;
  if (text[0] == 'w') mode = 2;
  if (mode == 0) return refuse_option(text[0]);

  // The second character is skipped whatever it is, unless it is the end of the text.
  char* list = reinterpret_cast<char*>(text) + (text[1] == '\0' ? 1 : 2);
  return execute_rw_cmd(mode, list, result);
}

int DspCommand::do_debug(param_info* table, unsigned char* result, int mode, int n) {
  if (mode != 1 && mode != 2) return refuse_option(mode);
  if (table == nullptr || result == nullptr || n < 0) return refuse_argument();
  if (n > kMaxCommands) {
    std::fprintf(stderr, "%s: [ERROR] too many commands! cmd:%d bytes:%d\n", g_prgname,
                 kMaxCommands + 1, (kMaxCommands + 1) * kCommandSize);
    return -1;
  }

  char list[kMaxListLength + 1] = {};
  std::size_t length = 0;
  for (int i = 0; i < n; ++i) {
    const param_info& row = table[i];
    char entry[48];
    const int size = (mode == 1)
                         ? std::snprintf(entry, sizeof entry, "%d,%d;", row.category, row.byte)
                         : std::snprintf(entry, sizeof entry, "%d,%d,%d,%d;", row.category,
                                         row.byte, row.mask, row.data);
    const std::size_t end = length + static_cast<std::size_t>(size);
    if (end <= kMaxListLength) std::memcpy(list + length, entry, static_cast<std::size_t>(size));
    length = end;
  }
  if (length > kMaxListLength) return refuse_length(length);
  return execute_rw_cmd(mode, list, result);
}

}  // namespace ipcam::camera
