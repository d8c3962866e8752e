// Namespaces of a process's own: a /tmp and System V objects that nobody else on
// the machine sees. The one place that makes them: for `camsim --private`, for a
// dry run, for benchmarks and for tests.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace ipcam::workstation {

using Paths = std::vector<std::filesystem::path>;

// Throws std::runtime_error with what was tried and the system's reason.
[[noreturn]] void fail_in_namespaces(const std::string& tried);

// For a process with one thread; no root rights are needed. Failures throw std::runtime_error.

// Makes such namespaces and enters them. Each of the folders `covered` is empty there, but for the
// working directory, the program's own tree and the folders `kept`, which stay in place.
void enter_own_namespaces(const Paths& covered = {"/tmp", "/var/tmp"}, const Paths& kept = {});

// Takes a file of the machine, if it is there, out of reach of a process in its own namespaces.
void hide(const std::filesystem::path& file);

}  // namespace ipcam::workstation
