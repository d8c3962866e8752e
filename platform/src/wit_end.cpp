// Pool of reply semaphores, handed to waiting callers in the order in which they came.
#include "ipcam/comm/wit_end.h"

#include <mutex>
#include <new>

#include "journal_note.h"

namespace ipcam::comm {
namespace {

// States of a semaphore. Only its holder takes it from kPosted to kFree, so a second post for one
// reservation is refused instead of answering whoever reserves the semaphore next.
constexpr int kFree = 0;
constexpr int kTaken = 1;
constexpr int kPosted = 2;

constexpr int kNone = -1;

// A caller that waits for a free semaphore; lives on that caller's stack. Each has a semaphore of
// its own to sleep on, so that a freed one wakes exactly one caller.
struct Waiter {
  sem_t handed_over;
  int number;
  Waiter* next;
};

// A strict queue: a semaphore is free only while nobody waits for one.
struct Pool {
  std::mutex mutex;
  int first_free = kNone;  // a stack, linked through `next_free`
  Waiter* first_waiter = nullptr;
  Waiter* last_waiter = nullptr;
};

Pool* pool_of(const s_witEnd_ctl* ctl) {
  return ctl == nullptr ? nullptr : static_cast<Pool*>(ctl->pool);
}

s_witEnd_sem* find(int number, const s_witEnd_ctl* ctl) {
  if (pool_of(ctl) == nullptr || number < 0 || number >= ctl->count) return nullptr;
  return &ctl->sems[number];
}

// An interruption by a signal is the only failure, and no reason to stop waiting.
void wait_on(sem_t* sem) {
  while (sem_wait(sem) != 0) {
  }
}

bool release(s_witEnd_ctl* ctl) {
  Pool* pool = pool_of(ctl);
  if (pool == nullptr) return false;
  for (int i = 0; i < ctl->count; ++i) sem_destroy(&ctl->sems[i].posted);
  delete pool;
  *ctl = {};
  return true;
}

int reserve(Pool& pool, s_witEnd_sem* sems) {
  std::unique_lock lock(pool.mutex);
  if (pool.first_free != kNone) {
    const int number = pool.first_free;
    pool.first_free = sems[number].next_free;
    sems[number].state = kTaken;
    return number;
  }
  Waiter self{.handed_over = {}, .number = kNone, .next = nullptr};
  sem_init(&self.handed_over, 0, 0);
  (pool.last_waiter == nullptr ? pool.first_waiter : pool.last_waiter->next) = &self;
  pool.last_waiter = &self;
  lock.unlock();

  wait_on(&self.handed_over);
  sem_destroy(&self.handed_over);
  return self.number;
}

// Goes to the caller that has waited longest, and only without one back to the pool.
void put_back(Pool& pool, s_witEnd_sem* sems, int number) {
  const std::lock_guard lock(pool.mutex);
  Waiter* const waiter = pool.first_waiter;
  if (waiter == nullptr) {
    sems[number].state = kFree;
    sems[number].next_free = pool.first_free;
    pool.first_free = number;
    return;
  }
  pool.first_waiter = waiter->next;
  if (pool.first_waiter == nullptr) pool.last_waiter = nullptr;
  sems[number].state = kTaken;
  waiter->number = number;
  // The last use of the waiter: it leaves its stack frame as soon as it sees the post.
  sem_post(&waiter->handed_over);
}

}  // namespace

int WitEnd_new(s_witEnd_sem* sems, int count, s_witEnd_ctl* ctl) {
  platform::note("WitEnd_new", {count});
  if (sems == nullptr || count <= 0 || ctl == nullptr) return -1;
  release(ctl);
  Pool* pool = new (std::nothrow) Pool;
  if (pool == nullptr) return -1;
  for (int i = 0; i < count; ++i) {
    sem_init(&sems[i].posted, 0, 0);
    sems[i].state = kFree;
    sems[i].next_free = i + 1 < count ? i + 1 : kNone;
  }
  pool->first_free = 0;
  *ctl = {.sems = sems, .count = count, .pool = pool};
  return 0;
}

int WitEnd_get(int* number, s_witEnd_ctl* ctl) {
  Pool* pool = pool_of(ctl);
  if (pool == nullptr || number == nullptr) {
    platform::note("WitEnd_get", {-1});
    return -1;
  }
  *number = reserve(*pool, ctl->sems);
  platform::note("WitEnd_get", {*number});
  return 0;
}

int WitEnd_wait_put(int number, s_witEnd_ctl* ctl) {
  platform::note("WitEnd_wait_put", {number});
  s_witEnd_sem* sem = find(number, ctl);
  if (sem == nullptr || sem->state == kFree) return -1;
  wait_on(&sem->posted);
  put_back(*pool_of(ctl), ctl->sems, number);
  return 0;
}

int WitEnd_post(int number, s_witEnd_ctl* ctl) {
  platform::note("WitEnd_post", {number});
  s_witEnd_sem* sem = find(number, ctl);
  int expected = kTaken;
  if (sem == nullptr || !sem->state.compare_exchange_strong(expected, kPosted)) return -1;
  sem_post(&sem->posted);
  return 0;
}

int WitEnd_delete(s_witEnd_ctl* ctl) {
  platform::note("WitEnd_delete");
  return release(ctl) ? 0 : -1;
}

}  // namespace ipcam::comm
