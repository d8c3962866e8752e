// Worker threads, on detached POSIX threads.
#include "ipcam/thread.h"

#include <cxxabi.h>
#include <pthread.h>

#include <cstdlib>
#include <new>
#include <string_view>
#include <typeinfo>

#include "journal_note.h"
#include "thread_runs.h"

namespace ipcam {
namespace {

// Enters the start with the object's class, its namespaces left out.
void note_start(const Thread& thread) {
  const char* mangled = typeid(thread).name();
  char* demangled = abi::__cxa_demangle(mangled, nullptr, nullptr, nullptr);
  std::string_view name = demangled == nullptr ? mangled : demangled;
  const std::size_t colons = name.rfind("::");
  if (colons != std::string_view::npos) name.remove_prefix(colons + 2);
  platform::note("Thread::execute_process", {}, name);
  std::free(demangled);
}

int create_detached(void* (*function)(void*), void* argument) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return -1;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread;
  const int failed = pthread_create(&thread, &attributes, function, argument);
  pthread_attr_destroy(&attributes);
  return failed == 0 ? 0 : -1;
}

}  // namespace

// What a new thread is to run, and how many stops had come before it was started.
struct ThreadRuns::Launch {
  Thread& thread;
  std::shared_ptr<ThreadRuns> runs;
  std::uint64_t stops;
};

thread_local const ThreadRuns::Launch* ThreadRuns::launch_here_ = nullptr;

int ThreadRuns::start(Thread& thread) {
  std::unique_ptr<Launch> launch(
      new (std::nothrow) Launch{.thread = thread, .runs = shared_from_this(), .stops = 0});
  if (launch == nullptr) return -1;
  // Held over the creation, so that nobody sees the new thread's run before it is counted.
  const std::lock_guard lock(mutex_);
  launch->stops = stops_;
  if (create_detached(&ThreadRuns::run, launch.get()) != 0) return -1;
  static_cast<void>(launch.release());
  ++threads_;
  return 0;
}

void* ThreadRuns::run(void* argument) {
  const std::unique_ptr<Launch> launch(static_cast<Launch*>(argument));
  launch_here_ = launch.get();
  launch->thread.start_thread();
  // From here on the Thread object may be gone.
  const std::lock_guard lock(launch->runs->mutex_);
  --launch->runs->threads_;
  launch->runs->changed_.notify_all();
  return nullptr;
}

void ThreadRuns::idle_until_stopped() {
  std::unique_lock lock(mutex_);
  // A thread of another worker, or one that nobody launched, calls
  // start_thread() by itself: its run starts here.
  const bool is_launched = launch_here_ != nullptr && launch_here_->runs.get() == this;
  const std::uint64_t stops = is_launched ? launch_here_->stops : stops_;
  changed_.wait(lock,
                [&] { return !is_asleep_ || stops_of_sleeper_ == stops_ || stops != stops_; });
  if (is_asleep_ || stops != stops_) return;
  is_asleep_ = true;
  stops_of_sleeper_ = stops;
  changed_.wait(lock, [&] { return stops != stops_; });
  is_asleep_ = false;
  changed_.notify_all();
}

void ThreadRuns::stop() {
  const std::lock_guard lock(mutex_);
  ++stops_;
  changed_.notify_all();
}

void ThreadRuns::wait_until_over() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return threads_ == 0; });
}

Thread::Thread(e_thread_priority, bool) : runs_(std::make_shared<ThreadRuns>()) {}

Thread::~Thread() = default;

int Thread::execute_process() {
  note_start(*this);
  return runs_->start(*this);
}

}  // namespace ipcam
