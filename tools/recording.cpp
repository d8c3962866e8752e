// Recordings: reading their lines, whatever is in them, and finding out where exchanges belong.
#include "tools/recording.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <utility>

#include "camera/factory_adjustment.h"
#include "ipcam/camera/camera_request.h"
#include "settings/settings_record.h"

namespace ipcam::tools {

namespace {

using Json = nlohmann::json;

constexpr std::size_t kMaxFileBytes = 65536;
constexpr std::size_t kRecordBytes = sizeof(camera::SettingsRecord);
constexpr std::int64_t kMaxTime = std::int64_t{1} << 52;  // a hundred years: no sum overflows

// Ends the reading of a line; the text says what is wrong with it.
struct BadLine : std::runtime_error {
  using std::runtime_error::runtime_error;
};

void require(bool holds, const std::string& name) {
  if (!holds) throw BadLine(name + " is missing or no such value");
}

const Json& member(const Json& line, const std::string& name) {
  require(line.contains(name), name);
  return line[name];
}

template <class Number = std::int32_t>
Number number(const Json& line, const char* name, Number min = std::numeric_limits<Number>::min(),
              Number max = std::numeric_limits<Number>::max()) {
  const Json& value = member(line, name);
  require(value.is_number_integer(), name);
  const auto wide = value.get<double>();  // all limits are below 2^53 and so exact in it
  require(wide >= static_cast<double>(min) && wide <= static_cast<double>(max), name);
  return value.get<Number>();
}

std::string text(const Json& line, const char* name) {
  const Json& value = member(line, name);
  require(value.is_string(), name);
  return value;
}

// A byte above 127 is the character of that number, of two bytes in JSON.
std::string raw_text(const std::string& text) {
  std::string raw;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<std::uint8_t>(text[i]);
    require(byte < 0xc4, "raw");
    raw += byte < 0x80 ? text[i] : static_cast<char>(byte << 6 | (text[++i] & 0x3f));
  }
  return raw;
}

MaybeBytes maybe_bytes(const Json& line, const std::string& name, std::size_t max) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  if (member(line, name).is_null()) return std::nullopt;
  const std::string digits = text(line, name.c_str());
  require(digits.size() % 2 == 0 && digits.size() / 2 <= max &&
              digits.find_first_not_of(kDigits) == digits.npos,
          name);
  FileBytes bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2)
    bytes.push_back(
        static_cast<std::uint8_t>(kDigits.find(digits[i]) << 4 | kDigits.find(digits[i + 1])));
  return bytes;
}

// A replay writes them where its own /var/tmp is, and nowhere else.
std::string factory_file(const std::string& path) {
  require(path == camera::kCameraFile || path == camera::kHalfPixelWbFile ||
              path == camera::kAllPixelWbFile,
          "path");
  return path;
}

wire::Packet packet(const FileBytes& bytes) {
  wire::Packet packet{};
  packet.length = static_cast<std::int32_t>(bytes.size());
  std::ranges::copy(bytes, packet.data);
  return packet;
}

RecordedStart start(const Json& line) {
  require(number(line, "format") == 1, "format");
  RecordedStart start{.program = text(line, "program"),
                      .wall = text(line, "wall"),
                      .stored = {0, maybe_bytes(line, "stored", kRecordBytes)},
                      .files = {}};
  const MaybeBytes& stored = start.stored.bytes;
  require(!stored || stored->size() == kRecordBytes, "stored");
  const Json& files = member(line, "files");
  require(files.is_object(), "files");
  for (const auto& [path, content] : files.items())
    start.files.push_back({factory_file(path), maybe_bytes(files, path, kMaxFileBytes)});
  return start;
}

RecordedRequest request(const Json& line) {
  RecordedRequest request{.number = number(line, "number", 1), .thread = number(line, "thread")};
  if (line.contains("raw")) {
    request.raw = raw_text(text(line, "raw"));
    request.raw_length = number(line, "raw_len");
  } else {
    request.code = number(line, "code");
    request.value = number(line, "value");
  }
  return request;
}

RecordedAnswer answer(const Json& line) {
  RecordedAnswer answer{.number = number(line, "number", 1), .result = number(line, "result")};
  if (line.contains("value")) answer.value = number(line, "value");
  if (line.contains("reply"))
    answer.reply = maybe_bytes(line, "reply", sizeof(camera::s_ccdlsi_dbg::reply));
  if (line.contains("served")) {
    require(line["served"].is_boolean(), "served");
    answer.is_served = line["served"];
  }
  return answer;
}

RecordedExchange exchange(const Json& line, std::int64_t t_us) {
  const auto command = maybe_bytes(line, "command", wire::kDataBytes);
  const auto reply = maybe_bytes(line, "reply", wire::kDataBytes);
  require(command.has_value(), "command");
  RecordedExchange exchange{{.command = packet(*command),
                             .reply = {},
                             .start = Clock::time_point(std::chrono::microseconds(t_us)),
                             .thread = number(line, "thread")},
                            line.contains("request") ? number(line, "request", 1) : 0,
                            number<std::int64_t>(line, "took", 0, kMaxTime)};
  const auto entries = wire::decode_command(exchange.command).entries;
  exchange.command.count = static_cast<std::int32_t>(entries.size());
  if (!reply) return exchange;
  exchange.reply = packet(*reply);
  exchange.reply->count = number(line, "reply_count");
  return exchange;
}

StoredChange stored(const Json& line) {
  const auto offset = static_cast<std::size_t>(number(line, "offset", 0, int{kRecordBytes}));
  return {offset, maybe_bytes(line, "bytes", kRecordBytes - offset)};
}

