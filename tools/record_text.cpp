// The stored settings record by the names of its fields, and as a text file.
#include "tools/record_text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "sim/input_text.h"
#include "tools/output.h"

namespace ipcam::tools {

namespace {

constexpr std::size_t kBytesPerLine = 16;

const std::uint8_t* bytes_of(const camera::SettingsRecord& record) {
  return reinterpret_cast<const std::uint8_t*>(&record);
}

std::string trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return "";
  return std::string(text.substr(first, text.find_last_not_of(kBlanks) - first + 1));
}

// The bytes from `first` to `end`, which have no name.
void print_bytes(const camera::SettingsRecord& record, std::size_t first, std::size_t end,
                 std::string& text) {
  for (; first < end; first += std::min(kBytesPerLine, end - first)) {
    char piece[32];
    std::snprintf(piece, sizeof piece, "0x%03zx =", first);
    text += piece;
    for (std::size_t i = first; i < std::min(first + kBytesPerLine, end); ++i) {
      std::snprintf(piece, sizeof piece, " %02x", bytes_of(record)[i]);
      text += piece;
    }
    text += '\n';
  }
}

bool is_named(std::size_t offset) {
  return std::ranges::any_of(stored_fields(), [&](const Field& field) {
    return offset >= field.offset && offset < field.offset + field.width;
  });
}

bool fits(const Field& field, int value) {
  return field.width == sizeof value || (value >= 0 && value >> (8 * field.width) == 0);
}

// Returns false when the line does not hold bytes of the record that have no name.
bool set_bytes(const std::string& where, const std::string& bytes, camera::SettingsRecord& record) {
  const auto first = parse_number(where);
  if (!first || bytes.empty()) return false;
  auto offset = static_cast<std::size_t>(*first);
  std::istringstream stream(bytes);
  for (std::string byte; stream >> byte; ++offset) {
    const auto value = parse_number("0x" + byte);
    if (!value || *value > 0xff || offset >= sizeof record || is_named(offset)) return false;
    reinterpret_cast<std::uint8_t*>(&record)[offset] = static_cast<std::uint8_t>(*value);
  }
  return true;
}

}  // namespace

const Field& known_field(const std::string& name, const std::string& tried) {
  if (const Field* field = find_field(name)) return *field;
  refuse_name(tried, "field", name, field_names());
}

int field_value(const camera::SettingsRecord& record, const Field& field) {
  const std::uint8_t* bytes = bytes_of(record) + field.offset;
  std::int32_t value = 0;
  std::memcpy(&value, bytes, field.width);  // little-endian: a narrow field fills the low bytes
  return value;
}

void set_field(camera::SettingsRecord& record, const Field& field, int value) {
  const std::int32_t bytes = value;
  std::memcpy(reinterpret_cast<std::uint8_t*>(&record) + field.offset, &bytes, field.width);
}

std::string record_text(const camera::SettingsRecord& record) {
  std::string text = "# camera settings record\n";
  for (const Field& field : stored_fields()) {
    text += std::string(field.name) + " = " +
            value_text(field.values, Form::kStored, field_value(record, field)) + "\n";
  }
  text += "# bytes of other programs\n";
  std::size_t named_end = 0;
  for (const Field& field : stored_fields()) {
    print_bytes(record, named_end, field.offset, text);
    named_end = field.offset + field.width;
  }
  print_bytes(record, named_end, sizeof record, text);
  return text;
}

void apply_record_file(const std::string& file, camera::SettingsRecord& record) {
  sim::for_each_line(file, [&](const std::string& tried, const std::string& line) {
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) throw CommandError(kUsage, tried + ": no '=' in it");
    const std::string name = trimmed(std::string_view(line).substr(0, equals));
    const std::string value = trimmed(std::string_view(line).substr(equals + 1));
    if (name.starts_with("0x")) {
      if (!set_bytes(name, value, record))
        throw CommandError(kUsage, tried + ": no bytes of the record without a name");
      return;
    }
    const Field& field = known_field(name, tried);
    // A saved record is restored as it was, also where another program
    // has left a value that is out of range.
    const auto accepted = parse_value(field.values, Form::kStored, value);
    const auto stored = accepted ? accepted : parse_number(value);
    if (!stored || !fits(field, *stored))
      throw CommandError(kUsage, tried + ": " + refusal(field.values, Form::kStored, value));
    set_field(record, field, *stored);
  });
}

}  // namespace ipcam::tools
