#include "main/start_up.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "device/kernel.h"
#include "main/usage.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using sampled::errorOutputOf;
using sampled::SampledMachine;
using sampled::SampledTest;
using sampled::Variable;
using testing::AllOf;
using testing::EndsWith;
using testing::Eq;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

constexpr int32_t kUnchanged = -77;

class KernelVersion : public testing::Test {
 protected:
  // The generation and the compression that a version text gives.
  static std::pair<int32_t, int32_t> noted(const char *version) {
    g_OsVer = kUnchanged;
    store(g_Compression, kUnchanged);
    noteKernelVersion(version);
    return {g_OsVer, load(g_Compression)};
  }

  static std::pair<int32_t, int32_t> pair(int32_t generation, int32_t compression) {
    return {generation, compression};
  }

  DisplayStateGuard guard;
};

TEST_F(KernelVersion, EachKnownBuildHasItsGeneration) {
  const struct {
    const char *build;
    int32_t generation;
    int32_t compression;
  } kRows[] = {{"xnu-24", 9, 1},  {"xnu-20", 8, 0},  {"xnu-27", 10, 1}, {"xnu-32", 11, 1},
               {"xnu-37", 12, 1}, {"xnu-45", 13, 1}, {"xnu-49", 14, 1}, {"xnu-6", 15, 1}};
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.build);
    EXPECT_EQ(noted(row.build), pair(row.generation, row.compression));
    const std::string whole = std::string("Darwin Kernel Version 1.0: Mon; root:") + row.build +
                              "22.10.5~1/RELEASE_ARM64_S5L8960X";
    EXPECT_EQ(noted(whole.c_str()), pair(row.generation, row.compression));
  }
}

TEST_F(KernelVersion, FirstInTheTablesOrderDecides) {
  const char *const kInOrder[] = {"xnu-24", "xnu-20", "xnu-27", "xnu-32",
                                  "xnu-37", "xnu-45", "xnu-49", "xnu-6"};
  const int32_t kGenerations[] = {9, 8, 10, 11, 12, 13, 14, 15};
  for (size_t first = 0; first < 8; first++) {
    for (size_t later = first + 1; later < 8; later++) {
      const std::string text = std::string(kInOrder[later]) + " " + kInOrder[first];
      EXPECT_EQ(noted(text.c_str()).first, kGenerations[first]) << text;
    }
  }
}

TEST_F(KernelVersion, ShortPrefixTakesEveryBuildThatBeginsWithSix) {
  for (const char *text : {"xnu-6", "xnu-6153.142.1~4", "xnu-600", "xnu-69999"})
    EXPECT_EQ(noted(text), pair(15, 1)) << text;
}

TEST_F(KernelVersion, OthersLeaveBothAsTheyAre) {
  for (const char *text : {"", "xnu", "xnu-", "xnu-7195.140.42~4", "xnu-8020.102.3",
                           "xnu-10002.1.13~1", "xnu-10063.141.1", "xnu-11417.101.15~1", "xnu-1",
                           "XNU-24", "nu-24", "xnu 24", "Linux version 6.1.0 (gcc-12)"})
    EXPECT_EQ(noted(text), pair(kUnchanged, kUnchanged)) << text;
}

TEST_F(KernelVersion, IsZeroAndCompressingUntilNoted) {
  EXPECT_EQ(g_OsVer, 0);
  EXPECT_EQ(load(g_Compression), 1);
  noteKernelVersion("root:xnu-10002.1.13~1/RELEASE_ARM64_T8030");
  EXPECT_EQ(g_OsVer, 0);
  EXPECT_EQ(load(g_Compression), 1);
}

TEST_F(KernelVersion, CountsWhatSaysARM64) {
  noteKernelVersion("root:xnu-2422/RELEASE_ARM64_T7000");
  EXPECT_EQ(g_isARM64, 1);
  noteKernelVersion("xnu-2422 arm64 RELEASE_ARM_S5L8950X");
  EXPECT_EQ(g_isARM64, 1);
  noteKernelVersion("ARM64");
  EXPECT_EQ(g_isARM64, 2);
}

// What the two usages with a banner end in; the date and time are the build's.
constexpr char kBanner[] =
    "\nThis is Z's Sondex v2 \\(TLV\\), compiled on "
    "(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 0-3][0-9] [0-9]{4}, "
    "[0-9]{2}:[0-9]{2}:[0-9]{2}\n";

constexpr char kUsage[] =
    "Usage: prog \\[pid\\|processname\\|all\\] "
    "\\[binary\\|core\\|fds\\|ports\\|net\\|tree\\|threads\\|regions\\|all\\]\n"
    "           or\n"
    "       prog monitor  \\[vm\\|process\\]\n";

