// Exchanges and fault names as text.
#pragma once

#include <string>
#include <string_view>

#include "sim/switchboard.h"

namespace ipcam::sim {

// One line for the command of an exchange, categories in decimal, everything else in
// hexadecimal: reads "r 10/0x09 12/0x7c", writes "w 10/0x09=0x80 12/0x7d=0x0e", a block
// write "b 91/0x06=0x38 0x48", any other packet its bytes "x 06 00 50 52"; an exchange with
// a fault ends in " !no_reply" or the like.
std::string command_text(const Exchange& exchange);

// The data bytes of the reply, "03 01 7f"; empty when nothing was answered.
std::string reply_text(const Exchange& exchange);

std::string_view fault_name(Fault fault);

}  // namespace ipcam::sim
