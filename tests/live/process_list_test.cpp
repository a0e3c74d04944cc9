// The process list in plain text on this machine's kernel: what it says of processes that the test
// made itself, against what /proc and ps say of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <regex>
#include <sstream>

#include "harness/helper.h"
#include "harness/process_facts.h"
#include "harness/run.h"
#include "live/list_row.h"

namespace test {
namespace {

using testing::AnyOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// A process under test, with what the kernel says before and after the program has run.
struct Watched {
  std::string kind;
  std::string shownName;
  std::unique_ptr<Helper> helper;
  ProcessFacts before;
  ProcessFacts after;
  double secondsBefore = 0;  // since boot, when `before` was taken

  pid_t pid() const { return helper->pid(); }
};

ProcessFacts factsOf(pid_t pid) {
  return readFacts(pid).value_or(ProcessFacts{});
}

Watched watch(const std::string &kind, const std::vector<std::string> &steps,
              const std::string &shownName = "make_process") {
  return {kind, shownName, std::make_unique<Helper>(steps), {}, {}, 0};
}

bool isSettled(const Watched &watched, char state) {
  const ProcessFacts facts = factsOf(watched.pid());
  return facts.state == state;
}

// What needs no privileges.
void addOrdinaryKinds(std::vector<Watched> &watched) {
  watched.push_back(watch("asleep", {}));
  watched.push_back(watch("busy", {"busy", "1"}));
  watched.push_back(watch("three busy threads", {"busy", "3"}));
  watched.push_back(watch("stopped", {"stop"}));
  watched.push_back(watch("10 threads", {"threads", "10"}));
  watched.push_back(watch("120 threads", {"threads", "120"}));
  watched.push_back(watch("512 threads", {"threads", "512"}));
  watched.push_back(watch("50 descriptors", {"fds", "50"}));
  watched.push_back(watch("128 descriptors", {"fds", "128"}));
  watched.push_back(watch("300 descriptors", {"fds", "300"}));
  watched.push_back(watch("little memory", {"memory", "4"}));
  watched.push_back(watch("much memory", {"memory", "200"}));
  watched.push_back(watch("large address space", {"reserve", "9"}));
  watched.push_back(watch("huge address space", {"reserve", "40"}));
  watched.push_back(watch("writer", {"write", "5000000"}));
  watched.push_back(watch("deleted executable", {"deleted", "name", "deleted"}, "deleted"));
  watched.push_back(watch("name with blanks", {"name", "a b) R (c d)"}, "a b) R (c d)"));
  watched.push_back(watch("name with separators", {"name", "a|b|c"}, "a|b|c"));
  watched.push_back(watch("longest name", {"name", "abcdefghijklmno"}, "abcdefghijklmno"));
  watched.push_back(watch("session of its own", {"session"}));
  watched.push_back(watch("nice", {"nice", "7"}));
  watched.push_back(watch("idle scheduler", {"scheduler", "idle"}));
  watched.push_back(watch("easily ended", {"oom", "500"}));
  watched.push_back(watch("first to be ended", {"oom", "1000"}));
  watched.push_back(watch("system-call filter", {"seccomp"}));
}

std::string trimmed(const std::string &text) {
  const size_t start = text.find_first_not_of(" \n");
  return start == std::string::npos ? ""
                                    : text.substr(start, text.find_last_not_of(" \n") + 1 - start);
}

void expectNumber(const std::string &cell, uint64_t expected) {
  EXPECT_EQ(trimmed(cell), std::to_string(expected));
}

// A figure that may move while the program runs: equal where it did not, and of the same form
// between the two where it did.
void expectTime(const std::string &cell, const Watched &watched) {
  if (timeCell(watched.before.processorTicks) == timeCell(watched.after.processorTicks)) {
    EXPECT_EQ(cell, timeCell(watched.before.processorTicks));
    return;
  }
  const std::optional<long> shown = hundredthsOf(cell);
  ASSERT_TRUE(shown.has_value()) << '"' << cell << '"';
  EXPECT_GE(*shown, hundredthsOf(timeCell(watched.before.processorTicks)));
  EXPECT_LE(*shown, hundredthsOf(timeCell(watched.after.processorTicks)));
}

double secondsSinceBoot() {
  timespec sinceBoot{};
  clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
  return static_cast<double>(sinceBoot.tv_sec) + static_cast<double>(sinceBoot.tv_nsec) / 1e9;
}

// What threads that rest can be shown with, in tenths of a percent: each with its share of the time
// from its start to when `facts` were taken, `now`. The start is known to a tick.
int largestRestingShare(const ProcessFacts &facts, double now) {
  const double perSecond = static_cast<double>(sysconf(_SC_CLK_TCK));
  double tenths = 0;
  for (const ThreadFacts &thread : facts.allThreads) {
    const double life = now - static_cast<double>(thread.startTicks + 1) / perSecond;
    const double run = static_cast<double>(thread.runNanoseconds) / 1e9;
    tenths += std::round(1000 * std::min(1.0, run / std::max(life, 1 / perSecond)));
  }
  return static_cast<int>(tenths);
}

// No more than what they did since their start for those who slept. Of the others, at least a part
// of their share over their life: the figure follows what they got lately.
void expectProcessor(const std::string &cell, const Watched &watched, int busyThreads) {
  const std::optional<int> tenths = tenthsOf(cell);
  ASSERT_TRUE(tenths.has_value()) << '"' << cell << '"';
  if (busyThreads == 0) {
    EXPECT_LE(*tenths, largestRestingShare(watched.after, watched.secondsBefore));
    return;
  }
  const uint64_t perSecond = static_cast<uint64_t>(sysconf(_SC_CLK_TCK));
  const uint64_t now = static_cast<uint64_t>(secondsSinceBoot() + 1) * perSecond;
  const uint64_t lifetimeShare =
      1000 * watched.before.processorTicks / (now - watched.before.startTicks);
  EXPECT_GE(*tenths, static_cast<int>(lifetimeShare) / 10);
  EXPECT_GT(*tenths, 0);
  EXPECT_LE(*tenths, busyThreads * 1000);
}

void expectAsTheKernelSays(const Row &row, const Watched &watched) {
  const ProcessFacts &facts = watched.before;
  EXPECT_EQ(row.at(Column::user), userCell(facts.user));
  EXPECT_EQ(row.at(Column::pid), pidCell(watched.pid()));
  EXPECT_EQ(row.at(Column::parent), pidCell(getpid()));
  EXPECT_EQ(row.at(Column::command), commandCell(watched.shownName));
  EXPECT_EQ(row.at(Column::threads), threadsCell(facts.threads, facts.runningThreads));
  EXPECT_EQ(row.at(Column::priority), priorityCell(facts));
  EXPECT_EQ(row.at(Column::virtualSize), virtualCell(facts.virtualBytes));
  EXPECT_THAT(row.at(Column::resident),
              AnyOf(residentCell(facts.residentBytes), residentCell(watched.after.residentBytes)));
  EXPECT_THAT(row.at(Column::read),
              AnyOf(diskCell(facts.readBytes), diskCell(watched.after.readBytes)));
  EXPECT_EQ(row.at(Column::written), diskCell(facts.writtenBytes));
  EXPECT_EQ(row.at(Column::coalition), coalitionCell(facts.session));
  EXPECT_EQ(row.at(Column::status), statusCell(facts));
  EXPECT_EQ(row.at(Column::sandbox), sandboxCell(facts));
  EXPECT_THAT(startTimeCells(facts.startTicks), Contains(row.at(Column::startTime)));
  EXPECT_EQ(row.at(Column::descriptors), descriptorsCell(facts.descriptors));
  EXPECT_EQ(row.at(Column::received), " ---- ");
  EXPECT_EQ(row.at(Column::sent), " ---- ");
  if (isRoot()) {
    EXPECT_EQ(row.at(Column::band), bandCell(facts.oomScore));
    EXPECT_EQ(row.at(Column::limit), limitCell(facts.memoryLimit));
  }
  expectTime(row.at(Column::time), watched);
}

void expectAsPSSays(const Row &row, const Watched &watched) {
  std::istringstream figures(
      askPS(watched.pid(), "uid=,pid=,ppid=,nlwp=,ni=,vsz=,rss=,sess=,stat="));
  uint64_t user = 0;
  uint64_t pid = 0;
  uint64_t parent = 0;
  uint64_t threads = 0;
  std::string nice;
  uint64_t virtualKiB = 0;
  uint64_t residentKiB = 0;
  uint64_t session = 0;
  std::string state;
  figures >> user >> pid >> parent >> threads >> nice >> virtualKiB >> residentKiB >> session >>
      state;
  ASSERT_FALSE(figures.fail()) << figures.str();
  expectNumber(row.at(Column::user), user);
  expectNumber(row.at(Column::pid), pid);
  expectNumber(row.at(Column::parent), parent);
  const std::string &threadText = row.at(Column::threads);
  expectNumber(threadText.substr(0, threadText.find('/')), threads);
  // The real-time process has no nice value.
  if (nice != "-" && watched.kind != "idle scheduler") {
    expectNumber(row.at(Column::priority), static_cast<uint64_t>(31 - std::stoi(nice)));
  }
  EXPECT_EQ(row.at(Column::virtualSize), virtualCell(virtualKiB * 1024));
  // The kernel has an exact and an approximate count of pages; ps may take the other one.
  const double shownKiB = std::stod(row.at(Column::resident)) *
                          (row.at(Column::resident).find('M') != std::string::npos ? 1024 : 1);
  EXPECT_NEAR(shownKiB, static_cast<double>(residentKiB), 2048);
  expectNumber(row.at(Column::coalition), session);
  const char letter = state.substr(0, 1) == "R" ? 'R' : state.substr(0, 1) == "T" ? 'T' : 'S';
  EXPECT_EQ(row.at(Column::status), std::string(" ") + letter + " ");
  EXPECT_EQ(row.at(Column::command), commandCell(trimmed(askPS(watched.pid(), "comm="))));
}

int busyThreadsOf(const std::string &kind) {
  return kind == "busy" ? 1 : kind == "three busy threads" ? 3 : 0;
}

void expectListedAsTheKernelSays(std::vector<Watched> &watched) {
  for (const Watched &process : watched) {
    SCOPED_TRACE(process.kind);
    const int busy = busyThreadsOf(process.kind);
    const char state = busy != 0 ? 'R' : process.kind == "stopped" ? 'T' : 'S';
    // The computing ones have figures to show, the others rest, their threads too.
    ASSERT_TRUE(waitUntil([&] {
      const ProcessFacts facts = factsOf(process.pid());
      return isSettled(process, state) && facts.runningThreads == busy &&
             (busy == 0 || facts.processorTicks > 0);
    }));
  }

  for (Watched &process : watched) {
    process.secondsBefore = secondsSinceBoot();
    process.before = factsOf(process.pid());
  }
  const Outcome outcome = listProcesses();
  for (Watched &process : watched) process.after = factsOf(process.pid());

  ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
  const PlainList list = parseList(outcome.output, isRoot());
  for (const Watched &process : watched) {
    SCOPED_TRACE(process.kind);
    const std::vector<Row> rows = list.rowsOf(process.pid());
    ASSERT_EQ(rows.size(), 1u) << outcome;
    expectAsTheKernelSays(rows[0], process);
    expectAsPSSays(rows[0], process);
    expectProcessor(rows[0].at(Column::processor), process, busyThreadsOf(process.kind));
  }
}

TEST(PlainList, SaysOfEachKindOfProcessWhatTheKernelSays) {
  std::vector<Watched> watched;
  addOrdinaryKinds(watched);
  ASSERT_GE(watched.size(), 20u);
  expectListedAsTheKernelSays(watched);
}

// Root may make these, unless it is confined.
struct KindOfRoot {
  const char *what;
  std::vector<std::string> steps;
};

std::ostream &operator<<(std::ostream &out, const KindOfRoot &kind) {
  return out << kind.what;
}

class PlainListOf : public testing::TestWithParam<KindOfRoot> {};

TEST_P(PlainListOf, SaysWhatTheKernelSays) {
  if (!isRoot()) GTEST_SKIP() << "needs root to make one";
  std::vector<Watched> watched;
  try {
    watched.push_back(watch(GetParam().what, GetParam().steps));
  } catch (const Refused &) {
    GTEST_SKIP() << "root may not make one here";
  }
  if (!mayLookInto(watched[0].pid())) GTEST_SKIP() << kMayNotLook;
  expectListedAsTheKernelSays(watched);
}

INSTANTIATE_TEST_SUITE_P(Root, PlainListOf,
                         testing::Values(KindOfRoot{"OtherUser", {"user", std::to_string(kNobody)}},
                                         KindOfRoot{"Urgent", {"nice", "-11"}},
                                         KindOfRoot{"RealTime", {"scheduler", "fifo"}},
                                         KindOfRoot{"HardlyEnded", {"oom", "-700"}},
                                         KindOfRoot{"UserNamespace", {"user-namespace"}}),
                         testing::PrintToStringParamName());

TEST(PlainList, ShowsTheFiguresThatWereAskedFor) {
  // Independent of what the kernel says: what the helper was told to be.
  const Helper threads({"threads", "17"});
  const Helper descriptors({"fds", "77"});
  const Helper memory({"memory", "300"});
  const Helper session({"session"});
  const Helper score({"oom", "500"});
  const Helper filter({"seccomp"});
  const Outcome outcome = listProcesses();
  const PlainList list = parseList(outcome.output, isRoot());
  const auto cell = [&list](const Helper &helper, Column column) {
    const std::vector<Row> rows = list.rowsOf(helper.pid());
    return rows.size() == 1 ? rows[0].at(column) : "(no row)";
  };
  EXPECT_EQ(cell(threads, Column::threads), "17  ");
  EXPECT_EQ(cell(descriptors, Column::descriptors), "  77");
  EXPECT_THAT(cell(memory, Column::resident), testing::MatchesRegex(" 30[0-9]M"));
  EXPECT_EQ(trimmed(cell(session, Column::coalition)), std::to_string(session.pid()));
  EXPECT_EQ(cell(filter, Column::sandbox), "SB");
  EXPECT_EQ(cell(threads, Column::sandbox), "NO");
  if (isRoot()) {
    EXPECT_EQ(cell(score, Column::band), "5  ");
    EXPECT_EQ(cell(threads, Column::band), bandCell(factsOf(threads.pid()).oomScore));
  }
}

TEST(PlainList, IsPrintedOnceWithEveryProcess) {
  const std::vector<pid_t> before = allProcesses();
  const Outcome outcome = listProcesses();
  ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
  const PlainList list = parseList(outcome.output, isRoot());
  const auto tellsLoad = [](const std::string &line) {
    return line.find("Load Avg:") != std::string::npos;
  };
  EXPECT_EQ(std::count_if(list.header.begin(), list.header.end(), tellsLoad), 1);
  EXPECT_THAT(list.strange, IsEmpty());
  if (!isRoot()) GTEST_SKIP() << "other users' processes are not shown";
  for (const pid_t pid : before) {
    const std::optional<ProcessFacts> facts = readFacts(pid);
    if (!facts) continue;  // gone meanwhile
    EXPECT_EQ(list.rowsOf(pid).size(), 1u) << "PID " << pid << ", " << facts->name;
  }
}

TEST(PlainList, HasAHeader) {
  const size_t before = allProcesses().size();
  const Outcome outcome = listProcesses();
  const size_t after = allProcesses().size();
  const PlainList list = parseList(outcome.output, isRoot());
  ASSERT_GE(list.header.size(), 4u) << outcome;

  std::smatch part;
  const std::regex firstLine(
      ".* [0-9]{2}:[0-9]{2}:[0-9]{2}  Up .* Load Avg:  [0-9]+\\.[0-9]{2} [0-9]+\\.[0-9]{2} "
      "[0-9]+\\.[0-9]{2}\t([0-9]+) processes");
  ASSERT_TRUE(std::regex_match(list.header[0], part, firstLine)) << list.header[0];
  char host[256] = "";
  ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
  EXPECT_THAT(list.header[0], HasSubstr(std::string(host).substr(0, 80) + " "));
  // The list has a spare entry beside the processes, of which sondex itself is one more.
  const double shown = std::stod(part[1]);
  const double lowest = static_cast<double>(std::min(before, after));
  const double highest = static_cast<double>(std::max(before, after));
  // Others' processes come and go in between.
  EXPECT_GE(shown, lowest - 100);
  EXPECT_LE(shown, highest + 100);

  const std::string processors = std::to_string(sysconf(_SC_NPROCESSORS_ONLN));
  EXPECT_THAT(list.header[1], testing::StartsWith("CPU:   " + processors + "/"));
  EXPECT_EQ(list.header[1].find("without being root") != std::string::npos, !isRoot());
  EXPECT_THAT(list.header[2],
              testing::MatchesRegex("RAM:  [ 0-9]{4,}M Free \\+ [ 0-9]{4,}M Used .*purgeable"));
}

TEST(PlainList, IsSortedByProcessorShare) {
  const Helper busy({"busy", "1"});
  const Outcome outcome = listProcesses();
  std::vector<int> shares;
  for (const Row &row : parseList(outcome.output, isRoot()).rows) {
    const std::optional<int> share = tenthsOf(row.at(Column::processor));
    ASSERT_TRUE(share.has_value()) << row.at(Column::processor);
    shares.push_back(*share);
  }
  ASSERT_GE(shares.size(), 2u);
  EXPECT_GT(shares.front(), 0);
  EXPECT_TRUE(std::is_sorted(shares.rbegin(), shares.rend()));
}

struct NameCase {
  const char *what;
  const char *name;
  const char *shown;
};

TEST(PlainList, ShowsNamesThatCanNotDriveATerminal) {
  const NameCase cases[] = {
      {"escape sequence", "\x1b[31mred\x1b[0m", "?[31mred?[0m"},
      {"title", "\x1b]0;title\x07", "?]0;title?"},
      {"newline", "two\nlines", "two?lines"},
      {"carriage return, tab", "a\rb\tc", "a?b?c"},
      {"delete, backspace",
       "a\x7f"
       "b\bc",
       "a?b?c"},
      {"first and last control character", "\x01-\x1f", "?-?"},
      {"control characters of eight bits",
       "\xc2\x9b"
       "31m",
       "??31m"},
      {"UTF-8 of two bytes", "caf\xc3\xa9", "caf\xc3\xa9"},
      {"UTF-8 of three bytes", "\xe6\x97\xa5\xe6\x9c\xac", "\xe6\x97\xa5\xe6\x9c\xac"},
      {"UTF-8 of four bytes", "\xf0\x9f\x8d\x8e", "\xf0\x9f\x8d\x8e"},
      {"UTF-8 cut by the kernel", "abcdefghijklmn\xc3\xa9", "abcdefghijklmn?"},
      {"lone continuation",
       "a\x80"
       "b",
       "a?b"},
      {"first byte without its second",
       "a\xc3"
       "b",
       "a?b"},
      {"too long a form",
       "a\xc0\xaf"
       "b",
       "a??b"},
      {"half of a pair", "\xed\xa0\x80", "???"},
      {"beyond the last character", "\xf4\x90\x80\x80", "????"},
      {"bytes that are none", "\xfe\xff", "??"},
      {"only blanks", "   ", "   "},
  };
  std::vector<std::unique_ptr<Helper>> helpers;
  for (const NameCase &row : cases) {
    helpers.push_back(
        std::make_unique<Helper>(std::vector<std::string>{"name", std::string(row.name)}));
  }
  const Outcome outcome = listProcesses();
  ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
  const PlainList list = parseList(outcome.output, isRoot());
  size_t i = 0;
  for (const NameCase &row : cases) {
    SCOPED_TRACE(row.what);
    const std::vector<Row> rows = list.rowsOf(helpers[i++]->pid());
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].at(Column::command), commandCell(row.shown));
  }
  // Tabs are the program's own: they stand between parts of the header.
  const auto isControl = [](char byte) {
    const unsigned char code = static_cast<unsigned char>(byte);
    return code == 0x7f || (code < 32 && byte != '\n');
  };
  const size_t rowsStart = outcome.output.find("\n" + list.rows.front().at(Column::user) + "|");
  ASSERT_NE(rowsStart, std::string::npos);
  EXPECT_TRUE(std::none_of(outcome.output.begin() + static_cast<std::ptrdiff_t>(rowsStart),
                           outcome.output.end(), isControl));
  EXPECT_TRUE(std::none_of(outcome.output.begin(), outcome.output.end(),
                           [&](char byte) { return byte != '\t' && isControl(byte); }));
}

