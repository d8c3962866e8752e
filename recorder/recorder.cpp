// What a program asks of the library, and what comes of it, as lines of a file.
#include "recorder/recorder.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <type_traits>
#include <vector>

#include "camera/factory_adjustment.h"
#include "recorder/line.h"
#include "recorder/recording_file.h"
#include "recorder/stored_state.h"
#include "registers/register_names.h"
#include "registers/request_names.h"
#include "registers/words.h"
#include "wire/packet_entries.h"

namespace ipcam::recorder {

namespace {

constexpr char kFileVariable[] = "CAMERA_CTRL_RECORD_FILE";
constexpr char kLimitVariable[] = "CAMERA_CTRL_RECORD_LIMIT";
constexpr int kLeastLimit = 64 << 10;
constexpr int kUsualLimit = 8 << 20;
constexpr int kMostLimit = 1 << 30;
constexpr auto kEndLimit = std::chrono::milliseconds(100);

// Threads that can be in an exchange, or have left one without a reply, at the same time.
constexpr std::size_t kExchanges = 16;

std::int64_t clock_us(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

// What the environment says when the program starts: it may change directory and environment.
char g_path[PATH_MAX - 8];  // room for the endings of further files
char g_limit[24];

enum State : int { kOff, kReady, kRecording };
std::atomic<int> g_state{kOff};
std::timed_mutex g_mutex;
thread_local Asked* t_asked = nullptr;

}  // namespace

// Everything under g_mutex.
class Recorder {
 public:
  constexpr Recorder() = default;

  // Opens the recording at its first event. Returns false when there can be none.
  bool begin();
  void end();
  void lose() { ++lost_; }

  void queue(Asked& asked);
  void forget(Asked& asked);
  void take(const void* record);
  void answer_served(int semaphore);
  void answer(Asked& asked);
  void begin_exchange(const wire::Packet& command);
  void end_exchange(const wire::Packet& reply);

 private:
  struct Exchange {
    bool is_open = false;
    int thread = 0;
    std::int64_t request = 0;
    std::int64_t begin_us = 0;
    wire::Packet command = {};
  };

  std::int64_t now_us() const { return clock_us(CLOCK_MONOTONIC) - begin_us_; }
  void announce(Asked& asked);
  void tell_changes();
  Exchange& exchange_here();
  void finish(Exchange& exchange, const wire::Packet* reply);

  bool write();
  bool make_room(std::size_t size);
  bool write_start();
  bool report_lost();

  bool has_begun_ = false;
  std::int64_t begin_us_ = 0;
  RecordingFile file_;
  bool has_start_ = false;  // in the file of now
  std::int64_t lost_ = 0;
  Line line_;
  Line line_in_front_;  // of the one that is being put together

