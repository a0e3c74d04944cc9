// The details screen of a process: how it is opened and left, its keys, and what stands on it while
// the list goes on below.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <string>

#include "harness/core_file.h"
#include "harness/helper.h"
#include "harness/process_facts.h"
#include "harness/screen_text.h"
#include "harness/written_device.h"
#include "screen/display.h"
#include "screen/list_screen.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::Optional;

constexpr char kWarning[] = "Warning: Unable to get task port - Statistics will be limited";
constexpr char kIdentity[] =
    "Process: 40     Name: Hello             Parent:     1   Status: runnable";
constexpr char kDescriptorHint[] =
    "2 File descriptors: 1 files, 1 sockets (press F for detailed information)";

class DetailsScreen : public testing::Test {
 protected:
  // Shows the list, in the order of PIDs, with the largest one selected.
  void begin(Display &display) {
    ASSERT_EQ(display.begin(), "");
    ASSERT_EQ(display.sortByPid(), "");
  }
  void open(Display &display, std::string_view awaited = kDescriptorHint) {
    display.terminal().press("\n");
    ASSERT_EQ(display.terminal().awaitText(awaited), "");
  }
  // A key may have to wait while the details are drawn once more.
  void leave(Display &display, std::string_view key = "q") {
    display.terminal().press(key);
    awaitList(display);
  }
  void awaitList(Display &display) {
    ASSERT_TRUE(display.terminal().waitForWork([&] { return display.headerRow() >= 0; }))
        << display.terminal().text();
    ASSERT_EQ(awaitWholeFrame(display.terminal()), "");
  }
  std::string awaitWithout(Display &display, std::string_view text) {
    return display.terminal().await(
        [&]() -> std::string { return display.terminal().findRow(text) < 0 ? "" : "still there"; });
  }
};

// On the device with three processes, of which Hello is selected.
class DetailsOfHello : public DetailsScreen {
 protected:
  void SetUp() override {
    begin(display);
    ASSERT_THAT(display.highlightedPid(), Optional(kHello));
  }
  std::string row(int number) { return display.terminal().rowText(number); }

  Display display;
};

TEST_F(DetailsOfHello, ShowEveryLine) {
  open(display);
  EXPECT_EQ(row(0), kWarning);
  EXPECT_EQ(display.terminal().cell(0, 0).foreground, kBrightRed);
  EXPECT_EQ(row(1), kIdentity);
  EXPECT_NE(display.terminal().cell(1, 0).foreground, kBrightRed);
  EXPECT_EQ(row(2), "Flags:   64-bit,App");
  EXPECT_EQ(row(3), kIdentity);
  EXPECT_EQ(row(4), "");
  EXPECT_EQ(row(5), "UID:      501   RUID:   501     SVUID:   501");
  EXPECT_EQ(row(6), "GID:      501   RGID:   501     SVGID:   501");
  EXPECT_EQ(row(7), "");
  EXPECT_THAT(row(8), testing::StartsWith(
                          "Virtual size:           1890M (1981808640)      Resident size:  "));
  EXPECT_THAT(row(9),
              testing::MatchesRegex(
                  "Time:     0.\\... *=    0.\\... \\(User\\) *\\+    0.\\... \\(System\\)"));
  EXPECT_EQ(row(10), "Syscalls:           0   Mach Traps:       0");
  EXPECT_EQ(row(11), "Disk I/O:          0K Read                0K Written");
  // Whether the statistics have come depends on how fast the machine is, and so the blank line.
  const int threads = display.terminal().findRow("#Threads:  2/1 (Process has no workqueues)");
  ASSERT_GT(threads, 12);
  EXPECT_EQ(row(threads + 1), "(press T to display Thread Information)");
  EXPECT_EQ(row(threads + 2), "");
  EXPECT_EQ(row(threads + 3), "Process Hierarchy: press H to display process hierarchy");
  EXPECT_EQ(row(threads + 4), "");
  EXPECT_EQ(row(threads + 5), kDescriptorHint);
}

