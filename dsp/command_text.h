// The register command text: splitting a list into entries and reading an entry's numbers.
#pragma once

#include <cstddef>

#include "ipcam/camera/dsp_command.h"

namespace ipcam::camera {

inline constexpr std::size_t kMaxListLength = 256;  // characters in a command list

// Cuts the next piece that ends at `separator` off the text that `*rest` points to; consecutive
// separators count as one. Returns null when nothing is left.
char* next_piece(char** rest, char separator);

// Reads one entry of a list, in place: two fields for a read (mode 1), four for a write (mode 2).
// Returns true when the entry is right; otherwise the reason has been printed.
bool parse_entry(int mode, char* text, param_info& entry);

}  // namespace ipcam::camera
