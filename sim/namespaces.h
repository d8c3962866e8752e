// Namespaces of the simulator's own: /tmp, /var/tmp and System V objects that nobody else on the machine sees.
#pragma once

#include <sys/types.h>

#include <optional>

namespace ipcam::sim {

// Entering and joining are for a process with one thread and need no root rights. The working directory and the
// program's own tree stay in place, even below /tmp. Failures throw std::runtime_error.

// Makes such namespaces and enters them.
void enter_own_namespaces();

// Enters those of another process of this user.
void join_namespaces(pid_t pid);

// The simulator that has left the caller's namespaces for its own; empty when there is none. Several throw as well.
std::optional<pid_t> find_own_simulator();

}  // namespace ipcam::sim
