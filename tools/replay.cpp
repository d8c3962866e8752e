// camctl replay: a recorded session once more, with a simulated camera that answers as the real one
// did, and all that the library does compared with what it did then.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <mutex>
#include <set>
#include <thread>

#include "ipcam/camera/camera_interface.h"
#include "ipcam/comm/port_inf.h"
#include "sim/simulated_camera.h"
#include "tools/session.h"
#include "workstation/stored_record.h"

namespace ipcam::tools {

namespace {

using namespace std::chrono_literals;
using std::chrono::microseconds;

ipcam::comm::s_port_inf g_port = {};

// The library's own limits are below it: 5 s for a worker to arrive, one of a reading below 2 s.
constexpr auto kPatience = 10s;

bool is_awaited(const RecordedExchange& exchange) {
  return exchange.place && exchange.place->kind == Place::Kind::kOnepush && !exchange.is_loose;
}

// The library's own pauses are in it, the waits between requests only in real time.
double seconds_of(const Recording& recording, bool in_real_time) {
  std::int64_t idle_us = 0;
  std::int64_t busy_until_us = std::numeric_limits<std::int64_t>::max();  // the start-up
  for (const Event& event : recording.events) {
    if (event.as<RecordedRequest>() != nullptr)
      idle_us += std::max<std::int64_t>(event.t_us - busy_until_us, 0);
    if (event.as<RecordedAnswer>() != nullptr) busy_until_us = event.t_us;
  }
  const std::int64_t all_us = recording.events.back().order_us - recording.events.front().order_us;
  return static_cast<double>(in_real_time ? all_us : all_us - idle_us) / 1e6;
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

MaybeBytes stored_now() {
  const auto record = workstation::read_stored_record();
  if (!record) return std::nullopt;
  const auto* first = reinterpret_cast<const std::uint8_t*>(&*record);
  return FileBytes(first, first + sizeof *record);
}

void store(const MaybeBytes& bytes) {
  camera::SettingsRecord record;
  if (bytes) std::memcpy(&record, bytes->data(), sizeof record);
  if (!bytes) std::filesystem::remove(workstation::stored_record_path());
  if (!bytes || workstation::write_stored_record(record)) return;
  throw CommandError(kUsage, "replay: the stored settings cannot be written");
}

void write_factory_file(const std::string& path, const MaybeBytes& bytes) {
  std::filesystem::remove(path);
  if (!bytes) return;
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes->data()),
             static_cast<std::streamsize>(bytes->size()));
  file.close();
  if (!file) throw CommandError(kUsage, "replay: " + path + " cannot be written");
}

RecordedAnswer ask_library(const RecordedRequest& request) {
  if (!request.raw) {
    camera::s_cam_cgi_cmd command = {};
    command.code = request.code;
    command.value = request.value;
    camera::cam_cgi_command(&command);
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
  ~Replay();
  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;

  std::optional<Difference> run();
  std::size_t exchanges() const { return places_.size(); }

 private:
  void differ(const Place& place);
  void play(const Event& event);
  void follow(const RecordedExchange& exchange);
  void start();
  void stop();
  void ask(const RecordedRequest& request);
  void await_answer();
  void compare_answer(const RecordedAnswer& recorded);
  void change_stored(const StoredChange& change);
  bool is_librarys_own(std::size_t offset) const;
  void call(const std::vector<const RecordedRequest*>& requests);
  void answer_exchange(const wire::Packet& command);
  std::optional<Place> place_of(const wire::Packet& command);
  Session replayed() const;
  template <class Condition>
  bool wait_until(Clock::time_point deadline, Condition holds);

  Context& context_;
  const Recording& recording_;
  const bool in_real_time_;
  Session recorded_;
  std::map<Place, std::vector<const RecordedExchange*>> expected_;
  std::map<int, std::vector<const RecordedRequest*>> requests_;  // of each thread
  std::set<Place> unfinished_;                                   // when the recording ended

  sim::SimulatedCamera camera_;
  std::map<int, std::thread> callers_;
  MaybeBytes stored_;  // as it was recorded
  Clock::time_point zero_;
  std::set<std::int32_t> asked_;  // codes since the library last changed the stored record
  std::map<Place, std::size_t> followed_;
  int starts_ = 0;
  bool is_started_ = false;

  std::mutex mutex_;  // guards what follows; the log's is taken before it
  std::condition_variable changed_;
  int turn_ = 0;  // number of the request that is being made
  bool is_over_ = false;
  std::map<int, RecordedAnswer> answers_;
  int control_thread_ = 0;
  std::map<int, std::optional<Place>> workers_;  // by their threads
  std::map<Place::Kind, int> runs_;
  std::map<Place, std::size_t> counts_;
  std::vector<std::optional<Place>> places_;  // of all exchanges so far
  std::optional<Place> different_at_;

  ExchangeLog log_;  // last: it calls
};

Replay::Replay(Context& context, const Recording& recording, bool in_real_time)
    : context_(context),
      recording_(recording),
      in_real_time_(in_real_time),
      recorded_(session_of(recording)),
      stored_(recording.start()->stored),
      log_([this](const wire::Packet& command) { answer_exchange(command); }) {
  for (const Event& event : recording.events) {
    if (const auto* request = event.as<RecordedRequest>()) {
      requests_[request->thread].push_back(request);
      unfinished_.insert({Place::Kind::kRequest, request->number});
    }
    if (const auto* answer = event.as<RecordedAnswer>())
      unfinished_.erase({Place::Kind::kRequest, answer->number});
    const auto* exchange = event.as<RecordedExchange>();
    if (exchange != nullptr && exchange->place) expected_[*exchange->place].push_back(exchange);
  }
  if (requests_.empty()) unfinished_.insert({Place::Kind::kStartUp, 0});
  enter_private_world({"/tmp", "/var/tmp"});
  store(stored_);
  for (const auto& [path, bytes] : recording.start()->files) write_factory_file(path, bytes);
  camera_.start();
  camera_.board().sensor_off = 1;
  zero_ = Clock::now() - microseconds(recording.events.front().t_us);
}

Replay::~Replay() {
  stop();
  {
    const std::lock_guard lock(mutex_);
    is_over_ = true;
  }
  changed_.notify_all();
  for (auto& [number, thread] : callers_) thread.join();
}

// Looks for a signal that ends the command, too.
template <class Condition>
bool Replay::wait_until(Clock::time_point deadline, Condition holds) {
  std::unique_lock lock(mutex_);
  while (!holds()) {
    check_for_stop();
    if (Clock::now() >= deadline) return false;
    changed_.wait_until(lock, std::min<Clock::time_point>(deadline, Clock::now() + 50ms));
  }
  return true;
}

std::optional<Difference> Replay::run() {
  for (const Event& event : recording_.events) {
    play(event);
    const std::lock_guard lock(mutex_);
    if (different_at_) break;
  }
  await_answer();
  stop();
  const Session now = replayed();
  return different_at_ ? difference_at(*different_at_, recorded_, now)
                       : first_difference(recorded_, now);
}

void Replay::differ(const Place& place) {
  const std::lock_guard lock(mutex_);
  if (!different_at_) different_at_ = place;
}

void Replay::play(const Event& event) {
  if (const auto* exchange = event.as<RecordedExchange>()) return follow(*exchange);
  if (in_real_time_) wait_until(zero_ + microseconds(event.t_us), [] { return false; });
  if (const auto* request = event.as<RecordedRequest>()) ask(*request);
  if (const auto* answer = event.as<RecordedAnswer>()) compare_answer(*answer);
  if (const auto* change = event.as<StoredChange>()) change_stored(*change);
  if (const auto* change = event.as<FileChange>()) write_factory_file(change->path, change->bytes);
}

// A measurement gets as far as it was when something else happened.
void Replay::follow(const RecordedExchange& exchange) {
  if (!exchange.place) return;
  const Place place = *exchange.place;
  const std::size_t index = followed_[place]++;
  if (place.kind == Place::Kind::kStartUp && place.number == starts_) {
    if (in_real_time_) zero_ = Clock::now() - exchange.start.time_since_epoch();
    start();
  }
  if (!is_awaited(exchange)) return;
  if (!wait_until(Clock::now() + kPatience, [&] { return counts_[place] > index; })) differ(place);
}

void Replay::start() {
  stop();
  const Place place = {Place::Kind::kStartUp, starts_++};
  if (camera::new_camera_ctrl(&g_port) != 0)
    throw CommandError(kUsage, "replay: the control thread did not start");
  is_started_ = true;
  // A code without a handler: answered when the start-up is done.
  camera::s_cam_cgi_cmd nothing = {};
  camera::cam_cgi_command(&nothing);
  const std::lock_guard lock(mutex_);
  if (counts_[place] != expected_[place].size() && recorded_.contains(place) &&
      !unfinished_.contains(place))
    different_at_ = place;
}

void Replay::stop() {
  if (is_started_) camera::delete_camera_IF(nullptr);
  is_started_ = false;
  const std::lock_guard lock(mutex_);
  control_thread_ = 0;
}

void Replay::ask(const RecordedRequest& request) {
  if (!is_started_) start();
  await_answer();
  asked_.insert(request.code);
  context_.out.progress("replay: " + place_text({Place::Kind::kRequest, request.number}) + ", " +
                        request_text(request));
  std::thread& thread = callers_[request.thread];
  if (!thread.joinable())
    thread = std::thread([this, &list = requests_[request.thread]] { call(list); });
  const std::lock_guard lock(mutex_);
  turn_ = request.number;
  changed_.notify_all();
}

void Replay::await_answer() {
  wait_until(Clock::time_point::max(), [this] { return turn_ == 0; });
}

// A caller's thread.
void Replay::call(const std::vector<const RecordedRequest*>& requests) {
  for (const RecordedRequest* request : requests) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return turn_ == request->number || is_over_; });
    if (is_over_) return;
    lock.unlock();
    RecordedAnswer answer = ask_library(*request);
    lock.lock();
    answers_[request->number] = std::move(answer);
    turn_ = 0;
    changed_.notify_all();
  }
}

