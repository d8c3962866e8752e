// The journal: a ring of fixed-size entries, turned into text only when it is read.
#include "ipcam/platform/journal.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "journal_note.h"

namespace ipcam::platform {
namespace {

constexpr std::size_t kCapacity = 512;

struct Entry {
  const char* operation;
  std::array<int, 4> arguments;
  std::size_t argument_count;
  std::optional<int> result;
  std::array<char, 64> text;
};

// One lock for all entries: it is held for the time of one small copy, and it keeps the
// entries in the order of the calls. Nothing here has a destructor, so threads may still call
// the platform while the process exits.
std::mutex g_mutex;
std::array<Entry, kCapacity> g_entries;
std::size_t g_size;  // entries in the ring
std::size_t g_next;  // where the next one goes

Entry make_entry(const char* operation, std::initializer_list<int> arguments, std::string_view text,
                 std::optional<int> result) {
  Entry entry{
      .operation = operation, .arguments = {}, .argument_count = 0, .result = result, .text = {}};
  entry.argument_count = std::min(arguments.size(), entry.arguments.size());
  std::copy_n(arguments.begin(), entry.argument_count, entry.arguments.begin());
  text.copy(entry.text.data(), entry.text.size() - 1);
  return entry;
}

std::string to_text(const Entry& entry) {
  std::string line = entry.operation;
  line += '(';
  line += entry.text.data();
  const char* separator = entry.text[0] == '\0' ? "" : ", ";
  for (std::size_t i = 0; i < entry.argument_count; ++i) {
    line += separator + std::to_string(entry.arguments[i]);
    separator = ", ";
  }
  line += ')';
  if (entry.result) line += " = " + std::to_string(*entry.result);
  return line;
}

bool is_traced() {
  const char* value = std::getenv("IPCAM_PLATFORM_TRACE");
  return value != nullptr && std::string_view(value) == "1";
}

}  // namespace

void note(const char* operation, std::initializer_list<int> arguments, std::string_view text,
          std::optional<int> result) {
  static const bool traced = is_traced();
  const Entry entry = make_entry(operation, arguments, text, result);
  if (traced) std::fprintf(stderr, "platform: %s\n", to_text(entry).c_str());
  const std::lock_guard lock(g_mutex);
  g_entries[g_next] = entry;
  g_next = (g_next + 1) % kCapacity;
  g_size = std::min(g_size + 1, kCapacity);
}

std::vector<std::string> journal() {
  std::vector<Entry> entries;
  entries.reserve(kCapacity);
  {
    const std::lock_guard lock(g_mutex);
    const std::size_t oldest = g_next + kCapacity - g_size;
    for (std::size_t i = 0; i < g_size; ++i) entries.push_back(g_entries[(oldest + i) % kCapacity]);
  }
  std::vector<std::string> lines;
  lines.reserve(entries.size());
  for (const Entry& entry : entries) lines.push_back(to_text(entry));
  return lines;
}

void clear_journal() {
  const std::lock_guard lock(g_mutex);
  g_size = 0;
}

}  // namespace ipcam::platform
