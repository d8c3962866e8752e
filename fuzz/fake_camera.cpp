// A comm application inside the fuzzing process: the link's system
// calls, answered without another process.
#include "fuzz/fake_camera.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "ipcam/config/config_file.h"

namespace ipcam::fuzz {

namespace {

camera::shm_info g_record{
    .status = 0, .comm_pid = 1, .req_pid = 0, .count = 0, .length = 0, .data = {}};
std::function<void(camera::shm_info&)> g_answer = answer_well;
std::map<std::string, std::string> g_files;
std::array<std::uint8_t, 880> g_settings{};

}  // namespace

camera::shm_info& record() { return g_record; }

void set_answer(std::function<void(camera::shm_info&)> answer) { g_answer = std::move(answer); }

void answer_well(camera::shm_info& record) {
  std::uint8_t reply[128] = {};
  int length = 0;
  const std::uint8_t* command = record.data;
  for (int i = 0; i < record.count; ++i) {
    const int size = command[1] == 1 ? 3 : 2;
    reply[length] = static_cast<std::uint8_t>(size);
    reply[length + 1] = 1;
    if (size == 3) reply[length + 2] = 0x5a;
    length += size;
    command += command[0];
  }
  record.length = length;
  std::memcpy(record.data, reply, sizeof reply);
  record.status = 2;
}

void set_file(const std::string& path, std::string bytes) { g_files[path] = std::move(bytes); }
void clear_files() { g_files.clear(); }

void set_settings(const std::uint8_t* bytes, std::size_t size) {
  g_settings.fill(0);
  std::copy_n(bytes, std::min(size, g_settings.size()), g_settings.begin());
}

void require(bool invariant, const char* what) {
  if (invariant) return;
  std::fprintf(stderr, "broken invariant: %s\n", what);
  std::abort();
}

}  // namespace ipcam::fuzz

// Functions of the C library's names: the linker prefers the program's own.
extern "C" {

__attribute__((visibility("default"))) key_t ftok(const char* /*path*/, int /*project*/) {
  return 1;
}
__attribute__((visibility("default"))) int semget(key_t /*key*/, int /*count*/, int /*flags*/) {
  return 1;
}
__attribute__((visibility("default"))) int shmget(key_t /*key*/, size_t /*size*/, int /*flags*/) {
  return 1;
}
__attribute__((visibility("default"))) void* shmat(int /*id*/, const void* /*address*/,
                                                   int /*flags*/) {
  return &ipcam::fuzz::g_record;
}
__attribute__((visibility("default"))) int shmdt(const void* /*address*/) { return 0; }
__attribute__((visibility("default"))) int semop(int /*id*/, struct sembuf* /*operations*/,
                                                 size_t /*count*/) {
  return 0;
}
__attribute__((visibility("default"))) int semtimedop(int /*id*/, struct sembuf* /*operations*/,
                                                      size_t /*count*/,
                                                      const struct timespec* /*limit*/) {
  return 0;
}
__attribute__((visibility("default"))) int kill(pid_t /*pid*/, int /*signal*/) {
  ipcam::fuzz::g_answer(ipcam::fuzz::g_record);
  return 0;
}
__attribute__((visibility("default"))) int sigtimedwait(const sigset_t* /*set*/,
                                                        siginfo_t* /*info*/,
                                                        const struct timespec* limit) {
  // A drain finds nothing, a wait its doorbell.
  return limit->tv_sec == 0 && limit->tv_nsec == 0 ? -1 : SIGUSR1;
}
__attribute__((visibility("default"))) int usleep(useconds_t /*us*/) { return 0; }
__attribute__((visibility("default"))) unsigned int sleep(unsigned int /*seconds*/) { return 0; }
__attribute__((visibility("default"))) FILE* fopen(const char* path, const char* mode) {
  const auto file = ipcam::fuzz::g_files.find(path);
  if (file == ipcam::fuzz::g_files.end()) return nullptr;
  if (file->second.empty()) return fmemopen(nullptr, 1, mode);
  return fmemopen(file->second.data(), file->second.size(), mode);
}
}

namespace ipcam::config {

__attribute__((visibility("default"))) int ConfigFile::read_record(void* record, int /*kind*/) {
  std::memcpy(record, fuzz::g_settings.data(), fuzz::g_settings.size());
  return 0;
}
__attribute__((visibility("default"))) int ConfigFile::write_record(void* record, int /*kind*/) {
  std::memcpy(fuzz::g_settings.data(), record, fuzz::g_settings.size());
  return 0;
}

}  // namespace ipcam::config