struct KeyRow {
  const char *keys;
  const char *shown;
};

class DetailsKey : public DetailsOfHello, public testing::WithParamInterface<KeyRow> {};

TEST_P(DetailsKey, ShowsItsSectionAndHidesItAgain) {
  open(display);
  ASSERT_EQ(display.terminal().findRow(GetParam().shown), -1);
  for (const char *key = GetParam().keys; *key != '\0'; key++) {
    display.terminal().press(std::string(1, *key));
    ASSERT_EQ(display.terminal().awaitText(GetParam().shown), "") << *key;
    display.terminal().press(std::string(1, *key));
    ASSERT_EQ(awaitWithout(display, GetParam().shown), "") << *key;
  }
}

INSTANTIATE_TEST_SUITE_P(Letter, DetailsKey,
                         testing::Values(KeyRow{"aA", "argv[0]: /Applications/Hello.app/Hello"},
                                         KeyRow{"fF", "/dev/null"},
                                         KeyRow{"hH", " 40    Hello  has no children"},
                                         KeyRow{"tT", "Thread Info:"}),
                         [](const auto &row) { return std::string(1, row.param.keys[1]); });

// On a device with one process beside launchd, which has regions and a PID of its own.
class DetailsOfAMappedProcess : public DetailsScreen {
 protected:
  Place place(const std::string &more = "", bool separateError = false) const {
    Place place;
    place.separateError = separateError;
    place.deviceText = std::string(kSteppedClock) +
                       "[[process]]\npid = 1\nname = \"launchd\"\n"
                       "[[process]]\nname = \"mapped\"\npid = " +
                       std::to_string(core.pid()) + R"(
regions = [
  { address = 0x100000000, size = "16K", protection = "r-x", largest = "r-x", share = "cow", path = "/usr/libexec/mapped", contents = "cffaedfe" },
  { address = 0x16f000000, size = "1M", tag = 30, contents = "737461636b" },
)" + more + "]\n";
    return place;
  }
  void openMapped(Display &display) {
    begin(display);
    ASSERT_THAT(display.highlightedPid(), Optional(core.pid()));
    open(display, kHint);
  }
  std::string coreStart() const { return core.bytes().substr(0, 4); }

  static constexpr char kHint[] = "0 File descriptors: 0 files (press F for detailed information)";
  static constexpr char kUnreadable[] =
      "{ address = 0x170000000, size = \"16K\", readable = false },";
  static constexpr char kUnread[] =
      "Warning: Segment at 170000000 only read partially (0/4000 bytes)";
  CoreFile core;
};

TEST_F(DetailsOfAMappedProcess, SayThatACoreIsDumped) {
  for (const char *key : {"c", "C"}) {
    Display display(place());
    ASSERT_NO_FATAL_FAILURE(openMapped(display));
    ASSERT_FALSE(core.exists());
    display.terminal().press(key);
    EXPECT_TRUE(display.terminal().waitForWork([&] {
      return display.terminal().written().find("Dumping core... Please wait...") !=
             std::string::npos;
    })) << display.terminal().text();
    // The file begins as a core does once it is whole.
    ASSERT_TRUE(display.terminal().waitForWork([&] { return coreStart() == "\xcf\xfa\xed\xfe"; }));
    const std::string bytes = core.bytes();
    EXPECT_EQ(bytes.size(), 0x1000u + 0x4000 + (1 << 20));
    EXPECT_EQ(bytes.substr(0x1000 + 0x4000, 10), "stackstack");
    ASSERT_EQ(display.terminal().awaitText(kHint), "");
    EXPECT_EQ(display.terminal().awaitText("Core dumped to " + core.path()), "");
    leave(display);
    // Three times in all.
    ASSERT_EQ(display.press(kIdleKey), "");
    ASSERT_EQ(display.press(kIdleKey), "");
    EXPECT_EQ(display.status(), "");
    std::filesystem::remove(core.path());
  }
}

