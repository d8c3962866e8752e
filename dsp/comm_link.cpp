// The link to the comm application: attaching, and the exchange of one request and its reply.
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "dsp/deadline.h"
#include "dsp/locking.h"
#include "ipcam/camera/dsp_command.h"

namespace ipcam::camera {

extern "C" {
constinit char g_prgname[32] = {};
constinit std::atomic<unsigned char> g_signal_flg{0};

void sigusr2_handle(int /*signal*/) { g_signal_flg.store(1); }
}

namespace {

constexpr int kDoorbell = 10;
static_assert(SIGUSR1 == kDoorbell);

constexpr char kKeyFile[] = "/tmp/comm.log";  // used for its identity only
constexpr int kKeyProject = 'n';
constexpr int kAttachMode = 0444;

constexpr long kReplyLimitSeconds = 1;
constexpr std::int64_t kLockLimitNs = 5 * kNsPerSecond;  // a holder needs microseconds; after this it is stuck

// Between two looks at g_signal_flg: never so long that a doorbell taken by another thread costs the caller a
// noticeable delay. Short only while that happens: a timer that is due before the kernel's next tick must be set up and
// taken back in hardware, which costs more than all else that the library adds to an exchange.
constexpr std::int64_t kLongestLookNs = 5'000'000;
constexpr std::int64_t kFirstLookWhileStrayingNs = 100'000;

// Whether the last doorbell that this process waited for was taken by a thread that did not wait for it.
constinit std::atomic<bool> g_doorbell_strays{false};

enum e_record_status : std::int32_t { RECORD_IDLE = 0, RECORD_POSTED = 1, RECORD_REPLY = 2, RECORD_FAILED = 255 };

constinit LibraryMutex g_prgname_lock;

// Segment whose record still holds a request of this process, because the semaphore could not be had to fetch the
// reply; -1 for none. The process's next request takes the record back; otherwise it would stay busy for everyone.
// Posting needs an idle record, so as long as this names the segment, a record with this process's id holds that
// request and no other.
constinit std::atomic<std::int32_t> g_segment_left{-1};

// After a reply that came too late its doorbell is still due: the comm application rings when it has given the
// semaphore back. Waiting this long for it costs a request that has failed already, and saves the next one.
constexpr timespec kLateDoorbellLimit = to_timespec(10'000'000);

// Several objects may be constructed while others print: the name is written only when it is not there yet.
void set_program_name() {
  static constexpr char kName[sizeof g_prgname] = "dspset";
  LockGuard lock(g_prgname_lock);
  if (std::memcmp(g_prgname, kName, sizeof kName) != 0) std::memcpy(g_prgname, kName, sizeof kName);
}

sigset_t doorbell_set() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, kDoorbell);
  return set;
}

void block_doorbell() {
  const sigset_t doorbell = doorbell_set();
  sigprocmask(SIG_BLOCK, &doorbell, nullptr);
}

// Takes the doorbells of earlier exchanges that came too late, so that none is taken for the next reply. At most
// one is pending for the thread and one for the process.
void drain_doorbell() {
  const sigset_t doorbell = doorbell_set();
  const timespec at_once{};
  for (int pending = 0; pending < 2; ++pending) {
    if (sigtimedwait(&doorbell, nullptr, &at_once) < 0) break;
  }
  g_signal_flg.store(0);
}

int report_not_attached() {
  std::fprintf(stderr, "%s: [ERROR] shared memory is not attached!\n", g_prgname);
  return -1;
}

}  // namespace

DspCommand::DspCommand() {
  g_signal_flg.store(0);
  set_program_name();
  if (std::signal(kDoorbell, sigusr2_handle) == SIG_ERR) {
    std::fprintf(stderr, "%s: [ERROR] failed to set signal handle!\n", g_prgname);
    return;
  }
  std::intptr_t address = 0;
  getinfo_ipc(&sem_id, &shm_id, sizeof(shm_info), &address);
  shm = reinterpret_cast<shm_info*>(address);
}

// Takes no lock: giving one back may end the thread, which a destructor must not.
DspCommand::~DspCommand() {
  if (shm != nullptr) shmdt(shm);
}

void DspCommand::detach() {
  LockGuard lock(mutex);
  if (shm != nullptr) shmdt(shm);
  shm = nullptr;
}

