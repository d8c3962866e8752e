// The surroundings of a benchmark.
#include "bench/isolate.h"

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "workstation/namespaces.h"
#include "workstation/stored_record.h"

namespace ipcam::bench {

void isolate() {
  try {
    workstation::enter_own_namespaces();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench: %s\n", error.what());
    std::exit(1);
  }
  setenv("IPCAM_CONFIG_DIR", "/tmp", 1);
  if (workstation::write_stored_record(workstation::sample_record())) return;
  std::fprintf(stderr, "bench: %s: cannot be written\n", workstation::stored_record_path().c_str());
  std::exit(1);
}

}  // namespace ipcam::bench
