// A comm application that costs as little as possible, for measuring what the library adds.
#include "bench/comm_peer.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

#include "wire/wire_format.h"

namespace ipcam::bench {

namespace {

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

sigset_t doorbell_set() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR1);
  return set;
}

void change_semaphore(int sem, short by) {
  sembuf operation{.sem_num = 0, .sem_op = by, .sem_flg = SEM_UNDO};
  semop(sem, &operation, 1);
}

// Replaces the commands by their replies; a register read gives 0x5a.
void answer(camera::shm_info& record) {
  const int count = record.count;
  std::uint8_t reply[128];
  int length = 0;
  const std::uint8_t* command = record.data;
  for (int i = 0; i < count; ++i) {
    const bool is_read = command[1] == 1;
    reply[length] = is_read ? 3 : 2;
    reply[length + 1] = 1;
    if (is_read) reply[length + 2] = 0x5a;
    length += is_read ? 3 : 2;
    command += command[0];
  }
  record.length = length;
  std::memcpy(record.data, reply, static_cast<std::size_t>(length));
}

[[noreturn]] void serve(int sem, camera::shm_info& record) {
  const sigset_t doorbell = doorbell_set();
  for (;;) {
    if (sigwaitinfo(&doorbell, nullptr) < 0) continue;
    change_semaphore(sem, -1);
    const pid_t requester = record.req_pid;
    if (record.count > 0) answer(record);
    record.status = 2;
    change_semaphore(sem, +1);
    if (requester > 0) kill(requester, SIGUSR1);
  }
}

}  // namespace

key_t make_link_key() {
  const int file = open(wire::kKeyFile, O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  if (file < 0) fail(wire::kKeyFile);
  close(file);
  return ftok(wire::kKeyFile, wire::kKeyProject);
}

CommPeer::CommPeer(key_t key)
    : sem_(semget(key, 1, IPC_CREAT | 0600)),
      shm_(shmget(key, sizeof(camera::shm_info), IPC_CREAT | 0600)) {
  if (sem_ < 0 || shm_ < 0) fail("semaphore or shared memory");
  if (semctl(sem_, 0, SETVAL, 1) < 0) fail("semctl");
  void* address = shmat(shm_, nullptr, 0);
  if (address == reinterpret_cast<void*>(-1)) fail("shmat");
  record_ = static_cast<camera::shm_info*>(address);

  const sigset_t doorbell = doorbell_set();
  sigset_t previous;
  sigprocmask(SIG_BLOCK, &doorbell, &previous);
  child_ = fork();
  if (child_ < 0) fail("fork");
  if (child_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    serve(sem_, *record_);
  }
  sigprocmask(SIG_SETMASK, &previous, nullptr);
  *record_ = {};
  record_->comm_pid = child_;
}

CommPeer::~CommPeer() {
  kill(child_, SIGKILL);
  waitpid(child_, nullptr, 0);
  shmdt(record_);
  shmctl(shm_, IPC_RMID, nullptr);
  semctl(sem_, 0, IPC_RMID);
}

bool CommPeer::bare_exchange() {
  const sigset_t doorbell = doorbell_set();
  const timespec limit{.tv_sec = 1, .tv_nsec = 0};
  const timespec at_once{};
  change_semaphore(sem_, -1);
  // Blocking the doorbell and taking what an earlier exchange left belong to the primitives:
  // without them a reply is lost to another thread, or taken for the wrong one.
  sigprocmask(SIG_BLOCK, &doorbell, nullptr);
  sigtimedwait(&doorbell, nullptr, &at_once);
  record_->status = 1;
  record_->req_pid = getpid();
  kill(record_->comm_pid, SIGUSR1);
  change_semaphore(sem_, +1);
  const bool is_rung = sigtimedwait(&doorbell, nullptr, &limit) == SIGUSR1;
  change_semaphore(sem_, -1);
  const bool is_answered = record_->status == 2 && record_->req_pid == getpid();
  record_->status = 0;
  record_->req_pid = 0;
  change_semaphore(sem_, +1);
  return is_rung && is_answered;
}

}  // namespace ipcam::bench
