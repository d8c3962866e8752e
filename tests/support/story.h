// Stories: files of tests/data/ that say what is requested and all that it does, wait by wait.
#pragma once

#include <functional>

#include "tests/support/case_file.h"

namespace ipcam::test {

// Plays the files, whose cases (see case_file.h) are of these kinds. Those that prepare have nothing to expect:
//
//   settings w40=3 b145=1       the stored record: words of 32 bits and bytes by their offset, the rest is zero
//   file /var/tmp/x 01 ff       a file of these bytes
//   remove /var/tmp/x
//   register 81/0x0a=0x65       a register, as the camera has it
//   reads 2/0x00 08 10          what successive reads of a register give; nothing: the register
//   unreachable 3 5             after 3 exchanges, 5 find the sub CPU out of reach
//   fail ioctl 2                the call of this function after the next 2
//   leave                       the camera goes away
//   stop                        the control thread
//
// The others may end with `only` and words: then just the lines with one of these words are compared.
//
//   start                       the control thread
//   request 39,40 3,6           each of these codes with each of these values
//   inquire 79
//
// Expected are, up to each wait: library calls ("call "), exchanges as changes(), requests to devices, the wait; then
// messages ("err "), the bytes of the record that have changed ("saved "), and "-> -1" for a result other than 0.
class StoryTest : public CameraTest {
 protected:
  void check_story(const std::string& file);
  void check_story(const Section& section);
  void forget();

 private:
  // Lines of something else whose changes are to be seen; those that are new follow the saved bytes.
  virtual Lines state() const { return {}; }
  void prepare(const Lines& words);
  Lines play(const std::function<int()>& action);
  void check(const Lines& words, const Lines& expected);
};

}  // namespace ipcam::test
