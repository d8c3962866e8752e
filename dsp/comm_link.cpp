// The link to the comm application: attaching, and the exchange of one request and its reply.
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "dsp/cancellation.h"
#include "dsp/deadline.h"
#include "dsp/doorbell.h"
#include "dsp/locking.h"
#include "ipcam/camera/dsp_command.h"

namespace ipcam::camera {

extern "C" {
constinit char g_prgname[32] = {};
}

namespace {

constexpr char kKeyFile[] = "/tmp/comm.log";  // used for its identity only
constexpr int kKeyProject = 'n';
constexpr int kAttachMode = 0444;

// A holder needs microseconds; after this it is stuck.
constexpr std::int64_t kLockLimitNs = 5 * kNsPerSecond;

enum e_record_status : std::int32_t {
  RECORD_IDLE = 0,
  RECORD_POSTED = 1,
  RECORD_REPLY = 2,
  RECORD_FAILED = 255
};

constinit LibraryMutex g_prgname_lock;

// Segment whose record still holds a request of this process, because the semaphore could not be
// had to fetch the reply; -1 for none. The process's next request takes the record back; otherwise
// it would stay busy for everyone. Posting needs an idle record, so as long as this names the
// segment, a record with this process's id holds that request and no other.
constinit std::atomic<std::int32_t> g_segment_left{-1};

// Leaves a request that has been rung for, but whose reply nobody is going to fetch.
void abandon_reply(std::int32_t segment) {
  g_segment_left.store(segment);
  g_doorbell.end_exchange(segment);
}

// Several objects may be constructed while others print: the name is
// written only when it is not there yet.
void set_program_name() {
  static constexpr char kName[sizeof g_prgname] = "dspset";
  LockGuard lock(g_prgname_lock);
  if (std::memcmp(g_prgname, kName, sizeof kName) != 0) std::memcpy(g_prgname, kName, sizeof kName);
}

// A field of the shared record: loaded just once, so that what has been checked is what is used,
// whatever the other process writes meanwhile.
std::int32_t read_once(std::int32_t& field) {
  return std::atomic_ref(field).load(std::memory_order_relaxed);
}

// What is wrong with an exchange.
enum class Failure : std::uint8_t {
  none,
  not_attached,
  busy,
  not_rung,
  no_reply,
  comm_failed,
  wrong_status,
  too_long,
  no_packet,
};

// Found while the semaphore is held, told when it has been given back: whoever reads this program's
// messages may be slow, and no other process is to wait for him.
struct Finding {
  Failure failure = Failure::none;
  std::int32_t value = 0;  // the process that could not be rung, or the length

