// Core files that tests have written to /tmp, of processes that exist on a simulated device only.
#pragma once

#include <string>

#include "harness/file_handle.h"

namespace test {

// A PID for which no one else writes a core file while this lives, neither another test nor a
// process of this machine. The core file is removed in the end.
class CoreFile {
 public:
  // Throws std::runtime_error when there is no such PID.
  CoreFile();
  CoreFile(const CoreFile &) = delete;
  CoreFile &operator=(const CoreFile &) = delete;
  ~CoreFile();

  int pid() const { return pid_; }
  const std::string &path() const { return path_; }
  bool exists() const;
  std::string bytes() const;

 private:
  int pid_ = 0;
  FileHandle lock_;
  std::string path_;
};

// The whole of a file; empty when it can't be read.
std::string bytesOfFile(const std::string &path);

}  // namespace test