// The list is sampled once before the arguments are looked at, and once more to be shown.
constexpr size_t kSamples = 2;

// What a zombie has none of any more.
void expectZombie(const Row &row, const Helper &parent) {
  EXPECT_EQ(row.at(Column::status), " Z ");
  EXPECT_EQ(row.at(Column::command), commandCell("make_process"));
  EXPECT_EQ(row.at(Column::parent), pidCell(parent.pid()));
  EXPECT_EQ(row.at(Column::user), userCell(getuid()));
  EXPECT_EQ(row.at(Column::sandbox), "NO");
  EXPECT_EQ(trimmed(row.at(Column::threads)), "0");
  EXPECT_EQ(trimmed(row.at(Column::resident)), "0K");
  EXPECT_EQ(trimmed(row.at(Column::virtualSize)), "0M");
  EXPECT_EQ(trimmed(row.at(Column::descriptors)), "0");
  EXPECT_EQ(trimmed(row.at(Column::processor)), "0.0");
}

TEST(PlainList, ShowsZombies) {
  const Helper parent({"zombies", "7"});
  const Outcome outcome = listProcesses();
  ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
  const PlainList list = parseList(outcome.output, isRoot());
  EXPECT_EQ(list.rowsOf(parent.pid()).size(), 1u);
  ASSERT_EQ(parent.children().size(), 7u);
  for (const pid_t zombie : parent.children()) {
    EXPECT_TRUE(factsOf(zombie).isZombie());
    const std::vector<Row> rows = list.rowsOf(zombie);
    ASSERT_EQ(rows.size(), 1u);
    expectZombie(rows[0], parent);
    EXPECT_THAT(startTimeCells(factsOf(zombie).startTicks),
                Contains(rows[0].at(Column::startTime)));
  }
}

