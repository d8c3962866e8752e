// The same request by other roads between two processes, for
// comparison: a Unix socket and a private D-Bus.
#pragma once

#include <sys/types.h>

struct sd_bus;

namespace ipcam::bench {

// A child process that sends every packet of a socket pair back.
class SocketPeer {
 public:
  SocketPeer();  // ends the program when the machine does not let it run
  ~SocketPeer();
  SocketPeer(const SocketPeer&) = delete;
  SocketPeer& operator=(const SocketPeer&) = delete;

  bool exchange();

 private:
  int socket_ = -1;
  pid_t child_ = -1;
};

// A child process that answers a method call over a D-Bus connection of
// its own, without a bus daemon between.
class BusPeer {
 public:
  BusPeer();  // ends the program when the machine does not let it run
  ~BusPeer();
  BusPeer(const BusPeer&) = delete;
  BusPeer& operator=(const BusPeer&) = delete;

  bool exchange();

 private:
  sd_bus* bus_ = nullptr;
  pid_t child_ = -1;
};

}  // namespace ipcam::bench
