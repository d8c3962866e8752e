// What a program asks of the library, and what comes of it, as lines of a file.
#include "recorder/recorder.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "camera/factory_adjustment.h"
#include "recorder/next_definition.h"
#include "registers/register_names.h"
#include "registers/request_names.h"
#include "settings/settings_record.h"

namespace ipcam::recorder {

namespace {

// To look whether stored record or adjustment files have changed may take this part of the time up
// to then, and a little in advance: where requests come one by one, each of them has its look.
constexpr std::int64_t kLookPart = 200;
constexpr std::int64_t kFirstLooks_us = 500;
// A write costs more than a line, so a few that follow one another closely are written together.
constexpr std::int64_t kKeptBack_us = 200;
constexpr std::size_t kKeptBackBytes = 8192;
constexpr std::array<std::string_view, 3> kAdjustmentFiles = {
    camera::kCameraFile, camera::kAllPixelWbFile, camera::kHalfPixelWbFile};

int this_thread() {
  thread_local const int id = gettid();
  return id;
}

std::string wall_clock() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  std::tm date{};
  char text[48] = "";
  const std::size_t size = std::strftime(text, sizeof text, "%FT%T", gmtime_r(&now.tv_sec, &date));
  std::snprintf(text + size, sizeof text - size, ".%06ldZ", now.tv_nsec / 1000);
  return text;
}

// The camera's own ConfigFile, as the library has it, for the whole life of the process; null when
// there is none. Its constructor is looked up, not linked: a program without the camera's
// libraries must start with the recorder too.
config::ConfigFile* make_config_file() {
  void* const construct = find_next("_ZN5ipcam6config10ConfigFileC1EPc");
  if (construct == nullptr) return nullptr;
  void* const place = operator new(sizeof(config::ConfigFile));
  reinterpret_cast<void (*)(void*, char*)>(construct)(place, camera::g_settings_file);
  return static_cast<config::ConfigFile*>(place);
}

Contents read_stored() {
  static config::ConfigFile* const config = make_config_file();
  std::vector<std::uint8_t> bytes(sizeof(camera::SettingsRecord));
  const bool is_read =
      config != nullptr && config->read_record(bytes.data(), camera::kSettingsKind) == 0;
  return is_read ? Contents(std::move(bytes)) : std::nullopt;
}

// Of an adjustment file the library reads 48 bytes at most.
Contents read_file(std::string_view path) {
  const int fd = open(path.data(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::array<std::uint8_t, 256> bytes{};
  const ssize_t size = read(fd, bytes.data(), bytes.size());
  close(fd);
  return size < 0 ? std::nullopt : Contents({bytes.begin(), bytes.begin() + size});
}

void put_entry(Lines& line, std::string_view comma, const wire::CommandEntry& entry,
               const std::optional<wire::ReplyEntry>& reply) {
  const Bytes read = reply && reply->value ? Bytes(&*reply->value, 1) : Bytes();
  line.add(comma, R"({"type":)", entry.type, R"(,"category":)", entry.category, R"(,"byte":)",
           entry.byte, R"(,"name":")", registers::register_name({entry.category, entry.byte}),
           R"(","values":)", entry.type == wire::kWriteEntry ? entry.values : read, R"(,"status":)",
           reply ? std::optional(reply->status) : std::nullopt, "}");
}

}  // namespace

Recorder::Recorder(const std::string& path, int limit)
    : file_(path, static_cast<rlim_t>(limit)), stored_(read_stored()) {
  begin_us_ = now_us();
  std::ranges::transform(kAdjustmentFiles, files_.begin(), read_file);
}

void Recorder::end() {
  while (!exchanges_.empty()) tell_exchange(exchanges_.front().thread, nullptr);
  tell_changes();
  lines_.begin("end", now_us());
  write();
}

// --- Requests ---

void Recorder::queue(Asked& asked) {
  asked.thread = this_thread();
  asked.queued_us = now_us();
  under_way_.push_back(&asked);
}

