// What the setters share: refusing an argument, filling a parameter table and sending it.
#include "dsp/setter.h"

#include <cstdio>

#include "dsp/number_text.h"
#include "dsp/register_rows.h"

namespace ipcam::camera::setter {

constinit LibraryMutex g_table_lock;

namespace {

const char* as_chars(const unsigned char* text) { return reinterpret_cast<const char*>(text); }

}  // namespace

const char* printable(const unsigned char* text) {
  return text != nullptr ? as_chars(text) : "(null)";
}

int refuse_value(const unsigned char* text) {
  std::fprintf(stderr, "%s: [ERROR] invalid value! %s\n", g_prgname, printable(text));
  return -1;
}

int refuse_value(int value) {
  std::fprintf(stderr, "%s: [ERROR] invalid value! %d\n", g_prgname, value);
  return -1;
}

int refuse_option(const unsigned char* text) {
  std::fprintf(stderr, "%s: [ERROR] invalid option! %s\n", g_prgname, printable(text));
  return -1;
}

bool starts_with(const unsigned char* text, std::string_view keyword) {
  return text != nullptr && std::string_view(as_chars(text)).starts_with(keyword);
}

bool number_within(const unsigned char* text, std::int32_t min, std::int32_t max,
                   std::int32_t& value) {
  return parse_number(as_chars(text), value) && value >= min && value <= max;
}

const KeywordSetting* find_keyword(std::span<const KeywordSetting> settings,
                                   const unsigned char* text) {
  for (const KeywordSetting& setting : settings) {
    if (starts_with(text, setting.keyword)) return &setting;
  }
  return nullptr;
}

void fill_rows(param_info* rows, std::span<const std::uint8_t> bytes) {
  for (const std::uint8_t byte : bytes) (rows++)->data = byte;
}

void fill_rows(param_info* rows, std::span<const std::uint16_t> words) { fill_words(rows, words); }

int send_rows(DspCommand& dsp, param_info* rows, int n) {
  return dsp.execute_abs_cmd(rows, n) < 0 ? -1 : 0;
}

int set_byte(DspCommand& dsp, param_info* table, std::uint8_t byte) {
  return set_bytes(dsp, table, {&byte, 1}, 1);
}

int set_bytes(DspCommand& dsp, param_info* table, std::span<const std::uint8_t> bytes, int n) {
  const LockGuard lock(g_table_lock);
  fill_rows(table, bytes);
  return send_rows(dsp, table, n);
}

int set_words(DspCommand& dsp, param_info* table, std::span<const std::uint16_t> words) {
  const LockGuard lock(g_table_lock);
  fill_rows(table, words);
  return send_rows(dsp, table, static_cast<int>(words.size() * 2));
}

int set_keyword(DspCommand& dsp, const KeywordSetting& setting) {
  return set_bytes(dsp, setting.table, {setting.data, setting.data_size}, setting.rows);
}

int set_number(DspCommand& dsp, param_info* table, const unsigned char* text, std::int32_t min,
               std::int32_t max) {
  std::int32_t value = 0;
  if (!number_within(text, min, max, value)) return refuse_value(text);
  return set_byte(dsp, table, static_cast<std::uint8_t>(value));
}

}  // namespace ipcam::camera::setter