void Replay::compare_answer(const RecordedAnswer& recorded) {
  await_answer();
  const Place place = {Place::Kind::kRequest, recorded.number};
  const std::lock_guard lock(mutex_);
  const auto answer = answers_.find(recorded.number);
  if (answer == answers_.end()) return;
  if (!recorded.value) answer->second.value.reset();
  Session before;
  Session now;
  add(before, recorded);
  add(now, answer->second);
  if (difference_at(place, before, now) || counts_[place] != expected_[place].size())
    different_at_ = place;
}

bool Replay::is_librarys_own(std::size_t offset) const {
  using camera::SettingsSnapshot;
  constexpr std::size_t kGains = offsetof(SettingsSnapshot, onepush_rgain);
  const bool is_gain = offset >= kGains && offset < sizeof(SettingsSnapshot);
  return (is_gain && asked_.contains(camera::REQUEST_ONE_PUSH_TRG)) ||
         (offset == offsetof(SettingsSnapshot, hold_iris_open) &&
          asked_.contains(camera::REQUEST_HOLD_AUTO_IRIS_OPEN));
}

// What the library changed then it has to change again; the rest others have changed.
void Replay::change_stored(const StoredChange& change) {
  apply_change(change, stored_);
  MaybeBytes now = stored_now();
  StoredChange others = change;
  bool has_own = false;
  for (std::size_t i = 0; now && others.bytes && i < others.bytes->size(); ++i) {
    if (!is_librarys_own(change.offset + i)) continue;
    has_own = true;
    (*others.bytes)[i] = (*now)[change.offset + i];
  }
  apply_change(others, now);
  if (now != stored_now()) store(now);
  if (!has_own) return;
  asked_.clear();
  if (wait_until(Clock::now() + kPatience, [this] { return stored_now() == stored_; })) return;
  recorded_.erase({Place::Kind::kAfter, 0});
  add_stored(recorded_, Place::Kind::kAfter, stored_);
  differ({Place::Kind::kAfter, 0});
}