FileChange file(const Json& line) {
  return {factory_file(text(line, "path")), maybe_bytes(line, "bytes", kMaxFileBytes)};
}

Event event(const Json& line) {
  if (!line.is_object()) throw BadLine("not JSON");
  const std::string kind = text(line, "event");
  const auto t = number<std::int64_t>(line, "t", 0, kMaxTime);
  const auto made = [t](auto what) { return Event{t, t, std::move(what)}; };
  if (kind == "start") return made(start(line));
  if (kind == "request") return made(request(line));
  if (kind == "answer") return made(answer(line));
  if (kind == "exchange") return made(exchange(line, t));
  if (kind == "stored") return made(stored(line));
  if (kind == "file") return made(file(line));
  if (kind == "lost") return made(LostLines{number<std::int64_t>(line, "lines", 0, kMaxTime)});
  if (kind == "end") return made(RecordedEnd{});
  throw BadLine("no such event");
}

// An exchange without a reply is written when its thread's next one begins, perhaps never: it goes
// where it began. All else stays in the order in which it was written.
void put_in_order(std::vector<Event>& events) {
  std::int64_t latest = 0;
  for (Event& event : events) {
    const auto* exchange = event.as<RecordedExchange>();
    if (exchange != nullptr && !exchange->reply) continue;
    latest = std::max(latest, event.t_us + (exchange == nullptr ? 0 : exchange->took_us));
    event.order_us = latest;
  }
  std::ranges::stable_sort(events, {}, &Event::order_us);
}

// The control threads are those that serve requests, or, when none was, the first that exchanged.
std::set<int> control_threads(const Recording& recording) {
  std::set<int> threads;
  int first = 0;
  for (const Event& event : recording.events) {
    const auto* exchange = event.as<RecordedExchange>();
    if (exchange == nullptr) continue;
    if (first == 0) first = exchange->thread;
    if (exchange->request != 0) threads.insert(exchange->thread);
  }
  return threads.empty() ? std::set{first} : threads;
}

void find_places(Recording& recording) {
  const std::set<int> control = control_threads(recording);
  WorkerRuns workers;
  int start_ups = 0;
  int control_thread = 0;
  for (Event& event : recording.events) {
    if (const auto* request = event.as<RecordedRequest>()) {
      workers.ignore(request->thread);  // a caller may use registers as it likes
      workers.follow(*request);
    }
    auto* exchange = std::get_if<RecordedExchange>(&event.what);
    if (exchange == nullptr) continue;
    if (!control.contains(exchange->thread)) {
      exchange->place = workers.place(exchange->thread, exchange->command);
      exchange->is_loose = exchange->place && workers.is_loose(*exchange->place);
      continue;
    }
    if (exchange->request == 0 && exchange->thread != control_thread) ++start_ups;
    control_thread = exchange->thread;
    exchange->place = exchange->request != 0
                          ? Place{Place::Kind::kRequest, exchange->request}
                          : Place{Place::Kind::kStartUp, std::max(start_ups - 1, 0)};
  }
}

}  // namespace

const RecordedStart* Recording::start() const {
  for (const Event& event : events) {
    if (const auto* start = event.as<RecordedStart>()) return start;
  }
  return nullptr;
}

Recording read_recording(std::string_view text) {
  Recording recording;
  for (int number = 1; !text.empty(); ++number) {
    const std::size_t length = text.find('\n');
    const std::string_view line = text.substr(0, length);
    text.remove_prefix(length == text.npos ? text.size() : length + 1);
    try {
      if (length == line.npos) throw BadLine("cut off");
      Event found = event(Json::parse(line, nullptr, /*allow_exceptions=*/false));
      if (found.as<RecordedStart>() != nullptr && number > 1) throw BadLine("another start");
      recording.events.push_back(std::move(found));
    } catch (const BadLine& bad) {
      recording.faults.push_back("line " + std::to_string(number) + ": " + bad.what());
    }
  }
  put_in_order(recording.events);
  find_places(recording);
  return recording;
}

void WorkerRuns::follow(const RecordedRequest& request) {
  if (!ends_measurement(request.code)) return;
  is_measuring_ = request.code == camera::REQUEST_ONE_PUSH_TRG;
  if (is_measuring_) ++triggers_;
}

std::optional<Place> WorkerRuns::place(int thread, const wire::Packet& command) {
  if (const auto known = by_thread_.find(thread); known != by_thread_.end()) return known->second;
  std::optional<Place>& place = by_thread_[thread];
  const std::vector<wire::CommandEntry> entries = wire::decode_command(command).entries;
  if (entries.empty()) return place;
  const Address first = address_in(entries[0], 0);
  if (first == registers::address("wb_mode") && triggers_ > 0)
    place = {Place::Kind::kOnepush, triggers_ - 1};
  if (first == registers::address("adjust_mode")) place = {Place::Kind::kEvr, evr_runs_++};
  return place;
}

bool WorkerRuns::is_loose(const Place& place) const {
  return place.kind == Place::Kind::kEvr || !is_measuring_ || place.number != triggers_ - 1;
}

bool ends_measurement(std::int32_t code) {
  return code == camera::REQUEST_COLOR || code == camera::REQUEST_WB_MODE ||
         code == camera::REQUEST_ONE_PUSH_TRG;
}

MaybeRecord changed(const StoredChange& change, MaybeRecord stored) {
  if (!change.bytes) return std::nullopt;
  if (!stored) stored.emplace();
  std::ranges::copy(*change.bytes, reinterpret_cast<std::uint8_t*>(&*stored) + change.offset);
  return stored;
}

}  // namespace ipcam::tools
