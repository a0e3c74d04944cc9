// Every size of the terminal, also one that changes while something is shown.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "harness/screen_text.h"
#include "screen/display.h"

namespace test {
namespace {

constexpr std::string_view kHomeKey = "\x1bOH";
constexpr std::string_view kEndKey = "\x1bOF";

std::vector<std::string> firstRows(const Terminal &terminal, int count) {
  std::vector<std::string> rows;
  for (int row = 0; row < count; row++) {
    std::string text;
    for (int column = 0; column < terminal.columns(); column++) {
      text += terminal.cell(row, column).text;
    }
    rows.push_back(text);
  }
  return rows;
}

// The display stands still: only the size changes.
TEST(Width, CutsTheHeaderAtItsEdge) {
  constexpr int kHeaderRows = 6;
  Place place{"kinds", 250, 80, true};
  place.background = SteppedDevice::Background::silent;
  Display display(place);
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press("F"), "");
  ASSERT_EQ(display.press("c"), "");
  for (int i = 0; i < 5; i++) ASSERT_EQ(display.press(kIdleKey), "");
  const std::vector<std::string> whole = firstRows(display.terminal(), kHeaderRows);
  for (const int width : {1, 2, 3, 10, 40, 79, 80, 132, 249}) {
    SCOPED_TRACE(width);
    display.terminal().resize(width, 80);
    ASSERT_TRUE(display.terminal().drawAgain());
    ASSERT_EQ(awaitWholeFrame(display.terminal()), "");
    const std::vector<std::string> cut = firstRows(display.terminal(), kHeaderRows);
    for (size_t row = 0; row < cut.size(); row++) {
      EXPECT_EQ(cut[row], whole[row].substr(0, static_cast<size_t>(width))) << "row " << row;
    }
  }
}

TEST(Width, OfAWideNameDoesNotShiftItsRow) {
  Display display({"kinds", 132, 95, true});
  ASSERT_EQ(display.begin(), "");
  const auto separators = [&](int row) {
    std::vector<int> columns;
    for (int column = 0; column < 132; column++) {
      if (display.terminal().cell(row, column).text == "\u2502") columns.push_back(column);
    }
    return columns;
  };
  const int plain = display.terminal().findRow("two words");
  ASSERT_GE(plain, 0);
  for (const char *name : {"\u00dcbersicht", "f\u00fcnfzehn-Byte", "\u65e5\u672c\u8a9e"}) {
    const int row = display.terminal().findRow(name);
    ASSERT_GE(row, 0) << name;
    EXPECT_EQ(separators(row), separators(plain)) << name;
  }
  // A number that is wider than its column moves its own row only, and is whole.
  const int large = display.terminal().findRow("user-large");
  ASSERT_GE(large, 0);
  EXPECT_TRUE(display.terminal().rowText(large).starts_with("100501\u2502"));
  EXPECT_EQ(separators(large - 1), separators(plain));
  EXPECT_EQ(separators(large + 2), separators(plain));
}

struct Page {
  const char *name;
  int rows;
  const char *keys;
  const char *first;  // of its first line
  const char *last;   // of its last line
};

class ScrolledPage : public testing::TestWithParam<Page> {};

TEST_P(ScrolledPage, CanBeReadFromBeginningToEnd) {
  const Page &page = GetParam();
  Display display({"iphone", 80, page.rows, true});
  const std::string firstView = "lines 1-" + std::to_string(page.rows - 1) + " of ";
  const std::string secondView = "lines 2-" + std::to_string(page.rows) + " of ";
  Terminal &terminal = display.terminal();
  ASSERT_EQ(awaitWholeFrame(terminal), "");
  terminal.press(page.keys);
  ASSERT_EQ(terminal.awaitText(page.last), "");
  ASSERT_EQ(terminal.awaitText(" more above: lines "), "");
  terminal.press(kHomeKey);
  ASSERT_EQ(terminal.awaitText(" more below: " + firstView), "");
  EXPECT_THAT(terminal.text(), testing::HasSubstr(page.first));
  EXPECT_EQ(terminal.findRow(page.last), -1);
  terminal.press(kDownKey);
  ASSERT_EQ(terminal.awaitText(" more above and below: " + secondView), "");
  terminal.press(" ");
  ASSERT_TRUE(terminal.waitForWork([&] { return terminal.findRow(secondView) < 0; }));
  terminal.press("b");
  terminal.press(kUpKey);
  ASSERT_EQ(terminal.awaitText(" more below: " + firstView), "");
  terminal.press(kEndKey);
  ASSERT_EQ(terminal.awaitText(page.last), "");
  ASSERT_EQ(terminal.awaitText(" more above: lines "), "");
  // Another size in the middle of it: first smaller, then so large that all of it is there.
  for (const auto &[columns, rows] : {std::pair{40, 24}, {1, 1}, {250, 200}}) {
    terminal.resize(columns, rows);
    const size_t repaints = terminal.repaints();
    ASSERT_TRUE(terminal.waitFor([&] { return terminal.repaints() > repaints; }));
  }
  ASSERT_EQ(terminal.awaitText(page.first), "");
  ASSERT_EQ(terminal.awaitText(page.last), "");
  EXPECT_EQ(terminal.findRow("(Up, Down, Space"), -1) << terminal.text();
  ASSERT_EQ(display.press("q"), "");
  EXPECT_GE(display.headerRow(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Of, ScrolledPage,
    testing::Values(Page{"Help", 10, "?", "This is Z's Sondex v2 (TLV)", "CLI usage:"},
                    Page{"Details", 20, "\n", "Warning: Unable to get task port",
                         "File descriptors:"},
                    Page{"Gestalt", 10, "G", "Gestalt Details for this OS:", "BlueTooth MAC:"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST(Height, WithoutRoomForProcessesIsNotForWantOfThem) {
  Display display({"ipad-16cpu", 80, 24, true});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press("1"), "");
  EXPECT_THAT(display.terminal().text(), testing::HasSubstr("   15: "));
  EXPECT_EQ(display.status(), "");
  ASSERT_EQ(display.answer("/", "Enter a filter expression:", "zz"), "");
  EXPECT_THAT(display.status(), testing::HasSubstr("No processes match zz"));
}

}  // namespace
}  // namespace test