  explicit operator bool() const { return failure != Failure::none; }
};

// Prints what was found. Returns 0 when that is nothing, else -1.
int tell(const Finding& finding) {
  switch (finding.failure) {
    case Failure::none:
      return 0;
    case Failure::not_attached:
      std::fprintf(stderr, "%s: [ERROR] shared memory is not attached!\n", g_prgname);
      break;
    case Failure::busy:
      std::printf("%s: other process using now!\n", g_prgname);
      break;
    case Failure::not_rung:
      std::fprintf(stderr, "%s: [ERROR] send user signal1 to pid %d failed!\n", g_prgname,
                   finding.value);
      break;
    case Failure::no_reply:
      std::fprintf(stderr, "%s: [ERROR] wait sigusr2 failed!\n", g_prgname);
      break;
    case Failure::comm_failed:
      std::fprintf(stderr, "%s: [ERROR] communication with comm application error!\n", g_prgname);
      break;
    case Failure::wrong_status:
      std::fprintf(stderr, "%s: [ERROR] shared memory status error!\n", g_prgname);
      break;
    case Failure::too_long:
      std::fprintf(stderr, "%s: [ERROR] reply too long (%d, maximum length: %d)!\n", g_prgname,
                   finding.value, static_cast<int>(sizeof shm_info::data));
      break;
    case Failure::no_packet:
      std::fprintf(stderr, "%s: [ERROR] argument error!\n", g_prgname);
      break;
  }
  return -1;
}

int report_semaphore() {
  std::fprintf(stderr, "%s: [ERROR] semop failed!\n", g_prgname);
  return -1;
}

Finding check_free(shm_info* record) {
  if (record == nullptr) return {Failure::not_attached};
  const bool is_free = read_once(record->status) == RECORD_IDLE && read_once(record->req_pid) == 0;
  return {is_free ? Failure::none : Failure::busy};
}

Finding check_reply(shm_info* record) {
  if (record == nullptr) return {Failure::not_attached};
  const std::int32_t status = read_once(record->status);
  if (status == RECORD_FAILED) return {Failure::comm_failed};
  const bool is_ours = status == RECORD_REPLY && read_once(record->req_pid) == getpid();
  return {is_ours ? Failure::none : Failure::wrong_status};
}

Finding ring(std::int32_t pid) {
  if (g_doorbell.ring(pid)) return {};
  return {Failure::not_rung, pid};
}

// The steps of an exchange on the record, which the caller has locked.

Finding post(shm_info* record, std::int32_t segment, const packet_info& packet) {
  if (const Finding finding = check_free(record)) return finding;

  // The record is idle, so what has been rung before was meant for nobody any more.
  g_doorbell.begin_exchange(segment);
  record->status = RECORD_POSTED;
  record->req_pid = getpid();
  record->count = packet.count;
  record->length = packet.length;
  std::memcpy(record->data, packet.data, static_cast<std::size_t>(packet.length));
  // Rung while the semaphore is held: the comm application cannot
  // take the record before it is complete.
  const Finding finding = ring(read_once(record->comm_pid));
  if (finding) g_doorbell.end_exchange(segment);
  return finding;
}

Finding fetch(shm_info* record, packet_info* packet) {
  if (const Finding finding = check_reply(record)) return finding;

  const std::int32_t length = read_once(record->length);
  if (length < 0 || length > static_cast<int>(sizeof record->data))
    return {Failure::too_long, length};
  if (packet == nullptr) return {Failure::no_packet};
  packet->count = read_once(record->count);
  packet->length = length;
  std::memcpy(packet->data, record->data, static_cast<std::size_t>(length));
  return {};
}

// Whether the request of this process has been answered, well or not.
bool holds_reply(shm_info* record) {
  if (record == nullptr) return false;
  const std::int32_t status = read_once(record->status);
  return (status == RECORD_REPLY || status == RECORD_FAILED) &&
         read_once(record->req_pid) == getpid();
}

}  // namespace

DspCommand::DspCommand() {
  set_program_name();
  if (!g_doorbell.install()) {
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
  CancellationBlock no_cancellation;
  if (!operate_semaphore(op, flags)) return report_semaphore();
  if (op < 0) no_cancellation.leave_pending();
  return 0;
}

bool DspCommand::operate_semaphore(int op, short flags) {
  sem_op = {.sem_num = 0, .sem_op = static_cast<short>(op), .sem_flg = flags};
  if (op > 0) return semop(sem_id, &sem_op, 1) == 0;  // giving back never blocks

  const Deadline deadline(kLockLimitNs);
  timespec left = to_timespec(kLockLimitNs);
  int failed = 0;
  while ((failed = semtimedop(sem_id, &sem_op, 1, &left)) != 0 && errno == EINTR) {
    left = to_timespec(deadline.remaining_ns());
  }
  return failed == 0;
}

int DspCommand::check_ipc(shm_info* record, int phase) {
  if (phase == 0) return tell(check_free(record));
  if (phase == 2) return tell(check_reply(record));
  std::fprintf(stderr, "%s: [ERROR] invalid status!\n", g_prgname);
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

int DspCommand::send_sigusr2(int pid) { return tell(ring(pid)); }

int DspCommand::wait_sigusr2(long seconds) {
  if (seconds != 0) return g_doorbell.wait(seconds_to_ns(seconds));
  const int signal = g_doorbell.wait_without_limit();
  if (signal < 0) std::fprintf(stderr, "%s: [ERROR] sigwaitinfo failed!\n", g_prgname);
  return signal;
}

int DspCommand::send_to_comm(packet_info* packet) {
  if (packet == nullptr || packet->length < 0 ||
      packet->length > static_cast<int>(sizeof packet->data)) {
    std::fprintf(stderr, "%s: [ERROR] too many parameter!\n", g_prgname);
    return -1;
  }
  CancellationBlock no_cancellation;
  if (post_request(*packet) < 0) return -1;
  no_cancellation.leave_pending();  // the record is taken until the reply has been fetched
  return 0;
}

int DspCommand::post_request(const packet_info& packet) {
  if (!operate_semaphore(-1, SEM_UNDO)) return report_semaphore();

  if (shm != nullptr && g_segment_left.load() == shm_id) {
    g_segment_left.store(-1);
    if (read_once(shm->req_pid) == getpid()) clean_ipc(shm);
  }
  const Finding finding = post(shm, shm_id, packet);
  const bool is_unlocked = operate_semaphore(+1, SEM_UNDO);
  if (!is_unlocked && !finding) abandon_reply(shm_id);

  const int result = tell(finding);
  return is_unlocked ? result : report_semaphore();
}

int DspCommand::get_from_comm(packet_info* packet) {
  const CancellationBlock no_cancellation;
  return fetch_reply(packet);
}

int DspCommand::fetch_reply(packet_info* packet) {
  const bool is_rung = g_doorbell.wait_for_reply();
  Finding finding = {is_rung ? Failure::none : Failure::no_reply};
  if (!operate_semaphore(-1, SEM_UNDO)) {
    if (shm != nullptr) abandon_reply(shm_id);
    tell(finding);
    return report_semaphore();
  }

  const bool is_late = !is_rung && holds_reply(shm);
  if (is_rung) finding = fetch(shm, packet);
  // Whatever happened, the record is free for the next request and a
  // late reply finds nobody waiting.
  clean_ipc(shm);
  g_doorbell.end_exchange(shm_id);
  if (is_late) g_doorbell.wait_for_late_one();
  const bool is_unlocked = operate_semaphore(+1, SEM_UNDO);

  const int result = tell(finding);
  return is_unlocked ? result : report_semaphore();
}

int DspCommand::setSyRevision(int revision) {
  sy_revision = revision;
  return 0;
}

}  // namespace ipcam::camera