void Recorder::take(const void* record, const void* queue) {
  const auto asked = std::ranges::find(under_way_, record, &Asked::record);
  if (asked == under_way_.end()) return;
  control_thread_ = this_thread();
  queue_ = queue;
  look_for_changes();
  tell_request(**asked);
  served_ = *asked;
}

// But for one that was refused and came all the same: its caller may be writing to it. Whatever is
// left out here, also because the queue has not said yet, the caller records when it leaves.
void Recorder::finish(const void* queue) {
  if (served_ != nullptr && queue == queue_ && !served_->is_refused) answer(*served_);
}

void Recorder::leave(Asked& asked) {
  const bool is_request = !asked.is_refused || asked.number != 0;
  if (std::erase(under_way_, &asked) != 0 && is_request) answer(asked);
}

// The queue gives requests out in the order in which they went in, so they get their numbers here.
void Recorder::tell_request(Asked& asked) {
  asked.number = ++last_number_;
  lines_.begin("request", asked.queued_us, R"(,"number":)", asked.number, R"(,"thread":)",
               asked.thread);
  if (const auto* setting = asked.setting) {
    lines_.add(R"(,"code":)", setting->code, R"(,"name":")", registers::request_name(setting->code),
               R"(","value":)", setting->value);
  } else {
    const auto& text = asked.raw->cmd;
    lines_.add(R"(,"raw":)", AnyText{{text, strnlen(text, sizeof text)}}, R"(,"raw_len":)",
               asked.raw->cmd_len);
  }
  lines_.end();
  if (now_us() - written_us_ > kKeptBack_us) write_lines();
}

void Recorder::answer(Asked& asked) {
  std::erase(under_way_, &asked);  // first of all: the frame in which it lies will be gone
  if (served_ == &asked) {
    served_ = nullptr;
    tell_exchange(control_thread_, nullptr);
  }
  const bool is_served = asked.number != 0;
  if (!is_served) tell_request(asked);
  lines_.begin("answer", now_us(), R"(,"number":)", asked.number,
               is_served ? "" : R"(,"served":false)");
  if (const auto* setting = asked.setting) {
    lines_.add(R"(,"result":)", setting->result);
    const bool is_query = setting->code == camera::REQUEST_GET_ICR ||
                          setting->code == camera::REQUEST_HOLD_AUTO_IRIS_OPEN_INQ;
    if (is_query && setting->result == 0) lines_.add(R"(,"value":)", setting->inq_value);
  } else {
    const auto& reply = asked.raw->reply;
    const auto size = std::clamp<std::int32_t>(asked.raw->reply_len, 0, sizeof reply);
    lines_.add(R"(,"result":)", asked.raw->result, R"(,"reply":)",
               Bytes(reinterpret_cast<const std::uint8_t*>(reply), static_cast<std::size_t>(size)));
  }
  write();
  asked.is_answered = true;
}

// --- Exchanges ---

void Recorder::exchange(int direction, const wire::Packet& packet) {
  const int thread = this_thread();
  tell_exchange(thread, direction == 0 ? nullptr : &packet);
  if (direction != 0) return;
  const std::int64_t begin_us = now_us();
  if (begin_us - written_us_ > kKeptBack_us || lines_.text().size() > kKeptBackBytes) write_lines();
  const bool is_served = served_ != nullptr && thread == control_thread_;
  exchanges_.push_back({thread, is_served ? served_->number : 0, begin_us, packet});
}

