// camctl recording: what is in recordings, for readers, for trace viewers, and compared.
#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "tools/session.h"

namespace ipcam::tools {

namespace {

constexpr std::uintmax_t kMaxFile = 256u << 20;

// A start-up, a request or a run of a worker, as one line of the log.
struct Row {
  std::int64_t t_us = 0;
  std::int64_t end_us = 0;
  const RecordedRequest* request = nullptr;
  const RecordedAnswer* answer = nullptr;
  std::vector<LoggedExchange> exchanges = {};

  std::size_t failed_exchanges() const {
    return static_cast<std::size_t>(std::ranges::count_if(exchanges, reports_failure));
  }
  bool has_failed() const {
    const bool is_refused = request != nullptr && (answer == nullptr || answer->result != 0);
    return is_refused || failed_exchanges() != 0;
  }
};

std::map<Place, Row> rows_of(const Recording& recording) {
  std::map<Place, Row> rows;
  const auto row_of = [&](const Place& place, std::int64_t t_us, std::int64_t end_us) -> Row& {
    Row& row = rows.try_emplace(place, Row{.t_us = t_us}).first->second;
    row.end_us = std::max(row.end_us, end_us);
    return row;
  };
  for (const Event& event : recording.events) {
    const auto t = event.t_us;
    if (const auto* request = event.as<RecordedRequest>())
      row_of({Place::Kind::kRequest, request->number}, t, t).request = request;
    if (const auto* answer = event.as<RecordedAnswer>())
      row_of({Place::Kind::kRequest, answer->number}, t, t).answer = answer;
    const auto* exchange = event.as<RecordedExchange>();
    if (exchange != nullptr && exchange->place)
      row_of(*exchange->place, t, t + exchange->took_us).exchanges.push_back(*exchange);
  }
  return rows;
}

std::string title(const Place& place, const Row& row) {
  return place_text(place) + (row.request == nullptr ? "" : " " + request_text(*row.request));
}

std::string milliseconds(std::int64_t us) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f ms", static_cast<double>(us) / 1000);
  return text;
}

// "result -1", "no answer", "2 of 5 exchanges failed".
std::string failures(const Row& row) {
  std::string text;
  if (row.request != nullptr && row.answer == nullptr) text = "no answer";
  if (row.answer != nullptr && row.answer->result != 0)
    text = "result " + std::to_string(row.answer->result);
  const std::size_t failed = row.failed_exchanges();
  if (failed == 0) return text;
  return text + (text.empty() ? "" : ", ") + std::to_string(failed) + " of " +
         std::to_string(row.exchanges.size()) + " exchanges failed";
}

bool uses(const Row& row, Address address) {
  return std::ranges::any_of(row.exchanges, [&](const LoggedExchange& exchange) {
    const std::vector<wire::CommandEntry> entries = wire::decode_command(exchange.command).entries;
    return std::ranges::any_of(entries, [&](const wire::CommandEntry& entry) {
      return entry.category == address.category && address.byte >= entry.byte &&
             address.byte - entry.byte < static_cast<int>(entry.values.size());
    });
  });
}

std::string name_of(Address address) {
  const std::string name = register_name(address);
  return name.empty() ? address_text(address) : name;
}

void show_row(Output& out, const Place& place, const Row& row) {
  constexpr std::size_t kShown = 8;
  char time[32];
  std::snprintf(time, sizeof time, "%12.6f  ", static_cast<double>(row.t_us) / 1e6);
  std::string text =
      time + padded(title(place, row), 36) + " " + padded(milliseconds(row.end_us - row.t_us), 10);
  const std::vector<RegisterWrite> writes = carried_out_writes(row.exchanges);
  Json written = Json::array();
  for (const RegisterWrite& write : writes) {
    written.push_back({{"register", name_of(write.address)}, {"value", write.value}});
    if (written.size() <= kShown) text += " " + name_of(write.address) + "=" + hex(write.value);
  }
  if (writes.size() > kShown) text += " and " + std::to_string(writes.size() - kShown) + " more";
  const std::string failed = failures(row);
  if (!failed.empty()) text += "  " + out.styled(Output::Style::kBad, failed);
  Json json = {{"what", title(place, row)},
               {"t_us", row.t_us},
               {"took_us", row.end_us - row.t_us},
               {"writes", written},
               {"failures", failed}};
  if (row.request != nullptr) json["number"] = place.number;
  if (row.answer != nullptr && row.answer->value) json["answer"] = *row.answer->value;
  out.result(json, text);
}

// What fits beside another column, from the word on that holds the character `at`.
std::string clipped(const std::string& text, std::size_t at) {
  constexpr std::size_t kWidth = 72;
  if (text.size() <= kWidth) return text;
  const std::size_t blank = at < kWidth / 2 ? text.npos : text.rfind(' ', at);
  const std::size_t begin = blank == text.npos ? 0 : blank + 1;
  return (begin == 0 ? "" : "... ") + text.substr(begin, kWidth - 8) +
         (text.size() - begin > kWidth - 8 ? " ..." : "");
}

// One event of the trace viewers' format; `extra` is for its arguments.
Json slice(const std::string& name, std::int64_t begin, std::int64_t end, int thread, bool failed,
           const Json& arguments) {
  Json json = {{"name", name},
               {"ph", "X"},
               {"ts", begin},
               {"dur", std::max<std::int64_t>(end - begin, 0)},
               {"pid", 1},
               {"tid", thread},
               {"cat", failed ? "failed" : "done"},
               {"args", arguments}};
  if (failed) json["cname"] = "terrible";
  return json;
}

Json thread_name(int thread, const std::string& name) {
  return {{"name", "thread_name"},
          {"ph", "M"},
          {"pid", 1},
          {"tid", thread},
          {"args", {{"name", name}}}};
}

}  // namespace

