#include <unistd.h>

#include <chrono>
#include <cstring>
#include <optional>
#include <thread>
#include <vector>

#include "darwin/memorystatus.h"
#include "host/darwin/errors.h"
#include "host/darwin/syscalls.h"
#include "host/entry/kernel.h"
#include "tests/unit/entry_machine.h"

namespace darwin {
namespace {

using entry_test::EntryTest;

using Entries = std::vector<memorystatus_priority_entry>;

Entries makeEntries(size_t count, int32_t firstPid) {
  Entries entries(count);
  for (size_t i = 0; i < count; ++i) entries[i].pid = firstPid + static_cast<int32_t>(i);
  return entries;
}

long control(void *buffer, size_t size, uint32_t command = MEMORYSTATUS_CMD_GET_PRIORITY_LIST) {
  errno = 0;
  return syscall(DARWIN_SYS_memorystatus_control, command, 0, 0u, buffer, size);
}

class MemoryStatus : public EntryTest {
 protected:
  MemoryStatus() {
    machine.entries = makeEntries(3, 100);
    std::memset(buffer, 0xa5, sizeof buffer);
  }
  // The kept list is the thread's: the next test starts without one.
  ~MemoryStatus() override {
    machine.throws = false;
    machine.refusal = host::kAnswered;
    machine.privileged = true;
    control(buffer, 0);
  }

  int32_t pidAt(size_t index) const {
    int32_t pid = 0;
    std::memcpy(&pid, buffer + index * sizeof(memorystatus_priority_entry), sizeof pid);
    return pid;
  }