int DspCommand::get_key(int* key) {
  const key_t value = ftok(kKeyFile, kKeyProject);
  if (key != nullptr) *key = value;
  if (key == nullptr || value == -1) {
    std::fprintf(stderr, "%s: [ERROR] ftok failed!\n", g_prgname);
    return -1;
  }
  return 0;
}

int DspCommand::getinfo_ipc(int* sem_id_out, int* shm_id_out, int size, std::intptr_t* shm_addr) {
  if (sem_id_out == nullptr || shm_id_out == nullptr || shm_addr == nullptr) {
    std::fprintf(stderr, "%s: [ERROR] argument error!\n", g_prgname);
    return -1;
  }
  int key = 0;
  if (get_key(&key) < 0) {
    std::fprintf(stderr, "%s: [ERROR] get_key failed!\n", g_prgname);
    return -1;
  }

  int result = 0;
  const int found_sem = semget(key, 1, kAttachMode);
  if (found_sem < 0) {
    std::fprintf(stderr, "%s: [ERROR] semget failed!\n", g_prgname);
    result = -1;
  } else {
    *sem_id_out = found_sem;
  }

  const int found_shm = (size < 0) ? -1 : shmget(key, static_cast<std::size_t>(size), kAttachMode);
  if (found_shm < 0) {
    std::fprintf(stderr, "%s: [ERROR] shmget failed!\n", g_prgname);
    return -1;
  }
  *shm_id_out = found_shm;

  const auto address = reinterpret_cast<std::intptr_t>(shmat(found_shm, nullptr, 0));
  if (address == -1) {
    std::fprintf(stderr, "%s: [ERROR] shamat failed!\n", g_prgname);
    return -1;
  }
  *shm_addr = address;
  return result;
}

int DspCommand::sem_operation(int op, short flags) {
  sem_op = {.sem_num = 0, .sem_op = static_cast<short>(op), .sem_flg = flags};
  int failed = 0;
  if (op > 0) {
    failed = semop(sem_id, &sem_op, 1);  // giving back never blocks
  } else {
    const Deadline deadline(kLockLimitNs);
    timespec left = to_timespec(kLockLimitNs);
    while ((failed = semtimedop(sem_id, &sem_op, 1, &left)) != 0 && errno == EINTR) {
      left = to_timespec(deadline.remaining_ns());
    }
  }
  if (failed == 0) return 0;
  std::fprintf(stderr, "%s: [ERROR] semop failed!\n", g_prgname);
  return -1;
}

int DspCommand::check_ipc(shm_info* record, int phase) {
  if (phase != 0 && phase != 2) {
    std::fprintf(stderr, "%s: [ERROR] invalid status!\n", g_prgname);
    return -1;
  }
  if (record == nullptr) return report_not_attached();
  if (phase == 0) {
    if (record->status == RECORD_IDLE && record->req_pid == 0) return 0;
    std::printf("%s: other process using now!\n", g_prgname);
    return -1;
  }
  if (record->status == RECORD_FAILED) {
    std::fprintf(stderr, "%s: [ERROR] communication with comm application error!\n", g_prgname);
    return -1;
  }
  if (record->status == RECORD_REPLY && record->req_pid == getpid()) return 0;
  std::fprintf(stderr, "%s: [ERROR] shared memory status error!\n", g_prgname);
  return -1;
}

void DspCommand::clean_ipc(shm_info* record) {
  if (record == nullptr) return;
  record->status = RECORD_IDLE;
  record->req_pid = 0;
  record->count = 0;
  record->length = 0;
  std::memset(record->data, 0, sizeof record->data);
}

int DspCommand::send_sigusr2(int pid) {
  // 0 and below name process groups, which must never be signalled.
  if (pid > 0 && kill(pid, kDoorbell) == 0) return 0;
  std::fprintf(stderr, "%s: [ERROR] send user signal1 to pid %d failed!\n", g_prgname, pid);
  return -1;
}

