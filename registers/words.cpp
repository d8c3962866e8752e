// What users write: numbers, and names that may be misspelt.
#include "registers/words.h"

#include <algorithm>
#include <charconv>
#include <numeric>

namespace ipcam::registers {

namespace {

// Letters to insert, remove or replace on the way from `a` to `b`.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({row[j] + 1, row[j + 1] + 1, replaced});
    }
  }
  return row[b.size()];
}

}  // namespace

std::optional<int> parse_number(std::string_view text) {
  const bool is_negative = text.starts_with('-');
  if (is_negative) text.remove_prefix(1);
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
    base = 16;
  }
  unsigned int magnitude = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
  if (error != std::errc() || end != text.data() + text.size() || magnitude > 0x7fffffff)
    return std::nullopt;
  return is_negative ? -static_cast<int>(magnitude) : static_cast<int>(magnitude);
}

bool same_name(std::string_view a, std::string_view b) {
  const auto letter = [](char c) { return c == '_' ? '-' : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&](char x, char y) { return letter(x) == letter(y); });
}

std::string did_you_mean(std::string_view text, const std::vector<std::string>& names) {
  std::size_t closest_distance = 3;
  std::string_view closest;
  for (const std::string_view name : names) {
    const bool is_beginning = text.size() >= 3 && name.starts_with(text);
    const std::size_t letters = is_beginning ? 1 : distance(text, name);
    if (letters >= closest_distance || letters >= text.size()) continue;
    closest = name;
    closest_distance = letters;
  }
  return closest.empty() ? "" : ", did you mean " + std::string(closest);
}

}  // namespace ipcam::registers
