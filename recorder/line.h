// One line of a recording: a JSON object, put together in a buffer that it keeps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ipcam::recorder {

using Bytes = std::span<const std::uint8_t>;
using Contents = std::optional<std::vector<std::uint8_t>>;  // none: it cannot be read

class Line {
 public:
  // A new line in the place of the one before.
  void begin(std::string_view event, std::int64_t time_us) {
    text_ = "{";
    member("event", event);
    member("t", time_us);
  }
  // The line as a whole.
  const std::string& end() { return text_ += "}\n"; }

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
    if (!name.empty()) text_.append("\"").append(name).append("\":");
  }
  void put(std::int64_t number) { text_ += std::to_string(number); }
  void put(std::nullptr_t) { text_ += "null"; }
  // A byte is the character of that number, so that any text is one in JSON too.
  void put(std::string_view text) {
    text_ += '"';
    for (const char letter : text) {
      if (letter >= ' ' && letter < 0x7f && letter != '"' && letter != '\\') {
        text_ += letter;
      } else {
        text_ += "\\u00";
        put_byte(static_cast<std::uint8_t>(letter));
      }
    }
    text_ += '"';
  }
  void put(Bytes bytes) {
    text_ += '"';
    for (const std::uint8_t byte : bytes) put_byte(byte);
    text_ += '"';
  }
  void put(const Contents& contents) { contents ? put(Bytes(*contents)) : put(nullptr); }
  void put_byte(std::uint8_t byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    text_ += kDigits[byte >> 4];
    text_ += kDigits[byte & 0xf];
  }

  std::string text_;
};

}  // namespace ipcam::recorder
