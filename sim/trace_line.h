// Exchanges as lines of a trace, with the names of registers: for readers, and as JSON.
#pragma once

#include <cstdint>
#include <string>

#include "sim/switchboard.h"

namespace ipcam::sim {

// "w 10/0x09=0xc0 200/0x01=0x05 -> 02 01 02 01  # saturation -": command_text() and reply_text(),
// then the names; a group of registers that is there as a whole has one name, a register without a
// name is a "-". No comment where no register has a name.
std::string trace_line(const Exchange& exchange);

// One object, without the end of line:
// {"exchange":7,"access":"read","command":"r 10/0x09",
//  "entries":[{"category":10,"byte":9,"name":"saturation","value":192}],
//  "reply":{"bytes":"03 01 c0","status":[1],"values":[192]},"fault":"none"}
// `number` counts exchanges from 0. The value of an entry is the one written or read, null
// when a read was not answered with one.
std::string trace_json(const Exchange& exchange, std::uint32_t number);

}  // namespace ipcam::sim
