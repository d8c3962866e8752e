// Calls whose cases, with everything that is to be seen of them, are in a text file.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "tests/support/case_file.h"

namespace ipcam::test {

// The cases are those of case_file.h that prepare, and this:
// "do <call> [<argument>]" makes one of the test's calls. Expected are, in this order and equal lines in a row as
// "30 * <line>" (pairs: with "+ <line>" next): "-> <result>", the call's notes, the traffic, each line printed after
// "out" or "err" and with '$' after a blank at its end, each wait after "wait".
class CallTest : public CaseTest {
 protected:
  using Call = std::function<int(const std::string& argument)>;

  // `before` comes before each call.
  void check_calls(
      const std::string& file, const std::map<std::string, Call>& calls, const std::function<void()>& before = [] {});

  Lines notes;  // a call may add what else there is to be seen

 private:
  Lines seen(const Call& call, const std::string& argument);
};

}  // namespace ipcam::test
