// Start and shutdown: the life of the queues, the reply semaphores, the
// library objects and the control thread.
#include "camera/lifecycle.h"

#include <pthread.h>

#include <memory>

#include "camera/control_thread.h"
#include "camera/imported_call.h"
#include "camera/never_destroyed.h"
#include "camera/request_path.h"
#include "camera/signal_mask.h"
#include "dsp/doorbell.h"
#include "dsp/locking.h"
#include "ipcam/camera/camera_request.h"
#include "ipcam/comm/port_inf.h"

namespace ipcam::camera {

namespace {

constexpr int kReplySlots = 10;  // requests that can wait for their answers at the same time

// One per process.
class Lifecycle {
 public:
  constexpr Lifecycle() = default;

  int start(ipcam::comm::s_port_inf* port) IPCAM_EXCLUDES(lock_);
  int shut_down() IPCAM_EXCLUDES(lock_);
  // For the control thread.
  LibraryObjects& library() { return library_; }

 private:
  bool create_channels() IPCAM_REQUIRES(lock_);
  bool create_library_objects() IPCAM_REQUIRES(lock_);
  bool start_control_thread() IPCAM_REQUIRES(lock_);
  int release() IPCAM_REQUIRES(lock_);

  // Held for a whole start or shutdown: one at a time. Taken before the request path's.
  LibraryMutex lock_;
  ipcam::comm::s_port_inf* port_ IPCAM_GUARDED_BY(lock_) = nullptr;
  bool started_ IPCAM_GUARDED_BY(lock_) = false;
  pthread_t thread_ IPCAM_GUARDED_BY(lock_) = {};

  // Created and released under lock_, used by the request path and the control thread in between.
  LibraryObjects library_;
  Channels channels_{};

  bool requests_exist_ IPCAM_GUARDED_BY(lock_) = false;
  bool second_exists_ IPCAM_GUARDED_BY(lock_) = false;
  bool replies_exist_ IPCAM_GUARDED_BY(lock_) = false;
  void* requests_storage_ IPCAM_GUARDED_BY(lock_) = nullptr;
  void* second_storage_ IPCAM_GUARDED_BY(lock_) = nullptr;
  // Part of the camera's convention; no message is ever sent on it.
  ipcam::comm::s_thdIf_ctl second_ IPCAM_GUARDED_BY(lock_){};
  ipcam::comm::s_witEnd_sem reply_sems_[kReplySlots] IPCAM_GUARDED_BY(lock_){};
};

constinit NeverDestroyed<Lifecycle> g_lifecycle;

extern "C" void* control_thread_main(void* /*argument*/) {
  ControlThread::instance().run((*g_lifecycle).library());
  pthread_exit(reinterpret_cast<void*>(1));
}

bool new_queue(void** storage, ipcam::comm::s_thdIf_ctl& queue) {
  return result_of([&] { return ipcam::comm::ThdIf_new(storage, 0, nullptr, nullptr, &queue); }) ==
         0;
}

bool delete_queue(ipcam::comm::s_thdIf_ctl& queue) {
  return result_of([&] { return ipcam::comm::ThdIf_delete(&queue); }) == 0;
}

int Lifecycle::start(ipcam::comm::s_port_inf* port) {
  if (port == nullptr || RequestPath::instance().is_served_here()) return -1;
  const CancellationBlock cancellation_block;
  const SignalBlock doorbell_block(Doorbell::signals());
  LockGuard lock(lock_);
  if (started_) return -1;
  release();  // what an earlier start left behind when it failed; what cannot be released is made
              // anew all the same

  port_ = port;
  started_ = create_channels() && create_library_objects() && start_control_thread();
  return started_ ? 0 : -1;
}

bool Lifecycle::create_channels() {
  ipcam::comm::s_witEnd_sem* const sems = reply_sems_;
  if (result_of([&] { return ipcam::comm::WitEnd_new(sems, kReplySlots, &channels_.replies); }) !=
      0)
    return false;
  replies_exist_ = true;
  if (!new_queue(&requests_storage_, channels_.requests)) return false;
  requests_exist_ = true;
  if (!new_queue(&second_storage_, second_)) return false;
  second_exists_ = true;
  return true;
}

// Exceptions of the constructors are the caller's.
bool Lifecycle::create_library_objects() {
  library_.config = std::make_unique<ipcam::config::ConfigFile>(g_settings_file);
  library_.object_detection = std::make_unique<ipcam::detection::ObjectDetectionIF>();
  library_.post_process = std::make_unique<ipcam::eptz::PostProcessInterface>();
  const auto prepare = [&] {
    library_.post_process->waitReady();
    library_.post_process->changeBinningMode(false);
  };
  return result_of(prepare) == 0;
}

bool Lifecycle::start_control_thread() {
  // Before the thread's life, since a start-up that fails closes the path again.
  RequestPath::instance().open(channels_);
  const SignalBlock control_thread_block(all_but_fault_signals());
  if (pthread_create(&thread_, nullptr, control_thread_main, nullptr) == 0) return true;
  RequestPath::instance().close();
  RequestPath::instance().wait_until_left();
  return false;
}

int Lifecycle::shut_down() {
  if (RequestPath::instance().is_served_here()) return -1;
  const CancellationBlock cancellation_block;
  const SignalBlock doorbell_block(Doorbell::signals());
  LockGuard lock(lock_);
  if (!started_) return -1;
  if (!RequestPath::instance().stop()) return -1;
  if (pthread_join(thread_, nullptr) != 0) return -1;
  started_ = false;
  // Callers that have been posted may still be inside the wait.
  RequestPath::instance().wait_until_left();
  return release();
}

int Lifecycle::release() {
  if (requests_exist_ && !delete_queue(channels_.requests)) return -1;
  requests_exist_ = false;
  if (second_exists_ && !delete_queue(second_)) return -1;
  second_exists_ = false;
  library_.config.reset();
  library_.object_detection.reset();
  library_.post_process.reset();
  if (replies_exist_ &&
      result_of([&] { return ipcam::comm::WitEnd_delete(&channels_.replies); }) != 0)
    return -1;
  replies_exist_ = false;
  return 0;
}

}  // namespace

int new_camera_ctrl(ipcam::comm::s_port_inf* port) { return (*g_lifecycle).start(port); }

int shut_down_camera_ctrl() { return (*g_lifecycle).shut_down(); }

}  // namespace ipcam::camera
