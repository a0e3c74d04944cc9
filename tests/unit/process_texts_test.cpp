#include "inspect/process_texts.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <map>
#include <string>

namespace {

using namespace sondex;

TEST(StatusText, IsTheStatusesWord) {
  const std::map<int32_t, std::string> kWords = {
      {1, "forking"}, {2, "runnable"}, {3, "sleeping"}, {4, "stopped"}, {5, "zombie"}};
  for (int32_t status = -10; status <= 20; status++) {
    const auto word = kWords.find(status);
    EXPECT_EQ(statusToText(status), word != kWords.end() ? word->second : "unknown") << status;
  }
  EXPECT_STREQ(statusToText(INT32_MIN), "unknown");
  EXPECT_STREQ(statusToText(INT32_MAX), "unknown");
}

TEST(RoleText, IsTheRolesWord) {
  const std::map<int32_t, std::string> kWords = {
      {-1, "reniced"}, {0, "unspecified"}, {1, "foreground"}, {2, "background"}, {3, "control"},
      {4, "graphics"}, {5, "throttle"},    {6, "non-UI"},     {7, "default"}};
  for (int32_t role = -10; role <= 20; role++) {
    const auto word = kWords.find(role);
    EXPECT_EQ(policyToText(role), word != kWords.end() ? word->second : "Unknown") << role;
  }
  EXPECT_STREQ(policyToText(INT32_MIN), "Unknown");
  EXPECT_STREQ(policyToText(INT32_MAX), "Unknown");
}

TEST(ThreadFlagsText, TellsTheFlags) {
  const struct {
    uint32_t flags;
    const char *text;
  } kRows[] = {
      {0, ""},
      {1, "swapped "},
      {2, "idle"},
      {3, "swapped idle"},
      {4, "?"},
      {5, "swapped ?"},
      {6, "idle?"},
      {7, "swapped idle?"},
      {8, "?"},
      {0x80000000, "?"},
      {0xFFFFFFFF, "swapped idle?"},
  };
  for (const auto &row : kRows) EXPECT_STREQ(print_thread_flags(row.flags), row.text) << row.flags;
}

TEST(ThreadFlagsText, StandsInOneBuffer) {
  const char *text = print_thread_flags(3);
  EXPECT_EQ(print_thread_flags(0), text);
  EXPECT_STREQ(text, "");
}

// Beside the word size; every other bit has no text.
const std::map<uint32_t, std::string> kFlagTexts = {
    {0x1, "system"},
    {0x2, "traced"},
    {0x4, "exiting"},
    {0x8, "ppwait"},
    {0x20, "session leader"},
    {0x40, "has control tty"},
    {0x80, "has controlling terminal"},
    {0x100, "thcwd"},
    {0x200, "may throttle"},
    {0x400, "may suspend"},
    {0x800, "is throttled"},
    {0x1000, "is suspended"},
    {0x2000, "has set[ug]id"},
    {0x4000, "called exec"},
    {0x8000, "DarwinBG"},
    {0x10000, "Ext DarwinBG"},
    {0x20000, "Daemon"},
    {0x100000, "Adaptive"},
    {0x200000, "Important"},
    {0x400000, "Donor"},
    {0x800000, "Supp"},
    {0x1000000, "App"},
};

TEST(ProcessFlagsText, OfOneFlagIsItsTextBehindTheWordSize) {
  for (uint32_t bit = 1; bit != 0; bit <<= 1) {
    if (bit == 0x10) continue;
    SCOPED_TRACE(bit);
    const auto text = kFlagTexts.find(bit);
    const std::string behind = text != kFlagTexts.end() ? "," + text->second : "";
    EXPECT_EQ(print_flags(bit), std::string("32-bit").append(behind));
    EXPECT_EQ(print_flags(bit | 0x10), std::string("64-bit").append(behind));
  }
}

TEST(ProcessFlagsText, IsNeverEmpty) {
  EXPECT_STREQ(print_flags(0), "32-bit");
  EXPECT_STREQ(print_flags(0x10), "64-bit");
  // None of these has a text.
  EXPECT_STREQ(print_flags(0xFE0C0000), "32-bit");
}

TEST(ProcessFlagsText, KeepsItsOrderWhateverTheNumbersAre) {
  EXPECT_STREQ(print_flags(0x11), "64-bit,system");
  EXPECT_STREQ(print_flags(0x400F), "32-bit,system,traced,exiting,called exec,ppwait");
  EXPECT_STREQ(print_flags(0x26E0),
               "32-bit,session leader,has control tty,has controlling terminal,has set[ug]id,"
               "may throttle,may suspend");
  EXPECT_STREQ(print_flags(0x38010), "64-bit,DarwinBG,Ext DarwinBG,Daemon");
  EXPECT_STREQ(print_flags(0x1F20000), "32-bit,Daemon,App,Adaptive,Important,Donor,Supp");
  EXPECT_STREQ(print_flags(0x3800), "32-bit,has set[ug]id,is throttled,is suspended");
}

TEST(ProcessFlagsText, OfOneFlagHasNoComma) {
  EXPECT_STREQ(print_flags(0x110), "64-bit,thcwd");
  EXPECT_STREQ(print_flags(0x2100), "32-bit,thcwdhas set[ug]id");
  EXPECT_STREQ(print_flags(0x180), "32-bit,has controlling terminal,thcwd");
}

TEST(ProcessFlagsText, OfAllFlagsIsCutAtTheBuffersEnd) {
  const std::string whole =
      "64-bit,system,traced,exiting,called exec,ppwait,session leader,has control tty,"
      "has controlling terminal,thcwdhas set[ug]id,may throttle,may suspend,is throttled,"
      "is suspended,DarwinBG,Ext DarwinBG,Daemon,App,Adaptive,Important,Donor,Supp,";
  ASSERT_GT(whole.size(), 180u);
  EXPECT_EQ(print_flags(0xFFFFFFFF), whole.substr(0, 179));
}

TEST(ProcessFlagsText, CutRightBehindACommaLosesThatComma) {
  const std::string whole =
      "64-bit,called exec,ppwait,has control tty,has controlling terminal,thcwdhas set[ug]id,"
      "may throttle,may suspend,is throttled,is suspended,DarwinBG,Ext DarwinBG,Daemon,App,"
      "Adaptive,Important,Donor,Supp,";
  ASSERT_EQ(whole[178], ',') << "the last byte that the buffer holds";
  EXPECT_EQ(print_flags(0x1F3FFD8), whole.substr(0, 178));
}

TEST(ProcessFlagsText, StandsInOneBuffer) {
  const char *text = print_flags(0x11);
  EXPECT_EQ(print_flags(0), text);
  EXPECT_STREQ(text, "32-bit");
}

}  // namespace
