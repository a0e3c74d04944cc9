#include "proc/system_calls.h"

#include <cerrno>

#include "host/darwin/errors.h"
#include "host/darwin/syscalls.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using sampled::kPid;
using sampled::Process;
using sampled::SampledMachine;
using sampled::SampledTest;

using SystemCalls = SampledTest;

TEST_F(SystemCalls, ProcInfoIsTheSystemCall) {
  machine.add(kPid, "a");
  darwin::proc_taskallinfo info{};
  EXPECT_EQ(proc_info(darwin::PROC_INFO_CALL_PIDINFO, kPid, darwin::PROC_PIDTASKALLINFO, 0, &info,
                      sizeof info),
            232);
  EXPECT_STREQ(info.pbsd.pbi_comm, "a");
  errno = 0;
  EXPECT_EQ(proc_info(darwin::PROC_INFO_CALL_PIDINFO, kPid + 1, darwin::PROC_PIDTASKALLINFO, 0,
                      &info, sizeof info),
            -1);
  EXPECT_EQ(errno, darwin::DARWIN_ESRCH);
}

TEST_F(SystemCalls, ProcInfoHandsAllSixArgumentsOn) {
  Process &process = machine.add(kPid, "a");
  SampledMachine::addThread(process, 0x123456789abcdef0, 7);
  darwin::proc_threadinfo thread{};
  EXPECT_EQ(proc_info(darwin::PROC_INFO_CALL_PIDINFO, kPid, darwin::PROC_PIDTHREADINFO,
                      0x123456789abcdef0, &thread, sizeof thread),
            112);
  EXPECT_EQ(thread.pth_cpu_usage, 7);
}

TEST_F(SystemCalls, ProcessPolicyIsTheSystemCall) {
  int state = 0;
  errno = 0;
  EXPECT_EQ(process_policy(darwin::PROC_POLICY_SCOPE_PROCESS, darwin::PROC_POLICY_ACTION_GET,
                           darwin::PROC_POLICY_APP_LIFECYCLE, darwin::PROC_POLICY_APPLIFE_STATE,
                           &state, kPid, 0),
            -1);
  EXPECT_EQ(errno, darwin::DARWIN_ENOTSUP);
  EXPECT_EQ(process_policy(1, 2, 3, 4, &state, kPid, 0), -1);
  EXPECT_EQ(errno, darwin::DARWIN_EINVAL);
}

}  // namespace
