// A comm application in a child process.
#include "sim/simulated_camera.h"

#include <poll.h>
#include <sys/ipc.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>

#include "sim/comm_application.h"
#include "sim/exchange_text.h"

namespace ipcam::sim {
namespace {

// Not by the clock, which the controlling process may fake.
template <class Condition>
void wait_until(Condition holds) {
  constexpr int kPatience_ms = 10000;
  for (int i = 0; i < kPatience_ms && !holds(); ++i) poll(nullptr, 0, 1);
}

// A doorbell for the controlling process must not end the wait.
pid_t wait_for_child(pid_t pid, int* status, int options) {
  pid_t child = 0;
  do {
    child = waitpid(pid, status, options);
  } while (child < 0 && errno == EINTR);
  return child;
}

bool has_ended(pid_t child) {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == child;
}

[[noreturn]] void run_child(Switchboard& board, pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);  // the parent died before its death could be noticed
  try {
    CommApplication application(board);
    while (application.serve_one(-1) != CommApplication::Event::stop) continue;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "camsim: comm application: %s\n", error.what());
    _exit(1);
  }
  _exit(0);  // what the parent has registered to be run at its exit is not for the child
}

}  // namespace

SimulatedCamera::~SimulatedCamera() {
  if (pid_ != 0) stop();
  if (record_ == nullptr) return;
  detach();
  remove_ipc_objects();  // left by a comm application that was killed
}

void SimulatedCamera::start() {
  if (pid_ != 0 && board_->running != 0) throw std::runtime_error("comm application runs already");
  kill9();  // a child that is dying of a fault, or paused, makes room

  const std::uint32_t starts = board_->starts;
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ < 0) {
    pid_ = 0;
    throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
  }
  if (pid_ == 0) run_child(*board_, parent);

  // One that has died of a fault by now has been started all the same.
  wait_until([&] { return board_->starts != starts || has_ended(pid_); });
  if (board_->starts == starts) {
    kill9();
    throw std::runtime_error("comm application did not start");
  }
  detach();
  void* address =
      shmat(shmget(ftok(kKeyFile, kKeyProject), sizeof(Record), 0), nullptr, SHM_RDONLY);
  if (address == reinterpret_cast<void*>(-1))
    throw std::runtime_error("record: cannot be attached");
  record_ = static_cast<const Record*>(address);
}

void SimulatedCamera::stop() {
  if (pid_ == 0) return;
  kill(pid_, SIGTERM);
  kill(pid_, SIGCONT);
  wait_until([&] {
    reap(0);
    return pid_ == 0;
  });
  kill9();
  detach();
  remove_ipc_objects();  // it could not do so itself if it was dead already
}

void SimulatedCamera::kill9() {
  if (pid_ != 0) reap(SIGKILL);
}

// With a signal waits for the end that it brings; with 0 only looks whether the child has ended.
void SimulatedCamera::reap(int signal) {
  if (signal != 0) kill(pid_, signal);
  if (wait_for_child(pid_, nullptr, signal != 0 ? 0 : WNOHANG) != pid_) return;
  pid_ = 0;
  board_->running = 0;
  board_->comm_pid = 0;
}

void SimulatedCamera::pause() {
  if (pid_ == 0) return;
  kill(pid_, SIGSTOP);
  int status = 0;
  wait_for_child(pid_, &status, WUNTRACED);
  // Only now, when nothing that it was about to do can still happen.
  board_->running = 0;
  if (!WIFSTOPPED(status)) pid_ = 0;
}

void SimulatedCamera::resume() {
  if (pid_ == 0) return;
  board_->running = 1;
  kill(pid_, SIGCONT);
}

void SimulatedCamera::settle() const {
  wait_until([&] { return board_->running == 0 || board_->posted_seen == board_->posted; });
}

void SimulatedCamera::script(std::uint32_t category, std::uint32_t byte,
                             const std::vector<std::uint8_t>& values) {
  if (!board_->script(category, byte, values))
    throw std::runtime_error("script: too long, or too many of them");
}

void SimulatedCamera::fault(Fault fault, const FaultPlan& plan) {
  if (!board_->arm(fault, plan)) throw std::runtime_error("fault: too many at a time");
}

std::vector<std::string> SimulatedCamera::traffic_before(std::uint32_t end) const {
  const std::uint32_t length = end - board_->trace_begin;
  const std::uint32_t kept = std::min(length, Switchboard::kTraceSize);
  std::vector<std::string> lines;
  if (length > kept) lines.push_back("dropped " + std::to_string(length - kept));
  for (std::uint32_t i = end - kept; i != end; ++i) {
    lines.push_back(command_text(board_->trace[i % Switchboard::kTraceSize]));
  }
  return lines;
}

std::vector<std::string> SimulatedCamera::take_traffic() {
  const std::uint32_t end = board_->trace_end;
  std::vector<std::string> lines = traffic_before(end);
  board_->trace_begin = end;
  return lines;
}

Record SimulatedCamera::record() const {
  if (record_ == nullptr) throw std::runtime_error("record: no comm application");
  Record copy;
  std::memcpy(&copy, record_, sizeof(copy));
  return copy;
}

bool SimulatedCamera::record_is_clean() const {
  const Record now = record();
  const Record clean{.status = kIdle, .comm_pid = now.comm_pid, .req_pid = 0, .packet = {}};
  return std::memcmp(&now, &clean, sizeof now) == 0;
}

void SimulatedCamera::detach() {
  if (record_ != nullptr) shmdt(record_);
  record_ = nullptr;
}

}  // namespace ipcam::sim
