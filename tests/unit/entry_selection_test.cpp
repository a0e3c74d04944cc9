#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "darwin/libproc.h"
#include "darwin/sandbox.h"
#include "darwin/syscalls.h"
#include "host/darwin/mach_host.h"
#include "host/none/no_machine.h"
#include "host/selection.h"
#include "tests/unit/entry_machine.h"

namespace darwin {
namespace {

using testing::ExitedWithCode;
using testing::HasSubstr;

constexpr char kRefusal[] = "sondex: SONDEX_DEVICE=foo: no such device; known: none\n";

// A folder without devices, so that what is known does not depend on the source tree.
const bool g_noDevices = setenv("SONDEX_DEVICES", "/nonexistent", 1) == 0;

struct Outcome {
  int status;
  std::string out;
  std::string error;
};

std::string readAll(int fd) {
  std::string text;
  char part[4096];
  for (ssize_t got = read(fd, part, sizeof part); got > 0; got = read(fd, part, sizeof part)) {
    text.append(part, static_cast<size_t>(got));
  }
  close(fd);
  return text;
}

// This program once more, made to list its tests, with SONDEX_DEVICE set.
Outcome runSelf(const char *device) {
  int out[2];
  int error[2];
  EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
  EXPECT_EQ(pipe2(error, O_CLOEXEC), 0);
  const pid_t child = fork();
  if (child == 0) {
    dup2(out[1], STDOUT_FILENO);
    dup2(error[1], STDERR_FILENO);
    setenv("SONDEX_DEVICE", device, 1);
    execl("/proc/self/exe", "self", "--gtest_list_tests", "--gtest_filter=Selection.*", nullptr);
    _exit(99);
  }
  close(out[1]);
  close(error[1]);
  Outcome run;
  run.error = readAll(error[0]);
  run.out = readAll(out[0]);
  EXPECT_EQ(waitpid(child, &run.status, 0), child);
  return run;
}

TEST(Selection, UnknownDeviceEndsTheProgramBeforeAnythingElse) {
  ASSERT_TRUE(g_noDevices);
  const Outcome run = runSelf("foo");
  ASSERT_TRUE(WIFEXITED(run.status));
  EXPECT_EQ(WEXITSTATUS(run.status), 64);
  EXPECT_EQ(run.error, kRefusal);
  EXPECT_EQ(run.out, "");
}

TEST(Selection, KnownDevicesStartTheProgram) {
  for (const char *device : {"", "none"}) {
    SCOPED_TRACE(device);
    const Outcome run = runSelf(device);
    ASSERT_TRUE(WIFEXITED(run.status));
    EXPECT_EQ(WEXITSTATUS(run.status), 0);
    EXPECT_EQ(run.error, "");
    EXPECT_THAT(run.out, HasSubstr("KnownDevicesStartTheProgram"));
  }
}

TEST(SelectionDeathTest, AWordThatNamesNoDevice) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_EXIT(host::chooseMachine("foo"), ExitedWithCode(64), kRefusal);
  EXPECT_EXIT(host::chooseMachine("NONE"), ExitedWithCode(64), "known: none");
}

TEST(Selection, NoneSupportsNothing) {
  const std::unique_ptr<host::Machine> none = host::chooseMachine("none");
  EXPECT_NE(dynamic_cast<host::NoMachine *>(none.get()), nullptr);
}

TEST(Selection, UnsetAndEmptyAreThisSystem) {
  for (const char *device : {static_cast<const char *>(nullptr), ""}) {
    const std::unique_ptr<host::Machine> live = host::chooseMachine(device);
    ASSERT_NE(live, nullptr);
    EXPECT_EQ(dynamic_cast<host::NoMachine *>(live.get()), nullptr);
  }
}

TEST(Selection, ReplacementAnswersUntilItIsTakenBack) {
  host::Machine *const chosen = &host::machine();
  host::NoMachine first;
  host::NoMachine second;
  EXPECT_EQ(host::useMachine(&first), nullptr);
  EXPECT_EQ(&host::machine(), &first);
  EXPECT_EQ(host::useMachine(&second), &first);
  EXPECT_EQ(&host::machine(), &second);
  EXPECT_EQ(host::useMachine(nullptr), &second);
  EXPECT_EQ(&host::machine(), chosen);
}

class NothingSupported : public testing::Test {
 protected:
  NothingSupported() { host::useMachine(&m_none); }
  ~NothingSupported() override { host::useMachine(nullptr); }

 private:
  host::NoMachine m_none;
};

TEST_F(NothingSupported, EveryQuestionIsRefused) {
  alignas(16) unsigned char buffer[2048];
  errno = 0;
  EXPECT_EQ(proc_listpids(PROC_ALL_PIDS, 1, nullptr, 0), 0);
  EXPECT_EQ(errno, DARWIN_ENOTSUP);
  for (const int flavour : {1, 2, 3, 4, 5, 6, 11, 12, 13, 15, 20, 28}) {
    SCOPED_TRACE(flavour);
    errno = 0;
    EXPECT_EQ(proc_pidinfo(1, flavour, 0, buffer, sizeof buffer), 0);
    EXPECT_EQ(errno, DARWIN_ENOTSUP);
  }
  for (const int flavour : {1, 2, 3, 4, 5, 6, 7, 9, 10}) {
    SCOPED_TRACE(flavour);
    errno = 0;
    EXPECT_EQ(proc_pidfdinfo(1, 0, flavour, buffer, sizeof buffer), 0);
    EXPECT_EQ(errno, DARWIN_ENOTSUP);
  }
  EXPECT_LT(sandbox_check(1, nullptr, 0), 0);
  mach_msg_type_number_t count = 64;
  EXPECT_EQ(
      host_info(mach_host_self(), HOST_BASIC_INFO, reinterpret_cast<int32_t *>(buffer), &count),
      KERN_FAILURE);
  EXPECT_EQ(syscall(DARWIN_SYS_memorystatus_control, 1u, 0, 0u, static_cast<void *>(nullptr),
                    sizeof(void *)),
            -1);
  EXPECT_EQ(errno, DARWIN_EPERM);
}

}  // namespace
}  // namespace darwin
