// Namespaces of a process's own: a /tmp, System V objects and devices that nobody else on the machine sees. The one
// place that makes them: for `camsim --private`, for a dry run, for benchmarks and for tests.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <vector>

namespace ipcam::sim {

using Paths = std::vector<std::filesystem::path>;

// For a process with one thread; no root rights are needed. Failures throw std::runtime_error.

// Makes such namespaces and enters them. Each of the folders `covered` is empty there, but for the working directory,
// the program's own tree and the folders `kept`, which stay in place.
void enter_own_namespaces(const Paths& covered = {"/tmp", "/var/tmp"}, const Paths& kept = {});

// Takes the machine's own devices of a camera out of reach of a process in its own namespaces.
void hide_devices();

// Enters the namespaces of another process of this user.
void join_namespaces(pid_t pid);

// The simulator that has left the caller's namespaces for its own; empty when there is none. Several throw as well.
std::optional<pid_t> find_own_simulator();

}  // namespace ipcam::sim
