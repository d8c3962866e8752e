// The camera's stored configuration, read and written as whole records by kind number.
#pragma once

namespace ipcam::config {

// On a workstation the file is the 880-byte record of kind 3 as it stands, nothing else. It
// lies in the directory that the environment variable IPCAM_CONFIG_DIR names when the object is
// made, or else in the working directory.
//
// Any number of objects may stand for one file; each read or write is one atomic step between
// threads and processes. An object itself is used by one thread at a time.
class ConfigFile {
 public:
  // `path` is a file name inside the configuration directory; it is copied. With a name that is
  // too long every read and write fails.
  explicit ConfigFile(char* path);
  // The file stays as it is; nothing is held open between two operations.
  virtual ~ConfigFile();
  ConfigFile(const ConfigFile&) = delete;
  ConfigFile& operator=(const ConfigFile&) = delete;

  // Fills `record` (880 bytes for kind 3). Returns 0; nonzero for another kind, a missing file or
  // one of another size, with `record` left as it was.
  virtual int read_record(void* record, int kind);
  // Stores the whole record, durable when it returns; the file is created if there is
  // none. Leaves a lock file beside it, on which it waits for another writer, at most 5
  // seconds. Returns 0; nonzero on failure, with the stored record left as it was. (Only
  // if the directory cannot be flushed as the very last step, the new record is in place
  // although the write is reported as failed.)
  virtual int write_record(void* record, int kind);

 private:
  bool is_usable_;  // a name was given, and both texts fit
  char name_[256];
  char directory_[4096];
};

}  // namespace ipcam::config
