#include <array>
#include <cstring>
#include <string>

#include "darwin/sysctl.h"
#include "host/darwin/errors.h"
#include "tests/unit/entry_machine.h"

namespace darwin {
namespace {

using entry_test::EntryTest;

struct Variable {
  const char *name;
  int numbers[2];
  size_t size;
};

constexpr Variable kVariables[] = {
    {"kern.boottime", {1, 21}, 16}, {"vm.loadavg", {2, 2}, 24}, {"vm.swapusage", {2, 5}, 32}};

class Sysctl : public EntryTest {
 protected:
  Sysctl() {
    machine.boot.tv_sec = 1600000000;
    machine.load.fscale = 2048;
    machine.swap.xsu_total = 4096;
    std::memset(value, 0xa5, sizeof value);
    errno = 0;
  }

  // Both forms of the call, which have to agree.
  int read(const Variable &variable, bool byName, void *old, size_t *length,
           void *newValue = nullptr) {
    errno = 0;
    int numbers[] = {variable.numbers[0], variable.numbers[1]};
    return byName ? sysctlbyname(variable.name, old, length, newValue, 0)
                  : sysctl(numbers, 2, old, length, newValue, 0);
  }

  bool untouchedFrom(size_t offset) const {
    for (size_t i = offset; i < sizeof value; ++i) {
      if (value[i] != 0xa5) return false;
    }
    return true;
  }

  alignas(8) unsigned char value[64];
};

class SysctlForms : public Sysctl, public testing::WithParamInterface<bool> {};

INSTANTIATE_TEST_SUITE_P(NumbersAndNames, SysctlForms, testing::Bool());

TEST_P(SysctlForms, GivesTheWholeValueAndItsLength) {
  for (const Variable &variable : kVariables) {
    SCOPED_TRACE(variable.name);
    for (const size_t room : {variable.size, sizeof value}) {
      std::memset(value, 0xa5, sizeof value);
      size_t length = room;
      EXPECT_EQ(read(variable, GetParam(), value, &length), 0);
      EXPECT_EQ(length, variable.size);
      EXPECT_EQ(errno, 0);
      EXPECT_FALSE(untouchedFrom(0));
      EXPECT_TRUE(untouchedFrom(variable.size));
    }
  }
}

TEST_P(SysctlForms, GivesTheMachinesFigures) {
  size_t length = sizeof value;
  ASSERT_EQ(read(kVariables[0], GetParam(), value, &length), 0);
  EXPECT_EQ(std::memcmp(value, &machine.boot.tv_sec, 8), 0);
  length = sizeof value;
  ASSERT_EQ(read(kVariables[1], GetParam(), value, &length), 0);
  EXPECT_EQ(std::memcmp(value + 16, &machine.load.fscale, 8), 0);
  length = sizeof value;
  ASSERT_EQ(read(kVariables[2], GetParam(), value, &length), 0);
  EXPECT_EQ(std::memcmp(value, &machine.swap.xsu_total, 8), 0);
}

TEST_P(SysctlForms, WithoutABufferOnlyTheLengthIsSet) {
  for (const Variable &variable : kVariables) {
    size_t length = 3;
    EXPECT_EQ(read(variable, GetParam(), nullptr, &length), 0);
    EXPECT_EQ(length, variable.size);
    EXPECT_EQ(read(variable, GetParam(), nullptr, nullptr), 0);
  }
}

TEST_P(SysctlForms, TooLittleRoomIsRefused) {
  for (const Variable &variable : kVariables) {
    size_t length = variable.size - 1;
    EXPECT_EQ(read(variable, GetParam(), value, &length), -1);
    EXPECT_EQ(errno, DARWIN_ENOMEM);
    EXPECT_EQ(length, variable.size - 1);
    EXPECT_EQ(read(variable, GetParam(), value, nullptr), -1);
    EXPECT_EQ(errno, DARWIN_ENOMEM);
  }
  EXPECT_TRUE(untouchedFrom(0));
}

TEST_P(SysctlForms, NothingCanBeSet) {
  for (const Variable &variable : kVariables) {
    size_t length = sizeof value;
    int newValue = 1;
    EXPECT_EQ(read(variable, GetParam(), value, &length, &newValue), -1);
    EXPECT_EQ(errno, DARWIN_EPERM);
  }
  EXPECT_TRUE(untouchedFrom(0));
  EXPECT_EQ(machine.asked, 0);
}

TEST_P(SysctlForms, AMachineWithoutTheFigureHasNoSuchVariable) {
  machine.refusal = DARWIN_ENOTSUP;
  for (const Variable &variable : kVariables) {
    size_t length = sizeof value;
    EXPECT_EQ(read(variable, GetParam(), value, &length), -1);
    EXPECT_EQ(errno, DARWIN_ENOENT);
  }
  machine.refusal = DARWIN_EIO;
  size_t length = sizeof value;
  EXPECT_EQ(read(kVariables[0], GetParam(), value, &length), -1);
  EXPECT_EQ(errno, DARWIN_EIO);
  machine.throws = true;
  EXPECT_EQ(read(kVariables[0], GetParam(), value, &length), -1);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
  EXPECT_TRUE(untouchedFrom(0));
}

TEST_F(Sysctl, UnknownVariables) {
  size_t length = sizeof value;
  // Among them the older form of a process's arguments, which no device has.
  const std::vector<std::vector<int>> unknown = {
      {1, 99}, {9, 21}, {1, 21, 0}, {4, 17, 0, 0, 6, 0}, {1, 38, 5}, {1, 49}, {1, 49, 5, 0}};
  for (std::vector<int> numbers : unknown) {
    errno = 0;
    EXPECT_EQ(sysctl(numbers.data(), static_cast<unsigned int>(numbers.size()), value, &length,
                     nullptr, 0),
              -1);
    EXPECT_EQ(errno, DARWIN_ENOENT);
  }
  for (const char *name : {"", "kern", "kern.boottime2", "vm.swap"}) {
    errno = 0;
    EXPECT_EQ(sysctlbyname(name, value, &length, nullptr, 0), -1);
    EXPECT_EQ(errno, DARWIN_ENOENT);
  }
  EXPECT_TRUE(untouchedFrom(0));
}

TEST_F(Sysctl, BadNames) {
  size_t length = sizeof value;
  int numbers[13] = {1, 21};
  for (const unsigned int count : {0u, 1u, 13u}) {
    errno = 0;
    EXPECT_EQ(sysctl(numbers, count, value, &length, nullptr, 0), -1);
    EXPECT_EQ(errno, DARWIN_EINVAL);
  }
  EXPECT_EQ(sysctl(nullptr, 2, value, &length, nullptr, 0), -1);
  EXPECT_EQ(errno, DARWIN_EFAULT);
  errno = 0;
  EXPECT_EQ(sysctlbyname(nullptr, value, &length, nullptr, 0), -1);
  EXPECT_EQ(errno, DARWIN_EFAULT);
}

class ProcessArguments : public EntryTest {
 protected:
  ProcessArguments() {
    machine.started = {"/bin/ls", {"ls", "-l", ""}, {"A=1"}, true};
    room.fill('x');
  }