TEST(PlainList, ShowsWhatGoesOnWithoutItsFirstThread) {
  const Helper helper({"fds", "77", "memory", "300", "threads", "17", "lose-first-thread"});
  ASSERT_TRUE(waitUntil([&] { return factsOf(helper.pid()).isZombie(); }));
  const Outcome outcome = listProcesses();
  const std::vector<Row> rows = parseList(outcome.output, isRoot()).rowsOf(helper.pid());
  ASSERT_EQ(rows.size(), 1u) << outcome;
  EXPECT_EQ(rows[0].at(Column::status), " S ");
  EXPECT_EQ(rows[0].at(Column::threads), "18  ");
  EXPECT_EQ(rows[0].at(Column::descriptors), "  77");
  EXPECT_THAT(rows[0].at(Column::resident), testing::MatchesRegex(" 30[0-9]M"));
}

constexpr int kNoSuchNumbers = 77;

// In a world of its own: the helper, what it makes, and sondex, which nothing comes to or goes
// from. Numbers are given from the one after `last` on where it is not empty; kNoSuchNumbers is the
// end where they can't be.
Outcome runInOwnWorld(const std::string &last, const std::vector<std::string> &steps,
                      const std::vector<std::string> &arguments) {
  const std::string begin =
      "if test \"$0\"; then echo \"$0\" >/proc/sys/kernel/ns_last_pid || exit " +
      std::to_string(kNoSuchNumbers) + "; fi; exec \"$@\"";
  Launch launch;
  launch.program = "/usr/bin/unshare";
  launch.arguments = {"--pid", "--fork", "--mount-proc", "/bin/sh",
                      "-c",    begin,    last,           makeProcessPath()};
  launch.arguments.insert(launch.arguments.end(), steps.begin(), steps.end());
  launch.arguments.insert(launch.arguments.end(), {"run", sondexPath()});
  launch.arguments.insert(launch.arguments.end(), arguments.begin(), arguments.end());
  launch.environment = {{"nc", "1"}};
  return run(launch);
}

