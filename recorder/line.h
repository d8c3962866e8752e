// One line of a recording: a JSON object, put together in a buffer that it keeps.
#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace ipcam::recorder {

using Bytes = std::span<const std::uint8_t>;
using Contents = std::optional<std::vector<std::uint8_t>>;  // none: it cannot be read

class Line {
 public:
  // A new line in the place of the one before.
  void begin(std::string_view event, std::int64_t time_us) {
    size_ = 0;
    put_plain("{");
    member("event", event);
    member("t", time_us);
  }
  // The line as a whole.
  std::string_view end() {
    put_plain("}\n");
    return {text_.data(), size_};
  }

  // The name of an element of a list is empty.
  template <class Value>
  void member(std::string_view name, const Value& value) {
    key(name);
    put(value);
  }
  // A member that is an object or a list, up to close().
  void open(std::string_view name, char bracket) {
    key(name);
    put_plain({&bracket, 1});
  }
  void close(char bracket) { put_plain({&bracket, 1}); }

 private:
  void key(std::string_view name) {
    const char last = text_[size_ - 1];
    if (last != '{' && last != '[') put_plain(",");
    if (name.empty()) return;
    put_plain("\"");
    put_plain(name);
    put_plain("\":");
  }
  void put(std::int64_t number) {
    char digits[24];
    put_plain({digits, std::to_chars(std::begin(digits), std::end(digits), number).ptr});
  }
  void put(std::nullptr_t) { put_plain("null"); }
  // A byte is the character of that number, so that any text is one in JSON too.
  void put(std::string_view text) {
    const auto is_special = [](char c) { return c < ' ' || c > '~' || c == '"' || c == '\\'; };
    put_plain("\"");
    for (auto rest = text.begin(); rest != text.end();) {
      const auto plain = rest;
      rest = std::find_if(plain, text.end(), is_special);
      put_plain({plain, rest});
      if (rest == text.end()) break;
      put_plain("\\u00");
      put_byte(static_cast<std::uint8_t>(*rest++));
    }
    put_plain("\"");
  }
  void put(Bytes bytes) {
    put_plain("\"");
    for (const std::uint8_t byte : bytes) put_byte(byte);
    put_plain("\"");
  }
  void put(const Contents& contents) { contents ? put(Bytes(*contents)) : put(nullptr); }
  void put_byte(std::uint8_t byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    const char digits[] = {kDigits[byte >> 4], kDigits[byte & 0xf]};
    put_plain({digits, sizeof digits});
  }
  void put_plain(std::string_view text) {
    size_ += text.copy(text_.data() + size_, text_.size() - size_);
  }

  // More than the longest line has: an exchange whose command is 64 entries of 2 bytes, 6 KB.
  std::array<char, 8192> text_;
  std::size_t size_ = 0;
};

}  // namespace ipcam::recorder
