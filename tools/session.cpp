// What a session did, in parts that can be compared: without times and the numbers of threads.
#include "tools/session.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <sstream>

#include "sim/exchange_text.h"
#include "sim/trace_line.h"
#include "tools/record_text.h"
#include "tools/settings_table.h"

namespace ipcam::tools {

namespace {

struct Line {
  std::string text;       // for a reader
  std::string identity;   // all that counts
  bool is_loose = false;  // may be missing
};

std::string hex_text(wire::Bytes bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) text += " " + hex(byte).substr(2);
  return text;
}

Line line_of(const RecordedRequest& request) {
  const std::string text = request_text(request);
  return {text, text + " (code " + std::to_string(request.code) + ", value " +
                    std::to_string(request.value) + ", length " +
                    std::to_string(request.raw_length) + ")"};
}

Line line_of(const RecordedExchange& exchange) {
  std::string identity = hex_text(wire::used_bytes(exchange.command)) + " ->";
  if (exchange.reply)
    identity += hex_text(wire::used_bytes(*exchange.reply)) + " (" +
                std::to_string(exchange.reply->count) + " entries)";
  return {exchange_text(exchange), identity, exchange.is_loose};
}

std::vector<Line> lines_of(const Part& part) {
  std::vector<Line> lines;
  std::istringstream settings(part.settings);
  for (std::string line; std::getline(settings, line);) lines.push_back({line, line});
  if (part.request) lines.push_back(line_of(*part.request));
  for (const RecordedExchange& exchange : part.exchanges) lines.push_back(line_of(exchange));
  if (part.answer) lines.push_back({answer_text(*part.answer), answer_text(*part.answer)});
  return lines;
}

// Number of the first line that differs.
std::optional<std::size_t> difference_of(const std::vector<Line>& a, const std::vector<Line>& b) {
  const std::size_t both = std::min(a.size(), b.size());
  const std::vector<Line>& longer = a.size() > both ? a : b;
  for (std::size_t i = 0; i < longer.size(); ++i) {
    const bool is_same = i < both ? a[i].identity == b[i].identity : longer[i].is_loose;
    if (!is_same) return i;
  }
  return std::nullopt;
}

// What fits beside another column, from a little before the character `at` on.
std::string clipped(const std::string& text, std::size_t at) {
  constexpr std::size_t kWidth = 68;
  const std::size_t begin = text.size() <= kWidth || at < kWidth ? 0 : at - kWidth / 2;
  const bool is_cut = begin + kWidth < text.size();
  return (begin == 0 ? "" : "... ") + text.substr(begin, kWidth) + (is_cut ? " ..." : "");
}

void show_lines(Output& out, const Place& place, std::size_t first, const std::vector<Line>& a,
                const std::vector<Line>& b, const std::string& left, const std::string& right) {
  constexpr std::size_t kBefore = 3;
  constexpr std::size_t kBehind = 2;
  // Packets can differ in what their text does not show.
  const bool is_hidden = first < std::min(a.size(), b.size()) && a[first].text == b[first].text;
  const auto text_of = [&](const std::vector<Line>& lines, std::size_t i) {
    if (i >= lines.size()) return std::string("-");
    return is_hidden && i == first ? lines[i].identity : lines[i].text;
  };
  std::vector<std::array<std::string, 3>> rows = {{"  ", left, right}};
  Json around = Json::array();
  for (std::size_t i = 0; i < std::min(std::max(a.size(), b.size()), first + kBehind); ++i) {
    // The first line of a request says which one it is.
    const bool is_title = i == 0 && place.kind == Place::Kind::kRequest;
    if (i + kBefore < first && !is_title) continue;
    const std::string before = text_of(a, i);
    const std::string now = text_of(b, i);
    const auto same = std::ranges::mismatch(before, now).in1 - before.begin();
    const auto at = i == first ? static_cast<std::size_t>(same) : 0;
    rows.push_back({i == first ? "! " : "  ", clipped(before, at), clipped(now, at)});
    around.push_back({{"line", i + 1}, {left, before}, {right, now}});
  }
  std::size_t width = 0;
  for (const auto& row : rows) width = std::max(width, row[1].size());
  std::string text = place_text(place) + ", line " + std::to_string(first + 1) + ": different";
  for (const auto& [mark, before, now] : rows)
    text.append("\n").append(mark).append(padded(before, width)).append(" | ").append(now);
  out.result(
      {{"same", false}, {"place", place_text(place)}, {"line", first + 1}, {"around", around}},
      text);
}

}  // namespace

