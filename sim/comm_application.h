// The comm application: owns the shared record and answers requests
// from a switchboard's register file.
#pragma once

#include <csignal>
#include <functional>

#include "sim/switchboard.h"

namespace ipcam::sim {

// One object per process. All of it runs on one thread, which must not
// take the doorbell in any other way.
class CommApplication {
 public:
  // Creates key file, semaphore and segment, or takes over those that a killed
  // predecessor has left, with the record back to idle. Blocks the doorbell,
  // SIGINT and SIGTERM in the calling thread.
  // Throws std::runtime_error, also when another comm application runs.
  explicit CommApplication(Switchboard& board);
  // Removes key file, semaphore and segment, unless told to leave them.
  ~CommApplication();
  CommApplication(const CommApplication&) = delete;
  CommApplication& operator=(const CommApplication&) = delete;

  void leave_objects() { leave_objects_ = true; }
  // Called with every exchange when it has been traced.
  void on_exchange(std::function<void(const Exchange&)> observer) {
    observer_ = std::move(observer);
  }

  // A doorbell: the request, if there was one, has been served. Quiet: none came
  // within the limit. Stop: SIGINT, SIGTERM.
  enum class Event { doorbell, quiet, stop };
  // Waits for one event, at most `limit_ms` (negative: without a limit), and serves it.
  Event serve_one(int limit_ms);

  // Makes the record idle when the requester that has posted in it, or has been answered, is gone.
  void clear_abandoned();

 private:
  struct Request : PlannedFault {
    std::uint32_t posted;  // the switchboard's count when the doorbell came
    std::int32_t requester = 0;
  };

  void open_objects();
  void clear_record();
  void serve_doorbell();
  // Puts the reply into the record, lets go of it and rings, as far as
  // the fault allows. The lock is held.
  void deliver(const Request& request, const Packet& reply);
  // Returns false when the packet does not hold the entries that it counts.
  bool execute(const Packet& packet, const Request& request, Packet& reply);
  std::uint8_t read_register(Address address);
  void write_register(Address address, std::uint8_t value);
  void advance_gains();
  void trace(const Packet& command, const Packet& reply, Fault fault);
  void wait_until_given_up(const Request& request);
  void ring(std::int32_t pid);
  void lock() { change_semaphore(-1); }
  void unlock() { change_semaphore(+1); }
  void change_semaphore(short by);
  [[noreturn]] void die();

  Switchboard& board_;
  std::function<void(const Exchange&)> observer_;
  bool leave_objects_ = false;
  int key_file_ = -1, sem_id_ = -1, shm_id_ = -1;
  volatile Record* record_ = nullptr;
  sigset_t signals_{};
  // Sensor state that no register shows.
  std::uint32_t readout_lag_ = 0;
  std::uint32_t onepush_reads_ = 0;
  std::uint32_t onepush_start_[2] = {};
};

// Removes key file, semaphore and segment, if they exist.
void remove_ipc_objects();

}  // namespace ipcam::sim
