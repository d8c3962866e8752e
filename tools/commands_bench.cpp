// camctl bench: latencies of exchanges and requests against those of the bare primitives.
#include <semaphore.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>
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

double time_us(const std::function<void()>& call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
      .count();
}

void report(Output& out, const std::string& name, std::vector<double> times_us) {
  std::ranges::sort(times_us);
  Json json = {{"name", name}, {"count", times_us.size()}};
  std::string text = padded(name, 16);
  for (const auto& [label, share] :
       {std::pair{"p50", 0.5}, {"p90", 0.9}, {"p99", 0.99}, {"max", 1.0}}) {
    const auto last = static_cast<double>(times_us.size() - 1);
    const double us = times_us[static_cast<std::size_t>(std::lround(last * share))];
    json[std::string(label) + "_us"] = us;
    char number[32];
    std::snprintf(number, sizeof number, "  %s %8.1f us", label, us);
    text += number;
  }
  out.result(json, text);
}

// By turns, so that whatever else the machine does meets both alike.
void compare(Output& out, const std::string& name, int count, const std::function<void()>& bare,
             const std::function<void()>& library) {
  out.progress("bench: " + name + "s");
  std::vector<double> bare_us;
  std::vector<double> library_us;
  for (int i = 0; i < count; ++i) {
    check_for_stop();
    bare_us.push_back(time_us(bare));
    library_us.push_back(time_us(library));
  }
  report(out, "bare " + name, bare_us);
  report(out, name, library_us);
}

void bench_exchanges(Context& context, int count) {
  const std::string tried = "bench";
  const Address address = registers::address("sensor_mode");
  const auto port = port_of(context, tried);
  bench::CommPeer bare(IPC_PRIVATE);
  compare(
      context.out, "exchange", count, [&] { bare.bare_exchange(); },
      [&] { port->read(address, tried); });
}

// A request code without a handler: the road to the control thread and back alone.
void bench_requests(Context& context, int count) {
  const auto session = session_of(context);
  BareRequest bare;
  const auto request = [] {
    camera::s_cam_cgi_cmd nothing = {};
    camera::cam_cgi_command(&nothing);
  };
  compare(
      context.out, "request", count, [&] { bare.run(); }, request);
}

}  // namespace

void bench(Context& context, int count, bool with_requests) {
  bench_exchanges(context, count);
  if (with_requests) bench_requests(context, count);
}

}  // namespace ipcam::tools
