// The texts of /proc/PID/task/TID/syscall.
#include "host/linux/blocked_call.h"

#include <gtest/gtest.h>

#include <string>

namespace host::linux_machine {
namespace {

TEST(BlockedCall, OfASystemCall) {
  BlockedCall call{};
  ASSERT_TRUE(parseBlockedCall(
      "230 0x1 0x2 0x3 0xfffffffffffffffc 0x0 0x6 0x7ffc11aeeb38 0x7fa91643f503\n", call));
  EXPECT_TRUE(call.isInCall);
  EXPECT_EQ(call.number, 230);
  EXPECT_EQ(call.arguments, (std::array<uint64_t, 6>{1, 2, 3, 0xfffffffffffffffc, 0, 6}));
  EXPECT_EQ(call.stackPointer, 0x7ffc11aeeb38u);
  EXPECT_EQ(call.programCounter, 0x7fa91643f503u);
}

TEST(BlockedCall, OfAnotherWait) {
  BlockedCall call{};
  ASSERT_TRUE(parseBlockedCall("-1 0x7ffc11aeeb38 0x7fa91643f503\n", call));
  EXPECT_FALSE(call.isInCall);
  EXPECT_EQ(call.number, 0);
  EXPECT_EQ(call.stackPointer, 0x7ffc11aeeb38u);
  EXPECT_EQ(call.programCounter, 0x7fa91643f503u);
}

TEST(BlockedCall, OfARunningThreadThereIsNone) {
  BlockedCall call{};
  call.number = 5;
  EXPECT_FALSE(parseBlockedCall("running\n", call));
  EXPECT_EQ(call.number, 5) << "left alone";
}

TEST(BlockedCall, OddTextsAreRefused) {
  for (const char *text :
       {"", "\n", "230", "-1", "-1 0x1", "-1 1 2", "-1 0x1 0x2 0x3", "-1 0x1 0xg", "-1 0x 0x1",
        "230 0x1 0x2 0x3 0x4 0x5 0x6 0x7", "230 0x1 0x2 0x3 0x4 0x5 0x6 0x7 0x8 0x9",
        "99999999999999999999 0x1 0x2 0x3 0x4 0x5 0x6 0x7 0x8", "-1 0x11112222333344445 0x1",
        "-1 -0x1 0x1", "-1 0x-1 0x1"}) {
    BlockedCall call{};
    EXPECT_FALSE(parseBlockedCall(text, call)) << text;
  }
}

}  // namespace
}  // namespace host::linux_machine
