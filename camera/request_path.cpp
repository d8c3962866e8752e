// The request path: queueing requests, starting the control thread and shutting it down.
#include "camera/request_path.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <memory>

#include "camera/control_thread.h"
#include "camera/never_destroyed.h"
#include "camera/signal_mask.h"
#include "dsp/locking.h"
#include "ipcam/camera/camera_request.h"
#include "ipcam/comm/port_inf.h"
#include "ipcam/comm/thd_if.h"
#include "ipcam/comm/wit_end.h"
#include "ipcam/system.h"

namespace ipcam::camera {

namespace {

constexpr int kReplySlots = 10;  // requests that can wait for their answers at the same time

void mark_not_served(s_cam_cgi_cmd& request) { request.result = -1; }

void mark_not_served(s_ccdlsi_dbg& request) {
  request.result = -1;
  request.reply_len = 0;
}

extern "C" void* control_thread_main(void* /*argument*/);

// One per process.
//
// A caller is inside from enter() to leave(). Once admission is closed nobody enters, nothing is queued, and the
// slots of those inside come free one by one, so that every caller gets out and the semaphores can be deleted.
class RequestPath {
 public:
  constexpr RequestPath() = default;
  static RequestPath& instance();

  template <class Record>
  int submit(e_message type, Record* record);

  int start(ipcam::comm::s_port_inf* port) IPCAM_EXCLUDES(lifecycle_lock_);
  int shut_down() IPCAM_EXCLUDES(lifecycle_lock_);

  bool receive(Message& message);
  void post(int slot) { ipcam::comm::WitEnd_post(slot, &replies_); }
  void close();
  LibraryObjects& library() { return library_; }

 private:
  bool enter() IPCAM_EXCLUDES(state_lock_);
  void leave();
  bool queue(int type, void* record) IPCAM_EXCLUDES(state_lock_);
  int close_and_look() IPCAM_EXCLUDES(state_lock_);
  bool serve_or_give_back(e_message type, void* record, int slot);
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
  std::atomic<int> callers_{0};  // inside; raised under state_lock_ only
  std::atomic<int> queued_{0};   // messages not yet received

