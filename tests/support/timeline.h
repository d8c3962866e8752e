// Everything that is seen of the library while it does something, in the order in which it is seen.
#pragma once

#include <functional>

#include "tests/support/camera_fixture.h"

namespace ipcam::test {

// Lines, as tests/README.md explains them: exchanges, calls of the camera's own libraries,
// requests to devices, printed lines, waits. What belongs to every exchange is checked here and
// not among the lines: a write follows a read of the same registers, and an exchange without a
// fault is followed by what its kind of command prints. An exchange that breaks a rule is marked
// by "unread" before it, or "silent" behind it.
class Timeline {
 public:
  Timeline(sim::SimulatedCamera& camera, const sim::Devices& devices, FakeClock& clock)
      : camera_(camera), devices_(devices), clock_(clock) {}

  Lines of(const std::function<void()>& action);

  static bool breaks_rule(const std::string& line) {
    return line.starts_with("unread ") || line.ends_with(" silent");
  }

 private:
  void collect(Output printed);
  void add_exchange(std::string exchange, std::string& out);
  void add_calls();
  void add_printed(const std::string& text, const std::string& start, const std::string& verb,
                   const std::string& other_verb);

  sim::SimulatedCamera& camera_;
  const sim::Devices& devices_;
  FakeClock& clock_;
  Lines lines_;
};

}  // namespace ipcam::test
