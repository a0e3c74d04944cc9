// A machine for tests. It answers from its fields, which are zero or empty until a test sets them,
// and can be told to refuse or to throw; a test that needs other answers derives from it and says
// those. What nobody says is "not supported", as of any machine.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <map>
#include <new>
#include <optional>
#include <vector>

#include "host/darwin/errors.h"
#include "host/machine.h"

namespace fake_machine {

// What the machine's own system calls leave in errno: it must never reach a caller.
inline constexpr int kForeignErrno = 4711;

// The band of who asks for the default one.
inline constexpr int32_t kDefaultBand = 18;

// No port has this name.
inline constexpr darwin::mach_port_t kNoPort = 0xdead;

class FakeMachine : public host::Machine {
 public:
  // Answer of every question that can be refused; the fields count only while it is kAnswered.
  host::Errno refusal = host::kAnswered;
  bool throws = false;

  host::KernelName name;
  host::KernelFamily family = host::kUsualFamily;
  bool privileged = true;

  // The list of memory status, of which entries are changed when told to: nothing else is there.
  std::vector<darwin::memorystatus_priority_entry> entries;
  std::optional<host::MemoryStatusPlace> lastPlace;
  std::map<int32_t, darwin::memorystatus_memlimit_properties> limits;
  unsigned int level = 0;

  darwin::host_basic_info basic{};
  darwin::vm_statistics64 memory{};
  darwin::timeval boot{};
  darwin::loadavg load{};
  darwin::xsw_usage swap{};

  host::Errno kernelName(host::KernelName &out) override { return give("kernelName", out, name); }
  host::KernelFamily kernelFamily() noexcept override { return family; }
  bool isPrivileged() override { return told(privileged); }

  host::Errno memoryStatusList(std::vector<darwin::memorystatus_priority_entry> &out) override {
    return give("memoryStatusList", out, entries);
  }
  host::Errno setMemoryStatusPlace(pid_t pid, const host::MemoryStatusPlace &place) override {
    return change("setMemoryStatusPlace", pid, [&](auto &entry) {
      lastPlace = place;
      entry.priority = place.band.value_or(kDefaultBand);
      entry.user_data = place.userData;
    });
  }
  host::Errno memoryLimits(pid_t pid, darwin::memorystatus_memlimit_properties &out) override {
    return change("memoryLimits", pid, [&](const auto &) { out = limits[pid]; });
  }
  host::Errno setMemoryLimits(pid_t pid,
                              const darwin::memorystatus_memlimit_properties &set) override {
    return change("setMemoryLimits", pid, [&](auto &entry) {
      limits[pid] = set;
      entry.limit = set.memlimit_active;
    });
  }
  host::Errno memoryStatusLevel(unsigned int &out) override {
    return give("memoryStatusLevel", out, level);
  }

  host::Errno hostBasicInfo(darwin::host_basic_info &out) override {
    return give("hostBasicInfo", out, basic);
  }
  host::Errno virtualMemory(darwin::vm_statistics64 &out) override {
    return give("virtualMemory", out, memory);
  }
  host::Errno bootTime(darwin::timeval &out) override { return give("bootTime", out, boot); }
  host::Errno loadAverage(darwin::loadavg &out) override { return give("loadAverage", out, load); }
  host::Errno swapUsage(darwin::xsw_usage &out) override { return give("swapUsage", out, swap); }

 protected:
  // Comes before every answer that can be refused, by the question's name. Anything but kAnswered
  // is the answer.
  virtual host::Errno admit(const char * /*question*/) { return told(refusal); }

  template <typename T>
  host::Errno give(const char *question, T &out, const T &answer) {
    const host::Errno error = admit(question);
    if (error == host::kAnswered) out = answer;
    return error;
  }

  // `how(entry)` for the entry of that process.
  template <typename Change>
  host::Errno change(const char *question, pid_t pid, Change &&how) {
    const host::Errno error = admit(question);
    if (error != host::kAnswered) return error;
    const auto entry = std::find_if(entries.begin(), entries.end(),
                                    [pid](const auto &each) { return each.pid == pid; });
    if (entry == entries.end()) return darwin::DARWIN_ESRCH;
    how(*entry);
    return host::kAnswered;
  }

  // Nothing to give is "not supported".
  template <typename T>
  host::Errno give(const char *question, T &out, const std::optional<T> &answer) {
    const host::Errno error = admit(question);
    if (error != host::kAnswered) return error;
    if (!answer) return darwin::DARWIN_ENOTSUP;
    out = *answer;
    return host::kAnswered;
  }

  // The answer to a question that can't be refused.
  template <typename T>
  T told(T answer) {
    if (throws) throw std::bad_alloc();
    errno = kForeignErrno;
    return answer;
  }
};

// Puts a machine of the test's own in place for the length of a test.
template <typename M>
class MachineTest : public testing::Test {
 protected:
  MachineTest() : before_(host::useMachine(&machine)) { errno = 0; }
  ~MachineTest() override { host::useMachine(before_); }

  M machine;

 private:
  host::Machine *before_;
};

}  // namespace fake_machine
