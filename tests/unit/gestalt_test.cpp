// The identity service: how it is found, what an answer of each kind becomes, what is kept of it,
// and the screen.
#include "device/gestalt.h"
#include "screens/gestalt.h"

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "host/darwin/errors.h"
#include "host/entry/core_foundation.h"
#include "tests/unit/curses_screen.h"
#include "tests/unit/fake_machine.h"
#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using sampled::errorOutputOf;
using sampled::outputOf;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::MatchesRegex;

class GestaltMachine : public fake_machine::FakeMachine {
 public:
  bool isThere = true;
  bool hasItsEntryPoint = true;
  std::map<std::string, host::GestaltAnswer, std::less<>> answers;
  std::map<std::string, host::Errno, std::less<>> refusals;
  std::vector<std::string> asked;

  bool hasGestalt() override { return isThere; }
  bool hasEntryPoint(std::string_view wanted) override {
    return wanted == "MGCopyAnswerWithError" && hasItsEntryPoint;
  }
  host::Errno gestaltAnswer(std::string_view key, host::GestaltAnswer &answer) override {
    asked.emplace_back(key);
    const auto refused = refusals.find(key);
    if (refused != refusals.end()) return refused->second;
    const auto found = answers.find(key);
    if (found == answers.end()) return darwin::DARWIN_ENOENT;
    answer = found->second;
    return host::kAnswered;
  }
};

class Gestalt : public fake_machine::MachineTest<GestaltMachine> {
 protected:
  DisplayStateGuard guard;
};

TEST_F(Gestalt, TextIsGivenAsItIs) {
  machine.answers["ProductName"] = "iPhone OS";
  machine.answers["Empty"] = "";
  EXPECT_EQ(errorOutputOf([] {
              EXPECT_STREQ(gestaltAnswer("ProductName"), "iPhone OS");
              EXPECT_STREQ(gestaltAnswer("Empty"), "");
            }),
            "");
  EXPECT_THAT(machine.asked, ElementsAre("ProductName", "Empty"));
}

TEST_F(Gestalt, OtherAnswersAreNoText) {
  machine.answers["number"] = int64_t{5};
  machine.answers["flag"] = false;
  EXPECT_EQ(errorOutputOf([] {
              EXPECT_STREQ(gestaltAnswer("number"), "?!");
              EXPECT_STREQ(gestaltAnswer("flag"), "?!");
            }),
            "");
}

TEST_F(Gestalt, RefusalIsReportedWithItsNumber) {
  machine.refusals["key"] = 5;
  machine.refusals["other"] = -4;
  EXPECT_EQ(errorOutputOf([] {
              EXPECT_STREQ(gestaltAnswer("key"), "?");
              EXPECT_STREQ(gestaltAnswer("other"), "?");
            }),
            "Error 5\nError -4\n");
}

TEST_F(Gestalt, TextWithoutAPointerIsNull) {
  machine.answers["ComputerName"] = "Ren\u00e9s iPhone";
  EXPECT_EQ(errorOutputOf([] { EXPECT_EQ(gestaltAnswer("ComputerName"), nullptr); }), "");
  EXPECT_EQ(outputOf([] { outputGestaltAnswer("ComputerName"); }), "?");
}

TEST_F(Gestalt, WithoutTheLibraryThereIsNoAnswer) {
  machine.isThere = false;
  EXPECT_THAT(errorOutputOf([] { EXPECT_EQ(gestaltAnswer("ProductName"), nullptr); }),
              MatchesRegex("Error loading Gestalt: .*/usr/lib/libMobileGestalt\\.dylib.*\n"));
  EXPECT_TRUE(machine.asked.empty());
  EXPECT_EQ(load(MGCopyAnswerWithError_func), nullptr);
}

TEST_F(Gestalt, WithoutTheEntryPointThereIsNoAnswer) {
  machine.hasItsEntryPoint = false;
  EXPECT_EQ(
      errorOutputOf([] { EXPECT_EQ(gestaltAnswer("ProductName"), nullptr); }),
      "Can't find MGCopyAnswerWithError in libMobileGestalt.. Which version of iOS is this?\n");
  EXPECT_TRUE(machine.asked.empty());
}

TEST_F(Gestalt, IsLookedForUntilFoundAndThenKept) {
  machine.answers["ProductName"] = "iPhone OS";
  machine.isThere = false;
  EXPECT_NE(errorOutputOf([] { gestaltAnswer("ProductName"); }), "");
  machine.isThere = true;
  EXPECT_STREQ(gestaltAnswer("ProductName"), "iPhone OS");
  machine.isThere = false;
  EXPECT_STREQ(gestaltAnswer("ProductName"), "iPhone OS");
}

