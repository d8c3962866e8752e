// Any text as a register command.
#include <string>

#include "fuzz/fake_camera.h"

using ipcam::camera::DspCommand;
using ipcam::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static DspCommand dsp;

  std::string text(reinterpret_cast<const char*>(data), size);
  text.push_back('\0');
  std::string split = text;
  unsigned char values[17];
  std::fill(std::begin(values), std::end(values), 0xee);
  const int copied = dsp.do_debug(text.data(), reinterpret_cast<char*>(values));
  require(text == split, "the copying overload leaves the text alone");
  require(copied >= -1 && copied <= 16 && values[16] == 0xee, "at most 16 results");
  const int in_place = dsp.do_debug(reinterpret_cast<unsigned char*>(split.data()), values);
  require(std::string(text.c_str()).size() > 256 || copied == in_place, "both overloads agree");
  require(ipcam::fuzz::record().status == 0 && ipcam::fuzz::record().req_pid == 0,
          "the record is idle afterwards");
  return 0;
}
