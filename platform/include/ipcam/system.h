// System services of the camera: system log and service statistics.
#pragma once

extern "C" {

// Writes one line, "source: message", to the system log. Any thread.
void writeSyslog(const char* source, const char* message);
// Counts one event of the service statistics. Any thread.
void staticsInfoUpdate(int item, int value);
}
