// The register command text: splitting a list into entries and reading an entry's numbers.
#include "dsp/command_text.h"

#include <cstdint>
#include <cstdio>

#include "dsp/number_text.h"

namespace ipcam::camera {

namespace {

struct FieldRange {
  std::uint32_t max;
  const char* refusal;
};

constexpr int kStoredFields = 4;
constexpr FieldRange kFieldRanges[kStoredFields] = {
    {0xff, "must set category number between 0x00 to 0xff!"},
    {0xffff, "must set byte number between 0x0000 to 0xffff!"},
    {0xff, "must set bit value between 0x00 to 0xff!"},
    {0xff, "must set data value between 0x00 to 0xff!"},
};

}  // namespace

char* next_piece(char** rest, char separator) {
  char* begin = *rest;
  while (*begin == separator) ++begin;
  if (*begin == '\0') return nullptr;

  char* end = begin;
  while (*end != separator && *end != '\0') ++end;
  *rest = (*end == '\0') ? end : end + 1;
  *end = '\0';
  return begin;
}

bool parse_entry(int mode, char* text, param_info& entry) {
  std::int32_t fields[kStoredFields] = {};
  int count = 0;
  while (const char* field = next_piece(&text, ',')) {
    std::int32_t value = 0;
    if (!parse_number(field, value)) {
      std::fprintf(stderr, "%s: [ERROR] argument error!\n", g_prgname);
      return false;
    }
    if (count < kStoredFields) {
      // Compared unsigned, so that a negative number is out of range.
      if (static_cast<std::uint32_t>(value) > kFieldRanges[count].max) {
        std::fprintf(stderr, "%s: [ERROR] %s\n", g_prgname, kFieldRanges[count].refusal);
        return false;
      }
      fields[count] = value;
    }
    ++count;
  }

  if (mode == 1 && count != 2) {
    std::fprintf(stderr, "%s: [ERROR] read argument length error!\n", g_prgname);
    return false;
  }
  if (mode == 2 && count != 4) {
    std::fprintf(stderr, "%s: [ERROR] write argument length error!\n", g_prgname);
    return false;
  }
  entry = {.category = static_cast<std::uint8_t>(fields[0]),
           .byte = fields[1],
           .mask = static_cast<std::uint8_t>(fields[2]),
           .data = static_cast<std::uint8_t>(fields[3])};
  return true;
}

}  // namespace ipcam::camera