Recording load_recording(Context& context, const std::string& file) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error))
    throw CommandError(kUsage, "recording " + file + ": no such file");
  if (std::filesystem::file_size(file, error) > kMaxFile)
    throw CommandError(kUsage, "recording " + file + ": too large (up to 256 MiB)");
  std::ifstream stream(file, std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(stream), {});
  Recording recording = read_recording(text);
  if (stream.bad() || recording.events.empty())
    throw CommandError(kUsage, "recording " + file + ": no line of a recording in it");
  for (const std::string& fault : recording.faults) context.out.note(file + " " + fault);
  return recording;
}

int finish_recording(Context& context, const std::string& file, const Recording& recording,
                     int code) {
  if (!recording.faults.empty())
    throw CommandError(kUsage, "recording " + file + ": lines that cannot be read: " +
                                   std::to_string(recording.faults.size()));
  context.out.finish();
  return code;
}

int recording_show(Context& context, const std::string& file, const RecordingRows& wanted) {
  const Recording recording = load_recording(context, file);
  std::optional<Address> address;
  if (!wanted.register_name.empty()) {
    address = registers::parse_address(wanted.register_name);
    if (!address) throw CommandError(kUsage, "recording show: no register " + wanted.register_name);
  }
  if (const RecordedStart* start = recording.start())
    context.out.note(start->program + ", since " + start->wall);
  std::multimap<std::int64_t, std::pair<Place, Row>> by_time;
  for (const auto& [place, row] : rows_of(recording)) by_time.insert({row.t_us, {place, row}});
  for (const auto& [t_us, entry] : by_time) {
    const auto& [place, row] = entry;
    const double t_s = static_cast<double>(t_us) / 1e6;
    const bool is_in_time = t_s >= wanted.since_s && (wanted.until_s == 0 || t_s <= wanted.until_s);
    const bool is_asked =
        wanted.request == 0 || (row.request != nullptr && place.number == wanted.request);
    if (!is_in_time || !is_asked || (address && !uses(row, *address))) continue;
    show_row(context.out, place, row);
    if (wanted.request == 0) continue;
    for (const LoggedExchange& exchange : row.exchanges)
      context.out.result({{"exchange", exchange_text(exchange)}}, "    " + exchange_text(exchange));
  }
  for (const Event& event : recording.events) {
    if (const auto* lost = event.as<LostLines>())
      context.out.note(file + ": " + std::to_string(lost->count) + " lines lost before " +
                       milliseconds(event.t_us));
  }
  return finish_recording(context, file, recording, kDone);
}

int recording_stats(Context& context, const std::string& file) {
  const Recording recording = load_recording(context, file);
  struct Figures {
    std::vector<std::int64_t> times;
    int count = 0;
    int failed = 0;
  };
  std::map<std::string, Figures> by_name;
  for (const auto& [place, row] : rows_of(recording)) {
    if (row.request == nullptr) continue;
    const std::string text = request_text(*row.request);
    Figures& figures = by_name[row.request->raw ? "raw command" : text.substr(0, text.find('='))];
    if (row.answer != nullptr) figures.times.push_back(row.end_us - row.t_us);
    if (row.has_failed()) ++figures.failed;
    ++figures.count;
  }
  for (auto& [name, figures] : by_name) {
    std::ranges::sort(figures.times);
    const std::size_t count = figures.times.size();
    const std::int64_t median = count == 0 ? 0 : figures.times[count / 2];
    const std::int64_t worst = count == 0 ? 0 : figures.times.back();
    context.out.result({{"name", name},
                        {"count", figures.count},
                        {"median_us", median},
                        {"worst_us", worst},
                        {"failed", figures.failed}},
                       padded(name, 24) + padded(std::to_string(figures.count), 7) + "  median " +
                           padded(milliseconds(median), 11) + "worst " +
                           padded(milliseconds(worst), 11) + "failed " +
                           std::to_string(figures.failed));
  }
  return finish_recording(context, file, recording, kDone);
}

