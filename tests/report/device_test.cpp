// The choice of the machine by SONDEX_DEVICE: on one that supports nothing, everything ends by
// itself, and where a list of processes is needed it says that there is none.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "harness/run.h"
#include "harness/terminal.h"

namespace test {
namespace {

constexpr char kCanNotContinue[] =
    "Can't continue! Did AAPL add another entitlement?? You might be able to fix this by "
    "re-signing me..\n";

const Environment kNoMachine = {{"SONDEX_DEVICE", "none"}};

std::string describe(const std::vector<std::string> &arguments) {
  std::string text = "sondex";
  for (const std::string &argument : arguments) text += " " + argument;
  return text;
}

class NeedsAList : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(NeedsAList, AndSaysThatThereIsNone) {
  SCOPED_TRACE(describe(GetParam()));
  const Outcome outcome = runSondex(GetParam(), kNoMachine);
  EXPECT_TRUE(outcome.exitedWith(10)) << outcome;
  EXPECT_EQ(outcome.output, "");
  // Above it may stand what the probes of the start met with.
  EXPECT_THAT(withoutNetworkService(outcome.error),
              testing::EndsWith(std::string("proc_listpids: ") + std::strerror(EOPNOTSUPP) + "\n" +
                                kCanNotContinue));
}

std::vector<std::vector<std::string>> everyReport() {
  std::vector<std::vector<std::string>> runs = {
      {"-h"}, {"all"}, {"1"}, {"0"}, {"launchd"}, {"launchd", "ports"}, {"1", "core", "mini"}};
  for (const char *target : {"all", "1"}) {
    for (const char *word : {"net", "fds", "ports", "threads", "regions", "core", "binary", "all",
                             "tree", "nonsense"}) {
      runs.push_back({target, word});
    }
  }
  return runs;
}

std::string nameOf(const testing::TestParamInfo<std::vector<std::string>> &info) {
  std::string name;
  for (const std::string &word : info.param) {
    if (!name.empty()) name += "_";
    for (const char letter : word) name += letter == '-' ? 'H' : letter;
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Device, NeedsAList, testing::ValuesIn(everyReport()), nameOf);

TEST(NoMachine, HasNoPlainList) {
  const Outcome outcome = runSondex({}, {{"SONDEX_DEVICE", "none"}, {"nc", "1"}});
  EXPECT_TRUE(outcome.exitedWith(10)) << outcome;
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(withoutNetworkService(outcome.error), testing::EndsWith(kCanNotContinue));
}

TEST(NoMachine, HasNoScreen) {
  TerminalOptions options;
  options.environment = kNoMachine;
  options.separateError = true;
  Terminal terminal(options);
  const std::optional<Ending> ending = terminal.waitForEnd();
  ASSERT_TRUE(ending.has_value());
  EXPECT_TRUE(ending->exitedWith(10)) << *ending;
  EXPECT_THAT(withoutNetworkService(terminal.standardError()), testing::EndsWith(kCanNotContinue));
  EXPECT_TRUE(sameModes(terminal.modes(), terminal.modesBefore()));
  EXPECT_FALSE(terminal.isOnAlternateScreen());
}

class NeedsNoList : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(NeedsNoList, AndEndsByItself) {
  SCOPED_TRACE(describe(GetParam()));
  const Outcome outcome = runSondex(GetParam(), kNoMachine);
  ASSERT_TRUE(outcome.ending.has_value()) << outcome;
  EXPECT_EQ(outcome.ending->signal, 0) << outcome;
}

INSTANTIATE_TEST_SUITE_P(Device, NeedsNoList,
                         testing::Values(std::vector<std::string>{"gestalt"},
                                         std::vector<std::string>{"monitor"},
                                         std::vector<std::string>{"monitor", "vm"},
                                         std::vector<std::string>{"monitor", "process"}),
                         nameOf);

TEST(UnknownMachine, IsRefused) {
  for (const char *device : {"nonsense", "None", "\x1b[2J"}) {
    SCOPED_TRACE(device);
    const Outcome outcome = runSondex({"-h"}, {{"SONDEX_DEVICE", device}});
    EXPECT_TRUE(outcome.exitedWith(64)) << outcome;
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(outcome.error, testing::StartsWith(std::string("sondex: SONDEX_DEVICE=") + device +
                                                   ": no such device; known: "));
    EXPECT_THAT(outcome.error, testing::EndsWith("none\n"));
  }
}

TEST(EmptyMachineName, IsThisMachine) {
  const Outcome outcome = runSondex({"0", "ports"}, {{"SONDEX_DEVICE", ""}});
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "NOT YET\n");
}

}  // namespace
}  // namespace test
