// Accepted values of a setting or a stored field: a range, or words that stand for numbers.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "registers/words.h"

namespace ipcam::tools {

using registers::did_you_mean;
using registers::parse_number;
using registers::same_name;

// The camera has two numberings: one in requests, one in the stored record.
enum class Form { kRequest, kStored };

struct Word {
  std::string_view word;
  int request;
  int stored = request;
};

constexpr int number_of(const Word& word, Form form) {
  return form == Form::kRequest ? word.request : word.stored;
}

struct Values {
  int min = 0;
  int max = 0;
  std::span<const Word> words = {};  // where there are any, only their numbers are accepted
  std::string_view unit = {};
};

// The number that `text` stands for: a word, or a decimal or hexadecimal number that is accepted.
std::optional<int> parse_value(const Values& values, Form form, std::string_view text);

// The word for a number where there is one, else the number.
std::string value_text(const Values& values, Form form, int number);

// "9 is not 0 to 6", with a word that may be meant.
std::string refusal(const Values& values, Form form, const std::string& text);

// "0 to 6", "2 or 30", "off (0), low (2) or high (4)", with the unit behind it.
std::string describe(const Values& values, Form form);

}  // namespace ipcam::tools
