// A comm application in a child process, with a handle to control and to watch it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "sim/switchboard.h"

namespace ipcam::sim {

// Registers, scripts, faults and traffic outlive the child: they belong to this object. One thread
// at a time; start() and stop() on the thread that lives longest, since the child dies with the
// thread that started it. Failures of the operating system throw std::runtime_error. No function
// here ever waits with usleep or the like, so a process that fakes its clock can still use it.
class SimulatedCamera {
 public:
  SimulatedCamera() = default;
  ~SimulatedCamera();
  SimulatedCamera(const SimulatedCamera&) = delete;
  SimulatedCamera& operator=(const SimulatedCamera&) = delete;

  void start();  // returns when requests are served
  void stop();   // orderly: the key file, semaphore and segment are gone afterwards
  void kill9();  // they stay, and the record stays as it was
  void pause();  // SIGSTOP: requests stay unanswered
  void resume();
  void restart() {
    kill9();
    start();
  }
  // Whether the child has been started and not been stopped, though it may have died.
  bool is_started() const { return pid_ != 0; }
  // Waits until the child has done all that follows from the requests posted so far,
  // late doorbells included, or is dead.
  void settle() const;

  std::uint8_t reg(std::uint32_t category, std::uint32_t byte) const {
    return board_->reg(category, byte);
  }
  void set_reg(std::uint32_t category, std::uint32_t byte, std::uint32_t value) {
    board_->set_reg(category, byte, value);
  }
  // Successive reads give `values`, then the last of them for ever; an empty list ends the script.
  void script(std::uint32_t category, std::uint32_t byte, const std::vector<std::uint8_t>& values);

  void fault(Fault fault, const FaultPlan& plan = {});
  void clear_faults() { board_->clear_faults(); }

  // Exchanges since the start or the last clear_traffic(), one line each, as command_text() writes
  // them. "dropped N" comes first when older ones have been lost.
  std::vector<std::string> traffic() const { return traffic_before(board_->trace_end); }
  void clear_traffic() { board_->trace_begin = board_->trace_end.load(); }
  std::vector<std::string> take_traffic();  // traffic(), then clear_traffic()

  // The shared record as it is now; only while the objects exist.
  Record record() const;
  // True when status, requester, count, length and all data bytes are 0.
  bool record_is_clean() const;

  Switchboard& board() const { return *board_; }

 private:
  void detach();
  void reap(int signal);
  std::vector<std::string> traffic_before(std::uint32_t end) const;

  SharedSwitchboard board_;
  pid_t pid_ = 0;
  const Record* record_ = nullptr;
};

}  // namespace ipcam::sim