// In a chroot a namespace is made, and a /proc of its own can't be mounted.
bool isRefusedOwnWorld(const Outcome &outcome) {
  return outcome.error.starts_with("unshare: unshare failed: ") ||
         outcome.error.starts_with("unshare: cannot change root filesystem propagation: ");
}

TEST(PlainList, HasNumbersOfSixDigitsWhole) {
  const Outcome list = runInOwnWorld("250000", {"children", "2"}, {});
  if (isRefusedOwnWorld(list) || list.exitedWith(kNoSuchNumbers)) {
    GTEST_SKIP() << "no world of its own, or no such numbers in it: " << list.error;
  }
  ASSERT_TRUE(list.exitedWith(0)) << list;
  EXPECT_THAT(list.output, HasSubstr("|1    |0    |make_process   |"));
  EXPECT_THAT(list.output, HasSubstr("|250001|1    |make_process   |"));
  EXPECT_THAT(list.output, HasSubstr("|250002|1    |make_process   |"));

  const Outcome report = runInOwnWorld("234567", {"name", "first", "children", "1"}, {"1"});
  ASSERT_TRUE(report.exitedWith(0)) << report;
  EXPECT_THAT(report.output, HasSubstr(" 234568 first\n"));
  const Outcome descriptors = runInOwnWorld("250000", {"children", "1"}, {"250001", "fds"});
  EXPECT_THAT(descriptors.output, testing::StartsWith("make_process     250001 FD  0"));
}