TEST_F(DetailsOfAMappedProcess, KeepWhatIsSaidOfACoreOffTheScreen) {
  Display display(place(kUnreadable));
  ASSERT_NO_FATAL_FAILURE(openMapped(display));
  for (int dumped = 0; dumped < 2; dumped++) {
    std::filesystem::remove(core.path());
    display.terminal().press("c");
    ASSERT_TRUE(display.terminal().waitForWork([&] { return coreStart() == "\xcf\xfa\xed\xfe"; }));
    ASSERT_EQ(display.terminal().awaitText(kHint), "");
  }
  EXPECT_THAT(display.terminal().written(), Not(HasSubstr("Warning: Segment")));
  display.terminal().press(kCtrlC);
  EXPECT_EQ(display.complaintAboutEnd(), "");
  const std::string &written = display.terminal().written();
  const size_t said = written.find(kUnread);
  ASSERT_NE(said, std::string::npos) << written;
  EXPECT_EQ(written.find(kUnread, said + 1), std::string::npos) << "each line comes once";
}

TEST_F(DetailsOfAMappedProcess, SayOfACoreWhatGoesElsewhere) {
  Display display(place(kUnreadable, true));
  ASSERT_NO_FATAL_FAILURE(openMapped(display));
  display.terminal().press("c");
  EXPECT_TRUE(display.terminal().waitForWork([&] {
    return display.terminal().standardError().find(kUnread) != std::string::npos;
  })) << display.terminal().standardError();
  EXPECT_THAT(display.terminal().written(), Not(HasSubstr("Warning: Segment")));
}

TEST_F(DetailsOfAMappedProcess, SayWhyThereIsNoCore) {
  std::filesystem::create_directory(core.path());
  Display display(place("", true));
  ASSERT_NO_FATAL_FAILURE(openMapped(display));
  display.terminal().press("C");
  EXPECT_TRUE(display.terminal().waitForWork([&] {
    return display.terminal().standardError().find(core.path() + ": Is a directory\n") !=
           std::string::npos;
  })) << display.terminal().standardError();
  ASSERT_EQ(display.terminal().awaitText("No core of process " + std::to_string(core.pid()) +
                                         ": Is a directory"),
            "");
  EXPECT_FALSE(display.terminal().hasEnded());
}

TEST_F(DetailsOfAMappedProcess, HaveAKeyForTheRegions) {
  Display display(place());
  ASSERT_NO_FATAL_FAILURE(openMapped(display));
  const std::string first =
      "                       0x00000000 000100000000-000100004000 [  16K] r-x/r-x COW "
      "/usr/libexec/mapped";
  const std::string second =
      "Stack                  0x00000000 00016f000000-00016f100000 [1024K] rw-/rwx PRV";
  for (const char *key : {"r", "R"}) {
    ASSERT_EQ(display.terminal().findRow("[1024K]"), -1);
    display.terminal().press(key);
    ASSERT_EQ(display.terminal().awaitText(second), "");
    // Drawn whole, as far as the line below it.
    ASSERT_EQ(display.terminal().awaitText(kHint), "");
    const int row = display.terminal().findRow(second);
    EXPECT_EQ(display.terminal().rowText(row - 1), first);
    EXPECT_EQ(display.terminal().rowText(row), second);
    EXPECT_EQ(display.terminal().rowText(row - 2), "");
    EXPECT_THAT(display.terminal().text(), Not(HasSubstr("[0;")));
    display.terminal().press(key);
    ASSERT_EQ(awaitWithout(display, "[1024K]"), "");
  }
}

TEST_F(DetailsOfHello, HaveHelpOfTheirOwn) {
  open(display);
  display.terminal().press("?");
  ASSERT_EQ(display.terminal().awaitText("Generate Core Dump (to /tmp/core.$pid)"), "");
  EXPECT_EQ(display.terminal().findRow(kWarning), -1);
  EXPECT_EQ(display.terminal().findRow("Jetsam Control"), -1) << "that is the list's";
  display.terminal().press("q");
  ASSERT_EQ(display.terminal().awaitText(kDescriptorHint), "");
  EXPECT_EQ(row(0), kWarning);
}