Session session_of(const Recording& recording) {
  Session session;
  MaybeRecord stored;
  const auto part_of = [&](const Place& place, std::int64_t t_us, std::int64_t end_us) -> Part& {
    Part& part = session.try_emplace(place, Part{.t_us = t_us}).first->second;
    part.end_us = std::max(part.end_us, end_us);
    return part;
  };
  for (const Event& event : recording.events) {
    const auto t = event.t_us;
    if (const auto* start = event.as<RecordedStart>()) {
      stored = changed(start->stored, stored);
      std::string& text = part_of({Place::Kind::kBefore, 0}, t, t).settings;
      text = settings_text(stored);
      for (const auto& [path, bytes] : start->files)
        text += path + (bytes ? ":" + hex_text(*bytes) : " cannot be read") + "\n";
    }
    if (const auto* request = event.as<RecordedRequest>())
      part_of({Place::Kind::kRequest, request->number}, t, t).request = *request;
    if (const auto* answer = event.as<RecordedAnswer>())
      part_of({Place::Kind::kRequest, answer->number}, t, t).answer = *answer;
    if (const auto* change = event.as<StoredChange>()) stored = changed(*change, stored);
    const auto* exchange = event.as<RecordedExchange>();
    if (exchange != nullptr && exchange->place)
      part_of(*exchange->place, t, t + exchange->took_us).exchanges.push_back(*exchange);
    if (event.as<RecordedEnd>() != nullptr)
      part_of({Place::Kind::kAfter, 0}, t, t).settings = settings_text(stored);
  }
  return session;
}

std::string request_text(const RecordedRequest& request) {
  if (request.raw) return "\"" + *request.raw + "\"";
  for (const Setting& setting : settings()) {
    if (setting.code != request.code) continue;
    const bool has_value = setting.kind == Kind::kSetting || setting.kind == Kind::kStored;
    return std::string(setting.name) +
           (has_value ? "=" + value_text(setting.values, Form::kRequest, request.value) : "");
  }
  return "code " + std::to_string(request.code) + "=" + std::to_string(request.value);
}

std::string exchange_text(const LoggedExchange& exchange) {
  if (!exchange.reply) return sim::command_text({exchange.command, {}, {}}) + " -> no reply";
  return sim::trace_line({exchange.command, *exchange.reply, {}});
}

std::string answer_text(const RecordedAnswer& answer) {
  std::string text = "result " + std::to_string(answer.result);
  if (answer.value) text += ", answer " + std::to_string(*answer.value);
  if (answer.reply) text += ", reply" + hex_text(*answer.reply);
  return text;
}

std::string place_text(const Place& place) {
  const std::string from_1 = std::to_string(place.number + 1);
  switch (place.kind) {
    case Place::Kind::kBefore:
      return "settings before";
    case Place::Kind::kStartUp:
      return "start-up " + from_1;
    case Place::Kind::kRequest:
      return "request " + std::to_string(place.number);
    case Place::Kind::kOnepush:
      return "one-push measurement " + from_1;
    case Place::Kind::kEvr:
      return "EVR worker run " + from_1;
    default:
      return "settings afterwards";
  }
}

std::string settings_text(const MaybeRecord& stored) {
  return stored ? record_text(*stored) : "cannot be read\n";
}

bool is_same(const Part& a, const Part& b) { return !difference_of(lines_of(a), lines_of(b)); }

ExitCode show_difference(Output& out, const Session& a, const Session& b, const std::string& left,
                         const std::string& right) {
  Session all = b;
  all.insert(a.begin(), a.end());
  std::size_t exchanges = 0;
  for (const auto& [place, part] : all) {
    const auto lines_in = [&place = place](const Session& session) {
      const auto found = session.find(place);
      return lines_of(found == session.end() ? Part{} : found->second);
    };
    const std::vector<Line> before = lines_in(a);
    const std::vector<Line> now = lines_in(b);
    const auto first = difference_of(before, now);
    if (first) {
      show_lines(out, place, *first, before, now, left, right);
      return kRefused;
    }
    exchanges += part.exchanges.size();
  }
  out.result({{"same", true}, {"exchanges", exchanges}},
             "the same: " + std::to_string(exchanges) + " exchanges");
  return kDone;
}

}  // namespace ipcam::tools
