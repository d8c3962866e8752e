// camctl bench: latencies of exchanges and requests against those of the bare primitives.
#include <semaphore.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>

#include "bench/comm_peer.h"
#include "ipcam/camera/camera_request.h"
#include "tools/commands.h"

namespace ipcam::tools {

namespace {

// What a request costs at least: a hand-over to another thread and back.
class BareRequest {
 public:
  BareRequest() : asked_(), answered_() {
    for (sem_t* semaphore : {&asked_, &answered_}) sem_init(semaphore, 0, 0);
    server_ = std::thread([this] {
      for (sem_wait(&asked_); !ended_; sem_wait(&asked_)) sem_post(&answered_);
    });
  }
  ~BareRequest() {
    ended_ = true;  // before the last hand-over
    sem_post(&asked_);
    server_.join();
    for (sem_t* semaphore : {&asked_, &answered_}) sem_destroy(semaphore);
  }
  BareRequest(const BareRequest&) = delete;
  BareRequest& operator=(const BareRequest&) = delete;

  void run() {
    sem_post(&asked_);
    sem_wait(&answered_);
  }

 private:
  sem_t asked_;
  sem_t answered_;
  bool ended_ = false;
  std::thread server_;
};

using Durations = std::vector<std::chrono::nanoseconds>;

struct Samples {
  Durations bare;
  Durations library;
};

template <class Call>
std::chrono::nanoseconds time_of(Call&& call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::steady_clock::now() - start;
}

// By turns, so that whatever else the machine does meets both alike.
template <class Bare, class Library>
Samples compare(int count, Bare&& bare, Library&& library) {
  Samples samples;
  for (int i = 0; i < count; ++i) {
    check_for_stop();
    samples.bare.push_back(time_of(bare));
    samples.library.push_back(time_of(library));
  }
  return samples;
}

double percentile_us(const Durations& sorted, double share) {
  const auto last = static_cast<double>(sorted.size() - 1);
  const auto index = static_cast<std::size_t>(std::lround(last * share));
  return static_cast<double>(sorted[index].count()) / 1000;
}

void report(Output& out, const std::string& name, Durations durations) {
  std::sort(durations.begin(), durations.end());
  Json json = {{"name", name}, {"count", durations.size()}};
  std::string text = padded(name, 16);
  for (const auto& [label, share] : {std::pair{"p50", 0.5}, {"p90", 0.9}, {"p99", 0.99}, {"max", 1.0}}) {
    const double us = percentile_us(durations, share);
    json[std::string(label) + "_us"] = us;
    char number[32];
    std::snprintf(number, sizeof number, "  %s %8.1f us", label, us);
    text += number;
  }
  out.result(json, text);
}

Samples bench_exchanges(Context& context, int count, const std::string& tried) {
  context.out.progress("bench: exchanges");
  const LibraryMute mute;
  const Address address = registers::address("sensor_mode");
  BorrowedPort port(context, tried);
  bench::CommPeer bare(IPC_PRIVATE);
  return compare(
      count, [&] { bare.bare_exchange(); }, [&] { port->read(address, tried); });
}

// A request code without a handler: the road to the control thread and back alone.
Samples bench_requests(Context& context, int count, const std::string& tried) {
  std::optional<CameraSession> own;
  if (context.session == nullptr) {
    context.out.note("starting a control thread for this call; it applies the stored settings first");
    own.emplace(tried);
  }
  context.out.progress("bench: requests");
  BareRequest bare;
  return compare(
      count, [&] { bare.run(); },
      [] {
        camera::s_cam_cgi_cmd request = {};
        camera::cam_cgi_command(&request);
      });
}

}  // namespace

void bench(Context& context, int count, bool with_requests) {
  const std::string tried = "bench";
  const Samples exchanges = bench_exchanges(context, count, tried);
  report(context.out, "bare exchange", exchanges.bare);
  report(context.out, "exchange", exchanges.library);
  if (!with_requests) return;
  const Samples requests = bench_requests(context, count, tried);
  report(context.out, "bare request", requests.bare);
  report(context.out, "request", requests.library);
}

}  // namespace ipcam::tools
