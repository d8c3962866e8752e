// Lines of a recording: JSON objects, put together behind one another.
#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
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
  template <class... Pieces>
  void begin(std::string_view event, std::int64_t time_us, const Pieces&... pieces) {
    used_ = whole_;
    add(R"({"event":")", event, R"(","t":)", time_us, pieces...);
  }
  // Pieces that follow: JSON as it stands, or the value of a member.
  template <class... Pieces>
  void add(const Pieces&... pieces) {
    (put(pieces), ...);
  }
  void end() {
    add("}\n");
    whole_ = used_;
  }

  // The whole lines.
  std::string_view text() const { return {text_.data(), whole_}; }
  void clear() { whole_ = 0; }

 private:
  [[gnu::always_inline]] char* room(std::size_t size) {
    if (text_.size() - used_ < size) text_.resize(2 * (used_ + size));
    return &text_[std::exchange(used_, used_ + size)];
  }

  // Inline, since most are literals: the copy of a few bytes whose number is known costs little.
  [[gnu::always_inline]] void put(std::string_view json) {
    std::memcpy(room(json.size()), json.data(), json.size());
  }
  void put(std::integral auto number) {
    constexpr std::size_t kMostDigits = 20;
    char* const digits = room(kMostDigits);
    char* const end = std::to_chars(digits, digits + kMostDigits, number).ptr;
    used_ -= static_cast<std::size_t>(digits + kMostDigits - end);
  }
  void put(AnyText text) {
    put("\"");
    for (const char c : text.bytes) {
      const bool is_special = c < ' ' || c > '~' || c == '"' || c == '\\';
      if (is_special) put("\\u00");
      is_special ? put_digits({reinterpret_cast<const std::uint8_t*>(&c), 1}) : put({&c, 1});
    }
    put("\"");
  }
  void put(Bytes bytes) {
    put("\"");
    put_digits(bytes);
    put("\"");
  }
  template <class Value>
  void put(const std::optional<Value>& value) {
    value ? put(*value) : put("null");
  }
  void put_digits(Bytes bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    char* place = room(2 * bytes.size());
    for (const std::uint8_t byte : bytes) {
      *place++ = kDigits[byte >> 4];
      *place++ = kDigits[byte & 0xf];
    }
  }

  std::string text_;
  std::size_t used_ = 0;
  std::size_t whole_ = 0;  // bytes of whole lines; behind them is the one that is put together
};

}  // namespace ipcam::recorder
