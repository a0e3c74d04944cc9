// A machine with one process whose regions, memory and threads a test sets, and which counts what
// it is asked.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/darwin/errors.h"
#include "host/entry/ports.h"
#include "state/display.h"
#include "state/word.h"
#include "tests/unit/fake_machine.h"

namespace memory_test {

inline constexpr pid_t kMappedPid = 4242;

inline darwin::proc_regionwithpathinfo makeRegion(uint64_t address, uint64_t size,
                                                  uint32_t protection = 3, uint32_t tag = 2,
                                                  std::string_view path = "") {
  darwin::proc_regionwithpathinfo region{};
  region.prp_prinfo.pri_protection = protection;
  region.prp_prinfo.pri_max_protection = 7;
  region.prp_prinfo.pri_share_mode = darwin::SM_PRIVATE;
  region.prp_prinfo.pri_user_tag = tag;
  region.prp_prinfo.pri_obj_id = 0xabcd;
  region.prp_prinfo.pri_address = address;
  region.prp_prinfo.pri_size = size;
  path.copy(region.prp_vip.vip_path, sizeof region.prp_vip.vip_path - 1);
  return region;
}

// The byte that stands at an address of the process.
inline uint8_t byteAt(uint64_t address) {
  return static_cast<uint8_t>(address ^ address >> 8 ^ address >> 16);
}

class MemoryMachine : public fake_machine::FakeMachine {
 public:
  pid_t pid = kMappedPid;
  std::vector<darwin::proc_regionwithpathinfo> regions;  // ascending
  std::set<uint64_t> unreadable;                         // an address in a page that can't be read
  std::map<uint64_t, std::string> contents;              // instead of byteAt(), from an address on
  std::map<uint64_t, host::ThreadRegisters> threads;     // by ID
  bool listsThreads = true;
  bool givesTask = true;
  bool givesTaskName = true;
  bool givesKernelTask = false;
  uint32_t user = 0;
  std::optional<std::vector<std::string>> extensions;
  int extensionsAsked = 0;
  size_t largestRead = 0;
  uint64_t pageBytes = 4096;
  std::function<host::Errno(uint64_t address, size_t count, int *to)> tellsPages;

  uint32_t callerUser() override { return user; }
  host::Errno taskPort(pid_t of) override {
    return givesTask && of == pid ? host::kAnswered : darwin::DARWIN_EPERM;
  }
  host::Errno taskNamePort(pid_t of) override {
    return givesTaskName && of == pid ? host::kAnswered : darwin::DARWIN_ESRCH;
  }
  host::Errno kernelTaskPort() override {
    return givesKernelTask ? host::kAnswered : darwin::DARWIN_ENOTSUP;
  }
  host::Errno region(pid_t of, uint64_t address, darwin::proc_regionwithpathinfo &info) override {
    if (of != pid) return darwin::DARWIN_ESRCH;
    const auto found = std::partition_point(
        regions.begin(), regions.end(), [&](const darwin::proc_regionwithpathinfo &region) {
          return region.prp_prinfo.pri_address + region.prp_prinfo.pri_size <= address;
        });
    if (found == regions.end()) return darwin::DARWIN_EINVAL;
    info = *found;
    return host::kAnswered;
  }
  host::Errno threadIDs(pid_t of, std::vector<uint64_t> &ids) override {
    if (of != pid || !listsThreads) return darwin::DARWIN_ESRCH;
    for (const auto &thread : threads) ids.push_back(thread.first);
    return host::kAnswered;
  }
  host::Errno threadRegisters(pid_t, uint64_t id, host::ThreadRegisters &registers) override {
    const auto thread = threads.find(id);
    if (thread == threads.end()) return darwin::DARWIN_ESRCH;
    registers = thread->second;
    return host::kAnswered;
  }
  host::Errno readMemory(pid_t of, uint64_t address, size_t size, void *to) override {
    if (of != pid) return darwin::DARWIN_ESRCH;
    largestRead = std::max(largestRead, size);
    const auto hole = unreadable.lower_bound(address);
    if (hole != unreadable.end() && *hole - address < size) return darwin::DARWIN_EFAULT;
    auto *bytes = static_cast<uint8_t *>(to);
    for (size_t i = 0; i < size; i++) bytes[i] = byteAt(address + i);
    for (const auto &[at, text] : contents) {
      for (size_t i = 0; i < text.size(); i++) {
        const uint64_t place = at + i;
        if (place >= address && place - address < size) {
          bytes[place - address] = static_cast<uint8_t>(text[i]);
        }
      }
    }
    return host::kAnswered;
  }
  uint64_t pageSize() noexcept override { return pageBytes; }
  host::Errno pages(pid_t of, uint64_t address, size_t count, int *to) override {
    if (of != pid) return darwin::DARWIN_ESRCH;
    return tellsPages ? tellsPages(address, count, to) : darwin::DARWIN_ENOTSUP;
  }
  host::Errno kernelExtensions(std::vector<std::string> &identifiers) override {
    extensionsAsked++;
    return give("kernelExtensions", identifiers, extensions);
  }
};

// Puts the machine in place for the length of a test, which must give back all ports.
class MemoryTest : public fake_machine::MachineTest<MemoryMachine> {
 protected:
  MemoryTest() : portsBefore_(host::openPorts()) {
    unsetenv("ZDEBUG");
    sondex::store(sondex::g_Color, 0);
    sondex::store(sondex::wantCurses, 0);
  }
  ~MemoryTest() override {
    EXPECT_EQ(host::openPorts(), portsBefore_);
    unsetenv("ZDEBUG");
    sondex::store(sondex::g_Color, 0);
    sondex::store(sondex::wantCurses, 0);
  }

 private:
  size_t portsBefore_;
};

}  // namespace memory_test
