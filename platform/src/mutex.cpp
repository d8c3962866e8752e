// Mutual exclusion between threads, on a POSIX mutex.
#include "ipcam/comm/mutex.h"

namespace ipcam::comm {

Mutex::Mutex() { pthread_mutex_init(&mutex_, nullptr); }

Mutex::~Mutex() { pthread_mutex_destroy(&mutex_); }

int Mutex::lock() { return pthread_mutex_lock(&mutex_); }

int Mutex::unlock() { return pthread_mutex_unlock(&mutex_); }

}  // namespace ipcam::comm
