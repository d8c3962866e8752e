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
#include <optional>
#include <thread>

#include "wire/wire_format.h"

namespace ipcam::tools {

namespace {

using namespace std::chrono_literals;

constexpr auto kReplyLimit = 1000ms;  // the library's limit for one reply

struct LinkState {
  bool has_key_file = false;
  bool has_semaphore = false;
  bool may_use_semaphore = false;
  bool has_segment = false;
  bool may_use_segment = false;
  std::size_t segment_size = 0;

  std::optional<wire::Record> record = {};  // only from a usable segment of full size
  bool comm_alive = false;
  bool requester_alive = false;

  bool is_idle() const { return record && record->status == wire::kIdle && record->req_pid == 0; }
};

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

// A record that is in use for one exchange looks like one that is stuck.
LinkState look_past_an_exchange() {
  const auto deadline = std::chrono::steady_clock::now() + kReplyLimit + 100ms;
  LinkState link = look_at_link();
  while (link.record && link.comm_alive && !link.is_idle() &&
         std::chrono::steady_clock::now() < deadline) {
    check_for_stop();
    std::this_thread::sleep_for(10ms);
    link = look_at_link();
  }
  return link;
}

// "process 1234 (camsim)", or "process 1234, which is gone".
std::string process_text(int pid, bool is_alive) {
  std::string text = "process " + std::to_string(pid);
  if (!is_alive) return text + ", which is gone";
  std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
  std::string name;
  if (std::getline(file, name)) text += " (" + name + ")";
  return text;
}

Finding record_finding(const LinkState& link) {
  if (link.is_idle()) return {"record", true, "idle"};
  const std::string holder = process_text(link.record->req_pid, link.requester_alive);
  return {"record",
          false,
          "status " + std::to_string(link.record->status) + " since a request of " + holder,
          link.requester_alive ? "wait for that process, or restart it"
                               : "restart the comm application, which clears the record",
          "the record is held by " + holder + ", see camctl doctor",
          kBusy};
}

}  // namespace

std::vector<Finding> examine_link() {
  constexpr char kStart[] = "start the comm application; on a workstation: camsim run";
  constexpr char kRestart[] = "restart the comm application";
  constexpr char kNotRunning[] = "no comm application is running, see camctl doctor";
  const LinkState link = look_past_an_exchange();
  std::vector<Finding> findings;
  const auto add = [&](const Finding& finding) {
    findings.push_back(finding);
    return finding.is_good;
  };
  const auto present = [](bool is_there) { return is_there ? "there" : "missing"; };
  add({"key file", link.has_key_file,
       std::string(wire::kKeyFile) + " is " + present(link.has_key_file), kStart, kNotRunning});
  add({"semaphore", link.has_semaphore, present(link.has_semaphore), kStart, kNotRunning});
  add({"segment", link.has_segment, present(link.has_segment), kStart, kNotRunning});
  if (!link.has_semaphore || !link.has_segment) return findings;
  const bool may_use = link.may_use_semaphore && link.may_use_segment;
  add({"access", may_use, may_use ? "may read and write both" : "may not read and write both",
       "run as the user of the comm application, or as root",
       "no right to use the comm application's record, see camctl doctor", kUsage});
  if (!may_use) return findings;
  const bool has_record =
      add({"segment size", link.record.has_value(), std::to_string(link.segment_size) + " bytes",
           kRestart, "the record is too small, see camctl doctor"});
  if (!has_record) return findings;
  const std::string comm = process_text(link.record->comm_pid, link.comm_alive);
  add({"comm application", link.comm_alive, comm, kRestart, "the comm application was " + comm});
  add(record_finding(link));
  return findings;
}

void require_link(const std::string& tried) {
  for (const Finding& finding : examine_link()) {
    if (!finding.is_good) throw CommandError(finding.code, tried + ": " + finding.refusal);
  }
}

CommandError exchange_failure(const std::string& tried,
                              std::chrono::steady_clock::duration elapsed) {
  const Trouble trouble = take_trouble();
  if (!look_at_link().comm_alive) require_link(tried);
  if (trouble == Trouble::kNoCpu)
    return {kRefused, tried + ": the image processor's CPU did not answer (status 255)"};
  if (trouble == Trouble::kRecordInUse)
    return {kBusy, tried + ": another process was using the record"};
  if (elapsed >= kReplyLimit) return {kTimedOut, tried + ": no reply within one second"};
  return {kRefused, tried + ": the camera refused the exchange"};
}

}  // namespace ipcam::tools
