// System call 296 on a machine that answers from fields.
#include <unistd.h>

#include <cstdint>

#include "darwin/syscalls.h"
#include "host/darwin/errors.h"
#include "tests/unit/fake_machine.h"

namespace darwin {
namespace {

class PressedMachine : public fake_machine::FakeMachine {
 public:
  uint32_t wantedPages = 0;
  uint32_t reclaimedPages = 0;
  bool waited = false;
  uint32_t secondsAsked = 0;

  host::Errno memoryPressure(bool waits, uint32_t seconds, uint32_t &wanted,
                             uint32_t &reclaimed) override {
    waited = waits;
    secondsAsked = seconds;
    const host::Errno error = give("memoryPressure", wanted, wantedPages);
    if (error == host::kAnswered) reclaimed = reclaimedPages;
    return error;
  }
};

class PressureMonitor : public fake_machine::MachineTest<PressedMachine> {
 protected:
  static long ask(int waits, int seconds, uint32_t *reclaimed) {
    return syscall(DARWIN_SYS_vm_pressure_monitor, waits, seconds, reclaimed);
  }
};

TEST_F(PressureMonitor, GivesBothCounts) {
  machine.wantedPages = 70;
  machine.reclaimedPages = 80;
  uint32_t reclaimed = 0;
  errno = 6;
  EXPECT_EQ(ask(1, 2, &reclaimed), 70);
  EXPECT_EQ(errno, 6);
  EXPECT_EQ(reclaimed, 80u);
  EXPECT_TRUE(machine.waited);
  EXPECT_EQ(machine.secondsAsked, 2u);
}

TEST_F(PressureMonitor, NeedNotWait) {
  EXPECT_EQ(ask(0, 1, nullptr), 0);
  EXPECT_FALSE(machine.waited);
  EXPECT_EQ(ask(-3, 1, nullptr), 0);
  EXPECT_TRUE(machine.waited);
}

TEST_F(PressureMonitor, NeedNotTellWhatWasReclaimed) {
  machine.wantedPages = 70;
  EXPECT_EQ(ask(1, 1, nullptr), 70);
}

TEST_F(PressureMonitor, MorePagesThanAnAnswerHolds) {
  machine.wantedPages = UINT32_MAX;
  EXPECT_EQ(ask(1, 1, nullptr), INT32_MAX);
}

TEST_F(PressureMonitor, Failures) {
  uint32_t reclaimed = 7;
  for (const host::Errno error : {DARWIN_EINTR, DARWIN_ENOTSUP}) {
    machine.refusal = error;
    EXPECT_EQ(ask(1, 1, &reclaimed), -1);
    EXPECT_EQ(errno, error);
  }
  machine.throws = true;
  EXPECT_EQ(ask(1, 1, &reclaimed), -1);
  EXPECT_EQ(errno, DARWIN_ENOMEM);
  EXPECT_EQ(reclaimed, 7u);
}

}  // namespace
}  // namespace darwin
