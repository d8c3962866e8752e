// Collects what the library does: all since the last exchange or wait, when the next one begins.
#include "tests/support/timeline.h"

#include <cstdio>

namespace ipcam::test {
namespace {

const std::string kReadResult = "dspset: read result:\n";
const std::string kTableWritten = "dspset: write success!\n\n";

// The read of the same registers: "r 10/0x09" of "w 10/0x09=0x80".
std::string read_of(const std::string& write) {
  std::string read = "r";
  const std::size_t end = std::min(write.find(" !"), write.size());
  for (std::size_t at = 1; at < end; at = std::min(write.find(' ', at + 1), end)) {
    read += write.substr(at, write.find('=', at) - at);
  }
  return read;
}

// What a command text prints when these registers have been written.
std::string text_written(const std::string& write) {
  std::string lines = "dspset: write result:\n";
  unsigned category = 0, byte = 0, value = 0;
  int length = 0;
  for (const char* entry = &write[1];
       std::sscanf(entry, " %u/%x=%x%n", &category, &byte, &value, &length) == 3; entry += length) {
    char line[80];
    std::snprintf(line, sizeof line, "dspset: \tcategory(0x%02x) byte(0x%02x) -> 0x%x success\n",
                  category, byte, value);
    lines += line;
  }
  return lines;
}

}  // namespace

Lines Timeline::of(const std::function<void()>& action) {
  camera_.clear_traffic();
  platform::clear_journal();
  devices_.clear_journal();
  lines_.clear();
  CaughtStreams streams;
  clock_.observe_steps([&](const std::string& wait) {
    collect(streams.take());
    if (!wait.empty()) lines_.push_back(wait);
  });
  action();
  clock_.observe_steps(nullptr);
  camera_.settle();
  collect(streams.take());
  return std::move(lines_);
}

void Timeline::collect(Output printed) {
  for (const std::string& exchange : camera_.take_traffic()) add_exchange(exchange, printed.out);
  add_calls();
  for (const std::string& request : devices_.journal()) lines_.push_back(request);
  devices_.clear_journal();
  add_printed(printed.out, "dspset: ", "say ", "out ");
  add_printed(printed.err, "dspset: [ERROR] ", "error ", "err ");
}

void Timeline::add_exchange(std::string exchange, std::string& out) {
  std::string success = exchange[0] == 'r' ? kReadResult : kTableWritten;
  if (exchange[0] == 'w') {
    const std::string read = read_of(exchange), before = lines_.empty() ? "" : lines_.back();
    const bool by_text = before == read;
    if (by_text) success = text_written(exchange);
    if (by_text) exchange.insert(1, "t");
    if (by_text || before == read + " silent") {
      lines_.pop_back();
    } else {
      exchange.insert(0, "unread ");
    }
  }
  if (exchange[0] != 'x' && exchange.find(" !") == exchange.npos) {
    if (out.starts_with(success)) {
      out.erase(0, success.size());
    } else {
      exchange += " silent";
    }
  }
  lines_.push_back(exchange);
}

// Those that control the camera's other libraries. Of the settings record
// only that it is opened and written.
void Timeline::add_calls() {
  for (const std::string& call : platform::journal()) {
    if (call == "ObjectDetectionIF::config()") {
      lines_.emplace_back("config");
    } else if (call == "ConfigFile::ConfigFile(all.conf)") {
      lines_.emplace_back("open all.conf");
    } else if (call.starts_with("ConfigFile::write_record(all.conf, 3) = ")) {
      lines_.push_back("write all.conf" + std::string(call.ends_with("= 0") ? "" : " fails"));
    } else if (!call.starts_with("ThdIf_") && !call.starts_with("WitEnd_") &&
               !call.starts_with("ConfigFile::")) {
      lines_.push_back(call);
    }
  }
  platform::clear_journal();
}

// Lines that begin with `start` are shown without it.
void Timeline::add_printed(const std::string& text, const std::string& start,
                           const std::string& verb, const std::string& other_verb) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find('\n', at);
    const std::string line = text.substr(at, end - at);
    std::string shown =
        line.starts_with(start) ? verb + line.substr(start.size()) : other_verb + line;
    if (line.empty()) shown.pop_back();  // the blank behind the verb
    lines_.push_back(end == text.npos ? shown + " (no newline)" : shown);
    at = std::min(end, text.size() - 1) + 1;
  }
}

}  // namespace ipcam::test
