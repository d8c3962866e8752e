// One line of a recording: a JSON object, put together in a buffer of its own.
#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace ipcam::recorder {

class Line {
 public:
  constexpr Line() = default;

  // A new line in the place of the one before.
  void begin(std::string_view event, std::int64_t time_us) {
    size_ = 0;
    put("{");
    member("event", event);
    member("t", time_us);
  }
  // The line as a whole.
  std::string_view end() {
    put("}\n");
    return {buffer_.data(), size_};
  }

  void member(std::string_view key, std::int64_t number) {
    this->key(key);
    element(number);
  }
  void member(std::string_view key, std::string_view text) {
    this->key(key);
    put("\"");
    for (const char letter : text) put_letter(static_cast<unsigned char>(letter));
    put("\"");
  }
  void member(std::string_view key, std::span<const std::uint8_t> bytes) {
    this->key(key);
    put("\"");
    for (const std::uint8_t byte : bytes) put_byte(byte);
    put("\"");
  }
  void null(std::string_view key) {
    this->key(key);
    put("null");
  }

  // A member that is an object or a list, up to close().
  void open(std::string_view key, char bracket) {
    this->key(key);
    put({&bracket, 1});
  }
  void close(char bracket) { put({&bracket, 1}); }
  // An object in a list.
  void open_object() {
    separate();
    put("{");
  }
  void element(std::int64_t number) {
    separate();
    char digits[24];
    put({digits, std::to_chars(std::begin(digits), std::end(digits), number).ptr});
  }

 private:
  void separate() {
    const char last = buffer_[size_ - 1];
    if (last != '{' && last != '[' && last != ':') put(",");
  }
  void key(std::string_view name) {
    separate();
    put("\"");
    put(name);
    put("\":");
  }
  void put_byte(unsigned char byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    const char digits[] = {kDigits[byte >> 4], kDigits[byte & 0xf]};
    put({digits, sizeof digits});
  }
  // A byte is the character of that number, so that any text is one in JSON too.
  void put_letter(unsigned char letter) {
    if (letter >= ' ' && letter < 0x7f && letter != '"' && letter != '\\') {
      const char plain = static_cast<char>(letter);
      return put({&plain, 1});
    }
    put("\\u00");
    put_byte(letter);
  }
  void put(std::string_view text) {
    const std::size_t size = std::min(text.size(), buffer_.size() - size_);
    std::copy_n(text.data(), size, buffer_.data() + size_);
    size_ += size;
  }

  // Enough for the longest line: an exchange whose packet is 64 entries of 2 bytes, with 6 KB.
  std::array<char, 8192> buffer_{};
  std::size_t size_ = 0;
};

}  // namespace ipcam::recorder
