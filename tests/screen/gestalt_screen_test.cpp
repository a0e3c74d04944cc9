// The screen with the device's identity, with answers of all kinds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "harness/screen_text.h"
#include "screen/display.h"
#include "screen/list_screen.h"

namespace test {
namespace {

using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

constexpr char kTitle[] = "Gestalt Details for this OS:";
constexpr char kLastLabel[] = "BlueTooth MAC:";
const KeptFile kKeptGestalt("screen/kinds-gestalt-132x50.txt");

std::string openGestalt(Display &display) {
  display.terminal().press("G");
  // A flag is no text.
  return display.terminal().await([&]() -> std::string {
    const int row = display.terminal().findRow(kLastLabel);
    if (row < 0) return "no last line";
    return display.terminal().rowText(row).ends_with("?!") ? "" : "no last answer";
  });
}

TEST(GestaltScreen, IsAsKeptWithEveryAnswer) {
  Display display({"kinds", 132, 50, false});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(openGestalt(display), "");
  const Terminal &terminal = display.terminal();
  EXPECT_EQ(terminal.rowText(0), kTitle);
  EXPECT_GE(terminal.findRow("        Device Type:    Kinds(D321AP)"), 0) << terminal.text();
  EXPECT_GE(terminal.findRow("        OS version:     iPhone OS 12.4.1(16G102)"), 0);
  EXPECT_GE(terminal.findRow("        Serial Number:  ?!"), 0) << "a number is no text";
  EXPECT_GE(terminal.findRow("        UDID:           ?"), 0) << "refused";
  EXPECT_GE(terminal.findRow("        Chipset:        t8020(arm64e)"), 0);
  EXPECT_GE(terminal.findRow("        Wi-Fi MAC:      02:00:5e:10:00:31"), 0);
  EXPECT_EQ(kKeptGestalt.complaintAbout(asText(screenOf(terminal))), "");
}

class LeavingGestalt : public testing::TestWithParam<const char *> {};

TEST_P(LeavingGestalt, ShowsTheListAgain) {
  Display display({"kinds", 132, 50, false});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(openGestalt(display), "");
  ASSERT_EQ(display.press(GetParam()), "");
  EXPECT_EQ(complaintAboutHeader(display.terminal(), true), "");
  EXPECT_EQ(display.terminal().findRow(kTitle), -1);
}

INSTANTIATE_TEST_SUITE_P(Key, LeavingGestalt, testing::Values("\n", "q", "Q"), [](const auto &row) {
  return std::string(*row.param == '\n' ? "Enter" : *row.param == 'q' ? "SmallQ" : "CapitalQ");
});

TEST(GestaltScreen, IsLeftByCtrlC) {
  Display display({"kinds", 132, 50, true});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(openGestalt(display), "");
  display.terminal().press(kCtrlC);
  EXPECT_EQ(display.complaintAboutEnd(), "");
  EXPECT_THAT(display.terminal().standardError(), HasSubstr("Pressing 'Q' would have been"));
}

TEST(GestaltScreen, OutlivesAChangeOfSize) {
  Display display({"kinds", 132, 50, false});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(openGestalt(display), "");
  display.terminal().resize(20, 5);
  display.terminal().resize(100, 40);
  display.terminal().press("\n");
  EXPECT_EQ(
      display.terminal().await([&] { return complaintAboutHeader(display.terminal(), true); }), "");
}

TEST(GestaltScreen, IsNotThereWithoutTheService) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press("G"), "");
  EXPECT_THAT(display.pids(), SizeIs(3));
}

TEST(Identity, StandsBeforeTheHostName) {
  Display display({"kinds", 132, 50, false});
  ASSERT_EQ(display.begin(), "");
  EXPECT_THAT(display.summary(), StartsWith("KindsiPhone OS12.4.1, 16G102) kinds 14:07:"));
  Display without;
  ASSERT_EQ(without.begin(), "");
  EXPECT_THAT(without.summary(), StartsWith("device 14:07:"));
}

}  // namespace
}  // namespace test
