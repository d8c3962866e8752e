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

void PrintTo(const Section& section, std::ostream* out);  // NOLINT(readability-identifier-naming): found by this name
std::string section_name(const ::testing::TestParamInfo<Section>& info);

// `traffic` without the read pass of each register write: the reads that stand for themselves, and the writes.
Lines changes(const Lines& traffic);

// What came of an action, as the files write it: exchanges (as changes()), "out ..." and "err ..." for each line
// printed, "-> -1" for a result other than 0. The line "write success!" is left out when each write printed one.
Lines outcome(const Lines& traffic, const Output& output, int result);

}  // namespace ipcam::test