// Ends what is under way on this thread, if there is anything.
void Recorder::tell_exchange(int thread, const wire::Packet* reply) {
  const auto found = std::ranges::find(exchanges_, thread, &Exchange::thread);
  if (found == exchanges_.end()) return;
  const Exchange exchange = *found;
  exchanges_.erase(found);
  Bytes commands = wire::used_bytes(exchange.command);
  Bytes replies = reply != nullptr ? wire::used_bytes(*reply) : Bytes();
  lines_.begin("exchange", exchange.begin_us, R"(,"thread":)", thread);
  if (exchange.request != 0) lines_.add(R"(,"request":)", exchange.request);
  lines_.add(R"(,"command":)", commands, R"(,"reply":)",
             reply != nullptr ? std::optional(replies) : std::nullopt);
  if (reply != nullptr) lines_.add(R"(,"reply_count":)", reply->count);
  lines_.add(R"(,"entries":[)");
  for (auto comma = ""; const auto entry = wire::take_command_entry(commands); comma = ",")
    put_entry(lines_, comma, *entry, wire::take_reply_entry(replies));
  lines_.add(R"(],"took":)", now_us() - exchange.begin_us);
  lines_.end();
  // While a request is served, other exchanges or the answer follow.
  if (exchange.request == 0) write_lines();
}

// --- Stored record and adjustment files ---

// As often as the limits allow.
void Recorder::look_for_changes() {
  const std::int64_t begin_us = now_us();
  if (looks_ * look_took_us_ > kFirstLooks_us + begin_us / kLookPart) return;
  tell_changes();
  // The least, since other programs may have had the CPU meanwhile.
  look_took_us_ = std::min(look_took_us_, now_us() - begin_us);
  ++looks_;
}

void Recorder::tell_changes() {
  tell_stored();
  for (std::size_t i = 0; i < files_.size(); ++i) {
    Contents now = read_file(kAdjustmentFiles[i]);
    if (now == files_[i]) continue;
    lines_.begin("file", now_us(), R"(,"path":")", kAdjustmentFiles[i], R"(","bytes":)", now);
    if (write()) files_[i] = std::move(now);
  }
}

void Recorder::tell_stored() {
  Contents stored = read_stored();
  if (stored == stored_) return;
  // All of it, if the last that was told is not there to compare with.
  std::size_t begin = 0;
  std::size_t end = stored ? stored->size() : 0;
  if (stored && stored_) {
    while ((*stored)[begin] == (*stored_)[begin]) ++begin;
    while ((*stored)[end - 1] == (*stored_)[end - 1]) --end;
  }
  lines_.begin("stored", now_us(), R"(,"offset":)", begin, R"(,"bytes":)",
               stored ? std::optional(Bytes(*stored).subspan(begin, end - begin)) : std::nullopt);
  if (write()) stored_ = std::move(stored);
}

// --- Lines ---

std::int64_t Recorder::now_us() const {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000 - begin_us_;
}

// Writes the line that has been put together, behind what was left for it to be written with.
bool Recorder::write() {
  lines_.end();
  return write_lines();
}

// What cannot be written is counted.
bool Recorder::write_lines() {
  const std::string_view text = lines_.text();
  if (text.empty()) return true;
  const bool is_full = !file_.is_empty() && !file_.has_room(text.size());
  if (is_full || !file_.is_open()) file_.begin_anew();
  Lines in_front;
  if (file_.is_empty()) put_start(in_front);
  if (lost_ != 0) {
    in_front.begin("lost", now_us(), R"(,"lines":)", lost_);
    in_front.end();
  }
  const bool has_front = file_.append(in_front.text());
  if (has_front) lost_ = 0;
  const bool is_written = has_front && file_.append(text);
  if (!is_written) lost_ += std::ranges::count(text, '\n');
  lines_.clear();
  written_us_ = now_us();
  return is_written;
}

// With what is stored now, since a file that begins anew has lost what came before.
void Recorder::put_start(Lines& line) const {
  line.begin("start", now_us(), R"(,"format":1,"version":")", CAMERA_CTRL_VERSION, R"(","wall":")",
             wall_clock(), R"(","process":)", getpid(), R"(,"program":)",
             AnyText{program_invocation_short_name}, R"(,"word_bits":)", 8 * sizeof(void*),
             R"(,"stored":)", stored_);
  for (std::size_t i = 0; i < files_.size(); ++i)
    line.add(i == 0 ? R"(,"files":{")" : R"(,")", kAdjustmentFiles[i], R"(":)", files_[i]);
  line.add("}");
  line.end();
}

}  // namespace ipcam::recorder
