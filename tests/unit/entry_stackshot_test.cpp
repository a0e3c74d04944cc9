#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "darwin/stackshot.h"
#include "host/darwin/errors.h"
#include "tests/unit/fake_machine.h"

namespace {

class SnapshotMachine : public fake_machine::FakeMachine {
 public:
  std::vector<uint8_t> shot = {'s', 'h', 'o', 't'};
  pid_t pidAsked = 0;

  // What fails is the snapshot, not the look at the caller before it.
  bool isPrivileged() override { return privileged; }
  host::Errno stackshot(pid_t pid, uint64_t, std::vector<uint8_t> &out) override {
    pidAsked = pid;
    return give("stackshot", out, shot);
  }
};

class EntryStackshot : public fake_machine::MachineTest<SnapshotMachine> {
 protected:
  darwin::stackshot_config_t *config = darwin::stackshot_config_create();
};

TEST_F(EntryStackshot, BelongsToItsConfiguration) {
  ASSERT_NE(config, nullptr);
  EXPECT_EQ(darwin::stackshot_config_set_flags(config, darwin::STACKSHOT_KCDATA_FORMAT), 0);
  ASSERT_EQ(darwin::stackshot_capture_with_config(config), 0);
  EXPECT_EQ(machine.pidAsked, -1);
  ASSERT_EQ(darwin::stackshot_config_get_stackshot_size(config), 4u);
  EXPECT_EQ(std::memcmp(darwin::stackshot_config_get_stackshot_buffer(config), "shot", 4), 0);
  // Full, it takes no other one.
  EXPECT_EQ(darwin::stackshot_capture_with_config(config), darwin::DARWIN_EINVAL);
}

TEST_F(EntryStackshot, IsAbsentBeforeTheCapture) {
  EXPECT_EQ(darwin::stackshot_config_get_stackshot_buffer(config), nullptr);
  EXPECT_EQ(darwin::stackshot_config_get_stackshot_size(config), 0xFFFFFFFFu);
  EXPECT_EQ(darwin::stackshot_config_get_stackshot_buffer(nullptr), nullptr);
  EXPECT_EQ(darwin::stackshot_config_get_stackshot_size(nullptr), 0xFFFFFFFFu);
}

TEST_F(EntryStackshot, WantsAConfiguration) {
  EXPECT_EQ(darwin::stackshot_config_set_pid(nullptr, 1), darwin::DARWIN_EINVAL);
  EXPECT_EQ(darwin::stackshot_config_set_flags(nullptr, 1), darwin::DARWIN_EINVAL);
  EXPECT_EQ(darwin::stackshot_capture_with_config(nullptr), darwin::DARWIN_EINVAL);
}

TEST_F(EntryStackshot, ComesInOneFormatOnly) {
  EXPECT_EQ(darwin::stackshot_capture_with_config(config), darwin::DARWIN_ENOTSUP);
  EXPECT_EQ(darwin::stackshot_config_set_flags(config, ~darwin::STACKSHOT_KCDATA_FORMAT), 0);
  EXPECT_EQ(darwin::stackshot_capture_with_config(config), darwin::DARWIN_ENOTSUP);
}

TEST_F(EntryStackshot, FailureLeavesTheConfigurationEmpty) {
  darwin::stackshot_config_set_flags(config, darwin::STACKSHOT_KCDATA_FORMAT);
  darwin::stackshot_config_set_pid(config, 7);
  machine.throws = true;
  EXPECT_EQ(darwin::stackshot_capture_with_config(config), darwin::DARWIN_ENOMEM);
  EXPECT_EQ(darwin::stackshot_config_get_stackshot_buffer(config), nullptr);
  machine.throws = false;
  EXPECT_EQ(darwin::stackshot_capture_with_config(config), 0);
  EXPECT_EQ(machine.pidAsked, 7);
}

TEST_F(EntryStackshot, RefusalsAreAnsweredAsNumbers) {
  darwin::stackshot_config_set_flags(config, darwin::STACKSHOT_KCDATA_FORMAT);
  machine.privileged = false;
  EXPECT_EQ(darwin::stackshot_capture_with_config(config), darwin::DARWIN_EPERM);
  machine.privileged = true;
  for (const host::Errno refusal :
       {darwin::DARWIN_EINVAL, darwin::DARWIN_EBUSY, darwin::DARWIN_ETIMEDOUT}) {
    machine.refusal = refusal;
    EXPECT_EQ(darwin::stackshot_capture_with_config(config), refusal);
  }
  machine.refusal = host::kAnswered;
  machine.shot.clear();
  EXPECT_EQ(darwin::stackshot_capture_with_config(config), darwin::DARWIN_EINTR) << "no data";
  EXPECT_EQ(darwin::stackshot_config_get_stackshot_buffer(config), nullptr);
}

TEST(EntryStackshotOfNoMachine, IsNotSupported) {
  host::Machine machine;
  std::vector<uint8_t> snapshot;
  EXPECT_EQ(machine.stackshot(1, darwin::STACKSHOT_KCDATA_FORMAT, snapshot),
            darwin::DARWIN_ENOTSUP);
}

}  // namespace
