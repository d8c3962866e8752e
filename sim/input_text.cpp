// What users of the simulated camera write: numbers, registers and faults.
#include "sim/input_text.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>

#include "registers/words.h"

namespace ipcam::sim {
namespace {

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> words;
  for (std::size_t end = text.find(separator); end != text.npos; end = text.find(separator)) {
    words.push_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  words.push_back(text);
  return words;
}

}  // namespace

void for_each_line(
    const std::string& path,
    const std::function<void(const std::string& where, const std::string& line)>& use) {
  constexpr std::streamsize kMaxLine = 4096;
  std::ifstream file(path);
  std::error_code ignored;
  if (!file.is_open() || std::filesystem::is_directory(path, ignored))
    throw UsageError(path + ": cannot be read");
  char bytes[kMaxLine + 1];
  int number = 0;
  bool is_empty = true;
  while (file.getline(bytes, sizeof bytes)) {
    ++number;
    std::string line(bytes);
    line.erase(std::min(line.find('#'), line.size()));
    if (line.find_first_not_of(" \t\r") == line.npos) continue;
    is_empty = false;
    use(path + " line " + std::to_string(number), line);
  }
  if (file.gcount() == kMaxLine)
    throw UsageError(path + " line " + std::to_string(number + 1) + ": longer than 4096 bytes");
  if (file.bad()) throw UsageError(path + ": cannot be read");
  if (is_empty) throw UsageError(path + ": is empty");
}

std::uint32_t parse_number(const std::string& tried, std::string_view text, std::uint32_t maximum) {
  const std::optional<int> value = registers::parse_number(text);
  if (value && *value >= 0 && static_cast<std::uint32_t>(*value) <= maximum)
    return static_cast<std::uint32_t>(*value);
  throw UsageError(tried + ": bad number (" + std::string(text) + ", 0 to " +
                   std::to_string(maximum) + ")");
}

registers::Address parse_register(const std::string& tried, std::string_view text) {
  if (const auto address = registers::parse_address(text)) return *address;
  throw UsageError(tried + ": no such register (" + std::string(text) +
                   registers::did_you_mean(text, registers::register_names()) +
                   ", CATEGORY/BYTE up to 255/65535 or a register's name)");
}

RegisterValues parse_register_values(const std::string& tried, std::string_view text) {
  const std::size_t equals = text.find('=');
  if (equals == text.npos)
    throw UsageError(tried + ": no value (" + std::string(text) + ", REGISTER=VALUE)");
  RegisterValues result{parse_register(tried, text.substr(0, equals)), {}};
  for (const std::string_view word : split(text.substr(equals + 1), ',')) {
    result.values.push_back(static_cast<std::uint8_t>(parse_number(tried, word, 255)));
  }
  return result;
}

RegisterValues parse_register_value(const std::string& tried, std::string_view text) {
  RegisterValues result = parse_register_values(tried, text);
  if (result.values.size() > 1)
    throw UsageError(tried + ": more than one value (" + std::string(text) + ")");
  return result;
}

PlannedFault parse_fault(const std::string& tried, std::string_view text) {
  const std::vector<std::string_view> words = split(text, ':');
  const auto* name_end = kFaultNames.end();
  const auto* fault = std::find(kFaultNames.begin() + 1, name_end, words[0]);  // the first is none
  if (fault == name_end || words.size() > 4) {
    std::string names;
    for (const auto* name = kFaultNames.begin() + 1; name != name_end; ++name)
      names += " " + std::string(*name);
    throw UsageError(tried + ": no such fault (" + std::string(text) +
                     ", NAME[:EXCHANGE[:COUNT[:ENTRY]]] with" + names + ")");
  }
  PlannedFault result{static_cast<Fault>(fault - kFaultNames.begin()), {}};
  if (words.size() > 1) result.plan.exchange = parse_number(tried, words[1], 1000000);
  if (words.size() > 2) result.plan.count = parse_number(tried, words[2], 1000000);
  if (words.size() > 3) result.plan.entry = parse_number(tried, words[3], 15);
  return result;
}

}  // namespace ipcam::sim
