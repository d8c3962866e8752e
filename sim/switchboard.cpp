// Switchboard: registers, scripts and faults.
#include "sim/switchboard.h"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>

#include "registers/register_values.h"

namespace ipcam::sim {

std::uint8_t Switchboard::reg(std::uint32_t category, std::uint32_t byte) const {
  return __atomic_load_n(&registers[category & 0xff][byte & 0xffff], __ATOMIC_SEQ_CST);
}

void Switchboard::set_reg(std::uint32_t category, std::uint32_t byte, std::uint32_t value) {
  __atomic_store_n(&registers[category & 0xff][byte & 0xffff], static_cast<std::uint8_t>(value),
                   __ATOMIC_SEQ_CST);
}

std::uint16_t Switchboard::word(Address low) const {
  return static_cast<std::uint16_t>(reg(low) | reg(low + 1) << 8);
}

void Switchboard::set_word(Address low, std::uint32_t value) {
  set_reg(low, value & 0xff);
  set_reg(low + 1, value >> 8);
}

bool Switchboard::script(std::uint32_t category, std::uint32_t byte,
                         std::span<const std::uint8_t> values) {
  const std::uint32_t address = (category & 0xff) << 16 | (byte & 0xffff);
  for (Script& slot : scripts) {
    if (slot.length != 0 && slot.address == address) slot.length = 0;
  }
  if (values.empty()) return true;
  if (values.size() > std::size(scripts[0].values)) return false;

  for (Script& slot : scripts) {
    if (slot.length != 0) continue;
    slot.address = address;
    slot.position = 0;
    std::ranges::copy(values, slot.values);
    // Last: the length is what makes the slot valid.
    slot.length = static_cast<std::uint32_t>(values.size());
    return true;
  }
  return false;
}

void Switchboard::clear_scripts() {
  for (Script& slot : scripts) slot.length = 0;
}

void Switchboard::give_reply(const Packet& reply) {
  given_reply = reply;
  reply_is_given = 1;  // last: the reply is whole by then
}

bool Switchboard::arm(Fault fault, const FaultPlan& plan) {
  for (FaultSlot& slot : faults) {
    const std::uint32_t taken = requests_taken;
    const bool spent = taken - slot.first < 0x80000000u && taken - slot.first >= slot.count;
    if (slot.fault != static_cast<std::uint32_t>(Fault::none) && !spent) continue;
    slot.fault = static_cast<std::uint32_t>(Fault::none);
    slot.first = taken + plan.exchange;
    slot.count = plan.count;
    slot.entry = plan.entry;
    slot.delay_ms = plan.delay_ms;
    slot.fault = static_cast<std::uint32_t>(fault);
    return true;
  }
  return false;
}

void Switchboard::clear_faults() {
  for (FaultSlot& slot : faults) slot.fault = static_cast<std::uint32_t>(Fault::none);
}

PlannedFault Switchboard::planned(std::uint32_t exchange) const {
  for (const FaultSlot& slot : faults) {
    const auto fault = static_cast<Fault>(slot.fault.load());
    if (fault == Fault::none || exchange - slot.first >= slot.count) continue;
    return {fault, {exchange, slot.count, slot.entry, slot.delay_ms}};
  }
  return {};
}

SharedSwitchboard::SharedSwitchboard() {
  // The register file is sparse: a page takes memory when one of its registers is first used.
  void* memory = mmap(nullptr, sizeof(Switchboard), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED)
    throw std::system_error(errno, std::generic_category(), "register file");
  board_ = new (memory) Switchboard;

  board_->set_reg(registers::address("readout_status"), registers::kReadoutAllPixels);
  board_->set_word(registers::address("vmax_lo"), 2250);
  board_->set_word(registers::address("frame_lines_lo"), 1125);
  board_->onepush_red = 3650;
  board_->onepush_blue = 2029;
}

SharedSwitchboard::~SharedSwitchboard() { munmap(board_, sizeof(Switchboard)); }

}  // namespace ipcam::sim
