#include <dlfcn.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <vector>

#include "darwin/libproc.h"
#include "darwin/sandbox.h"
#include "host/darwin/code_signing.h"
#include "host/darwin/errors.h"
#include "host/darwin/syscalls.h"
#include "host/entry/kernel.h"
#include "host/posix.h"
#include "tests/unit/entry_machine.h"

namespace darwin {
namespace {

using entry_test::EntryTest;

static_assert(sizeof(utsname) == 1280 && offsetof(utsname, version) == 768);

class Uname : public EntryTest {
 protected:
  Uname() {
    machine.name = {"Darwin", "phone", "18.2.0", "root:xnu-4903.232.2~1/RELEASE_ARM64_T8020",
                    "iPhone11,8"};
    std::memset(static_cast<void *>(&name), 'x', sizeof name);
  }

  utsname name;
};

TEST_F(Uname, GivesTheMachinesNames) {
  errno = 6;
  ASSERT_EQ(uname(&name), 0);
  EXPECT_EQ(errno, 6);
  EXPECT_STREQ(name.sysname, "Darwin");
  EXPECT_STREQ(name.nodename, "phone");
  EXPECT_STREQ(name.release, "18.2.0");
  EXPECT_STREQ(name.version, "root:xnu-4903.232.2~1/RELEASE_ARM64_T8020");
  EXPECT_STREQ(name.machine, "iPhone11,8");
}

TEST_F(Uname, CutsLongNamesAndEndsThem) {
  machine.name.node = std::string(sizeof name.nodename, 'n');
  machine.name.version = std::string(5000, 'v');
  ASSERT_EQ(uname(&name), 0);
  EXPECT_EQ(std::string(name.nodename), std::string(sizeof name.nodename - 1, 'n'));
  EXPECT_EQ(std::string(name.version), std::string(sizeof name.version - 1, 'v'));
  EXPECT_STREQ(name.machine, "iPhone11,8");
}

TEST_F(Uname, Failures) {
  const utsname before = name;
  machine.refusal = DARWIN_ENOTSUP;
  EXPECT_EQ(uname(&name), -1);
  EXPECT_EQ(errno, DARWIN_ENOTSUP);
  machine.refusal = host::kAnswered;
  utsname *nowhere = nullptr;
  EXPECT_EQ(uname(nowhere), -1);
  EXPECT_EQ(errno, DARWIN_EFAULT);
  machine.throws = true;
  EXPECT_EQ(uname(&name), -1);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
  EXPECT_EQ(std::memcmp(&before, &name, sizeof name), 0);
}

class ProcessGroup : public EntryTest {};

TEST_F(ProcessGroup, IsTheMachinesAnswer) {
  machine.groups[12] = 7;
  errno = 6;
  EXPECT_EQ(getpgid(12), 7);
  EXPECT_EQ(errno, 6);
  // A process of this system is none of the machine's.
  EXPECT_EQ(getpgid(getpid()), -1);
  EXPECT_EQ(errno, DARWIN_ESRCH);
}

TEST_F(ProcessGroup, OfTheProgramItselfIsThisSystems) {
  EXPECT_EQ(getpgid(0), getpgrp());
  EXPECT_EQ(machine.asked, 0);
}

TEST_F(ProcessGroup, IsThisSystemsWhereTheMachineDoesNotTell) {
  machine.refusal = DARWIN_ENOTSUP;
  EXPECT_EQ(getpgid(getpid()), getpgrp());
}

TEST_F(ProcessGroup, Failures) {
  machine.groups[12] = 7;
  machine.throws = true;
  EXPECT_EQ(getpgid(12), -1);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
}

class Dlsym : public EntryTest {};

TEST_F(Dlsym, OptionalEntryPointsAreThereWhenTheMachineHasThem) {
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "memorystatus_get_level"), nullptr);
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "proc_pid_rusage"), nullptr);
  machine.entryPoints = {"memorystatus_get_level", "proc_pid_rusage"};
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "memorystatus_get_level"),
            reinterpret_cast<void *>(&memorystatus_get_level));
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "proc_pid_rusage"),
            reinterpret_cast<void *>(&darwin::proc_pid_rusage));
  machine.throws = true;
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "proc_pid_rusage"), nullptr);
}