// On the thread that is about to exchange; of all threads, one at a time.
void Replay::answer_exchange(const wire::Packet& command) {
  const std::lock_guard lock(mutex_);
  const std::optional<Place> place = place_of(command);
  places_.push_back(place);
  if (!place) return;
  const std::size_t index = counts_[*place]++;
  changed_.notify_all();
  const auto& expected = expected_[*place];
  if (index >= expected.size()) return;
  const RecordedExchange& exchange = *expected[index];
  if (std::memcmp(&command, &exchange.command, sizeof command) != 0) {
    if (!different_at_) different_at_ = place;
    return;
  }
  sim::Switchboard& board = camera_.board();
  if (!exchange.reply) {
    constexpr std::int64_t kWaited_us = 900'000;
    board.arm(exchange.took_us < kWaited_us ? sim::Fault::reply_255 : sim::Fault::no_reply);
    return;
  }
  board.give_reply(*exchange.reply);
  // For workers that go on when the recording has ended.
  const std::vector<wire::CommandEntry> entries = wire::decode_command(command).entries;
  const std::vector<wire::ReplyEntry> reply = wire::decode_reply(*exchange.reply);
  for (std::size_t i = 0; i < std::min(entries.size(), reply.size()); ++i) {
    if (reply[i].value) board.set_reg(address_in(entries[i], 0), *reply[i].value);
  }
}

