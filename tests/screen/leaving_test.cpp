// However the program ends, and from whatever is on its screen: the terminal is as it was before.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>

#include <csignal>
#include <optional>
#include <string>
#include <tuple>

#include "harness/core_file.h"
#include "harness/screen_text.h"
#include "harness/size_limit.h"
#include "harness/written_device.h"
#include "screen/display.h"

namespace test {
namespace {

// Keys to something that the program shows, and a text by which it is known.
struct View {
  const char *name;
  const char *keys;
  const char *text;
};

constexpr View kViews[] = {
    {"List", "", "COMMAND"},
    {"Help", "?", "Scroll through process list"},
    {"Details", "\n", "File descriptors:"},
    {"DetailsHelp", "\n?", "Generate Core Dump"},
    {"Gestalt", "G", "MAC Addresses:"},
    {"Prompt", "/abc", "Enter a filter expression:abc"},
    {"Kill", "K", "Are you sure?"},
    {"Jetsam", "J", "Jetsam band of"},
};

std::string nameOf(const View &view) {
  return view.name;
}

void expectEndBy(Display &display, int number) {
  const std::optional<Ending> ending = display.terminal().waitForEnd();
  ASSERT_TRUE(ending.has_value()) << display.terminal().text();
  EXPECT_EQ(ending->signal, number) << *ending;
  EXPECT_EQ(display.complaintAboutTerminal(), "");
}

// The program with one of them on its screen.
class Shown {
 public:
  explicit Shown(const View &view) {
    EXPECT_EQ(awaitWholeFrame(terminal()), "");
    terminal().press(view.keys);
    EXPECT_EQ(terminal().awaitText(view.text), "");
    EXPECT_TRUE(terminal().isOnAlternateScreen());
  }
  Terminal &terminal() { return display_.terminal(); }
  void expectEndBy(int number) { test::expectEndBy(display_, number); }

 private:
  Display display_{{"kinds", 100, 40, false}};
};

class LeavingBySignal : public testing::TestWithParam<std::tuple<View, int>> {};

TEST_P(LeavingBySignal, RestoresTheTerminalAndEndsAsTheSignalDoes) {
  const auto &[view, number] = GetParam();
  Shown shown(view);
  shown.terminal().signal(number);
  shown.expectEndBy(number);
}

INSTANTIATE_TEST_SUITE_P(At, LeavingBySignal,
                         testing::Combine(testing::ValuesIn(kViews),
                                          testing::Values(SIGHUP, SIGQUIT, SIGTERM, SIGPIPE,
                                                          SIGUSR1, SIGALRM)),
                         [](const auto &row) {
                           return nameOf(std::get<0>(row.param)) +
                                  sigabbrev_np(std::get<1>(row.param));
                         });

// The terminal makes a signal of it.
TEST(Leaving, ByTheKeyForQuit) {
  for (const View &view : kViews) {
    SCOPED_TRACE(view.name);
    Shown shown(view);
    shown.terminal().press("\x1c");
    shown.expectEndBy(SIGQUIT);
  }
}

TEST(Leaving, WhileFramesAreDrawn) {
  for (int i = 0; i < 20; i++) {
    Display display({"iphone", 200, 60, false});
    ASSERT_EQ(awaitWholeFrame(display.terminal()), "");
    display.terminal().press(std::string(20, '\x0c'));
    display.terminal().signal(SIGTERM);
    expectEndBy(display, SIGTERM);
    ASSERT_FALSE(testing::Test::HasFailure());
  }
}

// The program while it dumps a core that takes its time, of which no part is to be left behind.
class LeavingADump : public testing::TestWithParam<int> {
 protected:
  void begin(Display &display) const {
    ASSERT_EQ(display.begin(), "");
    ASSERT_EQ(display.sortByPid(), "");
    display.terminal().press("\n");
    ASSERT_EQ(display.terminal().awaitText("File descriptors"), "");
    display.terminal().press("c");
  }

  Place place() const {
    Place place;
    place.deviceText =
        std::string(kSteppedClock) +
        "[[process]]\npid = 1\nname = \"launchd\"\n"
        "[[process]]\nname = \"large\"\npid = " +
        std::to_string(core.pid()) +
        "\nregions = [{ address = 0x100000000, size = \"1900M\", contents = \"cffaedfe\" "
        "}]\n";
    return place;
  }

  CoreFile core;
};

TEST_P(LeavingADump, TakesItAway) {
  Display display(place());
  ASSERT_NO_FATAL_FAILURE(begin(display));
  ASSERT_TRUE(display.terminal().waitFor([&] { return core.exists(); }));
  display.terminal().signal(GetParam());
  // Ctrl-C is an end like that by a key.
  ASSERT_NO_FATAL_FAILURE(expectEndBy(display, GetParam() == SIGINT ? 0 : GetParam()));
  EXPECT_FALSE(core.exists());
}

INSTANTIATE_TEST_SUITE_P(By, LeavingADump, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto &row) { return sigabbrev_np(row.param); });

TEST_F(LeavingADump, BeyondALimitOnFiles) {
  const Place large = place();
  const SizeLimit limit(64 << 20);
  std::signal(SIGXFSZ, SIG_DFL);
  Display display(large);
  std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_NO_FATAL_FAILURE(begin(display));
  ASSERT_NO_FATAL_FAILURE(expectEndBy(display, SIGXFSZ));
  EXPECT_FALSE(core.exists());
}

// Others may have used the terminal meanwhile.
TEST(Stopped, ProgramTakesTheScreenBackWhenItGoesOn) {
  for (const View &view : kViews) {
    SCOPED_TRACE(view.name);
    Shown shown(view);
    Terminal &terminal = shown.terminal();
    const termios raw = terminal.modes();
    ASSERT_FALSE(sameModes(raw, terminal.modesBefore()));
    terminal.signal(SIGSTOP);
    terminal.scribble("\x1b[2J\x1b[Hsomething else\x1b[?1049l", terminal.modesBefore());
    ASSERT_EQ(terminal.findRow(view.text), -1);
    terminal.signal(SIGCONT);
    ASSERT_EQ(terminal.awaitText(view.text), "");
    EXPECT_TRUE(terminal.waitFor([&] { return terminal.isOnAlternateScreen(); }));
    EXPECT_TRUE(sameModes(terminal.modes(), raw));
    EXPECT_EQ(terminal.findRow("something else"), -1) << terminal.text();
  }
}

// The terminal makes a signal of Ctrl-Z. Here nobody is there to let the program go on, so the
// kernel does not stop it.
TEST(Stopped, ByCtrlZLeavesTheScreenAndComesBack) {
  for (const View &view : kViews) {
    SCOPED_TRACE(view.name);
    Shown shown(view);
    Terminal &terminal = shown.terminal();
    const size_t repaints = terminal.repaints();
    terminal.press("\x1a");
    ASSERT_TRUE(terminal.waitForWork([&] { return terminal.repaints() > repaints; }));
    ASSERT_EQ(terminal.awaitText(view.text), "");
    EXPECT_TRUE(terminal.isOnAlternateScreen());
    terminal.signal(SIGTERM);
    shown.expectEndBy(SIGTERM);
  }
}

}  // namespace
}  // namespace test
