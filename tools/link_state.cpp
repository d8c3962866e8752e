// The link to the comm application as it looks from outside, without an exchange.
#include "tools/link_state.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <thread>

namespace ipcam::tools {

namespace {

using namespace std::chrono_literals;

constexpr auto kReplyLimit = 1000ms;  // the library's limit for one reply

// A process that has ended but not been collected by its parent answers no doorbell.
bool is_zombie(int pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string stat;
  std::getline(file, stat);
  const std::size_t name_end = stat.rfind(')');
  return name_end != std::string::npos && stat.compare(name_end, 3, ") Z") == 0;
}

bool is_alive(int pid) {
  if (pid <= 0) return false;
  return (kill(pid, 0) == 0 || errno == EPERM) && !is_zombie(pid);
}

void look_at_record(int shm_id, LinkState& link) {
  void* memory = shmat(shm_id, nullptr, 0);
  if (memory == reinterpret_cast<void*>(-1)) return;
  link.may_use_segment = true;
  if (link.segment_size >= sizeof(wire::Record)) {
    std::memcpy(&link.record.emplace(), memory, sizeof(wire::Record));
    link.comm_alive = is_alive(link.record->comm_pid);
    link.requester_alive = is_alive(link.record->req_pid);
  }
  shmdt(memory);
}

}  // namespace

LinkState look_at_link() {
  LinkState link;
  const key_t key = ftok(wire::kKeyFile, wire::kKeyProject);
  if (key == -1) return link;
  link.has_key_file = true;

  link.may_use_semaphore = semget(key, 1, 0600) >= 0;
  link.has_semaphore = link.may_use_semaphore || errno != ENOENT;

  const int shm_id = shmget(key, 0, 0);
  if (shm_id < 0) return link;
  link.has_segment = true;
  shmid_ds about = {};
  // Without the right to read it, the size stays unknown, and the attachment below fails as well.
  if (shmctl(shm_id, IPC_STAT, &about) == 0) link.segment_size = about.shm_segsz;
  look_at_record(shm_id, link);
  return link;
}

std::string process_text(int pid, bool is_alive) {
  std::string text = "process " + std::to_string(pid);
  if (!is_alive) return text + ", which is gone";
  std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
  std::string name;
  if (std::getline(file, name)) text += " (" + name + ")";
  return text;
}

void require_link(const std::string& tried) {
  constexpr auto kPoll = 10ms;
  const auto deadline = std::chrono::steady_clock::now() + kReplyLimit + 100ms;
  LinkState link = look_at_link();
  while (link.record && link.comm_alive && !link.is_idle() &&
         std::chrono::steady_clock::now() < deadline) {
    check_for_stop();
    std::this_thread::sleep_for(kPoll);
    link = look_at_link();
  }

  if (!link.has_key_file || !link.has_semaphore || !link.has_segment) {
    throw CommandError(kNoCommApplication,
                       tried + ": no comm application is running, see camctl doctor");
  }
  if (!link.may_use_semaphore || !link.may_use_segment) {
    throw CommandError(
        kUsage, tried + ": no right to use the comm application's record, see camctl doctor");
  }
  if (!link.record)
    throw CommandError(kNoCommApplication, tried + ": the record is too small, see camctl doctor");
  if (!link.comm_alive) {
    throw CommandError(kNoCommApplication,
                       tried + ": the comm application was " +
                           process_text(link.record->comm_pid, link.comm_alive));
  }
  if (!link.is_idle()) {
    throw CommandError(kBusy, tried + ": the record is held by " +
                                  process_text(link.record->req_pid, link.requester_alive) +
                                  ", see camctl doctor");
  }
}

CommandError exchange_failure(const std::string& tried,
                              std::chrono::steady_clock::duration elapsed) {
  const Trouble trouble = take_trouble();
  const LinkState link = look_at_link();
  if (!link.comm_alive) require_link(tried);
  if (elapsed >= kReplyLimit) return {kTimedOut, tried + ": no reply within one second"};
  if (trouble == Trouble::kNoCpu)
    return {kRefused, tried + ": the image processor's CPU did not answer (status 255)"};
  if (trouble == Trouble::kRecordInUse)
    return {kBusy, tried + ": another process was using the record"};
  return {kRefused, tried + ": the camera refused the exchange"};
}

}  // namespace ipcam::tools
