// camctl replay: a recorded session once more, with a simulated camera that answers as the real one
// did, and all that the library does compared with what it did then.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <stop_token>
#include <thread>
#include <utility>

#include "ipcam/camera/camera_interface.h"
#include "ipcam/comm/port_inf.h"
#include "sim/simulated_camera.h"
#include "tools/record_text.h"
#include "tools/session.h"
#include "workstation/replace_file.h"

namespace ipcam::tools {

namespace {

using namespace std::chrono_literals;
using std::chrono::microseconds;

constexpr Place kAfter = {Place::Kind::kAfter, 0};
ipcam::comm::s_port_inf g_port = {};

// The library's own limits are below it: 5 s for a worker to arrive, one of a reading below 2 s.
constexpr auto kPatience = 10s;

// The library's own pauses are in it, the waits between requests only in real time.
double seconds_of(const Recording& recording, bool in_real_time) {
  const std::int64_t all_us = recording.events.back().order_us - recording.events.front().order_us;
  std::int64_t us = in_real_time ? all_us : 0;
  for (const auto& [place, part] : session_of(recording)) {
    if (!in_real_time && place.kind != Place::Kind::kEvr) us += part.end_us - part.t_us;
  }
  return static_cast<double>(us) / 1e6;
}

// What stands behind the last request, or behind lines that are lost, cannot be compared.
void cut(std::vector<Event>& events, int until) {
  const auto is_behind = [&](const Event& event) {
    const auto* request = event.as<RecordedRequest>();
    return event.as<LostLines>() != nullptr ||
           (until != 0 && request != nullptr && request->number > until);
  };
  events.erase(std::ranges::find_if(events, is_behind), events.end());
}

void store(const MaybeRecord& record) {
  if (!record) {
    std::filesystem::remove(workstation::stored_record_path());
  } else if (!workstation::write_stored_record(*record)) {
    throw CommandError(kUsage, "replay: the stored settings cannot be written");
  }
}

void write_factory_file(const FileChange& change) {
  std::filesystem::remove(change.path);
  if (change.bytes)
    workstation::replace_file(change.path, {change.bytes->begin(), change.bytes->end()});
}

RecordedAnswer ask_library(const RecordedRequest& request) {
  if (!request.raw) {
    const auto command = send_request(request.code, request.value);
    return {.number = request.number, .result = command.result, .value = command.inq_value};
  }
  camera::s_ccdlsi_dbg command{};
  request.raw->copy(command.cmd, sizeof command.cmd);
  command.cmd_len = request.raw_length;
  camera::cam_ccd_debug(&command);
  const auto length = std::min(static_cast<std::size_t>(command.reply_len), sizeof command.reply);
  return {.number = request.number,
          .result = command.result,
          .reply = FileBytes(command.reply, command.reply + length)};
}

// Requests are made one after the other in the order in which they were queued, each by a thread
// that stands for the recorded one. Only the library's own threads overlap.
class Replay {
 public:
  Replay(Context& context, const Recording& recording, bool in_real_time);
  ~Replay() { stop(); }

  // Plays the recording up to the first difference, and shows it.
  ExitCode run();

 private:
  void follow(const RecordedExchange& exchange);
  void start();
  void stop();
  void ask(const RecordedRequest& request);
  void call(int caller, const std::stop_token& over);
  void compare(const Place& place);
  bool is_open(const Place& place) const;
  void change_stored(const StoredChange& change);
  void watch(int direction, const wire::Packet& packet);
  void answer(const RecordedExchange& recorded);
  std::optional<Place> place_of(const wire::Packet& command);
  bool wait_until(Clock::time_point deadline, const std::function<bool()>& holds);

  Context& context_;
  const Recording& recording_;
  const bool in_real_time_;
  Session recorded_;

  sim::SimulatedCamera camera_;
  MaybeRecord stored_;  // as it was recorded
  Clock::time_point zero_;
  std::set<std::int32_t> asked_;  // codes for which the library may still change the stored record
  std::map<Place, std::size_t> followed_;
  int starts_ = 0;
  bool is_started_ = false;

  std::mutex mutex_;  // guards what follows; the log's is taken before it
  std::condition_variable_any changed_;
  const RecordedRequest* turn_ = nullptr;  // the request that is being made
  Session replayed_;
  RecordedExchange* last_ = nullptr;  // in it: its reply is still to come
  int control_thread_ = 0;
  WorkerRuns workers_;
  std::optional<Place> different_at_;