TEST_F(Gestalt, AnswersStayValidAndCostNothingWhenRepeated) {
  machine.answers["a"] = "first text";
  machine.answers["b"] = int64_t{7};
  machine.answers["c"] = "\u00e9";
  const char *first = gestaltAnswer("a");
  const size_t before = host::liveObjects();
  for (int i = 0; i < 1000; i++) {
    EXPECT_EQ(gestaltAnswer("a"), first);
    gestaltAnswer("b");
    gestaltAnswer("c");
  }
  EXPECT_EQ(host::liveObjects(), before);
  machine.answers["a"] = "second text";
  EXPECT_STREQ(gestaltAnswer("a"), "second text");
  EXPECT_STREQ(first, "first text");
  EXPECT_EQ(host::liveObjects(), before + 1);
}

TEST_F(Gestalt, ThreadsMayAskAtOnce) {
  machine.answers["a"] = "of two threads";
  // The machine's own list is not made for two.
  class Quiet : public fake_machine::FakeMachine {
   public:
    bool hasGestalt() override { return true; }
    bool hasEntryPoint(std::string_view) override { return true; }
    host::Errno gestaltAnswer(std::string_view key, host::GestaltAnswer &answer) override {
      answer = "of two threads: " + std::string(key);
      return host::kAnswered;
    }
  } quiet;
  host::useMachine(&quiet);
  const auto ask = [] {
    for (int i = 0; i < 500; i++) {
      EXPECT_STREQ(gestaltAnswer("a"), "of two threads: a");
      EXPECT_STREQ(gestaltAnswer("b"), "of two threads: b");
    }
  };
  std::thread other(ask);
  ask();
  other.join();
  host::useMachine(&machine);
}

TEST_F(Gestalt, OtherLibrariesAndNamesAreLeftAlone) {
  EXPECT_EQ(dlopen("/nonexistent/library", RTLD_LAZY), nullptr);
  void *self = dlopen(nullptr, RTLD_LAZY);
  EXPECT_NE(self, nullptr);
  EXPECT_NE(dlsym(self, "printf"), nullptr);
  void *library = dlopen("/usr/lib/libMobileGestalt.dylib", RTLD_LAZY);
  ASSERT_NE(library, nullptr);
  EXPECT_NE(dlsym(library, "MGCopyAnswerWithError"), nullptr);
  EXPECT_EQ(dlsym(library, "printf"), nullptr);
}

TEST_F(Gestalt, AnswerCannotDriveTheTerminal) {
  machine.answers["ComputerName"] = "a\x1b[2J\nb\x7f";
  EXPECT_EQ(outputOf([] { outputGestaltAnswer("ComputerName"); }), "a?[2J?b?");
}

TEST_F(Gestalt, AnswerOfAnyLengthIsShownWhole) {
  const std::string name(5000, 'n');
  machine.answers["ComputerName"] = name;
  EXPECT_EQ(outputOf([] { outputGestaltAnswer("ComputerName"); }), name);
}

class GestaltScreen : public Gestalt {
 protected:
  GestaltScreen() {
    g_gotGestalt = 1;
    machine.answers = {{"ComputerName", "Test Phone"},
                       {"marketing-name", "iPhone X"},
                       {"HWModelStr", "D221AP"},
                       {"ProductName", "iPhone OS"},
                       {"ProductVersion", "12.4"},
                       {"BuildVersion", "16G77"},
                       {"SerialNumber", "F2LXXXXXXXXX"},
                       {"UniqueDeviceID", "0123456789abcdef"},
                       {"HardwarePlatform", "t8015"},
                       {"CPUArchitecture", "arm64"},
                       {"WifiAddress", "aa:bb:cc:00:00:01"},
                       {"EthernetMacAddress", "aa:bb:cc:00:00:02"},
                       {"BluetoothAddress", "aa:bb:cc:00:00:03"}};
  }
};

constexpr char kScreen[] =
    "Gestalt Details for this OS:\n"
    "\n\tName:         \tTest Phone"
    "\n\tDevice Type:   \tiPhone X(D221AP)"
    "\n\tOS version:\tiPhone OS 12.4(16G77)"
    "\n\tSerial Number:  F2LXXXXXXXXX"
    "\n\tUDID:           0123456789abcdef"
    "\n\tChipset:        t8015(arm64)\n"
    "\nMAC Addresses:"
    "\n\tWi-Fi MAC:    \taa:bb:cc:00:00:01"
    "\n\tEthernet MAC:\taa:bb:cc:00:00:02"
    "\n\tBlueTooth MAC:\taa:bb:cc:00:00:03\n";

TEST_F(GestaltScreen, HasEveryLabelAndAnswer) {
  EXPECT_EQ(outputOf(showGestalt), kScreen);
  EXPECT_THAT(
      machine.asked,
      ElementsAre("ComputerName", "marketing-name", "HWModelStr", "ProductName", "ProductVersion",
                  "BuildVersion", "SerialNumber", "UniqueDeviceID", "HardwarePlatform",
                  "CPUArchitecture", "WifiAddress", "EthernetMacAddress", "BluetoothAddress"));
}

