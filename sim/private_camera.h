// A camera in namespaces of its own, and the commands that are brought to it.
#pragma once

#include <sys/types.h>

#include <optional>

#include "workstation/namespaces.h"

namespace ipcam::sim {

// For a process with one thread; no root rights are needed. Failures throw std::runtime_error.

// Goes into namespaces of the process's own, with sample settings. The folders `kept` stay there.
void enter_sandbox(const workstation::Paths& kept);

// Goes into the namespaces of another process of this user. A caller who has no
// stored settings there gets the sample.
void join_private_camera(pid_t camera);

// The camera that has left the caller's namespaces for its own; empty when
// there is none. Several throw as well.
std::optional<pid_t> find_private_camera();

}  // namespace ipcam::sim