void show_difference(Output& out, const Difference& difference, const std::string& left,
                     const std::string& right) {
  constexpr std::size_t kBefore = 3;
  constexpr std::size_t kBehind = 2;
  const std::size_t first = difference.first;
  const std::size_t size = std::max(difference.lines[0].size(), difference.lines[1].size());
  // Packets can differ in what their text does not show.
  const auto is_hidden = [&](std::size_t i) {
    return i == first && i < std::min(difference.lines[0].size(), difference.lines[1].size()) &&
           difference.lines[0][i].text == difference.lines[1][i].text;
  };
  const auto text_of = [&](int side, std::size_t i) {
    const std::vector<SessionLine>& lines = difference.lines[side];
    if (i >= lines.size()) return std::string("-");
    return is_hidden(i) ? lines[i].identity : lines[i].text;
  };

  std::vector<std::array<std::string, 3>> rows = {{"  ", left, right}};
  Json around = Json::array();
  for (std::size_t i = 0; i < std::min(size, first + kBehind); ++i) {
    // The first line of a request says which one it is.
    const bool is_title = i == 0 && difference.place.kind == Place::Kind::kRequest;
    if (i + kBefore < first && !is_title) continue;
    const std::string before = text_of(0, i);
    const std::string now = text_of(1, i);
    const auto at =
        static_cast<std::size_t>(std::ranges::mismatch(before, now).in1 - before.begin());
    rows.push_back({i == first ? "! " : "  ", clipped(before, at % before.size()),
                    clipped(now, at % before.size())});
    around.push_back({{"line", i + 1}, {left, before}, {right, now}});
  }
  std::size_t width = 0;
  for (const auto& row : rows) width = std::max(width, row[1].size());
  std::string text =
      place_text(difference.place) + ", line " + std::to_string(first + 1) + ": different";
  for (const auto& [mark, before, now] : rows)
    text.append("\n").append(mark).append(padded(before, width)).append(" | ").append(now);
  out.result({{"same", false},
              {"place", place_text(difference.place)},
              {"line", first + 1},
              {"around", around}},
             text);
}

int recording_diff(Context& context, const std::string& file, const std::string& other) {
  const Recording a = load_recording(context, file);
  const Recording b = load_recording(context, other);
  const auto difference = first_difference(session_of(a), session_of(b));
  if (difference) {
    show_difference(context.out, *difference, file, other);
  } else {
    context.out.result({{"same", true}}, "the same");
  }
  if (!a.faults.empty()) return finish_recording(context, file, a, kUsage);
  return finish_recording(context, other, b, difference ? kRefused : kDone);
}

// A request is a slice of its caller's row, and, while it is served, of the control thread's.
int recording_chrome(Context& context, const std::string& file) {
  const Recording recording = load_recording(context, file);
  Json trace = Json::array();
  std::map<int, std::string> threads;
  std::map<Place, int> servers;
  for (const Event& event : recording.events) {
    if (const auto* request = event.as<RecordedRequest>()) threads[request->thread] = "caller";
    const auto* exchange = event.as<RecordedExchange>();
    if (exchange == nullptr) continue;
    const bool failed = reports_failure(*exchange);
    trace.push_back(slice(exchange_text(*exchange), event.t_us, event.t_us + exchange->took_us,
                          exchange->thread, failed, Json::object()));
    if (exchange->place) servers[*exchange->place] = exchange->thread;
    threads.try_emplace(exchange->thread, exchange->place ? place_text(*exchange->place) : "other");
  }
  std::int64_t served_until = 0;
  for (const auto& [place, row] : rows_of(recording)) {
    const std::string name = title(place, row);
    const Json arguments = {{"failures", failures(row)}};
    if (row.request != nullptr)
      trace.push_back(
          slice(name, row.t_us, row.end_us, row.request->thread, row.has_failed(), arguments));
    if (!servers.contains(place)) continue;
    const bool is_served = place.kind == Place::Kind::kRequest;
    const std::int64_t begin = is_served ? std::max(row.t_us, served_until) : row.t_us;
    trace.push_back(slice(name, begin, row.end_us, servers[place], row.has_failed(), arguments));
    if (is_served) served_until = row.end_us;
    if (is_served || place.kind == Place::Kind::kStartUp)
      threads[servers[place]] = "control thread";
  }
  for (const auto& [thread, name] : threads) trace.push_back(thread_name(thread, name));
  context.out.line(json_text(trace));
  Output::Modes modes = context.out.modes();
  modes.json = false;  // the trace is the result
  context.out.use(modes);
  return finish_recording(context, file, recording, kDone);
}

}  // namespace ipcam::tools