TEST_F(GestaltScreen, GoesOnPastWhatHasNoText) {
  machine.refusals["SerialNumber"] = 3;
  machine.answers["ComputerName"] = "T\u00e9l\u00e9phone";
  machine.answers["HWModelStr"] = int64_t{221};
  machine.answers["BluetoothAddress"] = true;
  std::string shown;
  EXPECT_EQ(errorOutputOf([&] { shown = outputOf(showGestalt); }), "Error 3\n");
  EXPECT_EQ(shown,
            "Gestalt Details for this OS:\n"
            "\n\tName:         \t?"
            "\n\tDevice Type:   \tiPhone X(?!)"
            "\n\tOS version:\tiPhone OS 12.4(16G77)"
            "\n\tSerial Number:  ?"
            "\n\tUDID:           0123456789abcdef"
            "\n\tChipset:        t8015(arm64)\n"
            "\nMAC Addresses:"
            "\n\tWi-Fi MAC:    \taa:bb:cc:00:00:01"
            "\n\tEthernet MAC:\taa:bb:cc:00:00:02"
            "\n\tBlueTooth MAC:\t?!\n");
}

constexpr char kUnsupported[] = "Gestalt is only supported on *OS (Blame AAPL for this, not Z)\n";

class GestaltDeathTest : public GestaltScreen {
 protected:
  // Standard output counts: it is made the stream that death tests look at.
  static void showOnStandardError() {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    showGestalt();
  }
};

TEST_F(GestaltDeathTest, WithoutTheServiceEndsTheProgram) {
  g_gotGestalt = 0;
  EXPECT_EXIT(showOnStandardError(), ExitedWithCode(1), testing::Eq(kUnsupported));
}

TEST_F(GestaltDeathTest, LeavesTheFullScreenBeforeItEnds) {
  g_gotGestalt = 0;
  const auto show = [] {
    CursesScreen screen(24, 80);
    std::atexit([] {
      if (!isendwin()) _exit(2);
    });
    showOnStandardError();
  };
  EXPECT_EXIT(show(), ExitedWithCode(1), testing::Eq(kUnsupported));
}

// The program's standard input, for a test's length.
class Keyboard {
 public:
  explicit Keyboard(int descriptor) : m_before(dup(STDIN_FILENO)) {
    dup2(descriptor, STDIN_FILENO);
  }
  ~Keyboard() {
    dup2(m_before, STDIN_FILENO);
    close(m_before);
  }
  Keyboard(const Keyboard &) = delete;
  Keyboard &operator=(const Keyboard &) = delete;

 private:
  int m_before;
};

TEST_F(GestaltScreen, StaysUntilAKeyLeavesIt) {
  for (const int key : {10, int{'Q'}, int{'q'}}) {
    CursesScreen screen(30, 80);
    nodelay(stdscr, TRUE);
    ASSERT_EQ(ungetch(key), OK);
    showGestalt();
    EXPECT_THAT(CursesScreen::text(0), testing::StartsWith("Gestalt Details for this OS: "));
    EXPECT_THAT(CursesScreen::text(2), testing::StartsWith("        Name:           Test Phone "));
    EXPECT_THAT(CursesScreen::text(12),
                testing::StartsWith("        BlueTooth MAC:  aa:bb:cc:00:00:03 "));
    EXPECT_TRUE(is_idlok(stdscr));
    EXPECT_TRUE(is_scrollok(stdscr));
  }
}

TEST_F(GestaltScreen, OtherKeysAreFollowedByAPause) {
  CursesScreen screen(30, 80);
  nodelay(stdscr, TRUE);
  ASSERT_EQ(ungetch('q'), OK);
  ASSERT_EQ(ungetch('x'), OK);
  const auto start = std::chrono::steady_clock::now();
  showGestalt();
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
}

TEST_F(GestaltScreen, EndsWithTheTerminal) {
  CursesScreen screen(30, 80);
  nodelay(stdscr, TRUE);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[1]);
  {
    const Keyboard keyboard(ends[0]);
    showGestalt();
  }
  close(ends[0]);
  EXPECT_THAT(CursesScreen::text(0), testing::StartsWith("Gestalt Details for this OS: "));
}

TEST_F(GestaltScreen, PageEmptiesTheScreen) {
  CursesScreen screen(30, 80);
  nodelay(stdscr, TRUE);
  waddstr(stdscr, "what was there");
  mvwaddstr(stdscr, 29, 0, "and there");
  ASSERT_EQ(ungetch('q'), OK);
  showGestalt();
  EXPECT_EQ(CursesScreen::text(29), std::string(80, ' '));
}

}  // namespace
