// The request path: admission of requests, and their way to the control thread and back.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "dsp/locking.h"
#include "ipcam/comm/thd_if.h"
#include "ipcam/comm/wit_end.h"

namespace ipcam::camera {

enum e_message : int {
  MESSAGE_SETTING = 1,  // s_cam_cgi_cmd
  MESSAGE_RAW = 2,      // s_ccdlsi_dbg
  MESSAGE_STOP = 3,     // no record
};

// Where requests are queued, and where their callers wait.
struct Channels {
  ipcam::comm::s_thdIf_ctl requests;
  ipcam::comm::s_witEnd_ctl replies;
};

// One per process. Callers queue their records on one end, the control thread serves them on the
// other; who starts and ends that thread opens and closes the path.
//
// A caller is inside as long as its Visit. Once the path is closed nobody enters, nothing is
// queued, and the reply semaphores of those inside come free one by one, so that every caller gets
// out and the channels can be deleted.
//
// Who waits for which answer is known by the list of callers alone: the numbers of the semaphores
// and the end of the wait on one are the camera's own library's, and only wake.
class RequestPath {
  struct Caller;

 public:
  struct Message {
    int type;
    void* record;    // of a request
    Caller* caller;  // who waits for the answer to it
  };

  constexpr RequestPath() = default;
  static RequestPath& instance();

  // --- A caller's end: any thread, which cannot be cancelled meanwhile ---

  // Queues `record` and waits until it has been served; the number of the reply semaphore is
  // written to `*slot`. False when it was not served, as it cannot be on the control thread, which
  // would wait for itself. Either way the control thread is done with the record.
  bool serve(e_message type, void* record, std::int32_t* slot) IPCAM_EXCLUDES(lock_);

  // --- The control thread's end ---

  // From here to end_serving(), the calling thread is the one that serves.
  void begin_serving() { server_ = pthread_self(); }
  void end_serving() { server_ = pthread_t{}; }
  // Any thread.
  bool is_served_here() const { return server_.load() == pthread_self(); }

  // Waits for the next message. False when the queue failed to deliver one, or
  // delivered a record for which nobody waits.
  bool receive(Message& message) IPCAM_EXCLUDES(lock_);
  // Wakes the caller of a request that has been served. Its record is gone from then on.
  void answer(const Message& message);
  // True once stop() has been called, also while requests that were queued before are still served.
  bool stop_asked() IPCAM_EXCLUDES(lock_);
  // Lets no further request in and answers those that are still queued as not served.
  void close() IPCAM_EXCLUDES(lock_);

  // --- Start and shutdown, one at a time ---

  // Lets requests in. The channels stay until wait_until_left() has returned.
  void open(Channels& channels) IPCAM_EXCLUDES(lock_);
  // Queues the stop message and lets no further request in. False, with
  // nothing done, when it could not be queued.
  bool stop() IPCAM_EXCLUDES(lock_);
  // Waits without limit until nobody is inside; the last one to leave ends the wait. After close().
  void wait_until_left();

 private:
  enum Outcome : int { kPending, kAnswered, kNotServed };

  // A caller that has its reply semaphore, on that caller's stack.
  struct Caller {
    e_message type;
    void* record;
    int slot;
    Caller* next = nullptr;
    std::atomic<Outcome> outcome{kPending};  // set last: the caller may be gone from then on
  };

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

  bool enter();
  void leave();
  bool queue(Caller& caller) IPCAM_EXCLUDES(lock_);
  // Takes the caller that waits with this record off the list; null when there is none.
  Caller* take(const void* record) IPCAM_EXCLUDES(lock_);
  void finish(Caller& caller, Outcome outcome);

  int send(e_message type, void* record);
  bool post(int slot);

  LibraryMutex lock_;
  std::atomic<bool> accepting_{false};                 // written under lock_ only
  Caller* waiting_ IPCAM_GUARDED_BY(lock_) = nullptr;  // queued, not yet taken to be served
  std::atomic<int> callers_{0};                        // inside
  Channels* channels_ = nullptr;     // set while nobody is inside; have their own synchronisation
  std::atomic<pthread_t> server_{};  // zero while there is none; no thread has that number
};

}  // namespace ipcam::camera
