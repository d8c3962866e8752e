// The comm application: shared objects, exchanges, register file and sensor.
#include "sim/comm_application.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <string>

#include "registers/register_values.h"
#include "wire/packet_entries.h"

namespace ipcam::sim {
namespace {

constexpr int kAccess = 0600;         // requesters run as the same user
constexpr std::uint8_t kRefused = 2;  // status of an entry that was not carried out

// Registers with which the sensor does more than remember.
constexpr Bits kReadout = registers::bits("readout");
constexpr Bits kReadoutStatus = registers::bits("readout_status");
constexpr Bits kWbMode = registers::bits("wb_mode");
constexpr Address kMeasuredGains[] = {registers::address("measured_red_gain_lo"),
                                      registers::address("measured_blue_gain_lo")};

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

void pause_ms(int milliseconds) { poll(nullptr, 0, milliseconds); }

// The record is shared memory: its packet is copied byte by byte, and each byte only once.
template <class To, class From>
void copy_packet(To& to, const From& from) {
  to.count = from.count;
  to.length = from.length;
  for (int i = 0; i < kDataBytes; ++i) to.data[i] = from.data[i];
}

void append(Packet& reply, std::initializer_list<std::uint8_t> entry) {
  for (const std::uint8_t byte : entry) reply.data[reply.length++] = byte;
  ++reply.count;
}

std::int32_t entry_offset(const Packet& reply, std::uint32_t entry) {
  std::int32_t offset = 0;
  for (std::uint32_t i = 0; i < entry && offset < reply.length; ++i) offset += reply.data[offset];
  return offset;
}

void spoil(Packet& reply, Fault fault, std::uint32_t entry) {
  const std::int32_t offset = entry_offset(reply, entry);
  const bool exists = offset < reply.length;
  if (fault == Fault::wrong_length_byte && exists) ++reply.data[offset];
  if (fault == Fault::torn_entry && exists) reply.length = offset + 1;
  if (fault == Fault::count_too_small) --reply.count;
  if (fault == Fault::count_too_large) ++reply.count;
  if (fault == Fault::negative_count) reply.count = -1;
  if (fault == Fault::length_too_large) reply.length = kDataBytes + 1;
  if (fault == Fault::negative_length) reply.length = -1;
  if (fault == Fault::empty_reply) reply = {};
}

bool is_one_of(Fault fault, std::initializer_list<Fault> faults) {
  return std::ranges::count(faults, fault) != 0;
}

// False for those that leave the registers as they were.
bool executes(Fault fault) {
  return !is_one_of(fault, {Fault::no_reply, Fault::reply_255, Fault::signal_without_reply,
                            Fault::die_before, Fault::die_during});
}

bool rings_in_time(Fault fault) {
  return !is_one_of(fault, {Fault::no_reply, Fault::late_reply, Fault::late_doorbell,
                            Fault::reply_without_signal});
}

}  // namespace

CommApplication::CommApplication(Switchboard& board) : board_(board) {
  sigemptyset(&signals_);
  for (const int signal : {kDoorbell, SIGINT, SIGTERM}) sigaddset(&signals_, signal);
  sigprocmask(SIG_BLOCK, &signals_, nullptr);
  open_objects();

  // Under the lock, so that no requester finds the record free before the
  // switchboard tells who will serve it.
  lock();
  board_.silent_for = board_.posted.load();  // what its predecessor has left is not answered
  board_.posted_seen = board_.posted.load();
  board_.comm_pid = static_cast<std::uint32_t>(getpid());
  board_.running = 1;
  clear_record();
  record_->comm_pid = getpid();
  unlock();
  ++board_.starts;
}

CommApplication::~CommApplication() {
  board_.running = 0;
  board_.comm_pid = 0;
  record_->comm_pid = 0;
  shmdt(const_cast<Record*>(record_));
  if (!leave_objects_) remove_ipc_objects();
  close(key_file_);
}

void CommApplication::open_objects() {
  key_file_ = open(kKeyFile, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kAccess);
  if (key_file_ < 0) fail(kKeyFile);
  // The lock ends with the process, however it ends, so a killed comm
  // application does not stand in the way.
  if (flock(key_file_, LOCK_EX | LOCK_NB) != 0) {
    throw std::runtime_error(std::string(kKeyFile) + ": held by another comm application");
  }

  const key_t key = ftok(kKeyFile, kKeyProject);
  if (key == -1) fail("key");
  sem_id_ = semget(key, 1, IPC_CREAT | kAccess);
  if (sem_id_ < 0) fail("semaphore");
  shm_id_ = shmget(key, sizeof(Record), IPC_CREAT | kAccess);
  if (shm_id_ < 0) fail("segment");
  void* address = shmat(shm_id_, nullptr, 0);
  if (address == reinterpret_cast<void*>(-1)) fail("segment");
  record_ = static_cast<Record*>(address);

  // A semaphore that has never been operated on is new, also when its
  // creator was killed before this step.
  semid_ds state{};
  if (semctl(sem_id_, 0, IPC_STAT, &state) != 0) fail("semaphore");
  if (state.sem_otime == 0 && semctl(sem_id_, 0, SETVAL, 1) != 0) fail("semaphore");
}

CommApplication::Event CommApplication::serve_one(int limit_ms) {
  const timespec limit{.tv_sec = limit_ms / 1000, .tv_nsec = limit_ms % 1000 * 1000000L};
  // A process that fakes its clock fakes sigtimedwait() too, which its child must not depend on.
  const int signal =
      limit_ms < 0 ? sigwaitinfo(&signals_, nullptr) : sigtimedwait(&signals_, nullptr, &limit);
  if (signal < 0 && errno != EINTR && errno != EAGAIN) fail("wait for the doorbell");
  if (signal == SIGINT || signal == SIGTERM) return Event::stop;
  if (signal != kDoorbell) return Event::quiet;
  serve_doorbell();
  return Event::doorbell;
}

void CommApplication::clear_record() {
  record_->status = kIdle;
  record_->req_pid = 0;
  copy_packet(record_->packet, Packet{});
}

void CommApplication::clear_abandoned() {
  lock();
  const pid_t requester = record_->req_pid;
  if (record_->status != kIdle && requester > 0 && kill(requester, 0) != 0 && errno == ESRCH)
    clear_record();
  unlock();
}

void CommApplication::serve_doorbell() {
  const std::uint32_t posted = board_.posted;
  Request request{board_.planned(board_.requests_taken), posted};
  // The doorbell is rung with the request already in the record, so
  // it can be looked at without the lock.
  if (request.fault == Fault::die_before && record_->status == kPosted) {
    ++board_.requests_taken;
    Packet command{};
    copy_packet(command, record_->packet);
    trace(command, {}, request.fault);
    die();
  }

  lock();
  if (record_->status == kPosted) {
    ++board_.requests_taken;
    request.requester = record_->req_pid;
    Packet command{};
    copy_packet(command, record_->packet);
    Packet reply{};
    if (executes(request.fault) && !execute(command, request, reply))
      request.fault = Fault::reply_255;
    if (executes(request.fault) && board_.reply_is_given.exchange(0) != 0)
      reply = board_.given_reply;
    spoil(reply, request.fault, request.plan.entry);
    trace(command, reply, request.fault);
    deliver(request, reply);
  } else {
    unlock();
  }
  board_.posted_seen = request.posted;
}

void CommApplication::deliver(const Request& request, const Packet& reply) {
  const Fault fault = request.fault;
  if (!rings_in_time(fault)) board_.silent_for = request.posted;
  if (fault == Fault::die_during) die();
  if (fault == Fault::extra_signals) ring(request.requester);
  if (fault == Fault::late_reply) {
    wait_until_given_up(request);
    pause_ms(20);  // the requester now waits for the lock, and no longer for the doorbell
  }

  if (fault == Fault::reply_255) {
    record_->status = kFailed;
  } else if (executes(fault)) {
    copy_packet(record_->packet, reply);
    record_->status = kAnswered;
    if (fault == Fault::foreign_pid) record_->req_pid = request.requester + 1;
  }
  unlock();

  if (fault == Fault::no_reply || fault == Fault::reply_without_signal) return;
  if (fault == Fault::die_after) die();
  if (fault == Fault::late_doorbell) {
    wait_until_given_up(request);
    for (int i = 0; i < 1000 && record_->status == kAnswered; ++i) pause_ms(1);
  }
  ring(request.requester);
  if (fault == Fault::extra_signals) {
    for (int i = 0; i < 3; ++i) ring(request.requester);
  }
  if (fault == Fault::die_after_doorbell) die();
}

bool CommApplication::execute(const Packet& packet, const Request& request, Packet& reply) {
  const std::vector<CommandEntry> entries = decode_command(packet).entries;
  const auto count = static_cast<std::uint32_t>(std::max(packet.count, 0));
  if (packet.length < 0 || packet.length > kDataBytes || entries.size() < count) return false;
  for (std::uint32_t i = 0; i < count; ++i) {
    const CommandEntry& entry = entries[i];
    const bool has_registers = !entry.values.empty();
    const bool refused = request.fault == Fault::wrong_status && i == request.plan.entry;
    const std::uint8_t status = refused ? kRefused : kSuccess;
    if (has_registers && entry.type == kReadEntry) {
      append(reply,
             {3, status, refused ? std::uint8_t{0} : read_register({entry.category, entry.byte})});
    } else if (has_registers && entry.type == kWriteEntry) {
      Address address{entry.category, entry.byte};
      for (std::size_t n = 0; !refused && n < entry.values.size(); ++n, ++address.byte) {
        write_register(address, entry.values[n]);
      }
      append(reply, {2, status});
    } else {
      // Of the all-to-SDRAM request.
      const bool is_to_sdram = has_registers ? entry.type == 0 : entry.type == 9;
      append(reply, {2, is_to_sdram ? status : kRefused});
    }
  }
  return true;
}

std::uint8_t CommApplication::read_register(Address address) {
  for (Switchboard::Script& script : board_.scripts) {
    const std::uint32_t length = script.length;
    if (length == 0 || script.address != (std::uint32_t{address.category} << 16 | address.byte))
      continue;
    const std::uint32_t position = script.position;
    if (position + 1 < length) script.position = position + 1;
    return script.values[position % std::size(script.values)];
  }

  if (board_.sensor_off == 0 && address == kReadoutStatus.address) {
    if (readout_lag_ > 0) {
      --readout_lag_;
    } else {
      const std::uint8_t status =
          board_.reg(kReadout) != 0 ? registers::kReadoutBinned : registers::kReadoutAllPixels;
      board_.set_reg(address, (board_.reg(address) & ~kReadoutStatus.mask) | status);
    }
  }
  if (board_.sensor_off == 0 && address == kMeasuredGains[0] &&
      board_.reg(kWbMode) == registers::kWbAtw) {
    advance_gains();
  }
  return board_.reg(address);
}

// One step of a one-push measurement: both gains go from where they
// started to their targets in equal steps.
void CommApplication::advance_gains() {
  const std::int64_t steps = board_.onepush_settle_reads;
  const std::int64_t target[2] = {board_.onepush_red, board_.onepush_blue};
  ++onepush_reads_;
  for (std::uint32_t i = 0; i < 2; ++i) {
    const std::int64_t start = onepush_start_[i];
    const bool settled = onepush_reads_ >= steps;
    board_.set_word(
        kMeasuredGains[i],
        static_cast<std::uint32_t>(settled ? target[i]
                                           : start + (target[i] - start) * onepush_reads_ / steps));
  }
}

void CommApplication::write_register(Address address, std::uint8_t value) {
  if (board_.sensor_off == 0 && registers::is_read_only(address)) return;
  if (address == kReadout.address && ((board_.reg(address) ^ value) & kReadout.mask) != 0) {
    readout_lag_ = board_.readout_lag_reads;
  }
  if (address == kWbMode.address && (value & kWbMode.mask) == registers::kWbAtw) {
    onepush_reads_ = 0;
    for (std::uint32_t i = 0; i < 2; ++i) onepush_start_[i] = board_.word(kMeasuredGains[i]);
  }
  board_.set_reg(address, value);
}

void CommApplication::trace(const Packet& command, const Packet& reply, Fault fault) {
  const std::uint32_t end = board_.trace_end;
  Exchange& exchange = board_.trace[end % Switchboard::kTraceSize];
  exchange = {command, reply, fault};
  board_.trace_end = end + 1;
  if (observer_) observer_(exchange);
}

void CommApplication::wait_until_given_up(const Request& request) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(request.plan.delay_ms);
  while (Clock::now() < deadline) {
    if (request.posted != 0 && board_.gave_up_for == request.posted) return;
    pause_ms(1);
  }
}

void CommApplication::ring(std::int32_t pid) {
  if (pid <= 0) return;  // 0 and below would reach whole process groups
  ++board_.replies_rung;
  kill(pid, kDoorbell);
}

void CommApplication::change_semaphore(short by) {
  sembuf operation{.sem_num = 0, .sem_op = by, .sem_flg = SEM_UNDO};
  while (semop(sem_id_, &operation, 1) != 0) {
    if (errno != EINTR) fail("semaphore");
  }
}

void CommApplication::die() {
  board_.running = 0;
  for (;;) kill(getpid(), SIGKILL);
}

void remove_ipc_objects() {
  const key_t key = ftok(kKeyFile, kKeyProject);
  if (key == -1) return;
  semctl(semget(key, 1, 0), 0, IPC_RMID);
  shmctl(shmget(key, sizeof(Record), 0), IPC_RMID, nullptr);
  unlink(kKeyFile);
}

}  // namespace ipcam::sim
