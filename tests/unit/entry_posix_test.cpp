#include <dlfcn.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstring>

#include "darwin/code_signing.h"
#include "darwin/libproc.h"
#include "darwin/sandbox.h"
#include "darwin/syscalls.h"
#include "host/entry/kernel.h"
#include "tests/unit/entry_machine.h"

namespace {

using namespace darwin;
using entry_test::EntryTest;

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
  machine.throws = true;
  EXPECT_EQ(uname(&name), -1);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
  EXPECT_EQ(std::memcmp(&before, &name, sizeof name), 0);
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
  for (const long number : {0L, 1L, 39L, static_cast<long>(DARWIN_SYS_vm_pressure_monitor),
                            static_cast<long>(DARWIN_SYS_stack_snapshot_with_config), -1L}) {
    errno = 0;
    EXPECT_EQ(syscall(number, 1, 0, nullptr), -1);
    EXPECT_EQ(errno, DARWIN_ENOSYS);
  }
}

TEST_F(Syscalls, ProcessPolicyIsNotSupported) {
  int32_t state = 7;
  const uint64_t thread = 0;
  EXPECT_EQ(syscall(DARWIN_SYS_process_policy, PROC_POLICY_SCOPE_PROCESS, PROC_POLICY_ACTION_GET,
                    PROC_POLICY_APP_LIFECYCLE, PROC_POLICY_APPLIFE_STATE, &state, 1, thread),
            -1);
  EXPECT_EQ(errno, DARWIN_ENOTSUP);
  EXPECT_EQ(state, 7);
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
  for (const unsigned int operation : {CS_OPS_MARKKILL, CS_OPS_BLOB, CS_OPS_IDENTITY, 99u}) {
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

TEST_F(Sandbox, NoProcessHasAContainer) {
  char path[16] = "unchanged";
  EXPECT_EQ(sandbox_container_path_for_pid(5, path, sizeof path), DARWIN_ENOTSUP);
  EXPECT_STREQ(path, "unchanged");
}

}  // namespace
