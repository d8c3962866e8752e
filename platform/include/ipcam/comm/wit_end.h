// Pool of reply semaphores: a caller reserves one, waits on it, and is woken by one post.
#pragma once

#include <semaphore.h>

#include <atomic>

namespace ipcam::comm {

// One semaphore of the pool; storage supplied by the owner, contents private to the pool.
struct s_witEnd_sem {
  sem_t posted;
  std::atomic<int> state;
  int next_free;
};

// Control record of a pool; all zero until WitEnd_new has filled it and after WitEnd_delete.
struct s_witEnd_ctl {
  s_witEnd_sem* sems;
  int count;
  void* pool;
};

// WitEnd_get, WitEnd_wait_put and WitEnd_post are for any thread, any number at once. WitEnd_new
// and WitEnd_delete are for one thread while no other is inside any operation of the pool.

// Sets up a pool of `count` semaphores in `sems`; a pool that `ctl` still holds is released first.
// Returns 0, or -1 on failure.
int WitEnd_new(s_witEnd_sem* sems, int count, s_witEnd_ctl* ctl);
// Reserves a free semaphore and writes its number. Waits while all are taken; all are served in the
// order in which they came. Returns 0, or -1 when the pool does not exist.
int WitEnd_get(int* number, s_witEnd_ctl* ctl);
// Waits until semaphore `number` has been posted, then returns it to the pool. Returns 0, or -1 at
// once when the pool does not exist or the semaphore is not reserved.
int WitEnd_wait_put(int number, s_witEnd_ctl* ctl);
// Posts semaphore `number`, waking its one waiter. Returns 0, or -1 when the pool does not exist,
// or the semaphore is not reserved or has been posted already.
int WitEnd_post(int number, s_witEnd_ctl* ctl);
// Releases the pool. Returns 0, or -1 when it does not exist.
int WitEnd_delete(s_witEnd_ctl* ctl);

}  // namespace ipcam::comm
