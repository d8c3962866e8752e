// Lines of a recording: JSON objects, put together in a buffer of their own.
#pragma once

#include <charconv>
#include <cstdint>
#include <cstring>
#include <new>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

namespace ipcam::recorder {

using Bytes = std::span<const std::uint8_t>;

// A text of which nothing is known. A byte is the character of that number, so that any text is one
// in JSON too.
struct AnyText {
  std::string_view bytes;
};

class Lines {
 public:
  // A new line behind the whole ones.
  void begin(std::string_view event, std::int64_t time_us) {
    end_ = end_of_whole_;
    *room(1) = '{';
    member("event", event);
    member("t", time_us);
  }
  void end() {
    copy("}\n");
    end_of_whole_ = end_;
    ++count_;
  }
  // The whole lines.
  std::string_view text() const { return {text_, end_of_whole_}; }
  int count() const { return count_; }
  bool is_half_full() const { return end_of_whole_ - text_ > kMostBytes / 2; }
  void clear() {
    end_of_whole_ = text_;
    count_ = 0;
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
    *room(1) = bracket;
  }
  void close(char bracket) { *room(1) = bracket; }

 private:
  // Half of it is room for a line: a packet holds 64 entries at most, of 80 characters then.
  static constexpr std::ptrdiff_t kMostBytes = 16384;

  char* room(std::size_t size) {
    if (static_cast<std::ptrdiff_t>(size) > text_ + kMostBytes - end_) throw std::bad_alloc();
    return std::exchange(end_, end_ + size);
  }
  void copy(std::string_view text) { std::memcpy(room(text.size()), text.data(), text.size()); }

  void key(std::string_view name) {
    if (end_[-1] != '{' && end_[-1] != '[') *room(1) = ',';
    if (name.empty()) return;
    put(name);
    *room(1) = ':';
  }
  void put(std::int64_t number) {
    constexpr std::size_t kMostDigits = 20;
    char* const digits = room(kMostDigits);
    end_ = std::to_chars(digits, end_, number).ptr;
  }
  // A name, which has nothing that JSON would take for something else.
  void put(std::string_view name) {
    char* const place = room(name.size() + 2);
    place[0] = '"';
    std::memcpy(place + 1, name.data(), name.size());
    place[name.size() + 1] = '"';
  }
  void put(AnyText text) {
    copy("\"");
    for (const char c : text.bytes) {
      const bool is_special = c < ' ' || c > '~' || c == '"' || c == '\\';
      if (is_special) copy("\\u00");
      is_special ? put_byte(room(2), static_cast<std::uint8_t>(c)) : copy({&c, 1});
    }
    copy("\"");
  }
  void put(Bytes bytes) {
    char* place = room(2 * bytes.size() + 2);
    *place++ = '"';
    for (const std::uint8_t byte : bytes) put_byte(std::exchange(place, place + 2), byte);
    *place = '"';
  }
  template <class Value>
  void put(const std::optional<Value>& value) {
    value ? put(*value) : copy("null");
  }
  static void put_byte(char* place, std::uint8_t byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    place[0] = kDigits[byte >> 4];
    place[1] = kDigits[byte & 0xf];
  }

  char text_[kMostBytes];
  char* end_of_whole_ = text_;
  char* end_ = text_;
  int count_ = 0;
};

}  // namespace ipcam::recorder
