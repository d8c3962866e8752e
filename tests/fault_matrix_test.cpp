// Every operation, with every fault of the comm application in each of its exchanges.
#include <algorithm>
#include <random>

#include "tests/support/operations.h"

namespace ipcam::test {
namespace {

using sim::Fault;

struct Cell {
  std::uint32_t exchange;
  Fault fault;
  std::uint32_t entry;
};

// Entries of the reply to this exchange of the traffic.
std::uint32_t entries_of(const std::string& exchange) {
  if (exchange[0] == 'x') return 3;  // the all-to-SDRAM request
  if (exchange[0] == 'b') return 1;
  return static_cast<std::uint32_t>(
      std::ranges::count(exchange.substr(0, exchange.find(" !")), ' '));
}

bool is_about_an_entry(Fault fault) {
  return fault == Fault::wrong_status || fault == Fault::wrong_length_byte ||
         fault == Fault::torn_entry;
}

// Faults that some exchange bears without a word. A text's write is answered by an empty reply, and
// the all-to-SDRAM request does not look at counts.
constexpr Fault kMayGoUnnoticed[] = {Fault::extra_signals,   Fault::die_after_doorbell,
                                     Fault::empty_reply,     Fault::count_too_small,
                                     Fault::count_too_large, Fault::negative_count};

class FaultMatrix : public FaultTest {
 protected:
  std::vector<Cell> cells_of(const Operation& operation) {
    operation.run();
    camera.clear_traffic();
    operation.run();
    const Lines traffic = camera.traffic();
    std::vector<Cell> cells;
    for (std::uint32_t exchange = 0; exchange < traffic.size(); ++exchange) {
      for (std::uint32_t fault = 1; fault < sim::kFaultNames.size(); ++fault) {
        const std::uint32_t variants =
            is_about_an_entry(Fault{fault}) ? entries_of(traffic[exchange]) : 1;
        for (std::uint32_t entry = 0; entry < variants; ++entry) {
          cells.push_back({exchange, Fault{fault}, entry});
        }
      }
    }
    return cells;
  }

  // Returns false for a fault that did not happen, because this time
  // the operation took another way.
  bool costs_one_operation(const Operation& operation, const Cell& cell) {
    // Results may depend on what was done before, but not on whether it is done once more.
    int without_fault = 0;
    capture([&] { without_fault = operation.run(); });
    camera.clear_traffic();
    camera.fault(cell.fault, {.exchange = cell.exchange, .entry = cell.entry});
    int result = 0;
    const Output output = capture([&] { result = operation.run(); });
    camera.settle();
    camera.clear_faults();
    const Lines traffic = camera.traffic();
    const bool happened = std::ranges::any_of(traffic, [&](const std::string& line) {
      return line.find(" !") != std::string::npos && entries_of(line) > cell.entry;
    });

    const bool told = output.err.find("[ERROR]") != std::string::npos ||
                      output.out.find("failed!") != std::string::npos;
    EXPECT_TRUE(told || !happened || std::ranges::count(kMayGoUnnoticed, cell.fault) != 0)
        << output.out << output.err;
    if (operation.result == Operation::kHidesFailures) {
      EXPECT_EQ(result, without_fault);
    } else if (operation.result == Operation::kTellsFailures && cell.fault != Fault::empty_reply) {
      EXPECT_EQ(result, told ? -1 : without_fault);
    }
    EXPECT_TRUE(camera.record_is_clean() ||
                output.err.find("send user signal1") != std::string::npos);

    if (camera.board().running == 0) camera.restart();
    expect_working_link();
    capture([&] { request(33, 8); });  // ends a measurement
    clock->clear_waits();
    return happened;
  }
};

TEST_F(FaultMatrix, EachFaultCostsOneOperationOnly) {
  ASSERT_EQ(start_control_thread(), 0);
  const std::vector<Operation> operations = all_operations(true);
  std::printf("seed %u\n", proof_seed());
  std::mt19937 random(proof_seed());
  const unsigned one_in = whole_proof() ? 1 : 25;
  std::size_t cells = 0;
  int faults = 0;
  for (const Operation& operation : operations) {
    for (const Cell& cell : cells_of(operation)) {
      ++cells;
      if (random() % one_in != 0) continue;
      SCOPED_TRACE(operation.name + ", exchange " + std::to_string(cell.exchange) + ", entry " +
                   std::to_string(cell.entry) + ": " +
                   std::string(sim::kFaultNames[static_cast<std::size_t>(cell.fault)]));
      faults += costs_one_operation(operation, cell);
      ASSERT_FALSE(HasFailure());
    }
  }
  std::printf("%zu cells, %d faults, each cost one operation\n", cells, faults);
}

}  // namespace
}  // namespace ipcam::test
