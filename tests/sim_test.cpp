// The simulated camera as any requester meets it: replies, faults and sensor, seen at the record and the doorbell.
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <initializer_list>
#include <vector>

#include "sim/simulated_camera.h"
#include "tests/support/stand_ins.h"

namespace ipcam::sim {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

// Keeps to the protocol with nothing but system calls.
class SimulatedCameraTest : public ::testing::Test {
 protected:
  SimulatedCameraTest() {
    sigemptyset(&doorbell_);
    sigaddset(&doorbell_, kDoorbell);
    sigprocmask(SIG_BLOCK, &doorbell_, nullptr);
    attach();
  }
  ~SimulatedCameraTest() override { shmdt(record_); }

  void attach() {
    camera.start();
    const key_t key = ftok("/tmp/comm.log", 'n');
    sem_id_ = semget(key, 1, 0444);
    record_ = static_cast<Record*>(shmat(shmget(key, 148, 0444), nullptr, 0));
  }

  void semaphore(short operation) {
    sembuf change{.sem_num = 0, .sem_op = operation, .sem_flg = SEM_UNDO};
    ASSERT_EQ(semop(sem_id_, &change, 1), 0);
  }

  void post(int count, const Bytes& data) {
    semaphore(-1);
    record_->status = kPosted;
    record_->req_pid = getpid();
    record_->packet.count = count;
    record_->packet.length = static_cast<std::int32_t>(data.size());
    std::copy(data.begin(), data.end(), record_->packet.data);
    ++camera.board().posted;
    kill(record_->comm_pid, kDoorbell);
    semaphore(1);
  }

  bool doorbell_within(long milliseconds) {
    const timespec limit{.tv_sec = milliseconds / 1000, .tv_nsec = milliseconds % 1000 * 1000000};
    return sigtimedwait(&doorbell_, nullptr, &limit) == kDoorbell;
  }

  // The record as the comm application left it; it is idle and no doorbell is pending afterwards.
  Record take() {
    camera.board().gave_up_for = camera.board().posted.load();
    semaphore(-1);
    const Record reply = *record_;
    const std::int32_t comm_pid = record_->comm_pid;
    *record_ = {};
    record_->comm_pid = comm_pid;
    semaphore(1);
    camera.settle();
    while (doorbell_within(0)) {
    }
    return reply;
  }

  Bytes exchange(int count, const Bytes& data) {
    post(count, data);
    EXPECT_TRUE(doorbell_within(5000));
    const Record reply = take();
    EXPECT_EQ(reply.status, kAnswered);
    EXPECT_EQ(reply.req_pid, getpid());
    EXPECT_EQ(reply.packet.count, count);
    return {reply.packet.data, reply.packet.data + reply.packet.length};
  }

  std::uint8_t read(std::uint8_t category, std::uint8_t byte) {
    return exchange(1, {6, 1, category, 0, byte, 1}).at(2);
  }

