// camctl recording: what is in recordings, for readers, for trace viewers, and compared.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "tools/session.h"

namespace ipcam::tools {

namespace {

constexpr std::uintmax_t kMaxFile = 256u << 20;

std::size_t failed_exchanges(const Part& part) {
  return static_cast<std::size_t>(std::ranges::count_if(part.exchanges, reports_failure));
}

std::string milliseconds(std::int64_t us) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f ms", static_cast<double>(us) / 1000);
  return text;
}

// "result -1", "no answer", "2 of 5 exchanges failed"; empty: none.
std::string failures(const Part& part) {
  std::string text;
  if (part.request && !part.answer) text = "no answer";
  if (part.answer && part.answer->result != 0)
    text = "result " + std::to_string(part.answer->result);
  const std::size_t failed = failed_exchanges(part);
  if (failed == 0) return text;
  return text + (text.empty() ? "" : ", ") + std::to_string(failed) + " of " +
         std::to_string(part.exchanges.size()) + " exchanges failed";
}

std::string title(const Place& place, const Part& part) {
  return place_text(place) + (part.request ? " " + request_text(*part.request) : "");
}

bool uses(const Part& part, Address address) {
  for (const LoggedExchange& exchange : part.exchanges) {
    for (const wire::CommandEntry& entry : wire::decode_command(exchange.command).entries) {
      for (std::size_t i = 0; i < entry.values.size(); ++i) {
        if (address_in(entry, i) == address) return true;
      }
    }
  }
  return false;
}

std::string name_of(Address address) {
  const std::string name = register_name(address);
  return name.empty() ? address_text(address) : name;
}

void show_part(Output& out, const Place& place, const Part& part) {
  constexpr std::size_t kShown = 8;
  char time[32];
  std::snprintf(time, sizeof time, "%12.6f  ", static_cast<double>(part.t_us) / 1e6);
  std::string text = time + padded(title(place, part), 36) + " " +
                     padded(milliseconds(part.end_us - part.t_us), 10);
  const std::vector<RegisterWrite> writes =
      carried_out_writes({part.exchanges.begin(), part.exchanges.end()});
  Json written = Json::array();
  for (const RegisterWrite& write : writes) {
    written.push_back({{"register", name_of(write.address)}, {"value", write.value}});
    if (written.size() <= kShown) text += " " + name_of(write.address) + "=" + hex(write.value);
  }
  if (writes.size() > kShown) text += " and " + std::to_string(writes.size() - kShown) + " more";
  const std::string failed = failures(part);
  if (!failed.empty()) text += "  " + out.styled(Output::Style::kBad, failed);
  Json json = {{"what", title(place, part)},
               {"t_us", part.t_us},
               {"took_us", part.end_us - part.t_us},
               {"writes", written},
               {"failures", failed}};
  if (part.request) json["number"] = place.number;
  if (part.answer && part.answer->value) json["answer"] = *part.answer->value;
  out.result(json, text);
}

// One event of the trace viewers' format.
Json slice(const std::string& name, std::int64_t begin, std::int64_t end, int thread,
           const std::string& failures) {
  Json json = {{"name", name},
               {"ph", "X"},
               {"ts", begin},
               {"dur", std::max<std::int64_t>(end - begin, 0)},
               {"pid", 1},
               {"tid", thread},
               {"cat", failures.empty() ? "done" : "failed"},
               {"args", {{"failures", failures}}}};
  if (!failures.empty()) json["cname"] = "terrible";
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
  std::multimap<std::int64_t, std::pair<Place, Part>> by_time;
  for (const auto& [place, part] : session_of(recording)) {
    const bool is_end = place.kind == Place::Kind::kBefore || place.kind == Place::Kind::kAfter;
    if (!is_end) by_time.insert({part.t_us, {place, part}});
  }
  for (const auto& [t_us, entry] : by_time) {
    const auto& [place, part] = entry;
    const double t_s = static_cast<double>(t_us) / 1e6;
    const bool is_in_time = t_s >= wanted.since_s && (wanted.until_s == 0 || t_s <= wanted.until_s);
    const bool is_asked = wanted.request == 0 || (part.request && place.number == wanted.request);
    if (!is_in_time || !is_asked || (address && !uses(part, *address))) continue;
    show_part(context.out, place, part);
    if (wanted.request == 0) continue;
    for (const LoggedExchange& exchange : part.exchanges)
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
  for (const auto& [place, part] : session_of(recording)) {
    if (!part.request) continue;
    const std::string text = request_text(*part.request);
    Figures& figures = by_name[part.request->raw ? "raw command" : text.substr(0, text.find('='))];
    if (part.answer) figures.times.push_back(part.end_us - part.t_us);
    if (!failures(part).empty()) ++figures.failed;
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

int recording_diff(Context& context, const std::string& file, const std::string& other) {
  const Recording a = load_recording(context, file);
  const Recording b = load_recording(context, other);
  const ExitCode code = show_difference(context.out, session_of(a), session_of(b), file, other);
  if (!a.faults.empty()) return finish_recording(context, file, a, code);
  return finish_recording(context, other, b, code);
}

// A request is a slice of its caller's row, and, while it is served, of the control thread's.
int recording_chrome(Context& context, const std::string& file) {
  const Recording recording = load_recording(context, file);
  Json trace = Json::array();
  std::map<int, std::string> threads;
  for (const Event& event : recording.events) {
    const auto* exchange = event.as<RecordedExchange>();
    if (exchange == nullptr) continue;
    trace.push_back(slice(exchange_text(*exchange), event.t_us, event.t_us + exchange->took_us,
                          exchange->thread, reports_failure(*exchange) ? "no success" : ""));
    threads.try_emplace(exchange->thread, exchange->place ? place_text(*exchange->place) : "other");
  }
  for (const auto& [place, part] : session_of(recording)) {
    const std::string name = title(place, part);
    if (part.request) {
      threads[part.request->thread] = "caller";
      trace.push_back(slice(name, part.t_us, part.end_us, part.request->thread, failures(part)));
    }
    if (part.exchanges.empty()) continue;
    const RecordedExchange& first = part.exchanges.front();
    const std::int64_t begin = first.start.time_since_epoch() / std::chrono::microseconds(1);
    trace.push_back(slice(name, begin, part.end_us, first.thread, failures(part)));
    if (part.request || place.kind == Place::Kind::kStartUp)
      threads[first.thread] = "control thread";
  }
  for (const auto& [thread, name] : threads) trace.push_back(thread_name(thread, name));
  context.out.line(json_text(trace));
  Output::Modes modes = context.out.modes();
  modes.json = false;  // the trace is the result
  context.out.use(modes);
  return finish_recording(context, file, recording, kDone);
}

}  // namespace ipcam::tools
