// Calls whose cases, with everything that is to be seen of them, are in a text file.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "tests/support/camera_fixture.h"

namespace ipcam::test {

// The cases of a file of tests/data/ (see case_file.h) are of these kinds. Those that arrange have nothing to expect:
//
//   fault reply_255 exchange 2 count 30 entry 1    of the simulated camera, from its next exchange on
//   fail write 15 767           the call of this function after the next 15; what it gives, if not an error
//   register 81/0x0a=0x65       a register, as the camera has it
//   reads 2/0x00 08 10          what successive reads of a register give
//
// "do <call> [<argument>]" makes one of the test's calls. Expected are, in this order and equal lines in a row as
// "30 * <line>" (pairs: with "+ <line>" next): "-> <result>", the call's notes, the traffic, each line printed after
// "out" or "err" and with '$' after a blank at its end, each wait after "wait".
class CallTest : public CameraTest {
 protected:
  using Call = std::function<int(const std::string& argument)>;

  // `prepare` comes before each call.
  void check_calls(
      const std::string& file, const std::map<std::string, Call>& calls, const std::function<void()>& prepare = [] {});

  Lines notes;  // a call may add what else there is to be seen

 private:
  void arrange(const std::string& action);
  Lines seen(const Call& call, const std::string& argument);
};

}  // namespace ipcam::test