TEST(PlainList, CountsWhatTheListIsMadeOf) {
  const Outcome outcome = runInOwnWorld("", {"zombies", "5"}, {});
  if (isRefusedOwnWorld(outcome)) GTEST_SKIP() << "no world of its own: " << outcome.error;
  ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(timesSaid(outcome.error, kNoSuchProcess), kSamples) << outcome;
  EXPECT_EQ(withoutSampling(outcome.error), "");
  const PlainList list = parseList(outcome.output, true);
  ASSERT_FALSE(list.header.empty());
  // The helper, its zombies, sondex and the spare entry.
  EXPECT_THAT(list.header[0], testing::EndsWith("\t8 processes"));
  std::vector<std::string> commands;
  for (const Row &row : list.rows) commands.push_back(trimmed(row.at(Column::command)));
  std::vector<std::string> expected(6, "make_process");
  expected.emplace_back("sondex");
  EXPECT_THAT(commands, testing::UnorderedElementsAreArray(expected));
}

TEST(PlainList, PassesOverTheThreadsOfAProcessWithTooMany) {
  const Helper crowd({"threads", "600"});
  const Helper crowdAtWork({"busy", "2", "threads", "600"});
  const Helper full({"busy", "1", "threads", "512"});
  ASSERT_TRUE(waitUntil([&] { return factsOf(full.pid()).processorTicks > 0; }));
  const Outcome outcome = listProcesses();
  ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
  const PlainList list = parseList(outcome.output, isRoot());

  const auto line = [](const Helper &helper, int threads) {
    return "PID " + std::to_string(helper.pid()) + " has more " + std::to_string(threads) +
           " threads. Crazzzzy";
  };
  EXPECT_EQ(timesSaid(outcome.error, line(crowd, 600)), kSamples) << outcome;
  // The busy ones are started on top of the others.
  EXPECT_EQ(timesSaid(outcome.error, line(crowdAtWork, 601)), kSamples) << outcome;
  EXPECT_THAT(outcome.error, Not(HasSubstr("PID " + std::to_string(full.pid()) + " has")));

  const std::vector<Row> rows = list.rowsOf(crowd.pid());
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].at(Column::processor), "  0.0");
  EXPECT_EQ(rows[0].at(Column::threads), "600 ");
  const std::vector<Row> atWork = list.rowsOf(crowdAtWork.pid());
  ASSERT_EQ(atWork.size(), 1u);
  EXPECT_EQ(atWork[0].at(Column::processor), "  0.0");
  const std::vector<Row> fullRows = list.rowsOf(full.pid());
  ASSERT_EQ(fullRows.size(), 1u);
  EXPECT_GT(tenthsOf(fullRows[0].at(Column::processor)), 0);
}

