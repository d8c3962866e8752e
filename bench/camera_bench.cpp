// Benchmarks: bare primitives, exchanges, tables, texts, requests through the control thread, and
// other roads. Prints Google Benchmark's JSON; scripts/bench turns it into a table of ratios.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/comm_peer.h"
#include "bench/isolate.h"
#include "bench/other_roads.h"
#include "dsp/command_text.h"
#include "ipcam/camera/camera_interface.h"
#include "ipcam/camera/camera_request.h"
#include "ipcam/camera/dsp_command.h"
#include "ipcam/camera/parameter_tables.h"
#include "ipcam/comm/port_inf.h"

namespace {

using ipcam::bench::CommPeer;
using ipcam::camera::DspCommand;
using ipcam::camera::packet_info;

std::unique_ptr<CommPeer> g_peer;

void bare_exchange(benchmark::State& state) {
  for (auto _ : state) {
    if (!g_peer->bare_exchange()) state.SkipWithError("no answer");
  }
}
BENCHMARK(bare_exchange)->UseRealTime();

void exchange(benchmark::State& state) {
  DspCommand dsp;
  const int entries = static_cast<int>(state.range(0));
  packet_info command{};
  for (int i = 0; i < entries; ++i)
    dsp.add_cmd_packet(1, {.category = 14, .byte = i, .mask = 0, .data = 1}, &command);
  packet_info reply{};
  for (auto _ : state) {
    if (dsp.send_to_comm(&command) != 0 || dsp.get_from_comm(&reply) != 0)
      state.SkipWithError("failed exchange");
  }
}
BENCHMARK(exchange)->Arg(1)->Arg(16)->UseRealTime();

void table(benchmark::State& state) {
  DspCommand dsp;
  const int rows = static_cast<int>(state.range(0));
  std::vector<ipcam::camera::param_info> entries(static_cast<std::size_t>(rows),
                                                 {.category = 11, .mask = 0xff});
  for (auto _ : state) {
    if (dsp.execute_abs_cmd(entries.data(), rows) != 0) state.SkipWithError("failed table");
  }
}
BENCHMARK(table)->Arg(1)->Arg(12)->Arg(16)->UseRealTime();

void shutter_gain_mode_1(benchmark::State& state) {
  DspCommand dsp;
  for (auto _ : state) {
    if (dsp.do_shutter_gain({.shutter = 0, .gain = 0, .mode = 1, .max_frm_exp = 0}) != 0)
      state.SkipWithError("failed");
  }
}
BENCHMARK(shutter_gain_mode_1)->UseRealTime();

constexpr char kSixteenEntries[] =
    "14,140,255,1;14,141,0xff,2;14,142,255,3;14,143,255,4;14,144,255,5;14,145,255,6;14,146,255,7;"
    "14,147,255,8;"
    "11,20,15,16;11,21,15,17;11,22,15,18;11,23,15,19;11,24,15,20;11,25,15,21;11,26,15,22;11,27,"
    "0x0f,23";

// A command text up to the packet that would be sent.
void parse(benchmark::State& state) {
  DspCommand dsp;
  packet_info packet;
  char text[sizeof kSixteenEntries];
  for (auto _ : state) {
    std::memcpy(text, kSixteenEntries, sizeof text);
    dsp.clear_packet_info(&packet);
    char* rest = text;
    while (char* entry_text = ipcam::camera::next_piece(&rest, ';')) {
      ipcam::camera::param_info entry;
      if (!ipcam::camera::parse_entry(2, entry_text, entry)) state.SkipWithError("refused");
      dsp.add_cmd_packet(2, entry, &packet);
    }
    benchmark::DoNotOptimize(packet);
  }
}
BENCHMARK(parse);

void bare_strtol(benchmark::State& state) {
  char text[sizeof kSixteenEntries];
  for (auto _ : state) {
    std::memcpy(text, kSixteenEntries, sizeof text);
    for (char* rest = text; *rest != '\0';) {
      benchmark::DoNotOptimize(std::strtol(rest, &rest, 0));
      if (*rest != '\0') ++rest;
    }
  }
}
BENCHMARK(bare_strtol);

using Clock = std::chrono::steady_clock;

double microseconds(Clock::duration time) {
  return std::chrono::duration<double, std::micro>(time).count();
}

bool start_library(benchmark::State& state) {
  static ipcam::comm::s_port_inf port{};
  if (ipcam::camera::new_camera_ctrl(&port) == 0) return true;
  state.SkipWithError("control thread not started");
  return false;
}

// Requests of one caller, one after the other, and how long each took.
void call(int requests, std::vector<double>& latencies_us, std::atomic<int>& failures) {
  for (int i = 0; i < requests; ++i) {
    ipcam::camera::s_cam_cgi_cmd command{};
    command.code = ipcam::camera::REQUEST_SATURATION;
    command.value = 3;
    const Clock::time_point begin = Clock::now();
    if (ipcam::camera::cam_cgi_command(&command) != 0 || command.result != 0) ++failures;
    latencies_us.push_back(microseconds(Clock::now() - begin));
  }
}

// Requests of two exchanges through the control thread, from this many callers at once. One
// iteration is kRequests requests, timed from the moment when all callers are there.
void request(benchmark::State& state) {
  constexpr int kRequests = 2560;
  const auto callers = static_cast<int>(state.range(0));
  if (!start_library(state)) return;
  std::atomic<int> failures{0};
  std::vector<double> all_us;
  for (auto _ : state) {
    std::vector<std::vector<double>> latencies_us(static_cast<std::size_t>(callers));
    std::vector<std::thread> threads;
    std::barrier ready(callers + 1);
    for (std::vector<double>& own : latencies_us) {
      own.reserve(kRequests);
      threads.emplace_back([&] {
        ready.arrive_and_wait();
        call(kRequests / callers, own, failures);
      });
    }
    ready.arrive_and_wait();
    const Clock::time_point begin = Clock::now();
    for (std::thread& thread : threads) thread.join();
    state.SetIterationTime(microseconds(Clock::now() - begin) / 1e6);
    for (const std::vector<double>& own : latencies_us)
      all_us.insert(all_us.end(), own.begin(), own.end());
  }
  ipcam::camera::delete_camera_IF(nullptr);
  if (failures != 0) state.SkipWithError("failed request");
  if (all_us.empty()) return;
  std::ranges::sort(all_us);
  state.counters["median_us"] = all_us[all_us.size() / 2];
  state.counters["p99_us"] = all_us[all_us.size() * 99 / 100];
  state.SetItemsProcessed(static_cast<std::int64_t>(all_us.size()));
}
BENCHMARK(request)->Arg(1)->Arg(10)->Arg(64)->Arg(256)->Iterations(1)->UseManualTime();

// Context switches of all threads but the calling one.
long context_switches() {
  long sum = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (std::stoi(task.path().filename()) == gettid()) continue;
    std::ifstream status(task.path() / "status");
    for (std::string word; status >> word;) {
      if (word != "voluntary_ctxt_switches:" && word != "nonvoluntary_ctxt_switches:") continue;
      long count = 0;
      status >> count;
      sum += count;
    }
  }
  return sum;
}

