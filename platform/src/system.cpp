// System log and service statistics.
#include "ipcam/system.h"

#include <syslog.h>

#include <array>
#include <cstdio>

#include "journal_note.h"

void writeSyslog(const char* source, const char* message) {
  if (source == nullptr) source = "";
  if (message == nullptr) message = "";
  std::array<char, 128> text;
  std::snprintf(text.data(), text.size(), "%s, %s", source, message);
  ipcam::platform::note("writeSyslog", {}, text.data());
  // A workstation may keep no system log, and nobody looks there.
  std::fprintf(stderr, "%s: %s\n", source, message);
  syslog(LOG_USER | LOG_NOTICE, "%s: %s", source, message);
}

// A workstation keeps no service statistics: the journal's entry is all there is.
void staticsInfoUpdate(int item, int value) {
  ipcam::platform::note("staticsInfoUpdate", {item, value});
}