// Root without the rights that `dropped` names, as in containers: "-sys_ptrace,-dac_override". Not
// ended where there is nobody to take them away.
Outcome runConfined(const std::string &dropped, const std::vector<std::string> &arguments) {
  Launch launch;
  launch.program = "/usr/bin/setpriv";
  launch.arguments = {"--bounding-set", dropped, "--inh-caps", dropped, sondexPath()};
  launch.arguments.insert(launch.arguments.end(), arguments.begin(), arguments.end());
  launch.environment = {{"nc", "1"}};
  return run(launch);
}

constexpr char kNoTracing[] = "-sys_ptrace";
// Not even the numbers of descriptors are to be seen then.
constexpr char kNoListing[] = "-sys_ptrace,-dac_override,-dac_read_search";

TEST(PlainList, DoesNotTakeWhatRootMayNotLookIntoForConfined) {
  if (!isRoot()) GTEST_SKIP() << "needs root, to be confined";
  // A program that was begun by that user, who may see its descriptors himself.
  const Helper helper({"user", std::to_string(kNobody), "deleted", "fds", "9"});
  const Outcome outcome = runConfined(kNoTracing, {});
  ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
  const std::vector<Row> rows = parseList(outcome.output, true).rowsOf(helper.pid());
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].at(Column::sandbox), "NO");
  EXPECT_EQ(rows[0].at(Column::descriptors), "   9");

  const Outcome listed = runConfined(kNoTracing, {std::to_string(helper.pid()), "fds"});
  const std::vector<std::string> lines = splitLines(listed.output);
  ASSERT_EQ(lines.size(), 9u) << listed;
  for (const std::string &line : lines) EXPECT_THAT(line, HasSubstr("  (permission denied) @0x0"));
  EXPECT_THAT(lines[0], HasSubstr(" FD  0r  "));
}

