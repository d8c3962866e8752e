// Running one register command text and looking at its reply.
#pragma once

#include "dsp/command_text.h"
#include "ipcam/camera/dsp_command.h"

namespace ipcam::camera {

// What a register command text gave: one byte per entry, zero where nothing was read.
struct RegisterReply {
  int result = 0;  // as DspCommand::do_debug() returns it; -1 when the command failed
  unsigned char bytes[32] = {};
};

inline RegisterReply run_text(DspCommand& dsp, const char* text) {
  RegisterReply reply;
  reply.result = run_command(dsp, text, reply.bytes);
  return reply;
}

}  // namespace ipcam::camera
