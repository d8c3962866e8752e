// Accepted values of a setting or a stored field: a range, or words that stand for numbers.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ipcam::tools {

// The camera has two numberings: one in requests, one in the stored record.
enum class Form { kRequest, kStored };

struct Word {
  constexpr Word(std::string_view text, int both) : word(text), request(both), stored(both) {}
  constexpr Word(std::string_view text, int in_request, int in_record)
      : word(text), request(in_request), stored(in_record) {}

  std::string_view word;
  int request;
  int stored;
};

struct Values {
  int min = 0;
  int max = 0;
  std::span<const Word> words = {};  // where there are any, only their numbers are accepted
  std::string_view unit = {};
};

// The number that `text` stands for: a word, or a decimal or hexadecimal number that is accepted.
std::optional<int> parse_value(const Values& values, Form form, std::string_view text);

// A number alone, decimal or hexadecimal ("0x"), with nothing behind it.
std::optional<int> parse_number(std::string_view text);

// The word for a number where there is one, else the number.
std::string value_text(const Values& values, Form form, int number);

// "0 to 6", "2 or 30", "off (0), low (2) or high (4)", with the unit behind it.
std::string describe(const Values& values, Form form);

// ", did you mean NAME" for the closest of `names` to `text`, or an empty text when none is close.
std::string did_you_mean(std::string_view text, const std::vector<std::string_view>& names);

// Names are compared with '_' and '-' as the same letter, since requests and stored fields differ in that.
bool same_name(std::string_view a, std::string_view b);

}  // namespace ipcam::tools