TEST(PlainList, CountsDescriptorsThatRootMayNotList) {
  if (!isRoot()) GTEST_SKIP() << "needs root, to be confined";
  const Helper helper({"user", std::to_string(kNobody), "deleted", "fds", "9"});
  struct stat directory = {};
  const std::string path = "/proc/" + std::to_string(helper.pid()) + "/fd";
  ASSERT_EQ(stat(path.c_str(), &directory), 0);
  if (directory.st_size == 0) GTEST_SKIP() << "this kernel does not count them";
  const Outcome outcome = runConfined(kNoListing, {});
  ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
  const std::vector<Row> rows = parseList(outcome.output, true).rowsOf(helper.pid());
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].at(Column::descriptors), "   9");

  const Outcome listed = runConfined(kNoListing, {std::to_string(helper.pid()), "fds"});
  EXPECT_EQ(splitLines(listed.output),
            std::vector<std::string>(9, "Can't get info (2) - Error Operation not permitted"));
}

TEST(PlainList, KnowsAnotherUserNamespaceByItsUsers) {
  if (!isRoot()) GTEST_SKIP() << "needs root, to be confined";
  std::unique_ptr<Helper> helper;
  try {
    helper = std::make_unique<Helper>(
        std::vector<std::string>{"user", std::to_string(kNobody), "user-namespace"});
  } catch (const Refused &) {
    GTEST_SKIP() << "users may not make one here";
  }
  const Outcome outcome = runConfined(kNoTracing, {});
  ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
  const std::vector<Row> rows = parseList(outcome.output, true).rowsOf(helper->pid());
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0].at(Column::sandbox), "SB");
}

