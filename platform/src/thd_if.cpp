// Inter-thread queue: a ring of messages, and a semaphore that counts them.
#include "ipcam/comm/thd_if.h"

#include <semaphore.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <mutex>
#include <new>

#include "journal_note.h"

namespace ipcam::comm {
namespace {

struct Message {
  int type;
  void* pointer;
};

// The ring is there from the start, so that a send costs no allocation. `filled` counts the
// messages: a receiver that has got past it finds at least one.
struct Queue {
  sem_t filled;
  std::mutex mutex;
  std::array<Message, 1024> ring;
  std::size_t first = 0;
  std::size_t size = 0;
};

Queue* queue_of(const s_thdIf_ctl* ctl) {
  return ctl == nullptr ? nullptr : static_cast<Queue*>(ctl->queue);
}

bool release(s_thdIf_ctl* ctl) {
  Queue* queue = queue_of(ctl);
  if (queue == nullptr) return false;
  sem_destroy(&queue->filled);
  delete queue;
  ctl->queue = nullptr;
  return true;
}

bool push(Queue& queue, const Message& message) {
  const std::lock_guard lock(queue.mutex);
  if (queue.size == queue.ring.size()) return false;
  queue.ring[(queue.first + queue.size) % queue.ring.size()] = message;
  ++queue.size;
  return true;
}

Message pop(Queue& queue) {
  const std::lock_guard lock(queue.mutex);
  const Message message = queue.ring[queue.first];
  queue.first = (queue.first + 1) % queue.ring.size();
  --queue.size;
  return message;
}

timespec deadline_after(unsigned int milliseconds) {
  timespec deadline{};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += static_cast<time_t>(milliseconds / 1000);
  deadline.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
  if (deadline.tv_nsec >= 1'000'000'000) {
    deadline.tv_nsec -= 1'000'000'000;
    ++deadline.tv_sec;
  }
  return deadline;
}

// Returns false when the time is up. A signal neither ends the wait nor makes it longer.
bool wait_for_message(Queue& queue, const unsigned int* timeout_ms) {
  const timespec deadline = timeout_ms == nullptr ? timespec{} : deadline_after(*timeout_ms);
  int failed = 0;
  do {
    failed = timeout_ms == nullptr ? sem_wait(&queue.filled)
                                   : sem_clockwait(&queue.filled, CLOCK_MONOTONIC, &deadline);
  } while (failed != 0 && errno == EINTR);
  return failed == 0;
}

}  // namespace

int ThdIf_new(void*, unsigned int size, int (*)(int, void*), int (*)(int, void*),
              s_thdIf_ctl* ctl) {
  platform::note("ThdIf_new");
  if (size != 0 || ctl == nullptr) return -1;
  release(ctl);
  auto* queue = new (std::nothrow) Queue;
  if (queue == nullptr) return -1;
  sem_init(&queue->filled, 0, 0);
  ctl->queue = queue;
  return 0;
}

int ThdIf_send(int type, void* message, s_thdIf_ctl* ctl) {
  platform::note("ThdIf_send", {type});
  Queue* queue = queue_of(ctl);
  if (queue == nullptr || !push(*queue, {type, message})) return -1;
  // Outside the queue's lock, so that a receiver that wakes at once does not run into it.
  sem_post(&queue->filled);
  return 0;
}

int ThdIf_timed_receive(int* type, void* message, unsigned int* timeout_ms, s_thdIf_ctl* ctl) {
  Queue* queue = queue_of(ctl);
  if (queue == nullptr || type == nullptr || message == nullptr ||
      !wait_for_message(*queue, timeout_ms)) {
    platform::note("ThdIf_timed_receive", {-1});
    return -1;
  }
  const Message received = pop(*queue);
  platform::note("ThdIf_timed_receive", {received.type});
  *type = received.type;
  // The caller's pointer may be of any object type.
  std::memcpy(message, &received.pointer, sizeof received.pointer);
  return 0;
}

int ThdIf_delete(s_thdIf_ctl* ctl) {
  platform::note("ThdIf_delete");
  return release(ctl) ? 0 : -1;
}

}  // namespace ipcam::comm
