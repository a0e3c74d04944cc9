#include "text/append.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using namespace sondex;

TEST(Append, PutsPiecesBehindEachOther) {
  char text[32] = "";
  append(text, sizeof text, "%s-%d", "a", 7);
  append(text, sizeof text, "%s", "");
  append(text, sizeof text, "|%3d", 5);
  appendSafe(text, sizeof text, "x\ny", 3);
  EXPECT_STREQ(text, "a-7|  5x?y");
}

TEST(Append, CutsAtTheBuffersEnd) {
  char text[8 + 1];
  std::memset(text, '#', sizeof text);
  text[0] = '\0';
  append(text, 8, "%s", "abcd");
  append(text, 8, "%s", "efghij");
  EXPECT_STREQ(text, "abcdefg");
  append(text, 8, "%s", "more");
  appendSafe(text, 8, "more", 4);
  EXPECT_STREQ(text, "abcdefg");
  EXPECT_EQ(text[8], '#');
}

TEST(Append, TakesNoMoreThanThereIs) {
  const char unterminated[] = {'a', 'b', 'c'};
  char text[8] = "";
  appendSafe(text, sizeof text, unterminated, 2);
  EXPECT_STREQ(text, "ab");
  appendSafe(text, sizeof text, unterminated, 0);
  EXPECT_STREQ(text, "ab");
}

TEST(Append, CutsSafeTextsBetweenCharacters) {
  char text[6] = "";
  append(text, sizeof text, "abc");
  appendSafe(text, sizeof text, "d\u00e9", 3);
  EXPECT_STREQ(text, "abcd");
}

TEST(Append, MayHaveABufferWithoutRoom) {
  char text[1] = "";
  append(text, sizeof text, "%s", "abc");
  appendSafe(text, sizeof text, "abc", 3);
  EXPECT_STREQ(text, "");
}

}  // namespace
