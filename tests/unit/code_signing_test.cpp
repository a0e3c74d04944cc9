#include "inspect/code_signing.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <string>
#include <vector>

#include "host/darwin/errors.h"
#include "tests/unit/entry_machine.h"
#include "tests/unit/sampled_machine.h"

namespace {

using sampled::errorOutputOf;
using sampled::kPid;
using sampled::SampledTest;
using sondex::csFlagsToText;
using sondex::getCSBlob;
using sondex::isPidSigned;

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

constexpr char kNoFlags[] = "No flags! (Not code signed *and* allowed execution)\n";
constexpr char kNoAnswer[] = "Error getting code signing flags from csops";

using SigningFlags = SampledTest;

TEST_F(SigningFlags, HaveATextEachOrNone) {
  const std::map<uint32_t, std::string> kTexts = {
      {0x1, "valid"},
      {0x2, "adhoc"},
      {0x4, "get-task-allow"},
      {0x8, "installer"},
      {0x100, "refuse invalid pages"},
      {0x200, "kill if invalidated"},
      {0x400, "check expiration"},
      {0x1000, "require enforcement"},
      {0x2000, "require library validation"},
      {0x100000, "set hard on exec"},
      {0x200000, "set kill on exec"},
  };
  sampled::Process &process = machine.add(kPid, "a");
  for (uint32_t bit = 1; bit != 0; bit <<= 1) {
    const auto text = kTexts.find(bit);
    process.signing = bit;
    EXPECT_EQ(csFlagsToText(kPid), text != kTexts.end() ? text->second : kNoFlags) << bit;
  }
  process.signing = 0;
  EXPECT_STREQ(csFlagsToText(kPid), kNoFlags);
  process.signing = 0xFFCFC8F0;  // every bit without a text
  EXPECT_STREQ(csFlagsToText(kPid), kNoFlags);
}

TEST_F(SigningFlags, StandInOrderWithCommasBetweenThem) {
  const struct {
    uint32_t flags;
    const char *text;
  } kRows[] = {
      {0x3, "valid,adhoc"},
      {0xC, "get-task-allow,installer"},
      {0x26000301, "valid,refuse invalid pages,kill if invalidated"},
      {0x300003, "valid,adhoc,set hard on exec,set kill on exec"},
      {0x3000, "require enforcement,require library validation"},
      {0x500, "refuse invalid pages,check expiration"},
  };
  sampled::Process &process = machine.add(kPid, "a");
  for (const auto &row : kRows) {
    process.signing = row.flags;
    EXPECT_STREQ(csFlagsToText(kPid), row.text) << row.flags;
  }
  process.signing = 1;
  EXPECT_STREQ(csFlagsToText(kPid), "valid") << "each call starts with an empty buffer";
}

TEST_F(SigningFlags, WithoutRoomForAWholeTextAreLeftOut) {
  sampled::Process &process = machine.add(kPid, "a");
  process.signing = 0xFFFFFFFF;
  EXPECT_STREQ(csFlagsToText(kPid),
               "valid,adhoc,get-task-allow,installer,refuse invalid pages,kill if invalidated,"
               "check expiration,require enforcement");
  // The longest text has no room, a later and shorter one has.
  process.signing = 0x33370B;
  EXPECT_STREQ(csFlagsToText(kPid),
               "valid,adhoc,installer,refuse invalid pages,kill if invalidated,check expiration,"
               "require enforcement,set hard on exec");
  // With its last comma 119 bytes, which just fit, and one more.
  process.signing = 0x330D;
  EXPECT_STREQ(csFlagsToText(kPid),
               "valid,get-task-allow,installer,refuse invalid pages,kill if invalidated,"
               "require enforcement,require library validation");
  process.signing = 0x3704;
  EXPECT_STREQ(csFlagsToText(kPid),
               "get-task-allow,refuse invalid pages,kill if invalidated,check expiration,"
               "require enforcement");
}

TEST_F(SigningFlags, OfAProcessThatTheKernelDoesNotTellAboutAreAnError) {
  EXPECT_EQ(errorOutputOf([] { EXPECT_STREQ(csFlagsToText(kPid), kNoAnswer); }), "");
  machine.add(kPid, "a").signing = 1;
  machine.refusals["codeSigningFlags"] = darwin::DARWIN_EPERM;
  EXPECT_STREQ(csFlagsToText(kPid), kNoAnswer);
}

TEST_F(SigningFlags, OfPidZeroAreNoneWhetherOrNotTheCallSucceeds) {
  EXPECT_STREQ(csFlagsToText(0), "--");
  machine.add(getpid(), "self").signing = 1;
  EXPECT_STREQ(csFlagsToText(0), "--");
  EXPECT_EQ(machine.timesAsked("codeSigningFlags"), 2u) << "the kernel is asked all the same";
}

using SigningBlob = entry_test::EntryTest;

TEST_F(SigningBlob, IsReadIntoTheBuffer) {
  machine.signing = 0x1;
  machine.signature = {0xFA, 0xDE, 0x0C, 0xC0, 0, 0, 0, 12, 1, 2, 3, 4};
  std::vector<uint8_t> blob(16, 0x55);
  const size_t size = blob.size();
  EXPECT_EQ(getCSBlob(kPid, blob.data(), &size), 0);
  EXPECT_EQ(size, 16u);
  EXPECT_EQ(std::vector<uint8_t>(blob.begin(), blob.begin() + 12), machine.signature);
  EXPECT_EQ(blob[12], 0x55);
}

TEST_F(SigningBlob, ThatIsTooLongTellsTheLengthNeeded) {
  machine.signing = 0x1;
  machine.signature.assign(300, 0xAB);
  uint8_t blob[10];
  std::fill(std::begin(blob), std::end(blob), uint8_t{0x55});
  const size_t size = 8;
  EXPECT_EQ(getCSBlob(kPid, blob, &size), -1);
  EXPECT_EQ(errno, darwin::DARWIN_ERANGE);
  const uint8_t kNeeded[] = {0, 0, 0, 0, 0, 0, 1, 44};
  EXPECT_TRUE(std::equal(std::begin(kNeeded), std::end(kNeeded), blob));
  EXPECT_EQ(blob[8], 0x55);
}

TEST_F(SigningBlob, OfAProcessThatIsRefusedIsAnError) {
  machine.refusal = darwin::DARWIN_ESRCH;
  uint8_t blob[64];
  const size_t size = sizeof blob;
  EXPECT_EQ(getCSBlob(kPid, blob, &size), -1);
  EXPECT_EQ(errno, darwin::DARWIN_ESRCH);
}

}  // namespace