  unsigned char buffer[4096];
};

TEST_F(MemoryStatus, SizeQuestionAnswersBytes) {
  EXPECT_EQ(control(nullptr, 0), 3 * 24);
  EXPECT_EQ(control(nullptr, 5000), 3 * 24);
}

TEST_F(MemoryStatus, FetchWithoutASizeQuestion) {
  EXPECT_EQ(control(buffer, sizeof buffer), 3 * 24);
  EXPECT_EQ(pidAt(2), 102);
  EXPECT_EQ(buffer[3 * 24], 0xa5);
}

TEST_F(MemoryStatus, TooSmallABufferIsRefused) {
  EXPECT_EQ(control(buffer, 3 * 24 - 1), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  EXPECT_EQ(buffer[0], 0xa5);
}

TEST_F(MemoryStatus, ThisKernelTakesLargeBuffers) {
  std::vector<unsigned char> large(65536 + 24);
  EXPECT_EQ(control(large.data(), large.size()), 3 * 24);
  machine.entries = makeEntries(2731, 1);
  EXPECT_EQ(control(large.data(), large.size()), 2731 * 24);
}

TEST_F(MemoryStatus, FetchGivesTheListOfTheSizeQuestionOnce) {
  const long size = control(nullptr, 0);
  machine.entries = makeEntries(9, 500);
  ASSERT_EQ(control(buffer, static_cast<size_t>(size)), size);
  EXPECT_EQ(pidAt(0), 100);
  EXPECT_EQ(machine.asked, 1);
  EXPECT_EQ(control(buffer, static_cast<size_t>(size)), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  EXPECT_EQ(control(buffer, sizeof buffer), 9 * 24);
  EXPECT_EQ(pidAt(0), 500);
}

TEST_F(MemoryStatus, EachSizeQuestionTakesANewList) {
  EXPECT_EQ(control(nullptr, 0), 3 * 24);
  machine.entries = makeEntries(5, 500);
  EXPECT_EQ(control(nullptr, 0), 5 * 24);
  EXPECT_EQ(control(buffer, 5 * 24), 5 * 24);
  EXPECT_EQ(pidAt(0), 500);
}

TEST_F(MemoryStatus, AnOldListIsNotGiven) {
  EXPECT_EQ(control(nullptr, 0), 3 * 24);
  const auto stale = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  machine.entries = makeEntries(1, 500);
  std::this_thread::sleep_until(stale);
  EXPECT_EQ(control(buffer, sizeof buffer), 24);
  EXPECT_EQ(pidAt(0), 500);
}

TEST_F(MemoryStatus, AListOfAnotherMachineIsNotGiven) {
  entry_test::EntryMachine other;
  other.entries = makeEntries(1, 700);
  EXPECT_EQ(control(nullptr, 0), 3 * 24);
  host::Machine *before = host::useMachine(&other);
  EXPECT_EQ(control(buffer, sizeof buffer), 24);
  host::useMachine(before);
  EXPECT_EQ(pidAt(0), 700);
}

TEST_F(MemoryStatus, KeptListsAreEachThreadsOwn) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  std::atomic<int> wrong{0};
  std::atomic<bool> done{false};
  machine.entries = makeEntries(1, 1);
  std::thread writer([&] {
    for (size_t round = 0; !done; ++round) {
      const std::lock_guard<std::mutex> lock(machine.entriesMutex);
      machine.entries = makeEntries(1 + round % 50, static_cast<int32_t>(1 + round % 50));
    }
  });
  std::vector<std::thread> readers;
  for (int i = 0; i < kThreads; ++i) {
    readers.emplace_back([&] {
      std::vector<memorystatus_priority_entry> list(64);
      for (int round = 0; round < kRounds; ++round) {
        const long size = control(nullptr, 0);
        if (control(list.data(), static_cast<size_t>(size)) != size) ++wrong;
        // The first pid tells how many entries the list was made with.
        if (static_cast<long>(list[0].pid) * 24 != size) ++wrong;
      }
    });
  }
  for (std::thread &reader : readers) reader.join();
  done = true;
  writer.join();
  EXPECT_EQ(wrong, 0);
}

TEST_F(MemoryStatus, OthersThanRootAreRefusedFirst) {
  machine.privileged = false;
  EXPECT_EQ(control(nullptr, 0), -1);
  EXPECT_EQ(errno, DARWIN_EPERM);
  EXPECT_EQ(control(nullptr, 0, 999), -1);
  EXPECT_EQ(errno, DARWIN_EPERM);
}

TEST_F(MemoryStatus, UnknownCommands) {
  for (const uint32_t command : {0u, 3u, 6u, 999u}) {
    EXPECT_EQ(control(buffer, sizeof buffer, command), -1);
    EXPECT_EQ(errno, DARWIN_EINVAL);
  }
}

long setPriority(int32_t pid, memorystatus_priority_properties properties, uint32_t flags = 0) {
  errno = 0;
  return syscall(DARWIN_SYS_memorystatus_control, MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES, pid,
                 flags, &properties, sizeof properties);
}

// Of the commands that take a process and the 16 bytes of a structure.
long about(uint32_t command, int32_t pid, void *properties, size_t size = 16) {
  errno = 0;
  return syscall(DARWIN_SYS_memorystatus_control, command, pid, 0u, properties, size);
}

constexpr uint32_t kAboutOne[] = {MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES,
                                  MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES,
                                  MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES};

TEST_F(MemoryStatus, AProcessIsPutIntoABand) {
  EXPECT_EQ(setPriority(101, {7, uint64_t{1} << 63}), 0);
  ASSERT_TRUE(machine.lastPlace.has_value());
  EXPECT_EQ(machine.lastPlace->band, 7);
  EXPECT_FALSE(machine.lastPlace->isFirst);
  EXPECT_EQ(machine.lastPlace->userData, uint64_t{1} << 63);
  EXPECT_EQ(machine.entries[1].priority, 7);
  EXPECT_EQ(machine.entries[0].priority, 0);
  EXPECT_EQ(errno, 0);
}

struct BandRow {
  int32_t asked;
  std::optional<int32_t> band;  // nothing: the default one
  bool isFirst = false;
};

// The bands that a family has, and the ones below and above.
void expectBands(entry_test::EntryMachine &machine, int32_t scale) {
  std::vector<BandRow> rows = {{-1, std::nullopt}, {-2, 0, true}, {scale, 0}, {2 * scale, 0}};
  for (int32_t band = 0; band <= 21 * scale; ++band) {
    if (band != scale && band != 2 * scale) rows.push_back({band, band});
  }
  for (const BandRow &row : rows) {
    machine.lastPlace.reset();
    EXPECT_EQ(setPriority(100, {row.asked, 0}), 0) << row.asked;
    ASSERT_TRUE(machine.lastPlace.has_value()) << row.asked;
    EXPECT_EQ(machine.lastPlace->band, row.band) << row.asked;
    EXPECT_EQ(machine.lastPlace->isFirst, row.isFirst) << row.asked;
  }
  machine.lastPlace.reset();
  for (const int32_t band : {-3, 21 * scale + 1, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(setPriority(100, {band, 0}), -1) << band;
    EXPECT_EQ(errno, DARWIN_EINVAL) << band;
  }
  EXPECT_FALSE(machine.lastPlace.has_value());
}

TEST_F(MemoryStatus, BandsOfOldKernels) {
  for (const host::KernelFamily family : {2782u, 4903u, 8020u, 8791u}) {
    machine.family = family;
    expectBands(machine, 1);
  }
}

TEST_F(MemoryStatus, BandsOfNewKernelsAreTenTimesAsMany) {
  machine.family = 8792;
  expectBands(machine, 10);
}

TEST_F(MemoryStatus, SettingAPriorityTakesNoFlags) {
  EXPECT_EQ(setPriority(101, {7, 0}, 1), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  EXPECT_FALSE(machine.lastPlace.has_value());
}

TEST_F(MemoryStatus, LimitsAreSetAndGiven) {
  memorystatus_memlimit_properties limits = {50, 1, 40, 0};
  EXPECT_EQ(about(MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES, 102, &limits), 0);
  const memorystatus_memlimit_properties &set = machine.limits[102];
  EXPECT_EQ(set.memlimit_active, 50);
  EXPECT_EQ(set.memlimit_active_attr, 1u);
  EXPECT_EQ(set.memlimit_inactive, 40);
  EXPECT_EQ(set.memlimit_inactive_attr, 0u);
  machine.limits[101] = {-1, 0, 30, 1};
  EXPECT_EQ(about(MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES, 101, &limits), 0);
  EXPECT_EQ(limits.memlimit_active, -1);
  EXPECT_EQ(limits.memlimit_active_attr, 0u);
  EXPECT_EQ(limits.memlimit_inactive, 30);
  EXPECT_EQ(limits.memlimit_inactive_attr, 1u);
}

TEST_F(MemoryStatus, CommandsAboutOneProcessWantAllOfTheirArguments) {
  for (const uint32_t command : kAboutOne) {
    SCOPED_TRACE(command);
    std::memset(buffer, 0, sizeof buffer);
    for (const size_t size : {size_t{0}, size_t{15}, size_t{17}, size_t{24}}) {
      EXPECT_EQ(about(command, 101, buffer, size), -1) << size;
      EXPECT_EQ(errno, DARWIN_EINVAL) << size;
    }
    EXPECT_EQ(about(command, 0, buffer), -1);
    EXPECT_EQ(errno, DARWIN_EINVAL);
    EXPECT_EQ(about(command, 101, nullptr), -1);
    EXPECT_EQ(errno, DARWIN_EINVAL);
    EXPECT_EQ(machine.asked, 0) << "these are refused before anything is looked up";
    EXPECT_EQ(about(command, 101, buffer), 0);
    EXPECT_EQ(machine.asked, 1);
    machine.asked = 0;
  }
}

TEST_F(MemoryStatus, RefusalsOfCommandsAboutOneProcess) {
  for (const uint32_t command : kAboutOne) {
    SCOPED_TRACE(command);
    std::memset(buffer, 0, sizeof buffer);
    EXPECT_EQ(about(command, 4242, buffer), -1);
    EXPECT_EQ(errno, DARWIN_ESRCH);
    for (const host::Errno error : {DARWIN_EPERM, DARWIN_EBUSY, DARWIN_ENOTSUP}) {
      machine.refusal = error;
      EXPECT_EQ(about(command, 101, buffer), -1);
      EXPECT_EQ(errno, error);
    }
    machine.refusal = host::kAnswered;
    machine.privileged = false;
    EXPECT_EQ(about(command, 0, buffer), -1);
    EXPECT_EQ(errno, DARWIN_EPERM) << "before its arguments are looked at";
    machine.privileged = true;
    const std::vector<unsigned char> zeroes(16);
    EXPECT_EQ(std::memcmp(buffer, zeroes.data(), zeroes.size()), 0);
  }
}

TEST_F(MemoryStatus, RefusalsOfTheMachine) {
  machine.refusal = DARWIN_ENOTSUP;
  EXPECT_EQ(control(nullptr, 0), -1);
  EXPECT_EQ(errno, DARWIN_ENOTSUP);
  EXPECT_EQ(control(buffer, sizeof buffer), -1);
  EXPECT_EQ(errno, DARWIN_ENOTSUP);
}

TEST_F(MemoryStatus, EmptyList) {
  machine.entries.clear();
  EXPECT_EQ(control(nullptr, 0), 0);
  EXPECT_EQ(control(buffer, 0), 0);
  EXPECT_EQ(errno, 0);
}

TEST_F(MemoryStatus, Level) {
  machine.level = 63;
  unsigned int level = 7;
  errno = 5;
  EXPECT_EQ(memorystatus_get_level(&level), 0);
  EXPECT_EQ(level, 63u);
  EXPECT_EQ(errno, 5);
  level = 7;
  EXPECT_EQ(syscall(DARWIN_SYS_memorystatus_get_level, &level), 0);
  EXPECT_EQ(level, 63u);
}

TEST_F(MemoryStatus, LevelFailures) {
  unsigned int level = 7;
  EXPECT_EQ(memorystatus_get_level(nullptr), -1);
  EXPECT_EQ(errno, DARWIN_EFAULT);
  machine.refusal = DARWIN_ENOTSUP;
  EXPECT_EQ(memorystatus_get_level(&level), -1);
  EXPECT_EQ(errno, DARWIN_ENOTSUP);
  machine.throws = true;
  EXPECT_EQ(memorystatus_get_level(&level), -1);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
  EXPECT_EQ(level, 7u);
}

}  // namespace
}  // namespace darwin
