// The file of a recording: nobody else's, of a limited size, and never in the program's way.
#pragma once

#include <sys/stat.h>

#include <climits>
#include <cstddef>
#include <string_view>

namespace ipcam::recorder {

// A regular file that this process has created, so that neither another process nor an earlier one
// writes to it. Writing never waits for a reader and raises no signal. One thread at a time.
class RecordingFile {
 public:
  constexpr RecordingFile() = default;

  // Creates `path`, or the first of PATH-2 to PATH-9 that is not there yet. Returns false, with
  // errno set, when there is none to be had.
  bool create(const char* path, off_t limit);
  // Keeps the file as PATH.1 and creates it anew.
  bool begin_anew();
  // Whether so many bytes can still be written to it.
  bool has_room(std::size_t size) const;
  // Appends the whole line, or nothing.
  bool append(std::string_view line);

  const char* path() const { return path_; }

 private:
  bool create_here();
  bool is_at_hand();

  int fd_ = -1;
  struct stat identity_ {};
  off_t size_ = 0;
  off_t limit_ = 0;
  char path_[PATH_MAX] = {};
};

}  // namespace ipcam::recorder
