// What one exchange and one request cost at least: the same system calls between the same parties, without library.
#include "tools/bare_primitives.h"

#include <sys/ipc.h>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "tools/output.h"

namespace ipcam::tools {

namespace {

constexpr int kDoorbell = SIGUSR1;

}  // namespace

BareExchange::BareExchange() : sem_(semget(IPC_PRIVATE, 1, 0600)) {
  const int shm = shmget(IPC_PRIVATE, sizeof(camera::shm_info), 0600);
  void* memory = shmat(shm, nullptr, 0);
  shmctl(shm, IPC_RMID, nullptr);  // goes with the last that is attached
  sigemptyset(&doorbell_);
  sigaddset(&doorbell_, kDoorbell);
  sigprocmask(SIG_BLOCK, &doorbell_, nullptr);
  if (memory != reinterpret_cast<void*>(-1) && sem_ >= 0) {
    record_ = static_cast<camera::shm_info*>(memory);
    operate(+1);
    child_ = fork();
  }
  if (child_ == 0) answer(getppid());
  if (child_ < 0) throw CommandError(kUsage, std::string("bench: an echo of its own: ") + std::strerror(errno));
}

BareExchange::~BareExchange() {
  kill(child_, SIGKILL);
  waitpid(child_, nullptr, 0);
  shmdt(record_);
  semctl(sem_, 0, IPC_RMID);
}

void BareExchange::run() {
  constexpr timespec kLimit = {.tv_sec = 1, .tv_nsec = 0};
  operate(-1);
  record_->status = 1;
  record_->length = 6;
  kill(child_, kDoorbell);
  operate(+1);
  sigtimedwait(&doorbell_, nullptr, &kLimit);
  operate(-1);
  record_->status = 0;
  std::memset(record_->data, 0, sizeof record_->data);
  operate(+1);
}

void BareExchange::operate(short operation) {
  sembuf action = {.sem_num = 0, .sem_op = operation, .sem_flg = SEM_UNDO};
  semop(sem_, &action, 1);
}

void BareExchange::answer(pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (;;) {
    sigwaitinfo(&doorbell_, nullptr);
    operate(-1);
    record_->status = 2;
    operate(+1);
    kill(parent, kDoorbell);
  }
}

BareRequest::BareRequest() : asked_(), answered_() {
  sem_init(&asked_, 0, 0);
  sem_init(&answered_, 0, 0);
  server_ = std::thread([this] { serve(); });
}

BareRequest::~BareRequest() {
  ended_ = true;
  sem_post(&asked_);
  server_.join();
  sem_destroy(&asked_);
  sem_destroy(&answered_);
}

void BareRequest::run() {
  sem_post(&asked_);
  sem_wait(&answered_);
}

void BareRequest::serve() {
  for (sem_wait(&asked_); !ended_; sem_wait(&asked_)) sem_post(&answered_);
}

}  // namespace ipcam::tools
