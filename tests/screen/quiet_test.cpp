// How little is sent to the terminal: a screen over a slow line neither flickers nor lags.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include "harness/process_facts.h"
#include "harness/screen_text.h"
#include "screen/display.h"

namespace test {
namespace {

// How often the main thread, which is the one that draws the list, has called write. Nothing where
// the kernel does not count.
std::optional<uint64_t> writesOf(pid_t pid) {
  const std::string id = std::to_string(pid);
  return fieldNumber(readFile("/proc/" + id + "/task/" + id + "/io"), "syscw");
}

struct Sent {
  size_t bytes;
  size_t repaints;
  std::optional<uint64_t> writes;
};

class Quiet : public testing::Test {
 protected:
  void begin(int columns, int rows) {
    Place place{"iphone", columns, rows, true};
    place.background = SteppedDevice::Background::silent;
    display.emplace(place);
    ASSERT_EQ(display->begin(), "");
    // By PID: only figures change from then on.
    ASSERT_EQ(display->sortByPid(), "");
    ASSERT_EQ(display->press(kIdleKey), "");
  }
  Sent sentFor(std::string_view keys) {
    Terminal &terminal = display->terminal();
    const size_t bytes = terminal.written().size();
    const size_t repaints = terminal.repaints();
    const std::optional<uint64_t> writes = writesOf(terminal.pid());
    EXPECT_EQ(display->press(keys), "");
    const std::optional<uint64_t> now = writesOf(terminal.pid());
    return {terminal.written().size() - bytes, terminal.repaints() - repaints,
            now && writes ? std::optional(*now - *writes) : std::nullopt};
  }
  // Some of the calls write what the kernel refuses to tell of two processes, to standard error.
  static void expectFewWrites(const Sent &sent) {
    constexpr uint64_t kMessages = 2;
    if (!sent.writes) return;
    EXPECT_LE(*sent.writes, 3 + kMessages);
  }

  std::optional<Display> display;
};

TEST_F(Quiet, FiguresAloneTakeFewBytes) {
  ASSERT_NO_FATAL_FAILURE(begin(80, 24));
  for (int i = 0; i < 10; i++) {
    const Sent sent = sentFor(kIdleKey);
    EXPECT_LE(sent.bytes, 2'000u);
    EXPECT_EQ(sent.repaints, 0u);
    expectFewWrites(sent);
  }
}

TEST_F(Quiet, ArrowsTakeFewBytes) {
  ASSERT_NO_FATAL_FAILURE(begin(80, 24));
  for (int i = 0; i < 20; i++) {
    const Sent sent = sentFor(i < 12 ? kDownKey : kUpKey);
    EXPECT_LE(sent.bytes, 2'500u);
    EXPECT_EQ(sent.repaints, 0u);
    expectFewWrites(sent);
  }
}

TEST_F(Quiet, WhatStandsStillIsNotSentAgain) {
  ASSERT_NO_FATAL_FAILURE(begin(160, 50));
  ASSERT_EQ(display->press("F"), "");
  ASSERT_EQ(display->press(kIdleKey), "");
  for (int i = 0; i < 3; i++) {
    const Sent sent = sentFor(kIdleKey);
    // Shares of a time in which nothing happened may still change once.
    EXPECT_LE(sent.bytes, 200u);
    EXPECT_EQ(sent.repaints, 0u);
  }
}

TEST_F(Quiet, PagesAndPromptsClearNothing) {
  ASSERT_NO_FATAL_FAILURE(begin(100, 40));
  Terminal &terminal = display->terminal();
  const size_t repaints = terminal.repaints();
  terminal.press("?");
  ASSERT_EQ(terminal.awaitText("Scroll through process list"), "");
  ASSERT_EQ(display->press("q"), "");
  ASSERT_EQ(display->answer("/", "Enter a filter expression:", ""), "");
  terminal.press("\n");
  ASSERT_EQ(terminal.awaitText("File descriptors:"), "");
  terminal.press("f");
  ASSERT_EQ(terminal.awaitText("/dev/null"), "");
  ASSERT_EQ(display->press("q"), "");
  EXPECT_EQ(terminal.repaints(), repaints);
}

TEST_F(Quiet, CtrlLSendsEverythingAgain) {
  ASSERT_NO_FATAL_FAILURE(begin(80, 24));
  ASSERT_EQ(display->press("F"), "");
  ASSERT_EQ(display->press(kIdleKey), "");
  Terminal &terminal = display->terminal();
  const std::string before = asText(screenOf(terminal));
  terminal.scribble("\x1b[2J\x1b[Hsomething else", terminal.modes());
  ASSERT_NE(asText(screenOf(terminal)), before);
  const Sent sent = sentFor("\x0c");
  EXPECT_EQ(sent.repaints, 1u);
  expectFewWrites(sent);
  EXPECT_EQ(asText(screenOf(terminal)), before);
}

}  // namespace
}  // namespace test
