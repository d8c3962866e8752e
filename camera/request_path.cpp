// The request path: admission of requests, and their way to the control thread and back.
#include "camera/request_path.h"

#include <unistd.h>

#include <type_traits>
#include <utility>

#include "camera/imported_call.h"
#include "camera/signal_mask.h"
#include "dsp/cancellation.h"
#include "dsp/doorbell.h"
#include "ipcam/camera/camera_request.h"
#include "ipcam/system.h"

namespace ipcam::camera {

namespace {

constexpr int kPostAttempts = 3;
constexpr useconds_t kLookAgain_us = 1'000;

// Threads may still be inside it while the process exits.
constinit RequestPath g_request_path;
static_assert(std::is_trivially_destructible_v<RequestPath>);

void mark_not_served(s_cam_cgi_cmd& request) { request.result = -1; }

void mark_not_served(s_ccdlsi_dbg& request) {
  request.result = -1;
  request.reply_len = 0;
}

template <class Record>
int submit(e_message type, Record* record) {
  // A caller that left in the midst would leave its record behind.
  const CancellationBlock cancellation_block;
  if (record == nullptr) return -1;
  const SignalBlock doorbell_block(Doorbell::signals());
  if (RequestPath::instance().serve(type, record, &record->reply_slot)) return 0;
  mark_not_served(*record);
  result_of([] { staticsInfoUpdate(3, 0); });
  return -1;
}

}  // namespace

RequestPath& RequestPath::instance() { return g_request_path; }

// --- A caller's end ---

bool RequestPath::serve(e_message type, void* record, std::int32_t* slot) {
  const Visit visit(*this);
  if (!visit.is_admitted()) return false;
  if (result_of([&] { return ipcam::comm::WitEnd_get(slot, &channels_->replies); }) != 0)
    return false;

  Caller caller{.type = type, .record = record, .slot = *slot};
  const bool is_queued = queue(caller);
  // A semaphore goes back to the pool only through a wait, so an unused one is posted first.
  if (!is_queued && !post(caller.slot)) return false;
  result_of([&] { return ipcam::comm::WitEnd_wait_put(caller.slot, &channels_->replies); });
  if (!is_queued) return false;

  // A wait that has ended early does not end the request: the control thread still has the record.
  while (caller.outcome.load() == kPending) usleep(kLookAgain_us);
  return caller.outcome.load() == kAnswered;
}

// Counted before the look: whoever closes the path and counts then
// is seen here, or sees this caller.
bool RequestPath::enter() {
  if (is_served_here()) return false;
  callers_.fetch_add(1);
  if (accepting_.load()) return true;
  leave();
  return false;
}

void RequestPath::leave() {
  if (callers_.fetch_sub(1) == 1) callers_.notify_all();
}

bool RequestPath::queue(Caller& caller) {
  {
    LockGuard lock(lock_);
    if (!accepting_.load()) return false;
    caller.next = waiting_;
    waiting_ = &caller;
  }
  // Outside the lock, since the control thread wakes at once and takes it.
  if (send(caller.type, caller.record) == 0) return true;
  // If the control thread has it all the same, there will be an answer.
  return take(caller.record) == nullptr;
}

// --- The control thread's end ---

bool RequestPath::receive(Message& message) {
  const auto receive_next = [&] {
    return ipcam::comm::ThdIf_timed_receive(&message.type, &message.record, nullptr,
                                            &channels_->requests);
  };
  if (result_of(receive_next) != 0) return false;
  message.caller = nullptr;
  if (message.type != MESSAGE_SETTING && message.type != MESSAGE_RAW) return true;
  message.caller = take(message.record);
  if (message.caller == nullptr) return false;
  // As the caller has it: read as another type, the record would be as long as it is not.
  message.type = message.caller->type;
  return true;
}

void RequestPath::answer(const Message& message) { finish(*message.caller, kAnswered); }

// The shutdown closes the path as its first step. Under the lock, so
// that it counts from its message on.
bool RequestPath::stop_asked() {
  LockGuard lock(lock_);
  return !accepting_.load();
}

void RequestPath::close() {
  Caller* caller = nullptr;
  {
    LockGuard lock(lock_);
    accepting_.store(false);
    caller = std::exchange(waiting_, nullptr);
  }
  while (caller != nullptr) {
    Caller* const next = caller->next;
    finish(*caller, kNotServed);
    caller = next;
  }
}

RequestPath::Caller* RequestPath::take(const void* record) {
  LockGuard lock(lock_);
  Caller** link = &waiting_;
  while (*link != nullptr && (*link)->record != record) link = &(*link)->next;
  Caller* const caller = *link;
  if (caller != nullptr) *link = caller->next;
  return caller;
}

void RequestPath::finish(Caller& caller, Outcome outcome) {
  const int slot = caller.slot;
  caller.outcome.store(outcome);
  post(slot);
}

// --- Start and shutdown ---

void RequestPath::open(Channels& channels) {
  LockGuard lock(lock_);
  channels_ = &channels;
  accepting_.store(true);
}

bool RequestPath::stop() {
  LockGuard lock(lock_);
  if (send(MESSAGE_STOP, nullptr) != 0) return false;
  accepting_.store(false);
  return true;
}

void RequestPath::wait_until_left() {
  for (int inside = callers_.load(); inside != 0; inside = callers_.load()) callers_.wait(inside);
}

// --- Channels ---

int RequestPath::send(e_message type, void* record) {
  return result_of([&] { return ipcam::comm::ThdIf_send(type, record, &channels_->requests); });
}

// Nothing else wakes the caller that waits on the slot, so one exception is not the end
// of it. Of a result nothing is known.
bool RequestPath::post(int slot) {
  const auto post_once = [&] { ipcam::comm::WitEnd_post(slot, &channels_->replies); };
  for (int attempt = 0; attempt < kPostAttempts; ++attempt) {
    if (result_of(post_once) == 0) return true;
  }
  return false;
}

int cam_cgi_command(s_cam_cgi_cmd* cmd) { return submit(MESSAGE_SETTING, cmd); }

int cam_ccd_debug(s_ccdlsi_dbg* dbg) { return submit(MESSAGE_RAW, dbg); }

}  // namespace ipcam::camera
