// What the events of a device file say.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/darwin/proc_info.h"
#include "tests/unit/device_file_text.h"

namespace {

using namespace device_file_test;
using namespace host::simulator;
using namespace std::chrono_literals;
using testing::ElementsAre;

template <typename Kind>
Kind actionOf(const std::string &keys) {
  return std::get<Kind>(eventOf(keys).action);
}

TEST(DeviceFileEvent, Times) {
  const Event once = eventOf("do = \"stop\"\nprocess = 1");
  EXPECT_EQ(once.at, 0s);
  EXPECT_FALSE(once.lasts.has_value());
  EXPECT_FALSE(once.every.has_value());
  const Event again = eventOf("do = \"stop\"\nprocess = 1\nat = 2.5\nfor = 0.5\nevery = 0.1");
  EXPECT_EQ(again.at, 2500ms);
  EXPECT_EQ(again.lasts, 500ms);
  EXPECT_EQ(again.every, 100ms);
}

TEST(DeviceFileEvent, Start) {
  const Process process =
      actionOf<StartProcess>("do = \"start\"\nname = \"new\"\nparent = \"twin\"\nuser = 501")
          .process;
  EXPECT_EQ(process.pid, -1);
  EXPECT_EQ(process.name, "new");
  EXPECT_EQ(process.parent, 40);
  EXPECT_EQ(process.user, 501u);
  EXPECT_EQ(process.age, 0s);
  EXPECT_EQ(process.path, "/usr/libexec/new");
  EXPECT_EQ(process.coalitions, std::nullopt);
  const Process known = actionOf<StartProcess>("do = \"start\"\nname = \"n\"\npid = 70").process;
  EXPECT_EQ(known.pid, 70);
  EXPECT_EQ(known.coalitions, std::nullopt);
}

TEST(DeviceFileEvent, StartOfSeveral) {
  const Device device = deviceOf(
      "[template.t]\nuser = 5\n[[process]]\nname = \"launchd\"\n"
      "[[event]]\ndo = \"start\"\nat = 3\npid = 70\ntemplate = \"t\"\nnames = [\"a\", \"b\"]\n"
      "[[event]]\ndo = \"exit\"\nprocess = \"b\"\n");
  ASSERT_EQ(device.events.size(), 3u);
  const Process &second = std::get<StartProcess>(device.events[1].action).process;
  EXPECT_EQ(device.events[1].at, 3s);
  EXPECT_EQ(second.pid, 71);
  EXPECT_EQ(second.name, "b");
  EXPECT_EQ(second.user, 5u);
  EXPECT_EQ(std::get<ExitProcess>(device.events[2].action).pid, 71);
}

TEST(DeviceFileEvent, ExitForkExec) {
  const ExitProcess exit = actionOf<ExitProcess>("do = \"exit\"\nprocess = \"twin\"");
  EXPECT_EQ(exit.pid, 40);
  EXPECT_EQ(exit.status, 0u);
  EXPECT_FALSE(exit.staysZombie);
  const ExitProcess zombie =
      actionOf<ExitProcess>("do = \"exit\"\nprocess = 9\nexit-status = 6\nzombie = true");
  EXPECT_EQ(zombie.pid, 9);
  EXPECT_EQ(zombie.status, 6u);
  EXPECT_TRUE(zombie.staysZombie);
  EXPECT_EQ(actionOf<ForkProcess>("do = \"fork\"\nprocess = 1").child, -1);
  EXPECT_EQ(actionOf<ForkProcess>("do = \"fork\"\nprocess = 1\nchild = 80").child, 80);
  const ExecProcess exec = actionOf<ExecProcess>("do = \"exec\"\nprocess = 1\nname = \"ls\"");
  EXPECT_EQ(exec.pid, 1);
  EXPECT_EQ(exec.name, "ls");
  EXPECT_EQ(exec.path, "/usr/libexec/ls");
  EXPECT_THAT(exec.arguments, ElementsAre("/usr/libexec/ls"));
  const ExecProcess full = actionOf<ExecProcess>(
      "do = \"exec\"\nprocess = 1\nname = \"ls\"\npath = \"/bin/ls\"\narguments = [\"ls\", "
      "\"-l\"]");
  EXPECT_EQ(full.path, "/bin/ls");
  EXPECT_THAT(full.arguments, ElementsAre("ls", "-l"));
}

TEST(DeviceFileEvent, StopAndContinue) {
  EXPECT_EQ(actionOf<StopProcess>("do = \"stop\"\nprocess = \"twin\"").pid, 40);
  EXPECT_EQ(actionOf<ContinueProcess>("do = \"continue\"\nprocess = \"twin\"").pid, 40);
}

TEST(DeviceFileEvent, Change) {
  const ChangeProcess none = actionOf<ChangeProcess>("do = \"change\"\nprocess = 40");
  EXPECT_FALSE(none.virtualSize || none.residentSize || none.diskRead || none.diskWritten ||
               none.priority || none.band || none.limit || none.jetsamState || none.sandboxed ||
               none.codeSigningFlags || none.applicationState || none.threads);
  const ChangeProcess change = actionOf<ChangeProcess>(
      "do = \"change\"\nprocess = \"twin\"\nvirtual = \"1K\"\nresident = 2\ndisk-read = 3\n"
      "disk-written = 4\nband = 6\nlimit = -1\njetsam-state = 7\nsandbox = \"unknown\"\n"
      "signing = [\"valid\"]\napplication-state = \"no-ui\"\nthreads = [{ share = 10 }, {}]");
  EXPECT_EQ(change.pid, 40);
  EXPECT_EQ(change.virtualSize, 1024u);
  EXPECT_EQ(change.residentSize, 2u);
  EXPECT_EQ(change.diskRead, 3u);
  EXPECT_EQ(change.diskWritten, 4u);
  EXPECT_EQ(change.band, 6);
  EXPECT_EQ(change.limit, -1);
  EXPECT_EQ(change.jetsamState, 7u);
  EXPECT_EQ(change.sandboxed, -1);
  EXPECT_EQ(change.codeSigningFlags, 1u);
  EXPECT_EQ(change.applicationState, 3);
  ASSERT_TRUE(change.threads.has_value());
  ASSERT_EQ(change.threads->size(), 2u);
  EXPECT_EQ(change.threads->at(0).userTime.growth, 80'000'000'000'000);
  // As the process has them.
  EXPECT_EQ(change.threads->at(1).priority, 20);
  EXPECT_EQ(change.threads->at(1).policy, darwin::POLICY_FIFO);
  EXPECT_EQ(actionOf<ChangeProcess>("do = \"change\"\nprocess = 40\npriority = 5\nthreads = 1")
                .threads->at(0)
                .priority,
            5);
}

TEST(DeviceFileEvent, OpenAndClose) {
  const OpenDescriptor open = actionOf<OpenDescriptor>(
      "do = \"open\"\nprocess = \"twin\"\n"
      "descriptor = { type = \"file\", path = \"/{pid}\" }");
  EXPECT_EQ(open.pid, 40);
  EXPECT_EQ(open.descriptor.number, -1);
  EXPECT_EQ(std::get<File>(open.descriptor.object).path, "/{pid}");
  const CloseDescriptor close =
      actionOf<CloseDescriptor>("do = \"close\"\nprocess = 40\nnumber = 3");
  EXPECT_EQ(close.pid, 40);
  EXPECT_EQ(close.number, 3);
}

TEST(DeviceFileEvent, Pressure) {
  const RaisePressure none = actionOf<RaisePressure>("do = \"pressure\"");
  EXPECT_EQ(none.wantedPages, 0u);
  EXPECT_EQ(none.reclaimedPages, 0u);
  EXPECT_FALSE(none.level.has_value());
  const RaisePressure pressure =
      actionOf<RaisePressure>("do = \"pressure\"\nwanted = 5\nreclaimed = 4\nlevel = 31");
  EXPECT_EQ(pressure.wantedPages, 5u);
  EXPECT_EQ(pressure.reclaimedPages, 4u);
  EXPECT_EQ(pressure.level, 31u);
}

TEST(DeviceFileEvent, PowerChange) {
  const ChangePower change = actionOf<ChangePower>(
      "do = \"power\"\nsource = 1\ncapacity = 5\nstate = \"AC Power\"\ncharging = true\n"
      "remaining = \"unlimited\"");
  EXPECT_EQ(change.source, 1u);
  EXPECT_EQ(change.capacity, 5);
  EXPECT_EQ(change.state, "AC Power");
  EXPECT_EQ(change.isCharging, true);
  EXPECT_EQ(change.secondsRemaining, -2);
  const ChangePower remaining = actionOf<ChangePower>("do = \"power\"\nremaining = 60");
  EXPECT_EQ(remaining.source, 0u);
  EXPECT_EQ(remaining.secondsRemaining, 60);
  EXPECT_FALSE(remaining.capacity || remaining.state || remaining.isCharging);
}

TEST(DeviceFileEvent, Fail) {
  const FailCall any = actionOf<FailCall>("do = \"fail\"\ncall = \"host_info\"");
  EXPECT_EQ(any.call, "host_info");
  EXPECT_EQ(any.form, "");
  EXPECT_FALSE(any.pid.has_value());
  EXPECT_EQ(any.error, 5);
  const FailCall one = actionOf<FailCall>(
      "do = \"fail\"\ncall = \"proc_pidinfo\"\nform = \"PROC_PIDTASKALLINFO\"\n"
      "process = \"twin\"\nerror = \"EOPNOTSUPP\"");
  EXPECT_EQ(one.form, "PROC_PIDTASKALLINFO");
  EXPECT_EQ(one.pid, 40);
  EXPECT_EQ(one.error, 102);
}

TEST(DeviceFileEvent, AProcessThatStartsLaterCanBeNamed) {
  const Device device = deviceOf(
      "[[process]]\nname = \"launchd\"\n[[event]]\ndo = \"stop\"\nprocess = \"new\"\n"
      "[[event]]\ndo = \"start\"\nname = \"new\"\npid = 9\n"
      "[[event]]\ndo = \"start\"\nat = 5\nname = \"new\"\npid = 9\n");
  EXPECT_EQ(std::get<StopProcess>(device.events[0].action).pid, 9);
}

}  // namespace
