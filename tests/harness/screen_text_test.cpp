// How a screen becomes text, and when a frame is taken for whole.
#include "harness/screen_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace test {
namespace {

Screen blank(int columns, int rows) {
  Screen screen{columns, rows, {}};
  screen.cells.resize(static_cast<size_t>(columns) * static_cast<size_t>(rows), Cell{.text = " "});
  return screen;
}

Cell &cellOf(Screen &screen, int row, int column) {
  return const_cast<Cell &>(screen.at(row, column));
}

TEST(ScreenText, ShowsBlanksAtTheEndsOfRows) {
  Screen screen = blank(4, 2);
  cellOf(screen, 0, 1).text = "x";
  EXPECT_EQ(asText(screen),
            "4 columns, 2 rows\n"
            "      0 | x  |\n"
            "      1 |    |\n");
}

TEST(ScreenText, TellsStylesApart) {
  Screen screen = blank(9, 1);
  const Cell cells[] = {
      {"a", kCyan, kBlack, false, false, false},
      {"b", kCyan, kBlack, true, false, false},
      {"c", kCyan, kBlack, false, true, false},
      {"d", kCyan, kBlack, true, true, true},
      {"e", kBlack, kBrightRed, false, false, false},
      {"f", kDefaultColour, kDefaultColour, true, false, false},
      {"g", kBrightRed, kBlack, false, false, false},
      {"h", kRed, kBlack, false, false, false},
      {"i", 100, kBlack, false, true, false},
  };
  std::copy(std::begin(cells), std::end(cells), screen.cells.begin());
  EXPECT_EQ(asText(screen),
            "9 columns, 1 rows\n"
            "      0 |abcdefghi|\n"
            "c = cyan on black\n"
            "C = cyan on black, bold\n"
            "u = cyan on black, underlined\n"
            "V = cyan on black, bold, underlined, reverse\n"
            "k = black on bright red\n"
            "D = bold\n"
            "r = bright red on black\n"
            "0 = red on black\n"
            "1 = colour 100 on black, underlined\n"
            "      0 |cCuVkDr01|\n");
}

TEST(ScreenText, TakesWhiteOnBlackForPlain) {
  Screen screen = blank(2, 1);
  cellOf(screen, 0, 0) = {"a", kWhite, kBlack, false, false, false};
  EXPECT_EQ(asText(screen), "2 columns, 1 rows\n      0 |a |\n");
}

TEST(ScreenText, DrawsLooksOfEqualRowsOnce) {
  Screen screen = blank(2, 13);
  for (const int row : {0, 1, 2, 5, 11, 12}) cellOf(screen, row, 1).underline = true;
  for (const int row : {11, 12}) cellOf(screen, row, 0).bold = true;
  const std::string text = asText(screen);
  EXPECT_EQ(text.substr(text.find("u = ")),
            "u = underlined\n"
            "D = bold\n"
            "    0-2 |.u|\n"
            "      5 |.u|\n"
            "  11-12 |Du|\n");
}

TEST(WholeFrame, IsThereOnceTheProgramWaits) {
  Terminal terminal;
  ASSERT_EQ(awaitWholeFrame(terminal), "");
  EXPECT_EQ(terminal.repaints(), 1u);
  EXPECT_GE(terminal.findRow("|COMMAND        |"), 0) << terminal.text();
  const std::string before = terminal.written();
  ASSERT_TRUE(terminal.drawAgain());
  ASSERT_EQ(awaitWholeFrame(terminal), "");
  EXPECT_GE(terminal.repaints(), 2u);
  EXPECT_GT(terminal.written().size(), before.size());
}

TEST(WholeFrame, NeverComesOnceTheProgramHasEnded) {
  TerminalOptions options;
  options.arguments = {"-h"};
  Terminal terminal(options);
  const std::string complaint = awaitWholeFrame(terminal);
  EXPECT_THAT(complaint, testing::HasSubstr("the program has ended"));
  EXPECT_THAT(complaint, testing::HasSubstr("Usage: "));
}

TEST(WholeFrame, NeverComesWhileTheProgramDoesSomethingElse) {
  TerminalOptions options;
  options.arguments = {"all", "ports"};  // sleeps a second, writes, and ends
  Terminal terminal(options);
  EXPECT_NE(awaitWholeFrame(terminal, Duration{200}), "");
}

}  // namespace
}  // namespace test
