// Any bytes as the replies of the comm application, for every operation that reads one.
#include <algorithm>
#include <cstring>
#include <vector>

#include "fuzz/fake_camera.h"

using ipcam::camera::DspCommand;
using ipcam::camera::param_info;
using ipcam::camera::shm_info;
using ipcam::fuzz::require;

namespace {

// Overwrites a good reply by as much of the input as there is:
// status, requester, count, length, data.
struct Input {
  const std::uint8_t* next;
  std::size_t left;

  void overwrite(shm_info& record) {
    ipcam::fuzz::answer_well(record);
    const std::size_t size = left == 0 ? 0 : std::min<std::size_t>(*next, left - 1);
    if (left == 0) return;
    auto* bytes = reinterpret_cast<std::uint8_t*>(&record);
    // The first byte says how much follows, the second where it goes.
    const std::size_t at = size == 0 ? 0 : next[1] % sizeof record;
    const std::size_t count = size == 0 ? 0 : std::min(size - 1, sizeof record - at);
    std::memcpy(bytes + at, next + 2, count);
    // A doorbell that fails leaves the record posted, which is not what is looked for here.
    record.comm_pid = 1;
    next += size + 1;
    left -= size + 1;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static DspCommand dsp;

  Input input{data, size};
  ipcam::fuzz::set_answer([&input](shm_info& record) { input.overwrite(record); });
  std::vector<param_info> table(4, {.category = 3, .byte = 4, .mask = 0x0f, .data = 0x0c});
  table[3].data = 0xee;
  dsp.execute_abs_cmd(table.data(), 3);
  require(table[3].data == 0xee, "no row beyond those given is changed");
  dsp.execute_gamma_cmd(table.data(), 3);
  unsigned char values[4] = {0, 0, 0, 0xee};
  char read[] = "1,1;2,2;3,3";
  dsp.execute_rw_cmd(1, read, values);
  char write[] = "1,1,15,1;2,2,15,2;3,3,15,3";
  dsp.execute_rw_cmd(2, write, values);
  require(values[3] == 0xee, "no result beyond the entries is written");
  dsp.execute_alltosdram();
  require(ipcam::fuzz::record().status == 0 && ipcam::fuzz::record().req_pid == 0,
          "the record is idle afterwards");
  return 0;
}
