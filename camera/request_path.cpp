// The request path: queueing requests, starting the control thread and shutting it down.
#include "camera/request_path.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <utility>

#include "camera/control_thread.h"
#include "camera/imported_call.h"
#include "camera/never_destroyed.h"
#include "camera/signal_mask.h"
#include "dsp/locking.h"
#include "ipcam/camera/camera_request.h"
#include "ipcam/comm/port_inf.h"
#include "ipcam/comm/thd_if.h"
#include "ipcam/comm/wit_end.h"
#include "ipcam/system.h"

namespace ipcam::camera {

enum Outcome : int { kPending, kAnswered, kNotServed };

// A caller that has its reply semaphore, on that caller's stack.
struct Caller {
  void* record;
  int slot;
  Caller* next = nullptr;
  std::atomic<Outcome> outcome{kPending};  // set last: the caller may be gone from then on
};

namespace {

constexpr int kReplySlots = 10;  // requests that can wait for their answers at the same time
constexpr int kPostAttempts = 3;
constexpr useconds_t kLookAgain_us = 1'000;

void mark_not_served(s_cam_cgi_cmd& request) { request.result = -1; }

void mark_not_served(s_ccdlsi_dbg& request) {
  request.result = -1;
  request.reply_len = 0;
}

int new_queue(void** storage, ipcam::comm::s_thdIf_ctl& queue) {
  return result_of([&] { return ipcam::comm::ThdIf_new(storage, 0, nullptr, nullptr, &queue); });
}

int delete_queue(ipcam::comm::s_thdIf_ctl& queue) {
  return result_of([&] { return ipcam::comm::ThdIf_delete(&queue); });
}

extern "C" void* control_thread_main(void* /*argument*/);

// One per process.
//
// A caller is inside as long as its Visit. Once admission is closed nobody enters, nothing is queued, and the
// slots of those inside come free one by one, so that every caller gets out and the semaphores can be deleted.
//
// Who waits for which answer is known by the list of callers alone: the numbers of the semaphores and the end of the
// wait on one are the camera's own library's, and only wake.
class RequestPath {
 public:
  constexpr RequestPath() = default;
  static RequestPath& instance();

  template <class Record>
  int submit(e_message type, Record* record);

  int start(ipcam::comm::s_port_inf* port) IPCAM_EXCLUDES(lifecycle_lock_);
  int shut_down() IPCAM_EXCLUDES(lifecycle_lock_);

  bool receive(Message& message);
  void answer(Caller& caller, Outcome outcome);
  void close();
  bool stop_asked() IPCAM_EXCLUDES(state_lock_);
  LibraryObjects& library() { return library_; }

 private:
  // A caller's stay inside.
  class Visit {
   public:
    explicit Visit(RequestPath& path) : path_(path), is_admitted_(path.enter()) {}
    ~Visit() {
      if (is_admitted_) path_.leave();
    }
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;
    bool is_admitted() const { return is_admitted_; }

   private:
    RequestPath& path_;
    const bool is_admitted_;
  };

  bool enter() IPCAM_EXCLUDES(state_lock_);
  void leave();
  bool serve(e_message type, void* record, int* slot);
  bool queue(e_message type, Caller& caller) IPCAM_EXCLUDES(state_lock_);
  Caller* take(const void* record) IPCAM_EXCLUDES(state_lock_);
  int send(e_message type, void* record);
  bool post(int slot);
  int release() IPCAM_REQUIRES(lifecycle_lock_);

  // Start and shutdown, one at a time. Taken before state_lock_.
  LibraryMutex lifecycle_lock_;
  ipcam::comm::s_port_inf* port_ IPCAM_GUARDED_BY(lifecycle_lock_) = nullptr;
  bool started_ IPCAM_GUARDED_BY(lifecycle_lock_) = false;
  pthread_t thread_ IPCAM_GUARDED_BY(lifecycle_lock_) = {};
  LibraryObjects library_;  // created and destroyed under lifecycle_lock_, used by the control thread in between

  // Queue and semaphores have their own synchronisation; they are created and deleted under lifecycle_lock_ while
  // nobody is inside.
  bool requests_exist_ IPCAM_GUARDED_BY(lifecycle_lock_) = false;
  bool second_exists_ IPCAM_GUARDED_BY(lifecycle_lock_) = false;
  bool replies_exist_ IPCAM_GUARDED_BY(lifecycle_lock_) = false;
  void* requests_storage_ = nullptr;
  void* second_storage_ = nullptr;
  ipcam::comm::s_thdIf_ctl requests_{};
  ipcam::comm::s_thdIf_ctl second_{};  // part of the camera's convention; no message is ever sent on it
  ipcam::comm::s_witEnd_sem reply_sems_[kReplySlots]{};
  ipcam::comm::s_witEnd_ctl replies_{};

