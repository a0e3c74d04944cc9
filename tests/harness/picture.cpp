#include "harness/picture.h"

#include <sstream>
#include <string_view>

namespace test {

namespace {

// In the picture's units.
constexpr int kCellWidth = 8;
constexpr int kRowHeight = 17;
constexpr int kBaseline = 13;
constexpr int kMargin = 12;

constexpr int kGround = -2;  // as a colour of its own: what lies beneath the text

// The eight colours, then the bright ones: all but black can be read on the ground.
constexpr const char *kPalette[] = {
    "#16191d", "#f07178", "#8fc76a", "#dfb95f", "#6ea8fe", "#c792ea", "#56c2d6", "#d7dae0",
    "#7f8792", "#ff5c57", "#aee38a", "#ffd580", "#9cc4ff", "#ddb6f2", "#8be0ee", "#ffffff"};
constexpr int kPaletteSize = static_cast<int>(sizeof kPalette / sizeof kPalette[0]);
constexpr int kTextColour = kWhite;
constexpr int kFrameColour = 8;

struct Look {
  int foreground = kTextColour;
  int background = kGround;
  bool bold = false;
  bool underline = false;

  bool operator==(const Look &) const = default;
};

Look lookOf(const Cell &cell) {
  const auto known = [](int colour, int otherwise) {
    return colour >= 0 && colour < kPaletteSize ? colour : otherwise;
  };
  Look look{known(cell.foreground, kTextColour), known(cell.background, kGround), cell.bold,
            cell.underline};
  if (look.background == kBlack) look.background = kGround;
  if (cell.reverse) {
    const int background = look.background;
    look.background = look.foreground;
    look.foreground = background == kGround ? kBlack : background;
  }
  return look;
}

std::string asMarkup(std::string_view text) {
  std::string result;
  for (const char byte : text) {
    if (byte == '&') {
      result += "&amp;";
    } else if (byte == '<') {
      result += "&lt;";
    } else {
      result += byte;
    }
  }
  return result;
}

bool isEmpty(const Cell &cell) {
  return cell.text == " " && lookOf(cell).background == kGround && !cell.underline;
}

int shownRows(const Screen &screen) {
  for (int row = screen.rows; row > 0; row--) {
    for (int column = 0; column < screen.columns; column++) {
      if (!isEmpty(screen.at(row - 1, column))) return row;
    }
  }
  return 0;
}

// Cells of a row that look the same, from `start` to before `end`.
void drawRun(std::ostream &out, const Screen &screen, int row, int start, int end) {
  const Look look = lookOf(screen.at(row, start));
  const int top = kMargin + row * kRowHeight;
  if (look.background != kGround) {
    out << "<rect x=\"" << kMargin + start * kCellWidth << "\" y=\"" << top << "\" width=\""
        << (end - start) * kCellWidth << "\" height=\"" << kRowHeight << "\" fill=\""
        << kPalette[look.background] << "\"/>\n";
  }
  if (!look.underline) {
    while (start < end && screen.at(row, start).text == " ") start++;
    while (start < end && screen.at(row, end - 1).text == " ") end--;
  }
  if (start == end) return;

  std::string text;
  for (int column = start; column < end; column++) text += screen.at(row, column).text;
  std::string styles;
  if (look.foreground != kTextColour) styles += " c" + std::to_string(look.foreground);
  if (look.bold) styles += " b";
  if (look.underline) styles += " u";
  out << "<text x=\"" << kMargin + start * kCellWidth << "\" y=\"" << top + kBaseline << "\"";
  if (end - start > 1) out << " textLength=\"" << (end - start) * kCellWidth << "\"";
  if (!styles.empty()) out << " class=\"" << styles.substr(1) << "\"";
  out << ">" << asMarkup(text) << "</text>\n";
}

}  // namespace

std::string asPicture(const Screen &screen, const std::string &title) {
  const int rows = shownRows(screen);
  const int width = screen.columns * kCellWidth + 2 * kMargin;
  const int height = rows * kRowHeight + 2 * kMargin;
  std::ostringstream out;
  out << "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " << width << " " << height
      << "\" width=\"" << width << "\" height=\"" << height
      << "\" role=\"img\" xml:space=\"preserve\">\n<title>" << asMarkup(title) << "</title>\n"
      << "<style>\ntext { font: 13.3px ui-monospace, Menlo, Consolas, \"DejaVu Sans Mono\", "
         "monospace; fill: "
      << kPalette[kTextColour]
      << "; }\n.b { font-weight: bold; }\n.u { text-decoration: underline; }\n";
  for (int colour = 0; colour < kPaletteSize; colour++) {
    if (colour == kTextColour) continue;
    out << ".c" << colour << " { fill: " << kPalette[colour] << "; }\n";
  }
  out << "</style>\n<rect x=\"0.5\" y=\"0.5\" width=\"" << width - 1 << "\" height=\"" << height - 1
      << "\" rx=\"8\" fill=\"" << kPalette[kBlack] << "\" stroke=\"" << kPalette[kFrameColour]
      << "\"/>\n";
  for (int row = 0; row < rows; row++) {
    for (int start = 0, end = 0; start < screen.columns; start = end) {
      const Look look = lookOf(screen.at(row, start));
      while (end < screen.columns && lookOf(screen.at(row, end)) == look) end++;
      drawRun(out, screen, row, start, end);
    }
  }
  out << "</svg>\n";
  return out.str();
}

}  // namespace test