class LeavingDetails : public DetailsOfHello, public testing::WithParamInterface<const char *> {};

TEST_P(LeavingDetails, ShowsTheListAgain) {
  open(display);
  leave(display, GetParam());
  EXPECT_EQ(display.terminal().findRow(kWarning), -1);
  EXPECT_THAT(display.pids(), ElementsAre(kHello, 1, 0));
  EXPECT_THAT(display.highlightedPid(), Optional(kHello));
}

INSTANTIATE_TEST_SUITE_P(Key, LeavingDetails, testing::Values("q", "Q"), [](const auto &row) {
  return std::string(*row.param == 'q' ? "SmallQ" : "CapitalQ");
});

TEST_F(DetailsOfHello, OpenWithTheirSectionsHiddenButTheArguments) {
  open(display);
  display.terminal().press("tha");
  ASSERT_EQ(display.terminal().awaitText("argv[0]: "), "");
  ASSERT_EQ(display.terminal().awaitText("has no children"), "");
  leave(display);
  open(display);
  EXPECT_GE(display.terminal().findRow("argv[0]: "), 0);
  EXPECT_EQ(display.terminal().findRow("Thread Info:"), -1);
  EXPECT_GE(display.terminal().findRow("press H to display"), 0);
}

// Each sample steps the clock of the device, by which Hello grows.
TEST_F(DetailsOfHello, AreDrawnAnewEverySecond) {
  ASSERT_EQ(display.answer("u", "Enter value for update delay", "1"), "");
  open(display);
  std::string last = row(8);
  for (int times = 0; times < 3; times++) {
    ASSERT_TRUE(display.terminal().waitFor([&] { return row(8) != last; }));
    last = row(8);
  }
  EXPECT_EQ(row(0), kWarning);
}

// The refresh loop samples when it is woken, and the clock of the device steps with that: Hello
// grows below the screen that shows it.
TEST_F(DetailsOfHello, FollowTheProcessWhileSamplingGoesOn) {
  open(display);
  const std::string before = row(8);
  display.terminal().signal(SIGWINCH);
  EXPECT_TRUE(display.terminal().waitForWork([&] {
    return row(8) != before && display.terminal().findRow("Resident size:") == 8;
  })) << display.terminal().text();
  // No frame of the list comes in between.
  EXPECT_EQ(headerRow(display.terminal()), -1);
}

TEST_F(DetailsOfHello, AreLeftByCtrlC) {
  open(display);
  display.terminal().press(kCtrlC);
  EXPECT_EQ(display.complaintAboutEnd(), "");
}

TEST_F(DetailsOfHello, EndWithTheTerminal) {
  open(display);
  display.terminal().hangUp();
  EXPECT_TRUE(display.terminal().waitForEnd().has_value());
}

TEST_F(DetailsOfHello, FollowTheSizeOfTheTerminal) {
  open(display);
  for (const auto &[columns, rows] : {std::pair{20, 5}, {2, 1}, {1, 2}, {200, 60}}) {
    display.terminal().resize(columns, rows);
    const size_t frames = display.terminal().repaints();
    ASSERT_TRUE(display.terminal().waitFor([&] { return display.terminal().repaints() > frames; }));
    EXPECT_FALSE(display.terminal().hasEnded());
  }
  ASSERT_EQ(display.terminal().awaitText(kDescriptorHint), "");
  EXPECT_EQ(row(0), kWarning);
  EXPECT_EQ(row(1), kIdentity);
}

// Lines that were broken are whole again.
TEST_F(DetailsScreen, GrowsWithTheTerminal) {
  Display display({"minimal", 50, 40, false});
  begin(display);
  open(display, "2 File descriptors:");
  ASSERT_NE(display.terminal().rowText(1), kIdentity);
  display.terminal().resize(132, 50);
  ASSERT_EQ(display.terminal().awaitText(kDescriptorHint), "");
  EXPECT_EQ(display.terminal().rowText(0), kWarning);
  EXPECT_EQ(display.terminal().rowText(1), kIdentity);
}

