// What the setters share: refusing an argument, filling a parameter table and sending it.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "dsp/locking.h"
#include "ipcam/camera/dsp_command.h"

namespace ipcam::camera::setter {

// Held by every setter from the first byte it puts into an exported table to the end of its send,
// so that two programs' threads do not mix their bytes. Taken before a DspCommand's mutex.
extern LibraryMutex g_table_lock;

// A setting that is chosen by the keyword at the start of a text.
struct KeywordSetting {
  std::string_view keyword;
  param_info* table;
  int rows;               // rows sent
  std::size_t data_size;  // rows filled from `data`; those behind them are sent as they stand
  std::uint8_t data[4];
};

// A text as it is printed: a missing one is named, not read.
const char* printable(const unsigned char* text);

// Print why an argument is refused and return -1.
int refuse_value(const unsigned char* text);
int refuse_value(int value);
int refuse_option(const unsigned char* text);

bool starts_with(const unsigned char* text, std::string_view keyword);

// Reads a number text. Returns false if it is no number or not within `min` to `max`.
bool number_within(const unsigned char* text, std::int32_t min, std::int32_t max,
                   std::int32_t& value);

// The first setting whose keyword the text begins with, or null. What stands behind the keyword is
// ignored, so a keyword that begins another one must come after it.
const KeywordSetting* find_keyword(std::span<const KeywordSetting> settings,
                                   const unsigned char* text);

// Fills consecutive rows with bytes, or with 16-bit values in two rows each, low byte first.
void fill_rows(param_info* rows, std::span<const std::uint8_t> bytes) IPCAM_REQUIRES(g_table_lock);
void fill_rows(param_info* rows, std::span<const std::uint16_t> words) IPCAM_REQUIRES(g_table_lock);

// Sends `n` rows as they stand. Returns 0 or -1.
int send_rows(DspCommand& dsp, param_info* rows, int n) IPCAM_REQUIRES(g_table_lock);

// Fill and send in one step, under the table lock. set_bytes() sends the first `n`
// rows, also those that it does not fill.
int set_byte(DspCommand& dsp, param_info* table, std::uint8_t byte) IPCAM_EXCLUDES(g_table_lock);
int set_bytes(DspCommand& dsp, param_info* table, std::span<const std::uint8_t> bytes, int n)
    IPCAM_EXCLUDES(g_table_lock);
int set_words(DspCommand& dsp, param_info* table, std::span<const std::uint16_t> words)
    IPCAM_EXCLUDES(g_table_lock);
int set_keyword(DspCommand& dsp, const KeywordSetting& setting) IPCAM_EXCLUDES(g_table_lock);

// A one-row table whose value is a number text within `min` to `max`: check, fill and send.
int set_number(DspCommand& dsp, param_info* table, const unsigned char* text, std::int32_t min,
               std::int32_t max) IPCAM_EXCLUDES(g_table_lock);

}  // namespace ipcam::camera::setter
