#include "harness/screen_text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <iomanip>
#include <iterator>
#include <map>
#include <sstream>
#include <tuple>

#include "harness/process_facts.h"

namespace test {

namespace {

constexpr int kColours = 8;  // and as many bright ones
constexpr char kPlain = '.';

constexpr const char *kColourNames[kColours] = {"black", "red",     "green", "yellow",
                                                "blue",  "magenta", "cyan",  "white"};
constexpr char kColourLetters[kColours + 1] = "krgybmcw";

struct Style {
  int foreground = kDefaultColour;
  int background = kDefaultColour;
  bool bold = false;
  bool underline = false;
  bool reverse = false;

  auto operator<=>(const Style &) const = default;
};

Style styleOf(const Cell &cell) {
  Style style{cell.foreground, cell.background, cell.bold, cell.underline, cell.reverse};
  if (style.foreground == kWhite && style.background == kBlack) {
    style.foreground = kDefaultColour;
    style.background = kDefaultColour;
  }
  return style;
}

std::string nameOfColour(int colour) {
  if (colour == kDefaultColour) return "default";
  if (colour >= 0 && colour < kColours) return kColourNames[colour];
  if (colour >= 0 && colour < 2 * kColours) {
    return std::string("bright ") + kColourNames[colour - kColours];
  }
  return "colour " + std::to_string(colour);
}

std::string describe(const Style &style) {
  std::string text;
  const auto add = [&text](const std::string &part) { text += (text.empty() ? "" : ", ") + part; };
  if (style.foreground != kDefaultColour || style.background != kDefaultColour) {
    add(nameOfColour(style.foreground) + " on " + nameOfColour(style.background));
  }
  if (style.bold) add("bold");
  if (style.underline) add("underlined");
  if (style.reverse) add("reverse");
  return text;
}

// Easy to remember, but may be another style's already.
char wantedLetter(const Style &style) {
  char letter = 'd';
  if (style.reverse) {
    letter = 'v';
  } else if (style.underline) {
    letter = 'u';
  } else if (style.foreground >= 0 && style.foreground < 2 * kColours) {
    letter = kColourLetters[style.foreground % kColours];
  }
  return style.bold ? static_cast<char>(std::toupper(letter)) : letter;
}

// What stands for which style, and which came first.
class Legend {
 public:
  char letterOf(const Style &style) {
    if (style == Style{}) return kPlain;
    const auto known = std::find(styles_.begin(), styles_.end(), style);
    if (known != styles_.end()) {
      return letters_[static_cast<size_t>(known - styles_.begin())];
    }
    // More styles than letters there are on no screen.
    static const std::string others = "0123456789abefhijlnopqstxzABEFHIJLNOPQSTXZ";
    char letter = wantedLetter(style);
    for (const char other : others) {
      if (letters_.find(letter) == std::string::npos) break;
      letter = other;
    }
    styles_.push_back(style);
    letters_ += letter;
    return letter;
  }

  std::string text() const {
    std::string text;
    for (size_t i = 0; i < styles_.size(); i++) {
      text += std::string(1, letters_[i]) + " = " + describe(styles_[i]) + "\n";
    }
    return text;
  }

 private:
  std::vector<Style> styles_;
  std::string letters_;
};

}  // namespace

Screen screenOf(const Terminal &terminal) {
  Screen screen{terminal.columns(), terminal.rows(), {}};
  for (int row = 0; row < screen.rows; row++) {
    for (int column = 0; column < screen.columns; column++) {
      screen.cells.push_back(terminal.cell(row, column));
    }
  }
  return screen;
}

std::string asText(const Screen &screen) {
  std::ostringstream text;
  text << screen.columns << " columns, " << screen.rows << " rows\n";
  Legend legend;
  std::vector<std::string> looks;
  for (int row = 0; row < screen.rows; row++) {
    text << std::setw(7) << row << " |";
    std::string look;
    for (int column = 0; column < screen.columns; column++) {
      text << screen.at(row, column).text;
      look += legend.letterOf(styleOf(screen.at(row, column)));
    }
    text << "|\n";
    looks.push_back(look);
  }

  text << legend.text();
  const std::string plain(static_cast<size_t>(screen.columns), kPlain);
  for (size_t first = 0, next = 0; first < looks.size(); first = next) {
    while (next < looks.size() && looks[next] == looks[first]) next++;
    if (looks[first] == plain) continue;
    std::string range = std::to_string(first);
    if (next - first > 1) range += "-" + std::to_string(next - 1);
    text << std::setw(7) << range << " |" << looks[first] << "|\n";
  }
  return text.str();
}

std::string awaitWholeFrame(Terminal &terminal, Duration patience) {
  // What was written before the program was seen to wait has been taken in when there is no more of
  // it afterwards.
  size_t taken = 0;
  bool wasWaiting = false;
  const auto isWhole = [&] {
    const bool isQuiet = terminal.written().size() == taken;
    if (terminal.hasEnded() || (wasWaiting && isQuiet && taken > 0)) return true;
    taken = terminal.written().size();
    const std::optional<BlockedCall> call = blockedCall(terminal.pid(), terminal.pid());
    wasWaiting = call && isPoll(*call);
    return false;
  };
  const bool inTime = terminal.waitFor(isWhole, patience);
  std::string complaint;
  if (terminal.hasEnded()) {
    terminal.waitForEnd();  // takes in the rest
    complaint = "the program has ended";
  } else if (!inTime) {
    const std::string call = readFile("/proc/" + std::to_string(terminal.pid()) + "/syscall");
    complaint =
        call.empty() ? "the kernel does not say which call the program is in" : "no whole frame";
  } else {
    return "";
  }
  return complaint + "\n--- screen ---\n" + terminal.text() + "---\n";
}

std::string complaintAboutScreen(Terminal &terminal, const KeptFile &kept) {
  const std::string complaint = awaitWholeFrame(terminal);
  return complaint.empty() ? kept.complaintAbout(asText(screenOf(terminal))) : complaint;
}

}  // namespace test