TEST_F(DetailsScreen, ThatAreTooLongScrollToTheirEnd) {
  Display display({"minimal", 80, 24, false});
  begin(display);
  open(display);
  // Left on this terminal: one row for what follows the last line.
  EXPECT_EQ(display.terminal().findRow("UID:      501"), 5);
  display.terminal().press("aht");
  ASSERT_EQ(display.terminal().awaitText(" 40    Hello  has no children"), "");
  display.terminal().press("f");
  ASSERT_EQ(display.terminal().awaitText("socket tcp4"), "");
  EXPECT_EQ(display.terminal().findRow(kWarning), -1) << display.terminal().text();
}

// Of the kernel there are no arguments, so that its details end at once; and it is its own parent.
TEST_F(DetailsScreen, OfTheKernelAreLeftAtOnce) {
  Display display;
  begin(display);
  ASSERT_EQ(display.press("r"), "");
  ASSERT_THAT(display.highlightedPid(), Optional(0));
  ASSERT_EQ(display.press("\n"), "");
  awaitList(display);
  EXPECT_THAT(display.terminal().written(), Not(HasSubstr("Process Hierarchy")));
}

// Of a process that has none they are a blank line.
TEST_F(DetailsScreen, HasAKeyForTheRegions) {
  Display display;
  begin(display);
  ASSERT_EQ(display.press(kDownKey), "");
  ASSERT_THAT(display.highlightedPid(), Optional(1));
  open(display, "0 File descriptors: 0 files (press F for detailed information)");
  const int hierarchy = display.terminal().findRow("Process Hierarchy:");
  const auto isAt = [&](int row) {
    return display.terminal().waitForWork(
        [&] { return display.terminal().findRow("Process Hierarchy:") == row; });
  };
  for (const char *key : {"r", "R"}) {
    display.terminal().press(key);
    EXPECT_TRUE(isAt(hierarchy + 1)) << display.terminal().text();
    display.terminal().press(key);
    EXPECT_TRUE(isAt(hierarchy)) << display.terminal().text();
  }
}

TEST_F(DetailsScreen, HasTheTreeInLineDrawingCharacters) {
  Display display;
  begin(display);
  ASSERT_EQ(display.press(kDownKey), "");
  ASSERT_THAT(display.highlightedPid(), Optional(1));
  open(display, "0 File descriptors: 0 files (press F for detailed information)");
  display.terminal().press("h");
  ASSERT_EQ(display.terminal().awaitText("└ 40    Hello"), "");
  EXPECT_GE(display.terminal().findRow(" 1     launchd"), 0);
}

TEST_F(DetailsScreen, OfANameWithControlCharactersAreHarmless) {
  Display display({"kinds", 132, 50, false});
  begin(display);
  ASSERT_EQ(display.answer("/", "Enter a filter expression:", "bell"), "");
  ASSERT_EQ(display.press(kDownKey), "");
  ASSERT_TRUE(display.highlightedPid().has_value()) << display.terminal().text();
  open(display, "Name: bell?esc?[31m");
}

TEST_F(DetailsScreen, IsLeftWhenTheProcessEnds) {
  if (!isRoot()) GTEST_SKIP() << "needs root, to be sure of the columns";
  const std::string name = uniqueName("det");
  const Helper helper(std::vector<std::string>{"name", name});
  Display display({"", 132, 50, false});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.answer("/", "Enter a filter expression:", name), "");
  ASSERT_EQ(display.press("F"), "");
  for (const std::string_view key : {kDownKey, kUpKey}) {
    if (display.highlightedPid() == helper.pid()) break;
    ASSERT_EQ(display.press(key), "");
  }
  ASSERT_THAT(display.highlightedPid(), Optional(helper.pid()));
  open(display, "Name: " + name);
  ASSERT_EQ(kill(helper.pid(), SIGKILL), 0);
  awaitList(display);
  EXPECT_FALSE(display.terminal().hasEnded());
}

}  // namespace
}  // namespace test
