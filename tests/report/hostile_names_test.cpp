// Names that others chose do not reach a terminal as they are, in whatever they are shown and
// whatever the locale takes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "harness/hostile_device.h"
#include "harness/kept.h"
#include "harness/run.h"

namespace test {
namespace {

using testing::HasSubstr;

std::vector<std::vector<std::string>> runsThatPrintNames() {
  std::vector<std::vector<std::string>> runs = {{}, {"gestalt"}, {"60"}, {"all"}};
  for (const char *word : {"net", "fds", "threads", "regions"}) runs.push_back({"60", word});
  for (const char *word : {"fds", "regions"}) runs.push_back({"all", word});
  return runs;
}

// The text without the colours of regions, which are the program's own.
std::string withoutColours(const std::string &text) {
  static const std::regex colour("\x1b\\[0;[0-9]+m");
  return std::regex_replace(text, colour, "");
}

class HostileNames : public testing::Test {
 protected:
  Outcome run(const std::vector<std::string> &arguments, const char *locale,
              Environment more = {}) const {
    more.emplace_back("LC_ALL", locale);
    if (arguments.empty()) more.emplace_back("nc", "1");
    Outcome outcome = runSondex(arguments, device_.environment(more));
    EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
    outcome.output = withoutColours(outcome.output);
    return outcome;
  }

 private:
  const WrittenDevice device_{hostileDevice()};
};

TEST_F(HostileNames, AreMadeSafeInEveryReport) {
  for (const std::vector<std::string> &arguments : runsThatPrintNames()) {
    const Outcome outcome = run(arguments, "C.UTF-8", {{"ZDEBUG", "1"}});
    EXPECT_EQ(hostileIn(outcome.output + outcome.error), "") << outcome;
    // It escapes what is no good UTF-8, and controls but line feeds.
    const std::string text = asText(outcome);
    EXPECT_EQ(text.find("\\x"), std::string::npos) << text;
  }
}

TEST_F(HostileNames, HaveNoByteBeyondASCIIWhereTheLocaleHasNone) {
  for (const std::vector<std::string> &arguments : runsThatPrintNames()) {
    const Outcome outcome = run(arguments, "C", {{"ZDEBUG", "1"}});
    const std::string text = outcome.output + outcome.error;
    EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char byte) {
      return (byte >= ' ' && byte <= '~') || byte == '\n' || byte == '\t';
    })) << asText(outcome);
  }
}

TEST_F(HostileNames, AreStillShown) {
  const std::string line = "PID: 60 (";
  EXPECT_THAT(run({"all", "fds"}, "C.UTF-8").output, HasSubstr(line + kSafeProcess + ")\n"));
  EXPECT_THAT(run({"all", "fds"}, "C").output, HasSubstr(line + kSafeProcessInASCII + ")\n"));
  EXPECT_THAT(run({}, "C").output, HasSubstr(kSafeProcessInASCII));
  const std::string name = kSafeName;
  const std::string descriptors = run({"60", "fds"}, "C.UTF-8").output;
  for (const char *end : {"/file", "/socket", "/peer"}) {
    EXPECT_THAT(descriptors, HasSubstr("/" + name + "\u011b" + end));
  }
  EXPECT_THAT(descriptors, HasSubstr("Control: " + name));
  EXPECT_THAT(run({"60", "regions"}, "C.UTF-8").output, HasSubstr("/" + name + "\u011b/image"));
  const std::string details = run({"60"}, "C").output;
  EXPECT_THAT(details, HasSubstr("Container: /" + name + "?\?/container\n"));
  EXPECT_THAT(run({"gestalt"}, "C").output, HasSubstr("Name:         \t?[2Jname\n"));
}

}  // namespace
}  // namespace test