constexpr char kReportWords[] =
    "Usage: prog [pid] [binary|core|fds|ports|net|tree|threads|regions|all]\n"
    "           or\n"
    "       prog vmmon\n";

TEST(UsageText, OfTheCommandHasAllShapesAndTheBanner) {
  EXPECT_THAT(errorOutputOf([] { printUsage("prog"); }),
              MatchesRegex(std::string(kUsage) + kBanner));
}

TEST(UsageText, OfAReportHasTheBannerToo) {
  EXPECT_THAT(errorOutputOf([] { printReportUsage("prog"); }),
              MatchesRegex(std::string("Usage: prog \\[pid\\|all\\] "
                                       "\\[core\\|fds\\|ports\\|net\\|tree\\|threads\\|regions\\|"
                                       "all\\]\n           or\n       prog vmmon\n") +
                           kBanner));
}

TEST(UsageText, OfUnknownReportWordsHasNoBanner) {
  EXPECT_EQ(errorOutputOf([] { printReportWords("prog"); }), kReportWords);
}

// What a sample of the machine below writes: its list ends in PID -1.
const std::string kSampled = "proc_pidinfo: No such process\n";

// Whether a child waits as long as a user does.
bool g_wholePause = false;
// Whether it has the variable that asks for plain output.
bool g_plainVariable = true;

class Program : public SampledTest {
 protected:
  Program() : self(std::to_string(getpid())) {
    machine.name = {"Darwin", "iPhone", "19.6.0", "xnu-6153.142.1~4/RELEASE_ARM64_T8010", "iPhone"};
    machine.add(901, "alpha").info.ptinfo.pti_threadnum = 0;
    sampled::Process &busy = machine.add(902, "busy");
    SampledMachine::addThread(busy, 0x7000, 500);
    machine.add(903, "");
    machine.add(904, "twin");
    machine.add(905, "Twin");
    machine.add(getpid(), "itself");
  }

  // Runs the program in a dying child, with standard output where standard error goes.
  [[noreturn]] static void run(const std::vector<std::string> &words) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    if (g_plainVariable) setenv("nc", "1", 1);
    if (!g_wholePause) cutPausesShort();
    std::vector<char *> arguments = {const_cast<char *>("prog")};
    for (const std::string &word : words) arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    std::exit(runProgram(static_cast<int>(arguments.size()) - 1, arguments.data()));
  }

  // A pause ends when a signal comes.
  static void cutPausesShort() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often = {{0, 10000}, {0, 10000}};
    setitimer(ITIMER_REAL, &often, nullptr);
  }

  static void becomeNobody() {
    if (getuid() == 0 && (setgroups(0, nullptr) != 0 || setuid(65534) != 0)) std::abort();
    // Otherwise a leak checker could not look into this process.
    prctl(PR_SET_DUMPABLE, 1, 0, 0, 0);
  }

  Variable plain{"nc", nullptr};
  Variable debug{"ZDEBUG", nullptr};
  Variable color{"ZCOLOR", nullptr};
  std::string self;
};

using ProgramDeathTest = Program;

TEST_F(ProgramDeathTest, HelpIsTheUsageAndNoFailure) {
  EXPECT_EXIT(run({"-h"}), ExitedWithCode(0), MatchesRegex(kSampled + kUsage + kBanner));
}

TEST_F(ProgramDeathTest, NumberOfNoProcessIsSaidAndNoFailure) {
  EXPECT_EXIT(run({"2147483647"}), ExitedWithCode(0),
              Eq(kSampled + "2147483647: No such process!\n"));
  EXPECT_EXIT(run({"2147483647", "bogus"}), ExitedWithCode(0),
              Eq(kSampled + "2147483647: No such process!\n"));
  EXPECT_EXIT(run({"-5"}), ExitedWithCode(0), Eq(kSampled + "-5: No such process!\n"));
}

TEST_F(ProgramDeathTest, UnknownReportWordIsFive) {
  EXPECT_EXIT(run({self, "bogus"}), ExitedWithCode(5), Eq(kSampled + kReportWords));
  EXPECT_EXIT(run({self, ""}), ExitedWithCode(5), Eq(kSampled + kReportWords));
  EXPECT_EXIT(run({"all", "bogus"}), ExitedWithCode(5), Eq(kSampled + kReportWords));
}

TEST_F(ProgramDeathTest, UnknownReportWordOfAFoundNameIsFive) {
  EXPECT_EXIT(run({"ITSELF", "x"}), ExitedWithCode(5), Eq(kSampled + kReportWords));
}