  int read(void *old, size_t *length, int pid = 5) {
    errno = 0;
    int name[] = {1, 49, pid};
    return sysctl(name, 3, old, length, nullptr, 0);
  }

  std::array<char, 64> room{};
};

TEST_F(ProcessArguments, AreACountThePathArgumentsAndEnvironment) {
  // The path with its end is 8 bytes long; all is filled up to a multiple of 8.
  const std::string area("\3\0\0\0/bin/ls\0ls\0-l\0\0A=1\0\0\0\0\0\0", 4 + 8 + 16);
  size_t length = room.size();
  ASSERT_EQ(read(room.data(), &length), 0);
  ASSERT_EQ(length, area.size());
  EXPECT_EQ(std::string(room.data(), length), area);
  EXPECT_EQ(room[length], 'x');
}

TEST_F(ProcessArguments, PathIsFilledUpToAPointer) {
  machine.started = {"/bin/cat", {"cat"}, {}, true};
  size_t length = room.size();
  ASSERT_EQ(read(room.data(), &length), 0);
  EXPECT_EQ(std::string(room.data(), length),
            std::string("\1\0\0\0/bin/cat\0\0\0\0\0\0\0\0cat\0\0\0\0\0", 4 + 16 + 8));
  machine.started.is64Bit = false;
  length = room.size();
  ASSERT_EQ(read(room.data(), &length), 0);
  EXPECT_EQ(std::string(room.data(), length),
            std::string("\1\0\0\0/bin/cat\0\0\0\0cat\0", 4 + 12 + 4));
}

TEST_F(ProcessArguments, WithoutABufferTheLengthIsAnswered) {
  size_t length = 0;
  ASSERT_EQ(read(nullptr, &length), 0);
  EXPECT_EQ(length, 28u);
}

TEST_F(ProcessArguments, TooSmallABufferGetsTheEnd) {
  size_t length = 12;
  ASSERT_EQ(read(room.data(), &length), 0);
  EXPECT_EQ(length, 12u);
  EXPECT_EQ(std::string(room.data(), 12), std::string("\3\0\0\0=1\0\0\0\0\0\0", 12));
  EXPECT_EQ(room[12], 'x');
}

TEST_F(ProcessArguments, AnyBufferBetweenItsBordersWillDo) {
  size_t length = 5;
  ASSERT_EQ(read(room.data(), &length), 0);
  EXPECT_EQ(length, 5u);
  EXPECT_EQ(std::string(room.data(), 6), std::string("\3\0\0\0\0x", 6));
  std::vector<char> largest(262148);
  length = largest.size();
  ASSERT_EQ(read(largest.data(), &length), 0);
  EXPECT_EQ(length, 28u);
}

TEST_F(ProcessArguments, AreCutToWhatAProcessMayHave) {
  machine.started.arguments.assign(3, std::string(200000, 'a'));
  std::vector<char> largest(262148);
  size_t length = largest.size();
  ASSERT_EQ(read(largest.data(), &length), 0);
  EXPECT_EQ(length, 262148u);
  EXPECT_STREQ(largest.data() + 4, "/bin/ls");
  ASSERT_EQ(read(nullptr, &length), 0);
  EXPECT_EQ(length, 262148u);
}

TEST_F(ProcessArguments, EveryFailureIsInvalid) {
  size_t length = 4;
  EXPECT_EQ(read(room.data(), &length), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  length = 262149;
  EXPECT_EQ(read(room.data(), &length), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  EXPECT_EQ(read(room.data(), nullptr), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  length = room.size();
  EXPECT_EQ(read(room.data(), &length, 0), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  for (const host::Errno refusal : {DARWIN_ESRCH, DARWIN_EPERM}) {
    machine.refusal = refusal;
    EXPECT_EQ(read(room.data(), &length), -1);
    EXPECT_EQ(errno, DARWIN_EINVAL);
  }
  EXPECT_EQ(room[0], 'x');
}

TEST_F(ProcessArguments, AMachineThatWasNotTaughtThemHasNoSuchVariable) {
  machine.refusal = DARWIN_ENOTSUP;
  size_t length = room.size();
  EXPECT_EQ(read(room.data(), &length), -1);
  EXPECT_EQ(errno, DARWIN_ENOENT);
}

}  // namespace
}  // namespace darwin
