// Accepted values of a setting or a stored field: parsing and printing.
#include "tools/values.h"

#include <algorithm>
#include <climits>

namespace ipcam::tools {

namespace {

bool is_accepted(const Values& values, Form form, int number) {
  if (values.words.empty()) return number >= values.min && number <= values.max;
  return std::any_of(values.words.begin(), values.words.end(),
                     [&](const Word& word) { return number_of(word, form) == number; });
}

}  // namespace

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

std::string refusal(const Values& values, Form form, const std::string& text) {
  std::vector<std::string> words;
  for (const Word& word : values.words) words.emplace_back(word.word);
  return text + " is not " + describe(values, form) + did_you_mean(text, words);
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

}  // namespace ipcam::tools