TEST_F(ProgramDeathTest, NameOfNoProcessIsOne) {
  if (getuid() != 0) GTEST_SKIP() << "root's message";
  EXPECT_EXIT(run({"nosuch"}), ExitedWithCode(1),
              Eq(kSampled + "Can't find process matching 'nosuch'\n"));
}

TEST_F(ProgramDeathTest, NameOfNoProcessHintsAtTheMissingRights) {
  EXPECT_EXIT(
      {
        becomeNobody();
        run({"nosuch"});
      },
      ExitedWithCode(1),
      Eq(kSampled + "Can't find process matching 'nosuch' (also, you're not root, so maybe that's "
                    "why?)\n"));
}

TEST_F(ProgramDeathTest, LongNameOfNoProcessIsSaidWhole) {
  const std::string name(600, 'z');
  EXPECT_EXIT(run({name}), ExitedWithCode(1),
              HasSubstr("Can't find process matching '" + name + "'"));
}

TEST_F(ProgramDeathTest, NameOfSeveralProcessesIsTwo) {
  EXPECT_EXIT(run({"twin"}), ExitedWithCode(2),
              Eq(kSampled + "There are multiple matches for 'twin' - 904, 905\n"));
}

TEST_F(ProgramDeathTest, NothingListedIsTen) {
  machine.refusals["processIDs"] = darwin::DARWIN_EPERM;
  const char *const kMessage =
      "proc_listpids: Operation not permitted\n"
      "Can't continue! Did AAPL add another entitlement?? You might be able to fix this by "
      "re-signing me..\n";
  EXPECT_EXIT(run({}), ExitedWithCode(10), Eq(kMessage));
  EXPECT_EXIT(run({"-h"}), ExitedWithCode(10), Eq(kMessage));
}

TEST_F(ProgramDeathTest, NumberIsWhatTheArgumentBeginsWith) {
  const auto taken = [this](const std::string &argument) {
    return Eq(kSampled + "'" + argument + "' is taken as process " + self + "\nNOT YET\n");
  };
  EXPECT_EXIT(run({self + "abc", "ports"}), ExitedWithCode(0), taken(self + "abc"));
  EXPECT_EXIT(run({self + " 1", "ports"}), ExitedWithCode(0), taken(self + " 1"));
  EXPECT_EXIT(run({self + "\x1b[2J", "ports"}), ExitedWithCode(0), taken(self + "?[2J"));
  EXPECT_EXIT(run({"99999999999"}), ExitedWithCode(0),
              Eq(kSampled + "'99999999999' is taken as process 2147483647\n"
                            "2147483647: No such process!\n"));
  EXPECT_EXIT(run({" +" + self, "ports"}), ExitedWithCode(0), Eq(kSampled + "NOT YET\n"));
}

TEST_F(ProgramDeathTest, TargetZeroIsANumber) {
  machine.add(0, "kernel_task");
  EXPECT_EXIT(run({"0", "ports"}), ExitedWithCode(0), Eq(kSampled + "NOT YET\n"));
}

TEST_F(ProgramDeathTest, TreeIsAWordThatPrintsNothing) {
  EXPECT_EXIT(run({self, "tree"}), ExitedWithCode(0), Eq(kSampled));
  EXPECT_EXIT(run({"all", "tree"}), ExitedWithCode(0), Eq(kSampled));
}

TEST_F(ProgramDeathTest, ReportOfAllIsSortedAndPassesOverEmptyNames) {
  machine.pids.pop_back();
  EXPECT_EXIT(run({"all", "ports"}), ExitedWithCode(0),
              Eq(kSampled + "PID: 902 (busy)\nNOT YET\n"
                            "PID: 901 (alpha)\nNOT YET\n"
                            "PID: 904 (twin)\nNOT YET\n"
                            "PID: 905 (Twin)\nNOT YET\n"));
}

TEST_F(ProgramDeathTest, CoreOfAllFailsAndSaysSo) {
  EXPECT_EXIT(run({"all", "core"}), ExitedWithCode(-5 & 0xff),
              EndsWith("Core dump of process -1 failed\n"));
}

// At the end of the child, what the probes and the choice of the display left behind.
void describeState() {
  std::fprintf(stderr, "color %d, curses %d, node %s, ARM64 %d, generation %d, root %d, %s, %s\n",
               load(g_Color), load(wantCurses), g_hostName != nullptr ? g_hostName : "-", g_isARM64,
               g_OsVer, g_r00t, proc_pid_rusage_funcptr != nullptr ? "usage" : "no usage",
               memorystatus_get_level_funcptr != nullptr ? "level" : "no level");
}

