// The identity report: on a device without the service, and on this machine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <regex>
#include <string>

#include "harness/run.h"

namespace test {
namespace {

constexpr char kUnsupported[] = "Gestalt is only supported on *OS (Blame AAPL for this, not Z)\n";

TEST(GestaltReport, IsUnsupportedWithoutTheService) {
  const Outcome outcome = runSondex({"gestalt"}, {{"SONDEX_DEVICE", "none"}});
  EXPECT_TRUE(outcome.exitedWith(1)) << outcome;
  EXPECT_EQ(outcome.output, kUnsupported);
  EXPECT_THAT(outcome.error,
              testing::StartsWith("Error loading Gestalt: /usr/lib/libMobileGestalt.dylib: "));
}

// A line for each key that the machine has nothing true to say to.
void expectRefusalsOnly(const Outcome &outcome) {
  static const std::regex refusal("Error [0-9]+");
  for (const std::string &line : splitLines(outcome.error)) {
    EXPECT_TRUE(std::regex_match(line, refusal)) << line;
  }
}

TEST(GestaltReport, HasEveryLabelInOrder) {
  const Outcome outcome = runSondex({"gestalt"});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_THAT(outcome.output, testing::StartsWith("Gestalt Details for this OS:\n"));
  static const std::regex screen(
      "Gestalt Details for this OS:\n"
      "\n\tName:         \t[^\n]+"
      "\n\tDevice Type:   \t[^\n]+\\([^\n]+"
      "\\)\n\tOS version:\t[^\n]+ [^\n]+\\([^\n]+"
      "\\)\n\tSerial Number:  [^\n]+"
      "\n\tUDID:           [^\n]+"
      "\n\tChipset:        [^\n]+\\([^\n]+"
      "\\)\n\nMAC Addresses:\n\tWi-Fi MAC:    \t[^\n]+"
      "\n\tEthernet MAC:\t[^\n]+"
      "\n\tBlueTooth MAC:\t[^\n]+"
      "\n");
  EXPECT_TRUE(std::regex_match(outcome.output, screen)) << outcome;
  expectRefusalsOnly(outcome);
}

TEST(GestaltReport, SaysWhatTheKernelSays) {
  const Outcome outcome = runSondex({"gestalt"});
  ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
  utsname own = {};
  ASSERT_EQ(uname(&own), 0);
  EXPECT_THAT(outcome.output,
              testing::HasSubstr(std::string("\n\tName:         \t") + own.nodename + "\n"));
  EXPECT_THAT(outcome.output,
              testing::HasSubstr(std::string("(") + own.release + ")\n\tSerial Number:  "));
  EXPECT_THAT(outcome.output,
              testing::HasSubstr(std::string("(") + own.machine + ")\n\nMAC Addresses:\n"));
}

}  // namespace
}  // namespace test
