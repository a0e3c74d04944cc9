// How a screen becomes a picture: what is drawn where, in which colours.
#include "harness/picture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace test {
namespace {

using testing::HasSubstr;
using testing::Not;

Screen screenOfRow(const std::vector<Cell> &cells) {
  return {static_cast<int>(cells.size()), 1, cells};
}

Cell coloured(const std::string &text, int foreground, int background) {
  return {.text = text, .foreground = foreground, .background = background};
}

TEST(Picture, DrawsCellsOfOneColourAsOneText) {
  const std::string picture = asPicture(
      screenOfRow({coloured("a", kDefaultColour, kDefaultColour), coloured("b", kWhite, kBlack),
                   coloured("c", kRed, kBlack), coloured("d", kRed, kBlack)}),
      "");
  EXPECT_THAT(picture,
              HasSubstr("<text x=\"12\" y=\"25\" textLength=\"16\">ab</text>\n"
                        "<text x=\"28\" y=\"25\" textLength=\"16\" class=\"c1\">cd</text>\n"
                        "</svg>\n"));
}

TEST(Picture, IsAsLargeAsWhatItShows) {
  Screen screen{2, 3, std::vector<Cell>(6, Cell{.text = " "})};
  screen.cells[3].text = "x";  // in the second row
  EXPECT_THAT(asPicture(screen, ""), HasSubstr("width=\"40\" height=\"58\""));
}

TEST(Picture, DrawsTheGroundOfColouredCells) {
  EXPECT_THAT(asPicture(screenOfRow({coloured("!", kBlack, kBrightRed)}), ""),
              HasSubstr("<rect x=\"12\" y=\"12\" width=\"8\" height=\"17\" fill=\"#ff5c57\"/>\n"
                        "<text x=\"12\" y=\"25\" class=\"c0\">!</text>\n"));
}

TEST(Picture, DrawsReverseCellsDarkOnLight) {
  Cell cell = coloured("r", kWhite, kBlack);
  cell.reverse = true;
  EXPECT_THAT(asPicture(screenOfRow({cell}), ""),
              HasSubstr("height=\"17\" fill=\"#d7dae0\"/>\n"
                        "<text x=\"12\" y=\"25\" class=\"c0\">r</text>\n"));
}

TEST(Picture, KeepsBlanksThatAreUnderlined) {
  Cell blank = coloured(" ", kCyan, kBlack);
  blank.underline = true;
  blank.bold = true;
  EXPECT_THAT(asPicture(screenOfRow({blank, coloured(" ", kCyan, kBlack)}), ""),
              HasSubstr("<text x=\"12\" y=\"25\" class=\"c6 b u\"> </text>\n</svg>\n"));
}

TEST(Picture, WritesMarkupAsText) {
  const std::string picture =
      asPicture(screenOfRow({coloured("<", kWhite, kBlack), coloured("&", kWhite, kBlack)}), "a<b");
  EXPECT_THAT(picture, HasSubstr(">&lt;&amp;</text>"));
  EXPECT_THAT(picture, HasSubstr("<title>a&lt;b</title>"));
  EXPECT_THAT(picture, Not(HasSubstr("<b")));
}

}  // namespace
}  // namespace test
