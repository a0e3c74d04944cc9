// Names that others chose, on the screen: what is sent to the terminal holds nothing of theirs that
// would drive it.
#include <gtest/gtest.h>

#include <string>

#include "harness/hostile_device.h"
#include "screen/display.h"

namespace test {
namespace {

TEST(HostileNames, AreMadeSafeOnEveryScreen) {
  Place place;
  place.deviceText = hostileDevice();
  Display display(place);
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.sortByPid(), "");
  Terminal &terminal = display.terminal();
  EXPECT_EQ(terminal.awaitText(kSafeProcess), "");
  // What curses clears the screen with is sent before anything is drawn.
  const size_t drawn = terminal.written().size();
  terminal.press("\x1b[B\n");
  EXPECT_EQ(terminal.awaitText(std::string("Name: ") + kSafeProcess), "");
  terminal.press("f");
  EXPECT_EQ(terminal.awaitText(std::string("/") + kSafeName + "\u011b/file"), "");
  terminal.press("r");
  EXPECT_EQ(terminal.awaitText(std::string("/") + kSafeName + "\u011b/image"), "");
  terminal.press("q");
  EXPECT_EQ(terminal.awaitText("COMMAND"), "");
  terminal.press("G");
  EXPECT_EQ(terminal.awaitText("?[2Jname"), "");
  EXPECT_EQ(hostileIn(terminal.written().substr(drawn)), "");
}

}  // namespace
}  // namespace test