  StoredRecord stored_;
  std::array<WatchedFile, 3> files_ = {WatchedFile(camera::kCameraFile),
                                       WatchedFile(camera::kAllPixelWbFile),
                                       WatchedFile(camera::kHalfPixelWbFile)};
  Asked* under_way_ = nullptr;
  Asked* served_ = nullptr;  // by the control thread
  int control_thread_ = 0;
  std::int64_t last_number_ = 0;
  std::array<Exchange, kExchanges> exchanges_{};
};

namespace {

// Threads may still be inside it while the process exits.
constinit Recorder g_recorder;
static_assert(std::is_trivially_destructible_v<Recorder>);

// After a fork only the process goes on that the recording is of. It may hold the lock just then.
bool takes_part(bool begins) {
  int ready = kReady;
  if (begins) g_state.compare_exchange_strong(ready, kRecording);
  return g_state.load() == kRecording;
}

template <class Step>
void watch(Step step, bool begins = false) {
  const int error = errno;
  int cancel_state = PTHREAD_CANCEL_ENABLE;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
  if (takes_part(begins)) {
    const std::lock_guard lock(g_mutex);
    try {
      if (g_state.load() == kRecording && g_recorder.begin()) step();
    } catch (...) {
      g_recorder.lose();
    }
  }
  pthread_setcancelstate(cancel_state, nullptr);
  errno = error;
}

__attribute__((constructor)) void load() {
  const char* path = std::getenv(kFileVariable);
  const char* limit = std::getenv(kLimitVariable);
  if (path == nullptr || *path == '\0') return;
  char directory[PATH_MAX] = "";
  if (*path != '/' && getcwd(directory, sizeof directory - 1) != nullptr)
    directory[std::strlen(directory)] = '/';
  const int size = std::snprintf(g_path, sizeof g_path, "%s%s", directory, path);
  if (static_cast<std::size_t>(size) >= sizeof g_path) return;
  if (limit != nullptr) std::snprintf(g_limit, sizeof g_limit, "%s", limit);

  const auto leave_recording = [] {
    int recording = kRecording;
    g_state.compare_exchange_strong(recording, kOff);
  };
  if (pthread_atfork(nullptr, nullptr, leave_recording) == 0) g_state.store(kReady);
}

// A signal handler may end the program while its thread is inside.
__attribute__((destructor)) void unload() {
  if (g_state.load() != kRecording) return;
  const std::unique_lock lock(g_mutex, kEndLimit);
  if (lock.owns_lock()) g_recorder.end();
  g_state.store(kOff);
}

std::string_view access_text(wire::Access access) {
  constexpr std::string_view kTexts[] = {"read", "write", "block", "other"};
  return kTexts[static_cast<std::size_t>(access)];
}

void put_wall_clock(Line& line) {
  const std::int64_t wall_us = clock_us(CLOCK_REALTIME);
  const auto seconds = static_cast<std::time_t>(wall_us / 1'000'000);
  std::tm date{};
  gmtime_r(&seconds, &date);
  char day[32] = "";
  char wall[48] = "";
  std::strftime(day, sizeof day, "%FT%T", &date);
  std::snprintf(wall, sizeof wall, "%s.%06dZ", day, static_cast<int>(wall_us % 1'000'000));
  line.member("wall", std::string_view(wall));
}

void put_program(Line& line) {
  char path[PATH_MAX];
  const ssize_t size = readlink("/proc/self/exe", path, sizeof path);
  const std::string_view program(path, size < 0 ? 0 : static_cast<std::size_t>(size));
  line.member("program", program.substr(program.rfind('/') + 1));
}

template <class Watched>
void put_bytes(Line& line, std::string_view key, const Watched& watched, Bytes bytes) {
  if (watched.is_readable()) {
    line.member(key, bytes);
  } else {
    line.null(key);
  }
}

void put_entry(Line& line, wire::Access access, const wire::CommandEntry& entry,
               const wire::ReplyEntry* reply) {
  line.open_object();
  line.member("access", access_text(access));
  line.member("category", entry.category);
  line.member("byte", entry.byte);
  line.member("name", registers::register_name({entry.category, entry.byte}));
  line.open("values", '[');
  if (entry.type == wire::kWriteEntry) {
    for (const std::uint8_t value : entry.values) line.element(value);
  } else if (reply != nullptr && reply->value) {
    line.element(*reply->value);
  }
  line.close(']');
  if (reply != nullptr) {
    line.member("status", reply->status);
  } else {
    line.null("status");
  }
  line.close('}');
}

}  // namespace

// --- Requests ---

void Recorder::queue(Asked& asked) {
  asked.thread_ = gettid();
  asked.queued_us_ = now_us();
  asked.is_under_way_ = true;
  asked.next_ = under_way_;
  under_way_ = &asked;
}

void Recorder::forget(Asked& asked) {
  Asked** link = &under_way_;
  while (*link != &asked) link = &(*link)->next_;
  *link = asked.next_;
  asked.is_under_way_ = false;
  if (served_ == &asked) served_ = nullptr;
}

void Recorder::take(const void* record) {
  Asked* asked = under_way_;
  while (asked != nullptr && asked->record() != record) asked = asked->next_;
  if (asked == nullptr) return;
  control_thread_ = gettid();
  served_ = asked;
  tell_changes();
  announce(*asked);
}

// The queue gives requests out in the order in which they went in, so they get their numbers here.
void Recorder::announce(Asked& asked) {
  asked.number_ = ++last_number_;
  line_.begin("request", asked.queued_us_);
  line_.member("number", asked.number_);
  line_.member("thread", asked.thread_);
  if (asked.setting_ != nullptr) {
    line_.member("code", asked.setting_->code);
    line_.member("name", registers::request_name(asked.setting_->code));
    line_.member("value", asked.setting_->value);
  } else {
    const char* const text = asked.raw_->cmd;
    line_.member("raw", std::string_view(text, strnlen(text, sizeof asked.raw_->cmd)));
    line_.member("raw_len", asked.raw_->cmd_len);
  }
  write();
}

void Recorder::answer_served(int semaphore) {
  if (served_ == nullptr || gettid() != control_thread_) return;
  if (served_->semaphore() == semaphore) answer(*served_);
}

void Recorder::answer(Asked& asked) {
  for (Exchange& exchange : exchanges_) {
    if (exchange.is_open && exchange.request == asked.number_) finish(exchange, nullptr);
  }
  if (asked.number_ == 0) announce(asked);
  line_.begin("answer", now_us());
  line_.member("number", asked.number_);
  if (asked.setting_ != nullptr) {
    const camera::s_cam_cgi_cmd& setting = *asked.setting_;
    line_.member("result", setting.result);
    const bool is_query = setting.code == camera::REQUEST_GET_ICR ||
                          setting.code == camera::REQUEST_HOLD_AUTO_IRIS_OPEN_INQ;
    if (is_query && setting.result == 0) line_.member("value", setting.inq_value);
  } else {
    const camera::s_ccdlsi_dbg& raw = *asked.raw_;
    line_.member("result", raw.result);
    const auto size = std::clamp<std::int32_t>(raw.reply_len, 0, sizeof raw.reply);
    line_.member("reply", Bytes(reinterpret_cast<const std::uint8_t*>(raw.reply),
                                static_cast<std::size_t>(size)));
  }
  write();
  forget(asked);
}

// --- Exchanges ---

// The one of this thread, or a free one, or that which has been open for longest.
Recorder::Exchange& Recorder::exchange_here() {
  const auto own = std::ranges::find(exchanges_, gettid(), &Exchange::thread);
  if (own != exchanges_.end()) return *own;
  const auto age = [](const Exchange& exchange) {
    return exchange.is_open ? exchange.begin_us : -1;
  };
  Exchange& exchange = *std::ranges::min_element(exchanges_, {}, age);
  if (exchange.is_open) finish(exchange, nullptr);
  exchange.thread = gettid();
  return exchange;
}

void Recorder::begin_exchange(const wire::Packet& command) {
  Exchange& exchange = exchange_here();
  if (exchange.is_open) finish(exchange, nullptr);
  const bool is_for_request = served_ != nullptr && exchange.thread == control_thread_;
  exchange.request = is_for_request ? served_->number_ : 0;
  exchange.begin_us = now_us();
  exchange.command = command;
  exchange.is_open = true;
}

void Recorder::end_exchange(const wire::Packet& reply) {
  Exchange& exchange = exchange_here();
  if (exchange.is_open) finish(exchange, &reply);
}

void Recorder::finish(Exchange& exchange, const wire::Packet* reply) {
  exchange.is_open = false;
  const wire::Command command = wire::decode_command(exchange.command);
  std::vector<wire::ReplyEntry> replies;
  line_.begin("exchange", exchange.begin_us);
  line_.member("thread", exchange.thread);
  if (exchange.request != 0) line_.member("request", exchange.request);
  line_.member("command", wire::used_bytes(exchange.command));
  if (reply != nullptr) {
    replies = wire::decode_reply(*reply);
    line_.member("reply", wire::used_bytes(*reply));
    line_.member("reply_count", reply->count);
  } else {
    line_.null("reply");
  }
  line_.open("entries", '[');
  for (std::size_t i = 0; i < command.entries.size(); ++i)
    put_entry(line_, command.access, command.entries[i],
              i < replies.size() ? &replies[i] : nullptr);
  line_.close(']');
  line_.member("took", now_us() - exchange.begin_us);
  write();
}

// --- Begin, changes, end ---

bool Recorder::begin() {
  if (has_begun_) return true;
  const auto limit = g_limit[0] == '\0' ? kUsualLimit : registers::parse_number(g_limit);
  const char* fault = nullptr;
  if (!limit || *limit < kLeastLimit || *limit > kMostLimit) {
    fault = "CAMERA_CTRL_RECORD_LIMIT is no number of bytes from 65536 to 1073741824";
  } else if (!file_.create(g_path, *limit)) {
    fault = std::strerror(errno);
  }
  if (fault != nullptr) {
    std::fprintf(stderr, "camera_ctrl_recorder: nothing is recorded in %s: %s\n", g_path, fault);
    g_state.store(kOff);
    return false;
  }
  begin_us_ = clock_us(CLOCK_MONOTONIC);
  stored_.has_changed();
  for (WatchedFile& file : files_) file.has_changed();
  has_begun_ = true;
  return true;
}

void Recorder::tell_changes() {
  if (stored_.has_changed()) {
    line_.begin("stored", now_us());
    line_.member("offset", stored_.offset());
    put_bytes(line_, "bytes", stored_, stored_.changed());
    if (!write()) stored_.forget();
  }
  for (WatchedFile& file : files_) {
    if (!file.has_changed()) continue;
    line_.begin("file", now_us());
    line_.member("path", std::string_view(file.path()));
    put_bytes(line_, "bytes", file, file.bytes());
    if (!write()) file.forget();
  }
}

void Recorder::end() {
  for (Exchange& exchange : exchanges_) {
    if (exchange.is_open) finish(exchange, nullptr);
  }
  tell_changes();
  line_.begin("end", now_us());
  write();
}

// --- Lines ---

// Writes the line that has been put together. What cannot be written is counted.
bool Recorder::write() {
  const std::string_view line = line_.end();
  const bool is_written = make_room(line.size()) && report_lost() && file_.append(line);
  if (!is_written) ++lost_;
  return is_written;
}

bool Recorder::make_room(std::size_t size) {
  if (has_start_ && !file_.has_room(size)) {
    if (!file_.begin_anew()) return false;
    has_start_ = false;
  }
  has_start_ = has_start_ || write_start();
  return has_start_;
}

bool Recorder::write_start() {
  Line& line = line_in_front_;
  line.begin("start", now_us());
  line.member("format", 1);
  line.member("version", std::string_view(CAMERA_CTRL_VERSION));
  put_wall_clock(line);
  line.member("process", getpid());
  put_program(line);
  line.member("word_bits", std::int64_t{8 * sizeof(void*)});
  put_bytes(line, "stored", stored_, stored_.bytes());
  line.open("files", '{');
  for (const WatchedFile& file : files_) put_bytes(line, file.path(), file, file.bytes());
  line.close('}');
  return file_.append(line.end());
}

bool Recorder::report_lost() {
  if (lost_ == 0) return true;
  line_in_front_.begin("lost", now_us());
  line_in_front_.member("lines", lost_);
  if (!file_.append(line_in_front_.end())) return false;
  lost_ = 0;
  return true;
}

// --- What passes ---

Asked::Asked(const camera::s_cam_cgi_cmd* setting, const camera::s_ccdlsi_dbg* raw)
    : setting_(setting), raw_(raw) {
  t_asked = this;
}

Asked::~Asked() {
  t_asked = nullptr;
  watch([&] {
    if (is_under_way_) g_recorder.answer(*this);
  });
}

void note_send(const void* message) {
  if (t_asked == nullptr || t_asked->record() != message) return;
  watch([] { g_recorder.queue(*t_asked); }, /*begins=*/true);
}

void note_failed_send(const void* message) {
  if (t_asked == nullptr || t_asked->record() != message) return;
  watch([] {
    if (t_asked->is_under_way_) g_recorder.forget(*t_asked);
  });
}

void note_receive(const void* message) {
  watch([&] { g_recorder.take(message); });
}

void note_post(int semaphore) {
  watch([&] { g_recorder.answer_served(semaphore); });
}

void note_packet(int direction, const wire::Packet& packet) {
  if (direction == 0) {
    watch([&] { g_recorder.begin_exchange(packet); }, /*begins=*/true);
  } else {
    watch([&] { g_recorder.end_exchange(packet); });
  }
}

}  // namespace ipcam::recorder