  // Slots whose request was answered as not served. Written by the control thread after admission has been closed,
  // before it posts the slot, so the slot's waiter reads its own entry.
  std::array<bool, kReplySlots> not_served_{};
};

constinit NeverDestroyed<RequestPath> g_request_path;

RequestPath& RequestPath::instance() { return *g_request_path; }

extern "C" void* control_thread_main(void* /*argument*/) {
  ControlThread::instance().run(RequestPath::instance().library());
  pthread_exit(reinterpret_cast<void*>(1));
}

template <class Record>
int RequestPath::submit(e_message type, Record* record) {
  if (record == nullptr) return -1;
  const DoorbellBlock doorbell_block;

  bool served = false;
  if (enter()) {
    served = ipcam::comm::WitEnd_get(&record->reply_slot, &replies_) == 0 &&
             serve_or_give_back(type, record, record->reply_slot);
    leave();
  }
  if (served) return 0;
  mark_not_served(*record);
  staticsInfoUpdate(3, 0);
  return -1;
}

bool RequestPath::serve_or_give_back(e_message type, void* record, int slot) {
  const bool is_queued = queue(type, record);
  // A semaphore goes back to the pool only through a wait, so an unused one is posted first.
  if (!is_queued) ipcam::comm::WitEnd_post(slot, &replies_);
  ipcam::comm::WitEnd_wait_put(slot, &replies_);
  return is_queued && !not_served_[static_cast<std::size_t>(slot)];
}

bool RequestPath::enter() {
  LockGuard lock(state_lock_);
  if (!accepting_) return false;
  callers_.fetch_add(1);
  return true;
}

void RequestPath::leave() {
  if (callers_.fetch_sub(1) == 1) callers_.notify_all();
}

bool RequestPath::queue(int type, void* record) {
  LockGuard lock(state_lock_);
  if (!accepting_) return false;
  queued_.fetch_add(1);
  if (ipcam::comm::ThdIf_send(type, record, &requests_) == 0) return true;
  queued_.fetch_sub(1);
  return false;
}

bool RequestPath::receive(Message& message) {
  if (ipcam::comm::ThdIf_timed_receive(&message.type, &message.record, nullptr, &requests_) != 0) return false;
  queued_.fetch_sub(1);
  return true;
}

// Looked at under the lock: a message that turns out not to be sent is never counted here.
int RequestPath::close_and_look() {
  LockGuard lock(state_lock_);
  accepting_ = false;
  return queued_.load();
}

void RequestPath::close() {
  while (close_and_look() > 0) {
    Message message{};
    if (!receive(message)) continue;
    int slot = 0;
    if (message.type == MESSAGE_SETTING) {
      slot = static_cast<s_cam_cgi_cmd*>(message.record)->reply_slot;
    } else if (message.type == MESSAGE_RAW) {
      slot = static_cast<s_ccdlsi_dbg*>(message.record)->reply_slot;
    } else {
      continue;
    }
    not_served_[static_cast<std::size_t>(slot)] = true;
    post(slot);
  }
}

int RequestPath::start(ipcam::comm::s_port_inf* port) {
  if (port == nullptr) return -1;
  const DoorbellBlock doorbell_block;  // the control thread inherits it
  LockGuard lifecycle(lifecycle_lock_);
  if (started_) return -1;
  release();  // what an earlier start left behind when it failed; what cannot be released is made anew all the same

  port_ = port;
  if (ipcam::comm::WitEnd_new(reply_sems_, kReplySlots, &replies_) != 0) return -1;
  replies_exist_ = true;
  if (ipcam::comm::ThdIf_new(&requests_storage_, 0, nullptr, nullptr, &requests_) != 0) return -1;
  requests_exist_ = true;
  if (ipcam::comm::ThdIf_new(&second_storage_, 0, nullptr, nullptr, &second_) != 0) return -1;
  second_exists_ = true;

  library_.config = std::make_unique<OwnConfig>();
  library_.object_detection = std::make_unique<ipcam::detection::ObjectDetectionIF>();
  library_.post_process = std::make_unique<ipcam::eptz::PostProcessInterface>();
  library_.post_process->waitReady();
  library_.post_process->changeBinningMode(false);

  // Admission opens with the thread's life: the lock keeps a thread that ends at once from closing it first.
  LockGuard state(state_lock_);
  not_served_ = {};
  queued_.store(0);
  if (pthread_create(&thread_, nullptr, control_thread_main, nullptr) != 0) return -1;
  started_ = true;
  accepting_ = true;
  return 0;
}

int RequestPath::shut_down() {
  const DoorbellBlock doorbell_block;
  LockGuard lifecycle(lifecycle_lock_);
  if (!started_) return -1;
  {
    // Nothing gets behind the stop message.
    LockGuard state(state_lock_);
    queued_.fetch_add(1);
    if (ipcam::comm::ThdIf_send(MESSAGE_STOP, nullptr, &requests_) != 0) {
      queued_.fetch_sub(1);
      return -1;
    }
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
    if (ipcam::comm::ThdIf_delete(&requests_) != 0) return -1;
    requests_exist_ = false;
  }
  if (second_exists_) {
    if (ipcam::comm::ThdIf_delete(&second_) != 0) return -1;
    second_exists_ = false;
  }
  library_.config.reset();
  library_.object_detection.reset();
  library_.post_process.reset();
  if (replies_exist_) {
    if (ipcam::comm::WitEnd_delete(&replies_) != 0) return -1;
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

void post_reply(int reply_slot) { RequestPath::instance().post(reply_slot); }

void close_request_path() { RequestPath::instance().close(); }

}  // namespace ipcam::camera
