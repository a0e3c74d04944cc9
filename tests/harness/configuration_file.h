// The configuration file. It has one name only: tests of several runs share it.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "own_tmp.h"  // of this folder, whose name differs between those who include this

namespace test {

// While this lives, no other test uses the file, and what was there before is put aside.
class ConfigurationFile {
 public:
  static constexpr char kPath[] = "/tmp/.sdrc";

  ConfigurationFile() {
    // What a test that was killed had put aside is somebody's; what it left in place is not.
    const bool isLeftOver = access(kPutAside, F_OK) == 0;
    const int result = isLeftOver ? std::remove(kPath) : std::rename(kPath, kPutAside);
    isOurs_ = result == 0 || errno == ENOENT;
  }
  ConfigurationFile(const ConfigurationFile &) = delete;
  ConfigurationFile &operator=(const ConfigurationFile &) = delete;
  ~ConfigurationFile() {
    if (isOurs_) {
      std::remove(kPath);
      std::rename(kPutAside, kPath);
    }
  }

  // False where the file is another user's and stays in place.
  bool isOurs() const { return isOurs_; }

  static std::string text() {
    std::ostringstream all;
    all << std::ifstream(kPath).rdbuf();
    return all.str();
  }

 private:
  static constexpr char kPutAside[] = "/tmp/.sdrc.put-aside-by-test";
  OwnTmp tmp_;
  bool isOurs_ = false;
};

}  // namespace test
