// Cases as they are written in tests/data/*.cases: tests/README.md explains the notation.
#pragma once

#include <string>
#include <vector>

#include "tests/support/camera_fixture.h"

namespace ipcam::test {

// One action. Without a list of what is expected of it, it prepares for
// the next one: then only its result is.
struct Step {
  int line_number;
  std::string action;
  Lines only;  // words, if just the lines with one of them are expected; a result other than 0 has
               // "->"
  Lines expected;
};

// A test of its own: its steps follow each other on one camera.
struct Case {
  std::string name;
  std::vector<Step> steps;
};
inline std::ostream& operator<<(std::ostream& stream, const Case& shown) {
  return stream << shown.name;
}

// The cases of all files. Blocks with lists are already played out.
std::vector<Case> read_cases();

}  // namespace ipcam::test
