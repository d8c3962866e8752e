// Cases written down in a text file of tests/data/: what is asked for, and everything that must come of it.
#pragma once

#include <string>
#include <vector>

#include "tests/support/camera_fixture.h"

namespace ipcam::test {

struct Case {
  int line_number;
  std::string action;
  Lines expected;
};

struct Section {
  std::string name;
  std::vector<Case> cases;
};

// Sections begin with "[Name]", comments with "#". A case is one line, "action | expected line | expected line ...";
// a line that begins with "|" goes on with the case above it.
std::vector<Section> read_cases(const std::string& file);

// What prepares a case, and has nothing to expect:
//
//   settings w40=3 b145=1       the stored record: words of 32 bits and bytes by their offset, the rest is zero
//   file /var/tmp/x 01 ff       a file of these bytes
//   remove /var/tmp/x
//   register 81/0x0a=0x65       a register, as the camera has it
//   reads 2/0x00 08 10          what successive reads of a register give; nothing: the register
//   fault reply_255 exchange 2 count 30 entry 1    of the simulated camera, from its next exchange on
//   fail write 15 767           the call of this function after the next 15; what it gives, if not an error
//   leave                       the camera goes away
//   stop                        the control thread
class CaseTest : public CameraTest {
 protected:
  void prepare(const std::string& action);
};

std::string section_name(const ::testing::TestParamInfo<Section>& info);

// `traffic` without the read pass of each register write: the reads that stand for themselves, and the writes.
Lines changes(const Lines& traffic);

// A line after `head` for each line of `text`, with '$' after a blank at its end.
void add_printed(Lines& lines, const std::string& head, const std::string& text);

// What came of an action, as the files write it: exchanges (as changes()), "out ..." and "err ..." for each line
// printed, "-> -1" for a result other than 0. The line "write success!" is left out when each write printed one.
Lines outcome(const Lines& traffic, const Output& output, int result);

}  // namespace ipcam::test
