// The link to the comm application as it looks from outside, without an exchange.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "tools/output.h"
#include "wire/wire_format.h"

namespace ipcam::tools {

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

LinkState look_at_link();

// "process 1234 (camsim)", or "process 1234, which is gone".
std::string process_text(int pid, bool is_alive);

// Waits as long as one exchange may take for a busy record to become idle. Throws CommandError, 2,
// 4 or 5, when the link cannot carry a request; `tried` leads the text.
void require_link(const std::string& tried);

// What an exchange was that failed after `elapsed`: 3, 5 or 1. Throws CommandError, 4, when the
// comm application is gone.
CommandError exchange_failure(const std::string& tried,
                              std::chrono::steady_clock::duration elapsed);

}  // namespace ipcam::tools
