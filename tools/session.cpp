// What a session did, as lines that can be compared: without times and the numbers of threads.
#include "tools/session.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <sstream>

#include "sim/exchange_text.h"
#include "sim/trace_line.h"
#include "tools/record_text.h"
#include "tools/settings_table.h"

namespace ipcam::tools {

namespace {

std::string hex_text(const wire::Packet& packet) { return sim::reply_text({{}, packet, {}}); }

std::string hex_text(const FileBytes& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) text += " " + hex(byte).substr(2);
  return text;
}

// Where the count of the entries and the entries themselves are at odds, both are shown.
std::string reply_text(const wire::Packet& reply) {
  const auto entries = static_cast<std::int32_t>(wire::decode_reply(reply).size());
  return hex_text(reply) +
         (reply.count == entries ? "" : " (count " + std::to_string(reply.count) + ")");
}

const SessionLine* line_at(const std::vector<SessionLine>& lines, std::size_t index) {
  return index < lines.size() ? &lines[index] : nullptr;
}

bool may_stand_alone(const SessionLine* line) { return line == nullptr || line->is_loose; }

}  // namespace

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

std::string place_text(const Place& place) {
  constexpr std::array<std::string_view, 6> kNames = {"settings before", "start-up",
                                                      "request",         "one-push measurement",
                                                      "EVR worker run",  "settings afterwards"};
  const bool is_counted = place.kind != Place::Kind::kBefore && place.kind != Place::Kind::kAfter;
  const bool from_0 = place.kind != Place::Kind::kRequest;
  return std::string(kNames[static_cast<std::size_t>(place.kind)]) +
         (is_counted ? " " + std::to_string(place.number + (from_0 ? 1 : 0)) : "");
}

void add(Session& session, const RecordedRequest& request) {
  const std::string text = request_text(request);
  const std::string identity = std::to_string(request.code) + " " + std::to_string(request.value) +
                               " " + std::to_string(request.raw_length) + " " + text;
  session[{Place::Kind::kRequest, request.number}].push_back({text, identity, false});
}

void add(Session& session, const RecordedAnswer& answer) {
  std::string text = "result " + std::to_string(answer.result);
  if (answer.value) text += ", answer " + std::to_string(*answer.value);
  if (answer.reply) text += ", reply" + hex_text(*answer.reply);
  session[{Place::Kind::kRequest, answer.number}].push_back({text, text, false});
}

void add(Session& session, const Place& place, const LoggedExchange& exchange, bool is_loose) {
  const std::string identity = hex_text(exchange.command) + " -> " +
                               (exchange.reply ? reply_text(*exchange.reply) : "no reply");
  session[place].push_back({exchange_text(exchange), identity, is_loose});
}

void add_stored(Session& session, Place::Kind when, const MaybeBytes& stored) {
  std::vector<SessionLine>& lines = session[{when, 0}];
  if (!stored) {
    lines.push_back({"cannot be read", "cannot be read", false});
    return;
  }
  camera::SettingsRecord record;
  std::memcpy(&record, stored->data(), sizeof record);
  std::istringstream text(record_text(record));
  for (std::string line; std::getline(text, line);) lines.push_back({line, line, false});
}

Session session_of(const Recording& recording) {
  Session session;
  MaybeBytes stored;
  for (const Event& event : recording.events) {
    if (const auto* start = event.as<RecordedStart>()) {
      stored = start->stored;
      add_stored(session, Place::Kind::kBefore, stored);
      for (const auto& [path, bytes] : start->files) {
        const std::string text = path + (bytes ? ":" + hex_text(*bytes) : " cannot be read");
        session[{Place::Kind::kBefore, 0}].push_back({text, text, false});
      }
    }
    if (const auto* request = event.as<RecordedRequest>()) add(session, *request);
    if (const auto* answer = event.as<RecordedAnswer>()) add(session, *answer);
    if (const auto* change = event.as<StoredChange>()) apply_change(*change, stored);
    const auto* exchange = event.as<RecordedExchange>();
    if (exchange != nullptr && exchange->place)
      add(session, *exchange->place, *exchange, exchange->is_loose);
    if (event.as<RecordedEnd>() != nullptr) add_stored(session, Place::Kind::kAfter, stored);
  }
  return session;
}

std::optional<Difference> difference_at(const Place& place, const Session& a, const Session& b) {
  Difference difference{.place = place, .first = 0, .lines = {}};
  if (a.contains(place)) difference.lines[0] = a.at(place);
  if (b.contains(place)) difference.lines[1] = b.at(place);
  for (std::size_t i = 0;; ++i) {
    const SessionLine* const left = line_at(difference.lines[0], i);
    const SessionLine* const right = line_at(difference.lines[1], i);
    if (left == nullptr && right == nullptr) return std::nullopt;
    const bool is_same = left != nullptr && right != nullptr
                             ? left->identity == right->identity
                             : may_stand_alone(left) && may_stand_alone(right);
    if (is_same) continue;
    difference.first = i;
    return difference;
  }
}

std::optional<Difference> first_difference(const Session& a, const Session& b) {
  Session places = a;
  places.insert(b.begin(), b.end());
  for (const auto& [place, lines] : places) {
    if (auto difference = difference_at(place, a, b)) return difference;
  }
  return std::nullopt;
}

}  // namespace ipcam::tools