std::optional<Place> Replay::place_of(const wire::Packet& command) {
  const int thread = gettid();
  if (control_thread_ == 0) control_thread_ = thread;  // the start-up comes before any worker
  if (thread == control_thread_)
    return turn_ != 0 ? Place{Place::Kind::kRequest, turn_}
                      : Place{Place::Kind::kStartUp, starts_ - 1};
  if (!workers_.contains(thread)) {
    const auto kind = worker_of(command);
    workers_[thread] = kind ? std::optional(Place{*kind, runs_[*kind]++}) : std::nullopt;
  }
  return workers_[thread];
}

// As far as the recording goes.
Session Replay::replayed() const {
  Session session;
  session.insert(*recorded_.find({Place::Kind::kBefore, 0}));
  for (const auto& [thread, list] : requests_) {
    for (const RecordedRequest* request : list) {
      if (answers_.contains(request->number)) add(session, *request);
    }
  }
  const std::vector<LoggedExchange> exchanges = log_.exchanges();
  for (std::size_t i = 0; i < exchanges.size(); ++i) {
    const std::optional<Place>& place = places_[i];
    if (!place || (place->kind == Place::Kind::kStartUp && !recorded_.contains(*place))) continue;
    const bool is_of_worker =
        place->kind == Place::Kind::kOnepush || place->kind == Place::Kind::kEvr;
    add(session, *place, exchanges[i], is_of_worker || unfinished_.contains(*place));
  }
  for (const auto& [number, answer] : answers_) {
    if (!unfinished_.contains({Place::Kind::kRequest, number})) add(session, answer);
  }
  if (recorded_.contains({Place::Kind::kAfter, 0}))
    add_stored(session, Place::Kind::kAfter, stored_now());
  return session;
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
  const std::optional<Difference> difference = session.run();
  if (difference) {
    show_difference(context.out, *difference, "recorded", "replayed");
  } else {
    context.out.result({{"same", true}, {"exchanges", session.exchanges()}},
                       "the same: " + std::to_string(session.exchanges()) + " exchanges");
  }
  return finish_recording(context, file, recording, difference ? kRefused : kDone);
}

}  // namespace ipcam::tools
