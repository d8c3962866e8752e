// Accepted values of a setting or a stored field: parsing, printing, near misses.
#include "tools/values.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <numeric>

namespace ipcam::tools {

namespace {

int number_of(const Word& word, Form form) { return form == Form::kRequest ? word.request : word.stored; }

bool is_accepted(const Values& values, Form form, int number) {
  if (values.words.empty()) return number >= values.min && number <= values.max;
  return std::any_of(values.words.begin(), values.words.end(),
                     [&](const Word& word) { return number_of(word, form) == number; });
}

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
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
  if (error != std::errc() || end != text.data() + text.size() || magnitude > 0x7fffffff) return std::nullopt;
  return is_negative ? -static_cast<int>(magnitude) : static_cast<int>(magnitude);
}

std::optional<int> parse_value(const Values& values, Form form, std::string_view text) {
  for (const Word& word : values.words) {
    if (same_name(word.word, text)) return number_of(word, form);
  }
  const std::optional<int> number = parse_number(text);
  if (!number || !is_accepted(values, form, *number)) return std::nullopt;
  return number;
}

std::string value_text(const Values& values, Form form, int number) {
  for (const Word& word : values.words) {
    if (number_of(word, form) == number) return std::string(word.word);
  }
  return std::to_string(number);
}

std::string describe(const Values& values, Form form) {
  if (values.words.empty() && values.min == INT_MIN) return "any number";
  std::string text;
  if (values.words.empty()) text = std::to_string(values.min) + " to " + std::to_string(values.max);
  for (std::size_t i = 0; i < values.words.size(); ++i) {
    const Word& word = values.words[i];
    if (i > 0) text += i + 1 < values.words.size() ? ", " : " or ";
    text += word.word;
    const std::string number = std::to_string(number_of(word, form));
    if (number != word.word) text += " (" + number + ")";
  }
  if (!values.unit.empty()) text += " " + std::string(values.unit);
  return text;
}

bool same_name(std::string_view a, std::string_view b) {
  const auto letter = [](char c) { return c == '_' ? '-' : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&](char x, char y) { return letter(x) == letter(y); });
}

std::string did_you_mean(std::string_view text, const std::vector<std::string_view>& names) {
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

}  // namespace ipcam::tools
