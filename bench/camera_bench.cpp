// Benchmarks: bare primitives, exchanges, tables, texts, and requests through the control thread.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/comm_peer.h"
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
  for (int i = 0; i < entries; ++i) dsp.add_cmd_packet(1, {.category = 14, .byte = i, .mask = 0, .data = 1}, &command);
  packet_info reply{};
  for (auto _ : state) {
    if (dsp.send_to_comm(&command) != 0 || dsp.get_from_comm(&reply) != 0) state.SkipWithError("failed exchange");
  }
}
BENCHMARK(exchange)->Arg(1)->Arg(16)->UseRealTime();

void table(benchmark::State& state) {
  DspCommand dsp;
  const int rows = static_cast<int>(state.range(0));
  std::vector<ipcam::camera::param_info> entries(static_cast<std::size_t>(rows), {.category = 11, .mask = 0xff});
  for (auto _ : state) {
    if (dsp.execute_abs_cmd(entries.data(), rows) != 0) state.SkipWithError("failed table");
  }
}
BENCHMARK(table)->Arg(1)->Arg(12)->Arg(16)->UseRealTime();

void shutter_gain_mode_1(benchmark::State& state) {
  DspCommand dsp;
  for (auto _ : state) {
    if (dsp.do_shutter_gain({.shutter = 0, .gain = 0, .mode = 1, .max_frm_exp = 0}) != 0) state.SkipWithError("failed");
  }
}
BENCHMARK(shutter_gain_mode_1)->UseRealTime();

// Sixteen entries that fail at the seventeenth: all of the parsing, nothing of the exchange.
void parse_16_entries(benchmark::State& state) {
  DspCommand dsp;
  const std::string text =
      "r,14,140;14,141;14,142;14,143;14,140;14,141;14,142;14,143;14,140;14,141;14,142;14,143;"
      "14,140;14,141;14,142;14,143;14,x";
  char copy[257];
  char result[32];
  for (auto _ : state) {
    std::memcpy(copy, text.c_str(), text.size() + 1);
    benchmark::DoNotOptimize(dsp.do_debug(copy, result));
  }
}
BENCHMARK(parse_16_entries);

void parse_16_entries_bare(benchmark::State& state) {
  const std::string text =
      "14,140;14,141;14,142;14,143;14,140;14,141;14,142;14,143;14,140;14,141;14,142;14,143;"
      "14,140;14,141;14,142;14,143;14,x";
  for (auto _ : state) {
    char* rest = const_cast<char*>(text.c_str());
    for (int i = 0; i < 33; ++i) {
      benchmark::DoNotOptimize(std::strtol(rest, &rest, 0));
      ++rest;
    }
  }
}
BENCHMARK(parse_16_entries_bare);

// Two exchanges through the control thread, from this many callers at once; one iteration is one request of each.
void request(benchmark::State& state) {
  static ipcam::comm::s_port_inf port{};
  if (ipcam::camera::new_camera_ctrl(&port) != 0) {
    state.SkipWithError("control thread not started");
    return;
  }
  const auto callers = static_cast<std::size_t>(state.range(0));
  const auto serve = [](std::atomic<int>& failures) {
    ipcam::camera::s_cam_cgi_cmd command{};
    command.code = ipcam::camera::REQUEST_SATURATION;
    command.value = 3;
    if (ipcam::camera::cam_cgi_command(&command) != 0 || command.result != 0) ++failures;
  };
  std::atomic<int> failures{0};
  if (callers == 1) {
    for (auto _ : state) serve(failures);
  } else {
    // The threads live through the whole measurement; each round is as long as its iterations.
    const auto rounds = static_cast<int>(state.max_iterations);
    std::vector<std::thread> threads;
    std::atomic<bool> go{false};
    for (std::size_t i = 0; i < callers; ++i) {
      threads.emplace_back([&] {
        go.wait(false);
        for (int k = 0; k < rounds; ++k) serve(failures);
      });
    }
    bool begun = false;
    for (auto _ : state) {
      if (begun) continue;
      begun = true;
      go = true;
      go.notify_all();
      for (std::thread& thread : threads) thread.join();
    }
  }
  ipcam::camera::delete_camera_IF(nullptr);
  if (failures != 0) state.SkipWithError("failed request");
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(request)->Arg(1)->Arg(10)->Arg(64)->Arg(256)->UseRealTime();

// Own shared objects, files and configuration, so that nothing of the machine is touched.
void isolate() {
  const uid_t user = getuid();
  if (unshare(CLONE_NEWNS | CLONE_NEWIPC | (user == 0 ? 0 : CLONE_NEWUSER)) != 0 ||
      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("tmpfs", "/tmp", "tmpfs", 0, nullptr) != 0) {
    std::perror("camera_bench: namespaces");
    std::exit(1);
  }
  std::array<unsigned char, 880> settings{};
  settings[68] = 1;
  settings[140] = 1;
  const int file = open("/tmp/all.conf", O_CREAT | O_WRONLY, 0600);
  if (file < 0 || write(file, settings.data(), settings.size()) != static_cast<ssize_t>(settings.size())) {
    std::perror("camera_bench: /tmp/all.conf");
    std::exit(1);
  }
  close(file);
  setenv("IPCAM_CONFIG_DIR", "/tmp", 1);
}

}  // namespace

// The results go to the standard output that the program was started with; the library's own lines are dropped.
int main(int argc, char** argv) {
  std::ofstream results("/dev/fd/" + std::to_string(dup(STDOUT_FILENO)));
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  dup2(nowhere, STDERR_FILENO);

  benchmark::Initialize(&argc, argv);
  isolate();
  g_peer = std::make_unique<CommPeer>();
  sigset_t doorbell;
  sigemptyset(&doorbell);
  sigaddset(&doorbell, SIGUSR1);
  sigprocmask(SIG_BLOCK, &doorbell, nullptr);

  benchmark::ConsoleReporter display(benchmark::ConsoleReporter::OO_Tabular);
  display.SetOutputStream(&results);
  display.SetErrorStream(&results);
  benchmark::RunSpecifiedBenchmarks(&display);
  g_peer.reset();
  return 0;
}
