// What one exchange and one request cost at least: the same system calls between the same parties, without library.
#pragma once

#include <semaphore.h>
#include <sys/types.h>

#include <csignal>
#include <thread>

#include "ipcam/camera/dsp_command.h"

namespace ipcam::tools {

// Lock, post, doorbell, unlock, wait, lock, clean, unlock, against an echo in another process. Signal 10 is blocked
// in the calling thread from the construction on.
class BareExchange {
 public:
  BareExchange();  // throws CommandError
  ~BareExchange();
  BareExchange(const BareExchange&) = delete;
  BareExchange& operator=(const BareExchange&) = delete;

  void run();

 private:
  void operate(short operation);
  [[noreturn]] void answer(pid_t parent);

  int sem_;
  camera::shm_info* record_ = nullptr;
  sigset_t doorbell_ = {};
  pid_t child_ = -1;
};

// A hand-over to another thread and back.
class BareRequest {
 public:
  BareRequest();
  ~BareRequest();
  BareRequest(const BareRequest&) = delete;
  BareRequest& operator=(const BareRequest&) = delete;

  void run();

 private:
  void serve();

  sem_t asked_;
  sem_t answered_;
  bool ended_ = false;  // written before the last hand-over
  std::thread server_;
};

}  // namespace ipcam::tools
