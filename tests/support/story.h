// Stories: files of tests/data/ that say what is requested and all that it does, wait by wait.
#pragma once

#include <functional>

#include "tests/support/case_file.h"

namespace ipcam::test {

// Plays the files, whose cases are those of case_file.h that prepare, and these. They may end with `only` and words:
// then just the lines with one of these words are compared.
//
//   start                       the control thread
//   request 39,40 3,6           each of these codes with each of these values
//   inquire 79
//
// Expected are, up to each wait: library calls ("call "), exchanges as changes(), requests to devices, the wait; then
// messages ("err "), the bytes of the record that have changed ("saved "), and "-> -1" for a result other than 0.
class StoryTest : public CaseTest {
 protected:
  void check_story(const std::string& file);
  void check_story(const Section& section);
  void forget();

 private:
  // Lines of something else whose changes are to be seen; those that are new follow the saved bytes.
  virtual Lines state() const { return {}; }
  Lines play(const std::function<int()>& action);
  void check(const Case& c);
};

}  // namespace ipcam::test
