// The request path: callers queue their records on one end, the control thread serves them on the other.
#pragma once

namespace ipcam::camera {

enum e_message : int {
  MESSAGE_SETTING = 1,  // s_cam_cgi_cmd
  MESSAGE_RAW = 2,      // s_ccdlsi_dbg
  MESSAGE_STOP = 3,     // no record
};

struct Caller;  // one that waits for an answer

struct Message {
  int type;
  void* record;    // of a request
  Caller* caller;  // who waits for the answer to it
};

// Ends the control thread and releases everything that new_camera_ctrl() created. Requests that are queued when it
// is called are served first; later ones are refused. Returns 0; -1 at the first step that failed, with the later
// ones not done, and -1 with nothing touched when no control thread has been started, or on the control thread itself.
// Any thread.
int shut_down_camera_ctrl();

// --- The control thread's end -----------------------------------------------------------------------------------

// Waits for the next message. False when the queue failed to deliver one, or delivered a record for which nobody waits.
bool receive_message(Message& message);

// Wakes the caller of a request that has been served. Its record is gone from then on.
void answer_message(const Message& message);

// True once the shutdown has begun, also while requests that were queued before are still served.
bool stop_asked();

// Lets no further request in and answers those that are still queued as not served.
void close_request_path();

}  // namespace ipcam::camera
