// One line of a recording: a JSON object, put together in a buffer that it keeps.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ipcam::recorder {

using Bytes = std::span<const std::uint8_t>;
using Contents = std::optional<std::vector<std::uint8_t>>;  // none: it cannot be read

// A text of which nothing is known. A byte is the character of that number, so that any text is one
// in JSON too.
struct AnyText {
  std::string_view bytes;
};

class Line {
 public:
  // A new line in the place of the one before.
  void begin(std::string_view event, std::int64_t time_us) {
    text_ = "{";
    member("event", event);
    member("t", time_us);
  }
  // The line as a whole.
  std::string_view end() { return text_ += "}\n"; }

  // The name of an element of a list is empty.
  template <class Value>
  void member(std::string_view name, const Value& value) {
    key(name);
    put(value);
  }
  // A member that is an object or a list, up to close().
  void open(std::string_view name, char bracket) {
    key(name);
    text_ += bracket;
  }
  void close(char bracket) { text_ += bracket; }

 private:
  void key(std::string_view name) {
    if (text_.back() != '{' && text_.back() != '[') text_ += ',';
    if (name.empty()) return;
    put(name);
    text_ += ':';
  }
  void put(std::int64_t number) {
    char digits[24];
    text_.append(digits, std::to_chars(std::begin(digits), std::end(digits), number).ptr);
  }
  // A name, which has nothing that JSON would take for something else.
  void put(std::string_view name) {
    text_ += '"';
    text_ += name;
    text_ += '"';
  }
  void put(AnyText text) {
    text_ += '"';
    for (const char c : text.bytes) {
      const bool is_special = c < ' ' || c > '~' || c == '"' || c == '\\';
      if (is_special) text_ += "\\u00";
      is_special ? put_byte(static_cast<std::uint8_t>(c)) : text_.push_back(c);
    }
    text_ += '"';
  }
  void put(Bytes bytes) {
    text_ += '"';
    for (const std::uint8_t byte : bytes) put_byte(byte);
    text_ += '"';
  }
  template <class Value>
  void put(const std::optional<Value>& value) {
    value ? put(*value) : void(text_ += "null");
  }
  void put_byte(std::uint8_t byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    const char digits[] = {kDigits[byte >> 4], kDigits[byte & 0xf]};
    text_.append(digits, sizeof digits);
  }

  std::string text_;
};

}  // namespace ipcam::recorder
