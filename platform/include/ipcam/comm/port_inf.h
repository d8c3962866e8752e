// Port record that a server program hands to the camera library.
#pragma once

namespace ipcam::comm {

// Opaque to the camera library, which only keeps its address.
struct s_port_inf {
  int reserved[4];
};

}  // namespace ipcam::comm