  // Admission.
  LibraryMutex state_lock_;
  bool accepting_ IPCAM_GUARDED_BY(state_lock_) = false;
  Caller* waiting_ IPCAM_GUARDED_BY(state_lock_) = nullptr;  // queued, not yet taken by the control thread
  std::atomic<int> callers_{0};                              // inside; raised under state_lock_ only
};

constinit NeverDestroyed<RequestPath> g_request_path;

RequestPath& RequestPath::instance() { return *g_request_path; }

extern "C" void* control_thread_main(void* /*argument*/) {
  ControlThread::instance().run(RequestPath::instance().library());
  pthread_exit(reinterpret_cast<void*>(1));
}

template <class Record>
int RequestPath::submit(e_message type, Record* record) {
  // A caller that left in the midst would leave its record behind.
  const CancellationBlock cancellation_block;
  if (record == nullptr) return -1;
  const SignalBlock doorbell_block(doorbell_signal());
  if (serve(type, record, &record->reply_slot)) return 0;
  mark_not_served(*record);
  result_of([] { staticsInfoUpdate(3, 0); });
  return -1;
}

// True when the request has been served. The control thread is done with the record in any case.
bool RequestPath::serve(e_message type, void* record, int* slot) {
  const Visit visit(*this);
  if (!visit.is_admitted()) return false;
  if (result_of([&] { return ipcam::comm::WitEnd_get(slot, &replies_); }) != 0) return false;

  Caller caller{.record = record, .slot = *slot};
  const bool is_queued = queue(type, caller);
  // A semaphore goes back to the pool only through a wait, so an unused one is posted first.
  if (!is_queued && !post(caller.slot)) return false;
  result_of([&] { return ipcam::comm::WitEnd_wait_put(caller.slot, &replies_); });
  if (!is_queued) return false;

  // A wait that has ended early does not end the request: the control thread still has the record.
  while (caller.outcome.load() == kPending) usleep(kLookAgain_us);
  return caller.outcome.load() == kAnswered;
}

// The control thread would wait for itself.
bool RequestPath::enter() {
  if (ControlThread::instance().is_this_thread()) return false;
  LockGuard lock(state_lock_);
  if (!accepting_) return false;
  callers_.fetch_add(1);
  return true;
}

void RequestPath::leave() {
  if (callers_.fetch_sub(1) == 1) callers_.notify_all();
}

bool RequestPath::queue(e_message type, Caller& caller) {
  {
    LockGuard lock(state_lock_);
    if (!accepting_) return false;
    caller.next = waiting_;
    waiting_ = &caller;
  }
  // Outside the lock, since the control thread wakes at once and takes it.
  if (send(type, caller.record) == 0) return true;
  // If the control thread has it all the same, there will be an answer.
  return take(caller.record) == nullptr;
}

// Takes the caller that waits with this record off the list; null when there is none.
Caller* RequestPath::take(const void* record) {
  LockGuard lock(state_lock_);
  Caller** link = &waiting_;
  while (*link != nullptr && (*link)->record != record) link = &(*link)->next;
  Caller* const caller = *link;
  if (caller != nullptr) *link = caller->next;
  return caller;
}

int RequestPath::send(e_message type, void* record) {
  return result_of([&] { return ipcam::comm::ThdIf_send(type, record, &requests_); });
}

// Nothing else wakes the caller that waits on the slot, so one exception is not the end of it. Of a result nothing is
// known.
bool RequestPath::post(int slot) {
  const auto post_once = [&] { ipcam::comm::WitEnd_post(slot, &replies_); };
  for (int attempt = 0; attempt < kPostAttempts; ++attempt) {
    if (result_of(post_once) == 0) return true;
  }
  return false;
}

bool RequestPath::receive(Message& message) {
  const auto receive_next = [&] {
    return ipcam::comm::ThdIf_timed_receive(&message.type, &message.record, nullptr, &requests_);
  };
  if (result_of(receive_next) != 0) return false;
  message.caller = nullptr;
  if (message.type != MESSAGE_SETTING && message.type != MESSAGE_RAW) return true;
  message.caller = take(message.record);
  return message.caller != nullptr;
}

void RequestPath::answer(Caller& caller, Outcome outcome) {
  const int slot = caller.slot;
  caller.outcome.store(outcome);
  post(slot);
}

// The shutdown closes admission as its first step.
bool RequestPath::stop_asked() {
  LockGuard lock(state_lock_);
  return !accepting_;
}

void RequestPath::close() {
  Caller* caller = nullptr;
  {
    LockGuard lock(state_lock_);
    accepting_ = false;
    caller = std::exchange(waiting_, nullptr);
  }
  while (caller != nullptr) {
    Caller* const next = caller->next;
    answer(*caller, kNotServed);
    caller = next;
  }
}

int RequestPath::start(ipcam::comm::s_port_inf* port) {
  if (port == nullptr || ControlThread::instance().is_this_thread()) return -1;
  const CancellationBlock cancellation_block;
  const SignalBlock doorbell_block(doorbell_signal());
  LockGuard lifecycle(lifecycle_lock_);
  if (started_) return -1;
  release();  // what an earlier start left behind when it failed; what cannot be released is made anew all the same

  port_ = port;
  if (result_of([&] { return ipcam::comm::WitEnd_new(reply_sems_, kReplySlots, &replies_); }) != 0) return -1;
  replies_exist_ = true;
  if (new_queue(&requests_storage_, requests_) != 0) return -1;
  requests_exist_ = true;
  if (new_queue(&second_storage_, second_) != 0) return -1;
  second_exists_ = true;

  library_.config.reset(new ipcam::config::ConfigFile(open_config()));
  library_.object_detection = std::make_unique<ipcam::detection::ObjectDetectionIF>();
  library_.post_process = std::make_unique<ipcam::eptz::PostProcessInterface>();
  const auto prepare = [&] {
    library_.post_process->waitReady();
    library_.post_process->changeBinningMode(false);
  };
  if (result_of(prepare) != 0) return -1;

  const SignalBlock control_thread_block(all_but_fault_signals());
  // Admission opens with the thread's life: the lock keeps a thread that ends at once from closing it first.
  LockGuard state(state_lock_);
  if (pthread_create(&thread_, nullptr, control_thread_main, nullptr) != 0) return -1;
  started_ = true;
  accepting_ = true;
  return 0;
}

int RequestPath::shut_down() {
  if (ControlThread::instance().is_this_thread()) return -1;
  const CancellationBlock cancellation_block;
  const SignalBlock doorbell_block(doorbell_signal());
  LockGuard lifecycle(lifecycle_lock_);
  if (!started_) return -1;
  {
    LockGuard state(state_lock_);
    if (send(MESSAGE_STOP, nullptr) != 0) return -1;
    accepting_ = false;
  }
  if (pthread_join(thread_, nullptr) != 0) return -1;
  started_ = false;

  // Callers that have been posted may still be inside the wait.
  for (int inside = callers_.load(); inside != 0; inside = callers_.load()) callers_.wait(inside);
  return release();
}

int RequestPath::release() {
  if (requests_exist_) {
    if (delete_queue(requests_) != 0) return -1;
    requests_exist_ = false;
  }
  if (second_exists_) {
    if (delete_queue(second_) != 0) return -1;
    second_exists_ = false;
  }
  library_.config.reset();
  library_.object_detection.reset();
  library_.post_process.reset();
  if (replies_exist_) {
    if (result_of([&] { return ipcam::comm::WitEnd_delete(&replies_); }) != 0) return -1;
    replies_exist_ = false;
  }
  return 0;
}

}  // namespace

int cam_cgi_command(s_cam_cgi_cmd* cmd) { return RequestPath::instance().submit(MESSAGE_SETTING, cmd); }

int cam_ccd_debug(s_ccdlsi_dbg* dbg) { return RequestPath::instance().submit(MESSAGE_RAW, dbg); }

int new_camera_ctrl(ipcam::comm::s_port_inf* port) { return RequestPath::instance().start(port); }

int shut_down_camera_ctrl() { return RequestPath::instance().shut_down(); }

bool receive_message(Message& message) { return RequestPath::instance().receive(message); }

void answer_message(const Message& message) { RequestPath::instance().answer(*message.caller, kAnswered); }

bool stop_asked() { return RequestPath::instance().stop_asked(); }

void close_request_path() { RequestPath::instance().close(); }

}  // namespace ipcam::camera
