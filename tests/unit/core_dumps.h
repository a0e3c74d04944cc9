// What tests of the writer of core files share: its files, and what should stand in them.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "state/system.h"
#include "tests/harness/own_tmp.h"
#include "tests/unit/memory_machine.h"
#include "tests/unit/sampled_machine.h"
#include "vm/core_dump.h"

namespace memory_test {

// Where the first region of a process stands, and where a dump of its executable goes.
inline constexpr uint64_t kFirst = 0x100000000;
inline constexpr char kBinary[] = "/tmp/CORE";

// Dumps the machine's process, which has this program's PID.
class DumpTest : public MemoryTest {
 private:
  const test::OwnTmp tmp_;

 protected:
  DumpTest() {
    sondex::mach_vm_page_range_query_funcptr = darwin::mach_vm_page_range_query;
    machine.pid = static_cast<pid_t>(getpid());
    path = "/tmp/core." + std::to_string(machine.pid);
    std::filesystem::remove(path);
  }
  ~DumpTest() override {
    sondex::mach_vm_page_range_query_funcptr = nullptr;
    std::filesystem::remove(path);
  }

  int dump(int mode = sondex::kFullCore) {
    int result = 0;
    errors = sampled::errorOutputOf([&] { result = sondex::dumpCore(machine.pid, 0, mode); });
    return result;
  }

  static std::string contentsOf(const std::string &name) {
    std::ostringstream contents;
    contents << std::ifstream(name, std::ios::binary).rdbuf();
    return contents.str();
  }

  // What the file takes of the disk.
  static uint64_t roomOf(const std::string &name) {
    struct stat found {};
    EXPECT_EQ(stat(name.c_str(), &found), 0);
    return static_cast<uint64_t>(found.st_blocks) * 512;
  }

  static std::string memoryOf(uint64_t address, size_t size) {
    std::string bytes;
    for (size_t i = 0; i < size; i++) bytes += static_cast<char>(byteAt(address + i));
    return bytes;
  }

  std::string path;
  std::string errors;
};

}  // namespace memory_test