TEST_F(Dlsym, FoundEntryPointWorks) {
  machine.entryPoints = {"proc_pid_rusage"};
  machine.usage.ri_diskio_bytesread = 1 << 20;
  using Function = int (*)(int, int, rusage_info_t *);
  const auto function = reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, "proc_pid_rusage"));
  ASSERT_NE(function, nullptr);
  rusage_info_v3 usage{};
  EXPECT_EQ(function(1, 3, reinterpret_cast<rusage_info_t *>(&usage)), 0);
  EXPECT_EQ(usage.ri_diskio_bytesread, 1u << 20);
}

TEST_F(Dlsym, EverythingElseIsTheLibrarys) {
  EXPECT_NE(dlsym(RTLD_DEFAULT, "getpid"), nullptr);
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "no_such_function_anywhere"), nullptr);
}

class Syscalls : public EntryTest {};

TEST_F(Syscalls, NumbersThatAreNotAnswered) {
  for (const long number : {0L, 1L, 39L, -1L}) {
    errno = 0;
    EXPECT_EQ(syscall(number, 1, 0, nullptr), -1);
    EXPECT_EQ(errno, DARWIN_ENOSYS);
  }
}

class Policy : public EntryTest {
 protected:
  // The state of an application, unless a test asks for something else.
  long ask(int scope = PROC_POLICY_SCOPE_PROCESS, int action = PROC_POLICY_ACTION_GET,
           int policy = PROC_POLICY_APP_LIFECYCLE, int subtype = PROC_POLICY_APPLIFE_STATE) {
    const uint64_t thread = 0;
    errno = 0;
    return syscall(DARWIN_SYS_process_policy, scope, action, policy, subtype, attribute, pid,
                   thread);
  }

  int32_t state = 7;
  void *attribute = &state;
  int32_t pid = 5;
};

TEST_F(Policy, GivesTheStateOfAnApplication) {
  machine.state = PROC_APPSTATE_BACKGROUND;
  EXPECT_EQ(ask(), 0);
  EXPECT_EQ(state, 2);
  EXPECT_EQ(machine.stateAsked, 5);
}

TEST_F(Policy, PidZeroIsTheCaller) {
  pid = 0;
  EXPECT_EQ(ask(), 0);
  EXPECT_EQ(machine.stateAsked, getpid());
}

