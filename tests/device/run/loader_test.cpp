// The loader as a whole, with small programs built for the device: what they say, and with what
// they end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <string>

#include "harness/run.h"

namespace test {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

// No path, so that the name of the program is the same everywhere.
Outcome runSample(const std::string &name, const std::vector<std::string> &arguments = {},
                  const Environment &environment = {}) {
  Launch launch;
  launch.program = SAMPLES "/" + name;
  launch.arguments = arguments;
  launch.environment = environment;
  return run(launch);
}

// Made and removed by whoever is given it.
std::string scratchPath(const std::string &name) {
  return testing::TempDir() + "device-loader-" + name + "-" + std::to_string(getpid());
}

class Sample : public testing::TestWithParam<std::string> {
 protected:
  std::string named(const std::string &name) const { return name + "-" + GetParam(); }
};

INSTANTIATE_TEST_SUITE_P(OfEachForm, Sample, testing::Values("13.0", "14.0"),
                         [](const auto &of) { return of.param[1] == '3' ? "Old" : "New"; });

TEST_P(Sample, HasItsPointersSet) {
  const Outcome outcome = runSample(named("pointers"), {"first", "last"});
  EXPECT_TRUE(outcome.exitedWith(7)) << outcome;
  EXPECT_EQ(outcome.output,
            "own text, text, constant text\n"
            "4 1\n"
            "8\n"
            "initialised 12, arguments 1\n"
            "many 3001\n"
            "missing 1\n"
            "zeros 40000\n"
            "away 1\n"
            "3 first last\n"
            "environment 1\n"
            "executable_path=\n");
  EXPECT_EQ(outcome.error, "");
}

TEST_P(Sample, CallsAsTheNativeOne) {
  const Environment zone = {{"TZ", "EST5EDT"}};
  const Outcome native = runSample("calls", {scratchPath("native")}, zone);
  const Outcome device = runSample(named("calls"), {scratchPath(GetParam())}, zone);
  EXPECT_TRUE(native.exitedWith(3)) << native;
  EXPECT_TRUE(device.exitedWith(3)) << device;
  EXPECT_THAT(native.output, HasSubstr("at exit\n"));
  EXPECT_EQ(device.output, native.output);
  EXPECT_EQ(device.error, native.error);
}

TEST_P(Sample, ThatMissesSymbolsIsNotStarted) {
  const Outcome outcome = runSample(named("missing"));
  EXPECT_TRUE(outcome.exitedWith(65)) << outcome;
  EXPECT_EQ(outcome.output, "");
  EXPECT_THAT(outcome.error,
              HasSubstr("nothing here binds _first_of_nowhere _second_of_nowhere\n"));
}

TEST_P(Sample, ThatCrashesSaysWhere) {
  const Outcome outcome = runSample(named("crash"));
  ASSERT_TRUE(outcome.ending.has_value()) << outcome;
  EXPECT_EQ(outcome.ending->signal, SIGSEGV) << outcome;
  EXPECT_EQ(outcome.output, "6\n");
  // An address of the code, as the executable is linked.
  EXPECT_THAT(outcome.error, ContainsRegex("device-loader: signal 11\n  at 0x10000[0-9a-f]{4}\n"));
}

TEST(Loader, RefusesWhatIsNoExecutable) {
  const Outcome outcome = runSample("text");
  EXPECT_TRUE(outcome.exitedWith(65)) << outcome;
  EXPECT_THAT(outcome.error, HasSubstr("nowhere.tbd: not a 64-bit Mach-O file\n"));
}

TEST(Loader, RefusesWhatIsNotThere) {
  const Outcome outcome = runSample("nothing");
  EXPECT_TRUE(outcome.exitedWith(65)) << outcome;
  EXPECT_THAT(outcome.error, HasSubstr("nothing.macho: No such file or directory\n"));
}

}  // namespace
}  // namespace test