// The library's threads with nothing to do and the EVR worker off:
// how often they wake in ten seconds.
void idle_10_s(benchmark::State& state) {
  if (!start_library(state)) return;
  std::atomic<int> failures{0};
  std::vector<double> latencies_us;
  call(1, latencies_us, failures);  // answered: the start is over
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const long before = context_switches();
  for (auto _ : state) std::this_thread::sleep_for(std::chrono::seconds(10));
  state.counters["wakeups"] = static_cast<double>(context_switches() - before);
  ipcam::camera::delete_camera_IF(nullptr);
}
BENCHMARK(idle_10_s)->Iterations(1)->UseRealTime();

template <class Peer>
void other_road(benchmark::State& state) {
  Peer peer;
  for (auto _ : state) {
    if (!peer.exchange()) state.SkipWithError("no answer");
  }
}
BENCHMARK(other_road<ipcam::bench::SocketPeer>)->Name("unix_socket")->UseRealTime();
BENCHMARK(other_road<ipcam::bench::BusPeer>)->Name("d_bus")->UseRealTime();

}  // namespace

// The library's own lines are dropped: results go to the standard output that the program was
// started with, through a saved descriptor.
int main(int argc, char** argv) {
  const int results = dup(STDOUT_FILENO);
  const int errors = dup(STDERR_FILENO);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;

  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  dup2(nowhere, STDERR_FILENO);
  std::ofstream output("/dev/fd/" + std::to_string(results));
  std::ofstream error_output("/dev/fd/" + std::to_string(errors));

  ipcam::bench::isolate();
  g_peer = std::make_unique<CommPeer>(ipcam::bench::make_link_key());
  // As in a well-behaved server program: no thread takes the
  // doorbell from the one that waits for it.
  sigset_t doorbell;
  sigemptyset(&doorbell);
  sigaddset(&doorbell, SIGUSR1);
  sigprocmask(SIG_BLOCK, &doorbell, nullptr);
  benchmark::JSONReporter reporter;
  reporter.SetOutputStream(&output);
  reporter.SetErrorStream(&error_output);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  g_peer.reset();
  return 0;
}
