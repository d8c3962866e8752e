// Numbers written as text, read alike on 32-bit and 64-bit builds and in every locale.
#include "dsp/number_text.h"

#include <limits>

namespace ipcam::camera {
namespace {

constexpr std::uint32_t kNoDigit = 16;
constexpr std::uint64_t kMagnitudeLimit = std::uint64_t{1} << 31;

constexpr bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

constexpr std::uint32_t digit_value(char c) {
  if (c >= '0' && c <= '9') return static_cast<std::uint32_t>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<std::uint32_t>(c - 'a') + 10;
  if (c >= 'A' && c <= 'F') return static_cast<std::uint32_t>(c - 'A') + 10;
  return kNoDigit;
}

constexpr std::int32_t saturated(std::uint64_t magnitude, bool negative) {
  if (negative) return static_cast<std::int32_t>(-static_cast<std::int64_t>(magnitude));
  if (magnitude == kMagnitudeLimit) return std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(magnitude);
}

}  // namespace

bool parse_number(const char* text, std::int32_t& value) {
  if (text == nullptr) return false;
  while (is_space(*text)) ++text;
  const bool negative = *text == '-';
  if (negative || *text == '+') ++text;

  std::uint32_t base = 10;
  if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text += 2;
  } else if (text[0] == '0') {
    base = 8;
  }

  // The magnitude stops at the limit, so that a text of any length
  // can neither wrap round nor be refused.
  std::uint64_t magnitude = 0;
  const char* const first_digit = text;
  for (std::uint32_t digit; (digit = digit_value(*text)) < base; ++text) {
    magnitude = magnitude * base + digit;
    if (magnitude > kMagnitudeLimit) magnitude = kMagnitudeLimit;
  }
  if (text == first_digit || *text != '\0') return false;

  value = saturated(magnitude, negative);
  return true;
}

}  // namespace ipcam::camera
