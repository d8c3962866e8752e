// Journal of the calls that reached the host platform, for tests and for tracing.
#pragma once

#include <string>
#include <vector>

namespace ipcam::platform {

// Every call on an imported object, on the inter-thread library and on the system services, in the
// order in which it was made: "AutoDaynight::setAgcMaxGain(6)",
// "PostProcessInterface::changeBinningMode(1)", "ThdIf_send(1)".
//
// - Pointers are left out; constructors and destructors are entered too
//   ("AutoDaynight::AutoDaynight(1)").
// - A stored-record operation carries its result: "ConfigFile::read_record(all.conf, 3) = 0".
// - A worker's start names its class: "Thread::execute_process(FocusAssist)". What the
//   worker's own thread does then (its start_thread()) is not entered, since its place
//   among the other calls would be chance.
// - WitEnd_get and ThdIf_timed_receive are entered when they return, with the
//   number or the message type, or -1.
// - Mutex is not entered.
//
// The journal holds the newest 512 calls; with IPCAM_PLATFORM_TRACE=1 in the environment (looked up
// at the first call) each is also printed on standard error, after "platform: ". Any thread.
std::vector<std::string> journal();

// Forgets all calls up to now. Any thread.
void clear_journal();

}  // namespace ipcam::platform