TEST(PlainList, ShowsAnotherUserOnlyHisOwnProcesses) {
  if (!isRoot()) GTEST_SKIP() << "needs root, to become someone else";
  const Helper roots({});
  const Helper nobodys({"user", std::to_string(kNobody)});
  const Outcome outcome = listProcesses(kNobody);
  ASSERT_TRUE(outcome.exitedWith(0)) << outcome;
  const PlainList list = parseList(outcome.output, false);
  EXPECT_THAT(list.strange, IsEmpty());
  EXPECT_THAT(list.rowsOf(roots.pid()), IsEmpty());
  ASSERT_EQ(list.rowsOf(nobodys.pid()).size(), 1u) << outcome;
  for (const Row &row : list.rows) EXPECT_EQ(row.at(Column::user), userCell(kNobody));
  EXPECT_EQ(withoutSampling(outcome.error), "");
  EXPECT_GE(timesSaid(outcome.error, kNotPermitted), kSamples);
  ASSERT_GE(list.header.size(), 2u);
  const std::string processors = std::to_string(sysconf(_SC_NPROCESSORS_ONLN));
  EXPECT_THAT(list.header[1],
              testing::MatchesRegex("CPU:   " + processors +
                                    "/[0-9]+ active  \\(can't tell you more without being "
                                    "root\\) "));
}

}  // namespace
}  // namespace test