TEST_F(Policy, BadScopeOrPolicyIsInvalid) {
  EXPECT_EQ(ask(0), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  EXPECT_EQ(ask(PROC_POLICY_SCOPE_PROCESS, PROC_POLICY_ACTION_GET, 4), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  EXPECT_EQ(machine.asked, 0);
}

TEST_F(Policy, OtherQuestionsAreNotSupported) {
  EXPECT_EQ(ask(PROC_POLICY_SCOPE_THREAD), -1);
  EXPECT_EQ(errno, DARWIN_ENOTSUP);
  EXPECT_EQ(ask(PROC_POLICY_SCOPE_PROCESS, PROC_POLICY_ACTION_SET), -1);
  EXPECT_EQ(errno, DARWIN_ENOTSUP);
  EXPECT_EQ(ask(PROC_POLICY_SCOPE_PROCESS, PROC_POLICY_ACTION_GET, PROC_POLICY_APPTYPE), -1);
  EXPECT_EQ(errno, DARWIN_ENOTSUP);
  EXPECT_EQ(ask(PROC_POLICY_SCOPE_PROCESS, PROC_POLICY_ACTION_GET, PROC_POLICY_APP_LIFECYCLE,
                PROC_POLICY_APPLIFE_DEVSTATUS),
            -1);
  EXPECT_EQ(errno, DARWIN_ENOTSUP);
  EXPECT_EQ(machine.asked, 0);
}

TEST_F(Policy, Failures) {
  for (const host::Errno refusal : {DARWIN_ESRCH, DARWIN_EPERM, DARWIN_ENOTSUP}) {
    machine.refusal = refusal;
    EXPECT_EQ(ask(), -1);
    EXPECT_EQ(errno, refusal);
  }
  machine.throws = true;
  EXPECT_EQ(ask(), -1);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
  EXPECT_EQ(state, 7);
  machine.throws = false;
  machine.refusal = host::kAnswered;
  attribute = nullptr;
  EXPECT_EQ(ask(), -1);
  EXPECT_EQ(errno, DARWIN_EFAULT);
}

class CodeSigning : public EntryTest {};

TEST_F(CodeSigning, StatusGivesTheFlags) {
  machine.signing = CS_VALID | CS_SIGNED;
  uint32_t flags[2] = {0, 0x5a5a5a5a};
  errno = 6;
  EXPECT_EQ(csops(5, CS_OPS_STATUS, flags, sizeof flags), 0);
  EXPECT_EQ(errno, 6);
  EXPECT_EQ(flags[0], CS_VALID | CS_SIGNED);
  EXPECT_EQ(flags[1], 0x5a5a5a5a);
  EXPECT_EQ(machine.signingAsked, 5);
  flags[0] = 0;
  const size_t size = 4;
  EXPECT_EQ(syscall(DARWIN_SYS_csops, 6, CS_OPS_STATUS, static_cast<void *>(flags), size), 0);
  EXPECT_EQ(flags[0], CS_VALID | CS_SIGNED);
  EXPECT_EQ(machine.signingAsked, 6);
}

TEST_F(CodeSigning, PidZeroIsTheCaller) {
  uint32_t flags = 0;
  EXPECT_EQ(csops(0, CS_OPS_STATUS, &flags, sizeof flags), 0);
  EXPECT_EQ(machine.signingAsked, getpid());
}

TEST_F(CodeSigning, Failures) {
  uint32_t flags = 7;
  EXPECT_EQ(csops(5, CS_OPS_STATUS, &flags, 3), -1);
  EXPECT_EQ(errno, DARWIN_ERANGE);
  EXPECT_EQ(csops(5, CS_OPS_STATUS, nullptr, 4), -1);
  EXPECT_EQ(errno, DARWIN_EFAULT);
  for (const unsigned int operation : {CS_OPS_MARKKILL, CS_OPS_IDENTITY, 99u}) {
    errno = 0;
    EXPECT_EQ(csops(5, operation, &flags, 4), -1);
    EXPECT_EQ(errno, DARWIN_EINVAL);
  }
  machine.refusal = DARWIN_ESRCH;
  EXPECT_EQ(csops(5, CS_OPS_STATUS, &flags, 3), -1);
  EXPECT_EQ(errno, DARWIN_ESRCH);
  machine.throws = true;
  EXPECT_EQ(csops(5, CS_OPS_STATUS, &flags, 4), -1);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
  EXPECT_EQ(flags, 7u);
}

class Signature : public EntryTest {
 protected:
  Signature() {
    machine.signing = CS_VALID;
    machine.signature.assign(300, 0xb1);
    machine.signature.front() = 0xfa;
    std::fill(std::begin(room), std::end(room), uint8_t{0x5a});
    errno = 0;
  }

  uint8_t room[512];
};

TEST_F(Signature, IsGivenWhole) {
  for (const uint32_t flag : {CS_VALID, CS_DEBUGGED}) {
    machine.signing = flag;
    EXPECT_EQ(csops(5, CS_OPS_BLOB, room, 300), 0);
    EXPECT_EQ(std::vector<uint8_t>(room, room + 300), machine.signature);
    EXPECT_EQ(room[300], 0x5a);
  }
}

TEST_F(Signature, TooSmallABufferGetsTheLengthThatIsNeeded) {
  for (const size_t size : {size_t{8}, size_t{299}}) {
    EXPECT_EQ(csops(5, CS_OPS_BLOB, room, size), -1);
    EXPECT_EQ(errno, DARWIN_ERANGE);
    const uint8_t header[] = {0, 0, 0, 0, 0, 0, 1, 44, 0x5a};
    EXPECT_EQ(std::memcmp(room, header, sizeof header), 0);
  }
}

TEST_F(Signature, ABufferBelowEightBytesStaysUntouched) {
  EXPECT_EQ(csops(5, CS_OPS_BLOB, room, 7), -1);
  EXPECT_EQ(errno, DARWIN_ERANGE);
  EXPECT_EQ(room[0], 0x5a);
}

TEST_F(Signature, WithoutOneThereAreEightZeroes) {
  machine.signature.clear();
  EXPECT_EQ(csops(5, CS_OPS_BLOB, room, sizeof room), 0);
  const uint8_t header[] = {0, 0, 0, 0, 0, 0, 0, 0, 0x5a};
  EXPECT_EQ(std::memcmp(room, header, sizeof header), 0);
}

TEST_F(Signature, OfAProcessNeitherValidNorDebuggedIsRefused) {
  machine.signing = CS_SIGNED | CS_PLATFORM_BINARY;
  EXPECT_EQ(csops(5, CS_OPS_BLOB, room, sizeof room), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  machine.refusal = DARWIN_ESRCH;
  EXPECT_EQ(csops(5, CS_OPS_BLOB, room, sizeof room), -1);
  EXPECT_EQ(errno, DARWIN_ESRCH);
  EXPECT_EQ(room[0], 0x5a);
}

class Sandbox : public EntryTest {};

TEST_F(Sandbox, CheckGivesTheMachinesAnswer) {
  for (const int answer : {0, 1, -1}) {
    machine.sandboxed = answer;
    errno = 6;
    EXPECT_EQ(sandbox_check(5, nullptr, 0), answer);
    EXPECT_EQ(errno, 6);
  }
}

TEST_F(Sandbox, OperationsAndExceptionsAreFailures) {
  machine.sandboxed = 1;
  EXPECT_EQ(sandbox_check(5, "file-read*", 0), -1);
  EXPECT_EQ(errno, DARWIN_EINVAL);
  machine.throws = true;
  EXPECT_EQ(sandbox_check(5, nullptr, 0), -1);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
}

TEST_F(Sandbox, ContainerIsGivenWithItsEnd) {
  machine.container = "/private/var";
  char path[16];
  std::memset(path, 'x', sizeof path);
  EXPECT_EQ(sandbox_container_path_for_pid(5, path, 13), 0);
  EXPECT_STREQ(path, "/private/var");
  EXPECT_EQ(path[13], 'x');
}

TEST_F(Sandbox, ContainerFailuresLeaveTheBuffer) {
  machine.container = "/private/var";
  char path[16] = "unchanged";
  EXPECT_EQ(sandbox_container_path_for_pid(5, path, 12), DARWIN_ERANGE);
  machine.refusal = DARWIN_ENOTSUP;
  EXPECT_EQ(sandbox_container_path_for_pid(5, path, sizeof path), DARWIN_ENOTSUP);
  machine.throws = true;
  EXPECT_EQ(sandbox_container_path_for_pid(5, path, sizeof path), DARWIN_ENOMEM);
  EXPECT_STREQ(path, "unchanged");
}

class Caller : public EntryTest {};

TEST_F(Caller, IsTheMachinesUser) {
  machine.user = 501;
  EXPECT_EQ(geteuid(), 501u);
  EXPECT_EQ(getuid(), 501u);
  machine.throws = true;
  EXPECT_EQ(geteuid(), __real_geteuid());
}

TEST_F(Caller, TellsTheMachinesTime) {
  machine.seconds = 1709647629;
  time_t seconds = 0;
  EXPECT_EQ(time(&seconds), 1709647629);
  EXPECT_EQ(seconds, 1709647629);
  EXPECT_EQ(time(nullptr), 1709647629);
  machine.throws = true;
  EXPECT_GE(time(nullptr), __real_time(nullptr) - 1);
}

TEST(LiveCaller, IsTheOneOfThisSystem) {
  EXPECT_EQ(geteuid(), __real_geteuid());
  const time_t before = __real_time(nullptr);
  EXPECT_GE(time(nullptr), before);
}

}  // namespace
}  // namespace darwin