  // Last, as their threads use what stands above.
  ExchangeLog log_;
  std::map<int, std::jthread> callers_;
};

Replay::Replay(Context& context, const Recording& recording, bool in_real_time)
    : context_(context),
      recording_(recording),
      in_real_time_(in_real_time),
      recorded_(session_of(recording)),
      log_([this](int direction, const wire::Packet& packet) { watch(direction, packet); }) {
  recorded_.erase({Place::Kind::kBefore, 0});
  // Neither played nor compared; a request without its line was made before the recording began.
  std::erase_if(recorded_, [](const auto& part) {
    const auto& [place, what] = part;
    const bool is_served = what.request && (!what.answer || what.answer->is_served);
    return place.kind == Place::Kind::kRequest && !is_served;
  });
  enter_sandbox({"/tmp", "/var/tmp"});
  stored_ = changed(recording.start()->stored, std::nullopt);
  store(stored_);
  for (const FileChange& file : recording.start()->files) write_factory_file(file);
  camera_.start();
  camera_.board().sensor_off = 1;
  zero_ = Clock::now() - microseconds(recording.events.front().t_us);
}

// Looks for a signal that ends the command, too.
bool Replay::wait_until(Clock::time_point deadline, const std::function<bool()>& holds) {
  std::unique_lock lock(mutex_);
  while (!holds()) {
    check_for_stop();
    if (Clock::now() >= deadline) return false;
    changed_.wait_until(lock, std::min<Clock::time_point>(deadline, Clock::now() + 50ms));
  }
  return true;
}

ExitCode Replay::run() {
  for (const Event& event : recording_.events) {
    if (in_real_time_) wait_until(zero_ + microseconds(event.t_us), [] { return false; });
    if (const auto* exchange = event.as<RecordedExchange>()) follow(*exchange);
    if (const auto* request = event.as<RecordedRequest>()) ask(*request);
    if (const auto* change = event.as<StoredChange>()) change_stored(*change);
    if (const auto* change = event.as<FileChange>()) write_factory_file(*change);
    const std::lock_guard lock(mutex_);
    if (different_at_) break;
  }
  stop();
  const std::lock_guard lock(mutex_);  // workers of the library may go on
  if (recorded_.contains(kAfter)) replayed_[kAfter].settings = settings_text(read_stored_record());
  if (different_at_) {
    last_ = nullptr;
    for (Session* const session : {&recorded_, &replayed_})
      *session = {{*different_at_, (*session)[*different_at_]}};
  }
  return show_difference(context_.out, recorded_, replayed_, "recorded", "replayed");
}

// A measurement gets as far as it was when something else happened.
void Replay::follow(const RecordedExchange& exchange) {
  if (!exchange.place) return;
  const Place place = *exchange.place;
  const std::size_t count = ++followed_[place];
  if (place.kind == Place::Kind::kStartUp && place.number == starts_) {
    if (in_real_time_) zero_ = Clock::now() - exchange.start.time_since_epoch();
    start();
  }
  if (place.kind != Place::Kind::kOnepush || exchange.is_loose) return;
  const auto is_there = [&] { return replayed_[place].exchanges.size() >= count; };
  if (!wait_until(Clock::now() + kPatience, is_there)) compare(place);
}

void Replay::start() {
  stop();
  const Place place = {Place::Kind::kStartUp, starts_++};
  if (camera::new_camera_ctrl(&g_port) != 0)
    throw CommandError(kUsage, "replay: the control thread did not start");
  is_started_ = true;
  send_request(0, 0);  // without a handler: answered when the start-up is done
  compare(place);
}

void Replay::stop() {
  if (is_started_) camera::delete_camera_IF(nullptr);
  is_started_ = false;
  const std::lock_guard lock(mutex_);
  control_thread_ = 0;
}

void Replay::ask(const RecordedRequest& request) {
  const Place place = {Place::Kind::kRequest, request.number};
  {
    const std::lock_guard lock(mutex_);
    workers_.follow(request);
  }
  const auto recorded = recorded_.find(place);
  if (recorded == recorded_.end()) return;
  if (!is_started_) {
    --starts_;  // before the recording began: the first start-up in it comes later
    start();
  }
  // What a measurement has not stored when it is ended, others have.
  if (ends_measurement(request.code)) asked_.erase(camera::REQUEST_ONE_PUSH_TRG);
  const std::optional<RecordedAnswer>& then = recorded->second.answer;
  if (!then || then->result == 0) asked_.insert(request.code);
  context_.out.progress("replay: " + place_text(place) + ", " + request_text(request));
  callers_.try_emplace(request.thread, std::bind_front(&Replay::call, this, request.thread));
  {
    const std::lock_guard lock(mutex_);
    replayed_[place].request = request;
    turn_ = &request;
  }
  changed_.notify_all();
  wait_until(Clock::time_point::max(), [this] { return turn_ == nullptr; });
  compare(place);
}

// A caller's thread.
void Replay::call(int caller, const std::stop_token& over) {
  std::unique_lock lock(mutex_);
  const auto is_asked = [&] { return turn_ != nullptr && turn_->thread == caller; };
  while (changed_.wait(lock, over, is_asked)) {
    const RecordedRequest& request = *turn_;
    lock.unlock();
    RecordedAnswer answer = ask_library(request);
    lock.lock();
    const Place place = {Place::Kind::kRequest, request.number};
    const std::optional<RecordedAnswer>& then = recorded_.at(place).answer;
    if (then && !then->value) answer.value.reset();
    if (then) replayed_[place].answer = answer;
    turn_ = nullptr;
    changed_.notify_all();
  }
}

// Once nothing is missing any more that belongs there.
void Replay::compare(const Place& place) {
  const std::lock_guard lock(mutex_);
  const auto recorded = recorded_.find(place);
  if (different_at_ || recorded == recorded_.end()) return;
  if (!is_same(recorded->second, replayed_[place])) different_at_ = place;
}

// What was going on when the recording ended.
bool Replay::is_open(const Place& place) const {
  if (place.kind == Place::Kind::kRequest) return !recorded_.at(place).answer;
  const auto behind = recorded_.upper_bound(place);
  return place.kind == Place::Kind::kStartUp &&
         (behind == recorded_.end() || behind->first.kind > Place::Kind::kRequest);
}

// What the library changed then it has to change again; the rest others have changed.
void Replay::change_stored(const StoredChange& change) {
  const MaybeRecord before = std::exchange(stored_, changed(change, stored_));
  const MaybeRecord now = read_stored_record();
  MaybeRecord others = changed(change, now);
  bool has_own = false;
  const auto leave_own = [&](std::int32_t code, auto field) {
    if (!asked_.contains(code) || !before || !now || !others) return;
    if (before->snapshot.*field == stored_->snapshot.*field) return;
    others->snapshot.*field = now->snapshot.*field;
    has_own = true;
  };
  leave_own(camera::REQUEST_ONE_PUSH_TRG, &camera::SettingsSnapshot::onepush_rgain);
  leave_own(camera::REQUEST_ONE_PUSH_TRG, &camera::SettingsSnapshot::onepush_bgain);
  leave_own(camera::REQUEST_HOLD_AUTO_IRIS_OPEN, &camera::SettingsSnapshot::hold_iris_open);
  const auto is_stored = [](const MaybeRecord& record) {
    return settings_text(read_stored_record()) == settings_text(record);
  };
  if (!is_stored(others)) store(others);
  if (!has_own) return;
  asked_.clear();
  if (wait_until(Clock::now() + kPatience, [&] { return is_stored(stored_); })) return;
  const std::lock_guard lock(mutex_);
  recorded_[kAfter].settings = settings_text(stored_);
  if (!different_at_) different_at_ = kAfter;
}

// On the thread that exchanges; of all threads, one at a time.
void Replay::watch(int direction, const wire::Packet& packet) {
  const std::lock_guard lock(mutex_);
  if (direction != 0) {
    if (last_ != nullptr) last_->reply = packet;
    return;
  }
  last_ = nullptr;
  const std::optional<Place> place = place_of(packet);
  if (!place) return;
  const auto recorded = recorded_.find(*place);
  // The recording has begun anew behind it.
  if (place->kind == Place::Kind::kStartUp && recorded == recorded_.end()) return;
  const bool is_loose = place->kind > Place::Kind::kRequest || is_open(*place);
  std::vector<RecordedExchange>& exchanges = replayed_[*place].exchanges;
  const std::size_t index = exchanges.size();
  exchanges.push_back({{packet, {}, Clock::now(), gettid()}, 0, 0, place, is_loose});
  last_ = &exchanges.back();
  changed_.notify_all();
  if (recorded == recorded_.end() || index >= recorded->second.exchanges.size()) return;
  const RecordedExchange& then = recorded->second.exchanges[index];
  if (std::memcmp(&packet, &then.command, sizeof packet) == 0) {
    answer(then);
  } else if (!different_at_) {
    different_at_ = place;
  }
}

// The same command is about to be sent.
void Replay::answer(const RecordedExchange& recorded) {
  sim::Switchboard& board = camera_.board();
  if (!recorded.reply) {
    constexpr std::int64_t kWaited_us = 900'000;
    board.arm(recorded.took_us < kWaited_us ? sim::Fault::reply_255 : sim::Fault::no_reply);
    return;
  }
  board.give_reply(*recorded.reply);
  // For workers that go on when the recording has ended.
  wire::Bytes commands = wire::used_bytes(recorded.command);
  wire::Bytes replies = wire::used_bytes(*recorded.reply);
  while (const auto entry = wire::take_command_entry(commands)) {
    const auto reply = wire::take_reply_entry(replies);
    if (reply && reply->value) board.set_reg(address_in(*entry, 0), *reply->value);
  }
}

std::optional<Place> Replay::place_of(const wire::Packet& command) {
  const int thread = gettid();
  if (control_thread_ == 0) control_thread_ = thread;  // the start-up comes before any worker
  if (thread != control_thread_) return workers_.place(thread, command);
  return turn_ != nullptr ? Place{Place::Kind::kRequest, turn_->number}
                          : Place{Place::Kind::kStartUp, starts_ - 1};
}

}  // namespace

int replay(Context& context, const std::string& file, const ReplayOptions& options) {
  Recording recording = load_recording(context, file);
  cut(recording.events, options.until);
  if (recording.start() == nullptr)
    throw CommandError(kUsage, "replay " + file + ": no recording, it has no start");
  const double seconds = seconds_of(recording, options.in_real_time);
  context.out.note("replay: takes about " + std::to_string(std::lround(seconds)) + " s");
  Replay session(context, recording, options.in_real_time);
  return finish_recording(context, file, recording, session.run());
}

}  // namespace ipcam::tools
