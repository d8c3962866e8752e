// Inter-thread queue of (type, pointer) messages.
#pragma once

namespace ipcam::comm {

// Control record of one queue; all zero until ThdIf_new has filled it and after ThdIf_delete.
struct s_thdIf_ctl {
  void* queue;
};

// ThdIf_send and ThdIf_timed_receive are for any thread, any number at once. ThdIf_new and
// ThdIf_delete are for one thread while no other is inside any operation of the queue.

// Creates a queue of at most 1024 waiting messages; a queue that `ctl` still holds is released
// first. `storage` is one word that the queue may use, `size` its extra size; the two callbacks are
// not used by this library (null). Returns 0, or -1 on failure, which any size but 0 is here.
int ThdIf_new(void* storage, unsigned int size, int (*on_send)(int, void*),
              int (*on_receive)(int, void*), s_thdIf_ctl* ctl);
// Appends a message; never waits. Returns 0, or -1 when the queue does not exist or is full.
int ThdIf_send(int type, void* message, s_thdIf_ctl* ctl);
// Waits for the next message and stores its type in `*type` and its pointer in the
// pointer that `message` points to. `timeout_ms` null: no limit, else milliseconds.
// Returns 0 when a message was received; -1, with nothing stored, when the time is up,
// and at once when the queue does not exist.
int ThdIf_timed_receive(int* type, void* message, unsigned int* timeout_ms, s_thdIf_ctl* ctl);
// Releases the queue; the messages still in it are forgotten.
// Returns 0, or -1 when it does not exist.
int ThdIf_delete(s_thdIf_ctl* ctl);

}  // namespace ipcam::comm