TEST_F(ProgramDeathTest, ProbesTheSystem) {
  if (geteuid() != 0) GTEST_SKIP() << "root's state";
  const auto runAndTell = [this] {
    std::atexit(describeState);
    run({self, "tree"});
  };
  EXPECT_EXIT(runAndTell(), ExitedWithCode(0),
              Eq(kSampled + "color 0, curses 0, node iPhone, ARM64 1, generation 15, root 1, "
                            "usage, level\n"));
  machine.entryPoints = false;
  machine.name.version = "xnu-10002";
  EXPECT_EXIT(runAndTell(), ExitedWithCode(0),
              Eq(kSampled + "color 0, curses 0, node iPhone, ARM64 0, generation 0, root 1, "
                            "no usage, no level\n"));
}

TEST_F(ProgramDeathTest, ColorOfReportsIsAskedForByVariable) {
  EXPECT_EXIT(
      {
        setenv("ZCOLOR", "1", 1);
        std::atexit(describeState);
        run({self, "tree"});
      },
      ExitedWithCode(0), HasSubstr("color 1, curses 0,"));
}

// How long the program takes when a pause is not cut short.
std::chrono::steady_clock::duration wholePauseOf(const std::function<void()> &statement) {
  const auto begin = std::chrono::steady_clock::now();
  g_wholePause = true;
  statement();
  g_wholePause = false;
  return std::chrono::steady_clock::now() - begin;
}

TEST_F(ProgramDeathTest, ReportWithAWordPausesForASecondFirst) {
  g_plainVariable = false;
  const auto taken = wholePauseOf([this] {
    EXPECT_EXIT(run({self, "tree"}), ExitedWithCode(0), Eq(kSampled));
  });
  g_plainVariable = true;
  EXPECT_GE(taken, std::chrono::seconds(1));
}

TEST_F(ProgramDeathTest, PlainOutputPausesForASecondFirst) {
  const auto taken = wholePauseOf(
      [this] { EXPECT_EXIT(run({"gestalt"}), ExitedWithCode(0), StartsWith("Gestalt ")); });
  EXPECT_GE(taken, std::chrono::seconds(1));
}

// Tells whether somebody wanted the network statistics.
class WantedMachine : public SampledMachine {
 public:
  static inline std::atomic<bool> wanted{false};

  host::Errno networkStatistics() override {
    wanted.store(true);
    return darwin::DARWIN_ENOTSUP;
  }
};

void tellWhetherWanted() {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!WantedMachine::wanted.load() && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  std::fputs(WantedMachine::wanted.load() ? "<wanted>" : "<not wanted>", stderr);
}

TEST_F(ProgramDeathTest, ThreadsAreStartedForATargetAlone) {
  EXPECT_EXIT(
      {
        g_plainVariable = false;
        WantedMachine wanting;
        wanting.add(getppid(), "parent");
        host::useMachine(&wanting);
        std::atexit(tellWhetherWanted);
        run({"all"});
      },
      ExitedWithCode(0), HasSubstr("<wanted>"));
}

TEST_F(ProgramDeathTest, IdentityIsShownWithoutASample) {
  EXPECT_EXIT(run({"gestalt"}), ExitedWithCode(0),
              AllOf(StartsWith("Gestalt Details for this OS:\n\n\tName:         \t[Com]\n"),
                    EndsWith("\n\tBlueTooth MAC:\t[Blu]\n")));
}

TEST_F(ProgramDeathTest, IdentityServiceThatRefusesIsAService) {
  machine.refusals["gestaltAnswer"] = 5;
  EXPECT_EXIT(run({"gestalt"}), ExitedWithCode(0),
              AllOf(StartsWith("Error 5\nError 5\n"), HasSubstr("\tDevice Type:   \t?(?)\n")));
}

TEST_F(ProgramDeathTest, IdentityNeedsItsService) {
  machine.gestalt = false;
  EXPECT_EXIT(
      run({"gestalt"}), ExitedWithCode(1),
      MatchesRegex("Error loading Gestalt: [^\n]+\n"
                   "Gestalt is only supported on \\*OS \\(Blame AAPL for this, not Z\\)\n"));
}

TEST_F(ProgramDeathTest, PlainListIsPrintedOnce) {
  EXPECT_EXIT(run({}), ExitedWithCode(0),
              AllOf(HasSubstr(" processes\n"), HasSubstr("alpha"), HasSubstr("busy"),
                    Not(MatchesRegex("(.|\n)*alpha(.|\n)*alpha(.|\n)*"))));
}

}  // namespace
