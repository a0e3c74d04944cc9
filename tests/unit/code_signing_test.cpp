#include "inspect/code_signing.h"

#include <unistd.h>

#include "tests/unit/sampled_machine.h"

namespace {

using sampled::errorOutputOf;
using sampled::SampledTest;
using sondex::isPidSigned;

constexpr int32_t kPid = 123;

using SigningVerdict = SampledTest;

TEST_F(SigningVerdict, FollowsTheFlags) {
  const struct {
    uint32_t flags;
    const char *verdict;
  } kRows[] = {{0, "NO"},          {0x1, "OK"},        {0x2, "AH"},
               {0x3, "AH"},        {0x4, "NO"},        {0xfffffffc, "NO"},
               {0xfffffffd, "OK"}, {0xffffffff, "AH"}, {0x26000301, "OK"}};
  sampled::Process &process = machine.add(kPid, "a");
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.flags);
    process.signing = row.flags;
    EXPECT_STREQ(isPidSigned(kPid), row.verdict);
  }
}

TEST_F(SigningVerdict, IsOpenWhenTheKernelDoesNotSay) {
  EXPECT_EQ(errorOutputOf([] {
              EXPECT_STREQ(isPidSigned(kPid), "??");
              EXPECT_STREQ(isPidSigned(-1), "??");
            }),
            "");
  machine.add(kPid, "a").signing = 1;
  machine.refusals["codeSigningFlags"] = darwin::DARWIN_EPERM;
  EXPECT_STREQ(isPidSigned(kPid), "??");
}

TEST_F(SigningVerdict, OfPidZeroIsNoneWhetherOrNotTheCallSucceeds) {
  EXPECT_STREQ(isPidSigned(0), "--");
  machine.add(getpid(), "self").signing = 1;
  EXPECT_STREQ(isPidSigned(0), "--");
  EXPECT_EQ(machine.timesAsked("codeSigningFlags"), 2u) << "the kernel is asked all the same";
}

}  // namespace
