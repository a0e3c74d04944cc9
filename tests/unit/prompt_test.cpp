#include "terminal/prompt.h"

// Curses first, with wide characters.
#include "tests/unit/curses_screen.h"

#include <gtest/gtest.h>

#include <string>

#include "terminal/ending.h"
#include "tests/unit/display_state.h"
#include "tests/unit/typed_keys.h"
#include "tests/unit/wake_pipe.h"

namespace {

using namespace sondex;
using testing::ExitedWithCode;

constexpr int kBottom = 9;

class Prompt : public testing::Test {
 protected:
  std::string ask(const std::vector<int> &keys) {
    typeKeys(keys);
    return promptForInput("Who? ");
  }

  DisplayStateGuard guard;
  TypedInput input{""};  // nothing more is typed: a prompt that goes on asking ends
  CursesScreen screen{10, 60};
};

TEST_F(Prompt, AnswerIsWhatWasTypedUpToEnter) {
  EXPECT_EQ(ask(keysOf("abc\n")), "abc");
  EXPECT_EQ(ask(keysOf("x y\n")), "x y");
  EXPECT_EQ(ask(keysOf("\n")), "");
}

TEST_F(Prompt, StandsOnTheBottomRow) {
  wmove(stdscr, 2, 7);
  ask(keysOf("abc"));  // without Enter, which would scroll the row away
  EXPECT_EQ(CursesScreen::text(kBottom, 0, 5), "Who? ");
  for (const int column : {0, 4}) {
    const CursesScreen::Cell cell = CursesScreen::cell(kBottom, column);
    EXPECT_EQ(cell.attributes, static_cast<attr_t>(A_BOLD)) << column;
    EXPECT_EQ(cell.pair, kPairPrompt) << column;
  }
}

TEST_F(Prompt, IsReversedWithoutColours) {
  store(g_Color, 0);
  ask(keysOf("a"));
  const CursesScreen::Cell cell = CursesScreen::cell(kBottom, 0);
  EXPECT_EQ(cell.attributes, static_cast<attr_t>(A_REVERSE));
  EXPECT_EQ(cell.pair, 0);
}

TEST_F(Prompt, EmptiesTheStatusBarFirst) {
  setStatusBar("something much longer than the question itself", -1);
  ask(keysOf("a"));
  EXPECT_EQ(CursesScreen::text(kBottom, 6), std::string(54, ' '));
  EXPECT_STREQ(getStatusBar(), std::string(74, ' ').c_str());
  printStatusBar();
  EXPECT_STREQ(getStatusBar(), "") << "it was for one redraw";
}

// Keys of curses' own queue are never echoed.
TEST_F(Prompt, ShowsWhatIsTypedUntilItsEnd) {
  noecho();
  screen.type("abc");
  promptForInput("Who? ");
  EXPECT_EQ(CursesScreen::text(kBottom, 0, 12), "Who? abc    ");
  screen.type("def");
  for (const char key : {'d', 'e', 'f'}) EXPECT_EQ(wgetch(stdscr), key);
  EXPECT_EQ(CursesScreen::text(kBottom, 0, 12), "Who? abc    ");
}

TEST_F(Prompt, LeavesTheKeyboardAndAttributesAsTheyWere) {
  ask(keysOf("a\n"));
  EXPECT_EQ(wgetdelay(stdscr), 0);
  attr_t attributes = 0;
  short pair = 0;
  wattr_get(stdscr, &attributes, &pair, nullptr);
  EXPECT_EQ(attributes & ~static_cast<attr_t>(A_COLOR), static_cast<attr_t>(A_NORMAL));
  EXPECT_EQ(pair, 0);
}

TEST_F(Prompt, EightyKeysAreCutAndTerminated) {
  const std::string typed = std::string(78, 'a') + "bcd";
  typeKeys(keysOf(typed + "\n"));
  EXPECT_EQ(std::string(promptForInput("? ")), std::string(78, 'a') + "b");
  EXPECT_STREQ(promptForInput("? "), "d") << "the eighty-first key is the next prompt's";
}

TEST_F(Prompt, SeventyNineKeysAndEnterAreAllKept) {
  EXPECT_EQ(ask(keysOf(std::string(79, 'a') + "\n")), std::string(79, 'a'));
}

TEST_F(Prompt, BackspaceIsACharacterLikeAnyOther) {
  EXPECT_EQ(ask(keysOf("ab\b\x7f"
                       "c\n")),
            "ab\b\x7f"
            "c");
}

TEST_F(Prompt, AnswerIsTheNextPromptsBuffer) {
  typeKeys(keysOf("one\n"));
  const char *first = promptForInput("? ");
  typeKeys(keysOf("two\n"));
  EXPECT_EQ(promptForInput("? "), first);
  EXPECT_STREQ(first, "two");
}

TEST_F(Prompt, ResizeIsNoKey) {
  EXPECT_EQ(ask({'a', KEY_RESIZE, 'b', KEY_RESIZE, '\n'}), "ab");
}

TEST_F(Prompt, SurvivesAScreenThatWasResized) {
  for (const int rows : {1, 2, 50}) {
    resize_term(rows, 5);
    EXPECT_EQ(ask(keysOf("abcdefgh\n")), "abcdefgh") << rows;
  }
}

TEST_F(Prompt, OfAnEndedInputHasNoAnswer) {
  EXPECT_EQ(ask(keysOf("y")), "");
}

TEST_F(Prompt, EndsWithTheProgram) {
  EXPECT_EXIT(
      {
        typeKeys(keysOf("y"));
        askForEnd(kEndByKey);
        _exit(promptForInput("? ")[0] == '\0' ? 7 : 1);
      },
      ExitedWithCode(7), "");
}

TEST(PlainPrompt, IsNotAsked) {
  const DisplayStateGuard guard;
  testing::internal::CaptureStdout();
  EXPECT_STREQ(promptForInput("Who? "), "");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
