// The surroundings of a benchmark.
#pragma once

namespace ipcam::bench {

// Gives the process shared objects, a /tmp and stored settings of its own, so that nothing
// of the machine is touched. Ends the program when the machine does not let it. To be
// called before any thread is started.
void isolate();

}  // namespace ipcam::bench
