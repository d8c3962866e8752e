// Shared memory between a comm application and whoever controls it:
// registers, faults, counters and trace.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <span>
#include <string_view>

#include "registers/register_map.h"
#include "wire/wire_format.h"

namespace ipcam::sim {

using namespace wire;
using registers::Address;
using registers::Bits;

// What can go wrong with one exchange. "Answered" means: registers
// read and written, reply in the record.
enum class Fault : std::uint32_t {
  none,
  no_reply,              // the request is taken, but never answered
  late_reply,            // answered after the requester's limit; the semaphore is held all the time
  late_doorbell,         // answered in time, the doorbell rung after the requester has given up
  reply_255,             // the sub CPU could not be reached
  foreign_pid,           // the reply carries another requester's process id
  wrong_status,          // entry k has not been carried out and reports status 2
  wrong_length_byte,     // entry k is led by a wrong length
  count_too_small,       // one entry less than sent
  count_too_large,       // one entry more than sent
  negative_count,        // -1 entries
  length_too_large,      // 129 bytes
  negative_length,       // -1 bytes
  torn_entry,            // `length` ends inside entry k
  signal_without_reply,  // the doorbell is rung, the record still holds the request
  reply_without_signal,  // answered, but the doorbell is never rung
  extra_signals,       // the doorbell is rung before the reply as well, and several times after it
  die_before,          // dies on the doorbell, before it takes the semaphore
  die_during,          // dies holding the semaphore
  die_after,           // dies after the reply, before its doorbell
  die_after_doorbell,  // dies after the reply's doorbell
  empty_reply,         // a reply without entries
};

// clang-format off
inline constexpr std::array<std::string_view, 22> kFaultNames = {
    "none", "no_reply", "late_reply", "late_doorbell", "reply_255", "foreign_pid", "wrong_status",
    "wrong_length_byte", "count_too_small", "count_too_large", "negative_count", "length_too_large",
    "negative_length", "torn_entry", "signal_without_reply", "reply_without_signal",
    "extra_signals", "die_before", "die_during", "die_after", "die_after_doorbell", "empty_reply"};
// clang-format on
static_assert(kFaultNames.size() == static_cast<std::size_t>(Fault::empty_reply) + 1);

struct FaultPlan {
  std::uint32_t exchange = 0;  // counted from now: 0 is the next request
  std::uint32_t count = 1;     // exchanges that it lasts
  std::uint32_t entry = 0;     // entry k, for the faults of one entry
  // Late faults: how long, unless the requester is known to have given up.
  std::uint32_t delay_ms = 1200;
};
struct PlannedFault {
  Fault fault = Fault::none;
  FaultPlan plan = {};
};

// One exchange, as it was taken from and put into the record.
struct Exchange {
  Packet command;
  Packet reply;
  Fault fault;
};
static_assert(sizeof(Exchange) == 276);

// Fixed-width members only, each lock-free, so that 32-bit and 64-bit processes
// can share one object. Members without a comment about their writer may be
// written by the controller at any time.
struct Switchboard {
  static constexpr std::uint32_t kTraceSize = 8192;
  static constexpr std::uint32_t kFaultSlots = 8;
  static constexpr std::uint32_t kScriptSlots = 16;

  using Counter = std::atomic<std::uint32_t>;

  struct FaultSlot {
    Counter fault;  // Fault; none: the slot is free
    Counter first;  // number of the first exchange, as `requests_taken` counts
    Counter count;
    Counter entry;
    Counter delay_ms;
  };
  struct Script {
    Counter length;  // 0: the slot is free
    Counter position;
    Counter address;  // category in bits 16 to 23, byte number below
    std::uint8_t values[256];
  };

  // --- Comm application -> controller ---
  Counter comm_pid;  // 0 while no comm application runs
  Counter starts;    // comm applications that have begun to serve
  Counter running;   // 1 while it can answer; also cleared by a controller that stops or kills it
  Counter requests_taken;  // requests found posted
  Counter replies_rung;    // doorbells rung
  Counter posted_seen;  // value of `posted` up to which all that follows from the requests has been
                        // done
  Counter silent_for;   // value of `posted` for whose request no doorbell will come in time
  Counter trace_end;    // exchanges traced so far; the newest kTraceSize are kept

  // --- Requester with a fake clock -> comm application ---
  Counter posted;       // doorbells rung at the comm application; counted up just before each
  Counter gave_up_for;  // value of `posted` whose wait has run into its limit

  // --- Controller -> comm application ---
  Counter trace_begin;  // exchanges before this one have been seen or dropped
  FaultSlot faults[kFaultSlots];
  Script scripts[kScriptSlots];
  Counter
      reply_is_given;  // 1: the next exchange that is carried out is answered with `given_reply`
  Packet given_reply;

  // --- Sensor behaviour ---
  Counter sensor_off;         // 1: registers are plain memory
  Counter readout_lag_reads;  // reads of readout_status that still show the old one after readout
                              // has changed
  Counter onepush_red;        // gains that a one-push measurement arrives at
  Counter onepush_blue;
  Counter onepush_settle_reads;  // reads of measured_red_gain_lo until it has arrived

  // Traced by the comm application before it ends the exchange in any way that a requester can see.
  Exchange trace[kTraceSize];
  std::uint8_t registers[256][65536];

  std::uint8_t reg(std::uint32_t category, std::uint32_t byte) const;
  void set_reg(std::uint32_t category, std::uint32_t byte, std::uint32_t value);
  std::uint8_t reg(Address address) const { return reg(address.category, address.byte); }
  void set_reg(Address address, std::uint32_t value) {
    set_reg(address.category, address.byte, value);
  }
  // The bits that have the name.
  std::uint8_t reg(const Bits& bits) const {
    return static_cast<std::uint8_t>(reg(bits.address) & bits.mask);
  }
  // The 16-bit value of a register and the one behind it, low byte first.
  std::uint16_t word(Address low) const;
  void set_word(Address low, std::uint32_t value);

  // Successive reads of the register give `values` (1 to 256), then the last of
  // them for ever, whatever is written to it. An empty list ends the script.
  // Returns false when all slots are in use.
  bool script(std::uint32_t category, std::uint32_t byte, std::span<const std::uint8_t> values);
  void clear_scripts();

  // The reply to the next exchange as a whole, whatever the registers hold.
  void give_reply(const Packet& reply);

  // Arms one fault beside those that are armed already; the first one that covers an exchange
  // counts. Returns false when all slots are in use.
  bool arm(Fault fault, const FaultPlan& plan = {});
  void clear_faults();
  // For the exchange of this number.
  PlannedFault planned(std::uint32_t exchange) const;
};
static_assert(Switchboard::Counter::is_always_lock_free && sizeof(Switchboard::Counter) == 4);
static_assert(sizeof(Switchboard::FaultSlot) == 20 && sizeof(Switchboard::Script) == 268);
static_assert(alignof(Switchboard) == 4);

// Owner of a switchboard in memory that is shared with the processes forked after it was made. All
// registers are 0 but those of the sensor, which runs at full readout with its default timing.
class SharedSwitchboard {
 public:
  SharedSwitchboard();  // throws std::system_error
  ~SharedSwitchboard();
  SharedSwitchboard(const SharedSwitchboard&) = delete;
  SharedSwitchboard& operator=(const SharedSwitchboard&) = delete;

  Switchboard& operator*() const { return *board_; }
  Switchboard* operator->() const { return board_; }

 private:
  Switchboard* board_;
};

}  // namespace ipcam::sim