int DspCommand::wait_sigusr2(long seconds) {
  block_doorbell();
  const sigset_t doorbell = doorbell_set();
  if (seconds == 0) {
    const int signal = sigwaitinfo(&doorbell, nullptr);
    if (signal < 0) std::fprintf(stderr, "%s: [ERROR] sigwaitinfo failed!\n", g_prgname);
    return signal;
  }

  // The signal is sent to the process: a thread of the host program that does not block it may take it instead,
  // and then only the flag tells. Other signals that interrupt the wait do not shorten it.
  const Deadline deadline(seconds_to_ns(seconds));
  std::int64_t look_ns = g_doorbell_strays.load() ? kFirstLookWhileStrayingNs : kLongestLookNs;
  while (g_signal_flg.load() == 0) {
    const std::int64_t left_ns = deadline.remaining_ns();
    const timespec look = to_timespec(std::min(look_ns, left_ns));
    const int signal = sigtimedwait(&doorbell, nullptr, &look);
    if (signal >= 0) {
      g_doorbell_strays.store(false);
      return signal;
    }
    if (errno != EAGAIN && errno != EINTR) return -1;
    if (left_ns == 0) return -1;
    look_ns = std::min(2 * look_ns, kLongestLookNs);
  }
  g_doorbell_strays.store(true);
  return -1;
}

int DspCommand::send_to_comm(packet_info* packet) {
  if (packet == nullptr || packet->length < 0 || packet->length > static_cast<int>(sizeof packet->data)) {
    std::fprintf(stderr, "%s: [ERROR] too many parameter!\n", g_prgname);
    return -1;
  }
  if (sem_operation(-1, SEM_UNDO) < 0) return -1;

  if (shm != nullptr && g_segment_left.load() == shm_id) {
    g_segment_left.store(-1);
    if (shm->req_pid == getpid()) clean_ipc(shm);
  }
  int result = check_ipc(shm, 0);
  if (result == 0) {
    // The record is idle, so whatever is pending now was meant for nobody any more.
    block_doorbell();
    drain_doorbell();
    shm->status = RECORD_POSTED;
    shm->req_pid = getpid();
    shm->count = packet->count;
    shm->length = packet->length;
    std::memcpy(shm->data, packet->data, static_cast<std::size_t>(packet->length));
    // Rung while the semaphore is held: the comm application cannot take the record before it is complete.
    result = send_sigusr2(shm->comm_pid);
  }

  if (sem_operation(+1, SEM_UNDO) == 0) return result;
  if (result == 0) g_segment_left.store(shm_id);  // rung, but nobody is going to fetch the reply
  return -1;
}

int DspCommand::get_from_comm(packet_info* packet) {
  int result = 0;
  if (wait_sigusr2(kReplyLimitSeconds) < 0 && g_signal_flg.exchange(0) == 0) {
    std::fprintf(stderr, "%s: [ERROR] wait sigusr2 failed!\n", g_prgname);
    result = -1;
  }
  if (sem_operation(-1, SEM_UNDO) < 0) {
    g_segment_left.store(shm_id);
    return -1;
  }

  const bool is_late = result != 0 && shm != nullptr && shm->req_pid == getpid() &&
                       (shm->status == RECORD_REPLY || shm->status == RECORD_FAILED);
  if (result == 0) result = check_ipc(shm, 2);
  if (result == 0) {
    const std::int32_t length = shm->length;
    if (length < 0 || length > static_cast<int>(sizeof shm->data)) {
      std::fprintf(stderr, "%s: [ERROR] reply too long (%d, maximum length: %d)!\n", g_prgname, length,
                   static_cast<int>(sizeof shm->data));
      result = -1;
    } else if (packet == nullptr) {
      std::fprintf(stderr, "%s: [ERROR] argument error!\n", g_prgname);
      result = -1;
    } else {
      packet->count = shm->count;
      packet->length = length;
      std::memcpy(packet->data, shm->data, static_cast<std::size_t>(length));
    }
  }

  // Whatever happened, the record is free for the next request and a late reply finds nobody waiting.
  clean_ipc(shm);
  if (sem_operation(+1, SEM_UNDO) < 0) result = -1;
  if (is_late) {
    const sigset_t doorbell = doorbell_set();
    sigtimedwait(&doorbell, nullptr, &kLateDoorbellLimit);
  }
  return result;
}

int DspCommand::setSyRevision(int revision) {
  sy_revision = revision;
  return 0;
}

}  // namespace ipcam::camera