  SimulatedCamera camera;
  sigset_t doorbell_{};
  int sem_id_ = -1;
  Record* record_ = nullptr;
};

TEST_F(SimulatedCameraTest, AnswersEachKindOfEntry) {
  camera.set_reg(10, 0x0109, 0x80);
  const struct {
    const char* traffic;
    int count;
    Bytes command;
    Bytes reply;
  } cases[] = {
      {"x", 0, {}, {}},
      {"r 10/0x109 9/0x03", 2, {6, 1, 10, 1, 9, 1, 6, 1, 9, 0, 3, 1}, {3, 1, 0x80, 3, 1, 0}},
      {"w 10/0x109=0x7f 9/0x03=0xff", 2, {6, 2, 10, 1, 9, 0x7f, 6, 2, 9, 0, 3, 0xff}, {2, 1, 2, 1}},
      {"r 10/0x109 9/0x03", 2, {6, 1, 10, 1, 9, 1, 6, 1, 9, 0, 3, 1}, {3, 1, 0x7f, 3, 1, 0xff}},
      {"b 91/0x06=0x38 0x48 0x58", 1, {8, 2, 91, 0, 6, 0x38, 0x48, 0x58}, {2, 1}},
      {"r 91/0x08", 1, {6, 1, 91, 0, 8, 1}, {3, 1, 0x58}},
      {"x 06 00 50 52 45 4e 02 09 06 00 50 52 44 53",
       3,
       {6, 0, 'P', 'R', 'E', 'N', 2, 9, 6, 0, 'P', 'R', 'D', 'S'},
       {2, 1, 2, 1, 2, 1}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(exchange(c.count, c.command), c.reply) << c.traffic;
    EXPECT_EQ(camera.take_traffic(), Lines{c.traffic});
  }
}

TEST_F(SimulatedCameraTest, EachFaultDoesWhatItsNameSaysOnceAndInItsTurn) {
  const Bytes whole = {2, 1, 3, 1, 5};
  const struct {
    Fault fault;
    bool rings;
    int status;
    int count;
    int length;
    Bytes data;  // first bytes; {}: the request, as it was
    int value;   // of the register that the request writes, 0 before it
  } cases[] = {
      {Fault::no_reply, false, kPosted, 2, 12, {}, 0},
      {Fault::late_reply, false, kAnswered, 2, 5, whole, 5},
      {Fault::late_doorbell, false, kAnswered, 2, 5, whole, 5},
      {Fault::reply_255, true, kFailed, 2, 12, {}, 0},
      {Fault::foreign_pid, true, kAnswered, 2, 5, whole, 5},
      {Fault::wrong_status, true, kAnswered, 2, 5, {2, 1, 3, 2, 0}, 5},
      {Fault::wrong_length_byte, true, kAnswered, 2, 5, {2, 1, 4, 1, 5}, 5},
      {Fault::count_too_small, true, kAnswered, 1, 5, whole, 5},
      {Fault::count_too_large, true, kAnswered, 3, 5, whole, 5},
      {Fault::negative_count, true, kAnswered, -1, 5, whole, 5},
      {Fault::length_too_large, true, kAnswered, 2, 129, whole, 5},
      {Fault::negative_length, true, kAnswered, 2, -1, whole, 5},
      {Fault::torn_entry, true, kAnswered, 2, 3, whole, 5},
      {Fault::signal_without_reply, true, kPosted, 2, 12, {}, 0},
      {Fault::reply_without_signal, false, kAnswered, 2, 5, whole, 5},
      {Fault::extra_signals, true, kAnswered, 2, 5, whole, 5},
      {Fault::empty_reply, true, kAnswered, 0, 0, {0, 0, 0, 0, 0}, 5},
      {Fault::die_before, false, kPosted, 2, 12, {}, 0},
      {Fault::die_during, false, kPosted, 2, 12, {}, 0},
      {Fault::die_after, false, kAnswered, 2, 5, whole, 5},
      {Fault::die_after_doorbell, true, kAnswered, 2, 5, whole, 5},
  };
  const Bytes request = {6, 2, 12, 0, 0, 5, 6, 1, 12, 0, 0, 1};
  for (const auto& c : cases) {
    SCOPED_TRACE(kFaultNames[static_cast<std::size_t>(c.fault)]);
    camera.restart();
    camera.set_reg(12, 0, 0);
    camera.fault(c.fault, {.exchange = 1, .entry = 1, .delay_ms = 5000});
    EXPECT_EQ(read(12, 0), 0);

    post(2, request);
    EXPECT_EQ(doorbell_within(c.rings ? 5000 : 30), c.rings);
    const Record reply = take();
    EXPECT_EQ(reply.status, c.status);
    EXPECT_EQ(reply.req_pid == getpid(), c.fault != Fault::foreign_pid);
    EXPECT_EQ(reply.packet.count, c.count);
    EXPECT_EQ(reply.packet.length, c.length);
    const Bytes& data = c.data.empty() ? request : c.data;
    EXPECT_EQ(Bytes(reply.packet.data, reply.packet.data + data.size()), data);
    EXPECT_EQ(camera.reg(12, 0), c.value);
    if (camera.board().running == 0) camera.start();
    camera.set_reg(12, 0, 9);
    EXPECT_EQ(read(12, 0), 9);
  }
}

TEST_F(SimulatedCameraTest, LateRepliesHoldTheSemaphoreUntilTheRequesterHasGivenUp) {
  camera.fault(Fault::late_reply, {.delay_ms = 5000});
  post(1, {6, 1, 12, 0, 0, 1});
  EXPECT_TRUE(test::eventually([&] { return camera.board().silent_for == camera.board().posted; }));
  EXPECT_EQ(semctl(sem_id_, 0, GETVAL), 0);
  EXPECT_EQ(take().status, kAnswered);
  EXPECT_EQ(camera.board().replies_rung, 1U);
}

TEST_F(SimulatedCameraTest, AKilledOneIsReplacedOnTheSameObjectsAndAStoppedOneLeavesNone) {
  post(1, {6, 1, 12, 0, 0, 1});
  EXPECT_TRUE(doorbell_within(5000));
  camera.kill9();
  EXPECT_EQ(record_->status, kAnswered);
  camera.start();
  EXPECT_TRUE(camera.record_is_clean());
  EXPECT_EQ(record_->comm_pid, camera.pid());
  EXPECT_EQ(read(12, 0), 0);
  camera.stop();
  EXPECT_NE(access("/tmp/comm.log", F_OK), 0);
  EXPECT_EQ(semctl(sem_id_, 0, GETVAL), -1);
}

TEST_F(SimulatedCameraTest, APausedOneAnswersWhenItIsResumed) {
  camera.pause();
  post(1, {6, 1, 12, 0, 0, 1});
  EXPECT_FALSE(doorbell_within(30));
  camera.resume();
  EXPECT_TRUE(doorbell_within(5000));
}

TEST_F(SimulatedCameraTest, ScriptedRegistersGiveTheirValuesAndThenTheLast) {
  camera.script(17, 28, {1, 2});
  camera.set_reg(17, 28, 7);
  for (const int value : {1, 2, 2}) EXPECT_EQ(read(17, 28), value);
  camera.script(17, 28, {});
  EXPECT_EQ(read(17, 28), 7);
}

TEST_F(SimulatedCameraTest, TheReadoutFollowsTheBinningRegister) {
  camera.board().readout_lag_reads = 1;
  EXPECT_EQ(read(2, 0), 0x08);
  exchange(1, {6, 2, 0, 0, 3, 1});
  for (const int value : {0x08, 0x10, 0x10}) EXPECT_EQ(read(2, 0), value);
  camera.board().sensor_off = 1;
  exchange(1, {6, 2, 0, 0, 3, 0});
  for (const int value : {0x10, 0x10}) EXPECT_EQ(read(2, 0), value);
}

TEST_F(SimulatedCameraTest, GainsMoveToTheirTargetsWhileAOnePushMeasurementRuns) {
  camera.board().onepush_settle_reads = 2;
  const Bytes gains = {6, 1, 14, 0, 140, 1, 6, 1, 14, 0, 141, 1, 6, 1, 14, 0, 142, 1, 6, 1, 14, 0, 143, 1};
  EXPECT_EQ(exchange(4, gains), (Bytes{3, 1, 0, 3, 1, 0, 3, 1, 0, 3, 1, 0}));
  exchange(1, {6, 2, 12, 0, 0, 1});
  EXPECT_EQ(exchange(4, gains), (Bytes{3, 1, 0x21, 3, 1, 0x07, 3, 1, 0xf6, 3, 1, 0x03}));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(exchange(4, gains), (Bytes{3, 1, 0x42, 3, 1, 0x0e, 3, 1, 0xed, 3, 1, 0x07}));
}

TEST_F(SimulatedCameraTest, KeepsTheNewestTrafficAndSaysHowMuchWasDropped) {
  for (std::uint32_t i = 0; i < Switchboard::kTraceSize + 2; ++i) read(12, static_cast<std::uint8_t>(i));
  const Lines lines = camera.take_traffic();
  ASSERT_EQ(lines.size(), Switchboard::kTraceSize + 1);
  EXPECT_EQ(lines.front(), "dropped 2");
  EXPECT_EQ(lines.back(), "r 12/0x01");
  EXPECT_TRUE(camera.traffic().empty());
}

}  // namespace
}  // namespace ipcam::sim
