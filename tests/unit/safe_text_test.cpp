#include "text/safe_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace {

using namespace sondex;

class MakeSafe : public testing::Test {
 protected:
  MakeSafe() { allowUTF8(true); }
  ~MakeSafe() override { allowUTF8(true); }

  // Both buffers are exactly as large as said, so that a sanitizer sees every step beyond.
  static std::string safe(std::string_view from, size_t toSize) {
    const auto source = std::make_unique<char[]>(from.size());
    std::copy(from.begin(), from.end(), source.get());
    const auto target = std::make_unique<char[]>(toSize);
    std::memset(target.get(), '#', toSize);
    EXPECT_EQ(makeSafe(target.get(), toSize, source.get(), from.size()), target.get());
    EXPECT_NE(std::memchr(target.get(), '\0', toSize), nullptr);
    return target.get();
  }
  static std::string safe(std::string_view from) { return safe(from, from.size() + 1); }
};

struct Sample {
  std::string_view from;
  const char *expected;
};

TEST_F(MakeSafe, PlainTextIsLeftAlone) {
  std::string printable;
  for (char c = 0x20; c < 0x7F; c++) printable += c;
  EXPECT_EQ(safe(printable), printable);
  EXPECT_EQ(safe(""), "");
  EXPECT_EQ(safe("%s%n%d"), "%s%n%d");
}

TEST_F(MakeSafe, EveryByteAlone) {
  for (int value = 1; value < 256; value++) {
    const std::string byte(1, static_cast<char>(value));
    const bool printable = value >= 0x20 && value < 0x7F;
    EXPECT_EQ(safe(byte), printable ? byte : "?") << value;
    EXPECT_EQ(safe("a" + byte + "b"), printable ? "a" + byte + "b" : "a?b") << value;
  }
}

TEST_F(MakeSafe, SequencesThatDriveATerminal) {
  const Sample samples[] = {
      {"\x1b[2J", "?[2J"},
      {"\x1b]0;title\x07", "?]0;title?"},
      {"one\ntwo\tthree\r", "one?two?three?"},
      {"\x7f\x08", "??"},
      {"\x9b"
       "31m",
       "?31m"},  // a C1 control as a single byte
      {"\xC2\x9B"
       "31m",
       "??31m"},  // and in UTF-8
  };
  for (const Sample &sample : samples) EXPECT_EQ(safe(sample.from), sample.expected);
}

TEST_F(MakeSafe, GoodUTF8) {
  for (const char *text : {
           "\xC2\xA0",          // the first character after the C1 controls
           "caf\xC3\xA9",       // two bytes
           "\xDF\xBF",          // the last of two bytes
           "\xE0\xA0\x80",      // the first of three
           "\xE2\x82\xAC",      // three bytes
           "\xED\x9F\xBF",      // the last before the surrogates
           "\xEE\x80\x80",      // the first after them
           "\xEF\xBF\xBF",      // the last of three
           "\xF0\x90\x80\x80",  // the first of four
           "\xF0\x9F\x98\x80",  // four bytes
           "\xF4\x8F\xBF\xBF",  // the last of all
       }) {
    EXPECT_EQ(safe(text), text);
  }
}

TEST_F(MakeSafe, BrokenUTF8IsReplacedByteByByte) {
  const Sample samples[] = {
      // Continuation bytes without a start.
      {"\x80", "?"},
      {"\xBF", "?"},
      {"a\x80\x80z", "a??z"},
      {"\xC3\xA9\xA9", "\xC3\xA9?"},
      // Sequences that end too soon: at the end, before a letter, before another character.
      {"\xC3", "?"},
      {"\xC3z", "?z"},
      {"\xE2\x82", "??"},
      {"\xE2\x82z", "??z"},
      {"\xE2z", "?z"},
      {"\xF0\x9F\x98", "???"},
      {"\xF0\x9F\x98z", "???z"},
      {"\xF0\x9Fz", "??z"},
      {"\xF0z", "?z"},
      {"\xE2\x82\xC3\xA9", "??\xC3\xA9"},
      {"\xF0\x9F\xE2\x82\xAC", "??\xE2\x82\xAC"},
      // A control character inside a sequence.
      {"\xE2\x1b[", "??["},
      // Longer than needed.
      {"\xC0\x80", "??"},
      {"\xC1\xBF", "??"},
      {"\xC0\x9B", "??"},
      {"\xE0\x80\x80", "???"},
      {"\xE0\x9F\xBF", "???"},
      {"\xE0\x82\x9B", "???"},
      {"\xF0\x80\x80\x80", "????"},
      {"\xF0\x8F\xBF\xBF", "????"},
      // Surrogates.
      {"\xED\xA0\x80", "???"},
      {"\xED\xBF\xBF", "???"},
      {"\xED\xA0\xBD\xED\xB8\x80", "??????"},
      // Beyond the last character.
      {"\xF4\x90\x80\x80", "????"},
      {"\xF5\x80\x80\x80", "????"},
      {"\xF7\xBF\xBF\xBF", "????"},
      // Starts of five and six bytes, and bytes that never occur.
      {"\xF8\x88\x80\x80\x80", "?????"},
      {"\xFC\x84\x80\x80\x80\x80", "??????"},
      {"\xFE\xFF", "??"},
  };
  for (const Sample &sample : samples) {
    EXPECT_EQ(safe(sample.from), sample.expected)
        << testing::PrintToString(std::string(sample.from));
  }
}

std::string encode(uint32_t code, int length) {
  static constexpr unsigned char kStarts[] = {0, 0, 0xC0, 0xE0, 0xF0};
  if (length == 1) return std::string(1, static_cast<char>(code));
  std::string bytes(static_cast<size_t>(length), '\0');
  for (int i = length - 1; i > 0; i--, code >>= 6) {
    bytes[static_cast<size_t>(i)] = static_cast<char>(0x80u | (code & 0x3Fu));
  }
  bytes[0] = static_cast<char>(kStarts[length] | code);
  return bytes;
}

TEST_F(MakeSafe, EveryCharacterInEveryLength) {
  static constexpr uint32_t kEnds[] = {0, 0x80, 0x800, 0x10000, 0x200000};
  for (int length = 1; length <= 4; length++) {
    for (uint32_t code = 1; code < kEnds[length]; code++) {
      const bool control = code < 0x20 || (code >= 0x7F && code < 0xA0);
      const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
      // Without width, or turning the direction of text.
      const bool unseen = (code >= 0x200B && code <= 0x200F) ||
                          (code >= 0x2028 && code <= 0x202E) ||
                          (code >= 0x2060 && code <= 0x2069) || code == 0xFEFF;
      const bool shortest = code >= kEnds[length - 1];
      const bool good = shortest && !control && !unseen && !surrogate && code <= 0x10FFFF;
      const std::string bytes = encode(code, length);
      char target[8];
      makeSafe(target, sizeof target, bytes.data(), bytes.size());
      ASSERT_EQ(target, good ? bytes : std::string(bytes.size(), '?'))
          << std::hex << code << " in " << length << " bytes";
    }
  }
}

TEST_F(MakeSafe, CutsBetweenCharactersAtEverySize) {
  const std::string text =
      "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"
      "b";
  const size_t kept[] = {0, 0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 11, 11};
  for (size_t size = 1; size < sizeof kept / sizeof kept[0]; size++) {
    EXPECT_EQ(safe(text, size), text.substr(0, kept[size])) << size;
  }
}

TEST_F(MakeSafe, CutsReplacedBytesToo) {
  EXPECT_EQ(safe("\x01\x02\x03", 1), "");
  EXPECT_EQ(safe("\x01\x02\x03", 2), "?");
  EXPECT_EQ(safe("\x01\x02\x03", 3), "??");
  EXPECT_EQ(safe("\xF0\x9F\x98", 3), "??");
}

TEST_F(MakeSafe, WritesNothingBehindTheTerminator) {
  char target[16];
  std::memset(target, '#', sizeof target);
  makeSafe(target, 4, "abcdefgh", 8);
  EXPECT_EQ(std::string_view(target, 5), std::string_view("abc\0#", 5));
  std::memset(target, '#', sizeof target);
  makeSafe(target, sizeof target, "ab", 3);
  EXPECT_EQ(std::string_view(target, 4), std::string_view("ab\0#", 4));
}

TEST_F(MakeSafe, SourceEndsAtItsTerminatorOrSize) {
  char target[16];
  EXPECT_STREQ(makeSafe(target, sizeof target, "ab\0cd", 5), "ab");
  EXPECT_STREQ(makeSafe(target, sizeof target, "\0cd", 3), "");
  // Without a terminator: whole characters up to the size, then what is left of a broken one.
  EXPECT_EQ(safe("abcd"), "abcd");
  const char euro[] = {'\xE2', '\x82', '\xAC'};
  EXPECT_STREQ(makeSafe(target, sizeof target, euro, 3), "\xE2\x82\xAC");
  EXPECT_STREQ(makeSafe(target, sizeof target, euro, 2), "??");
  EXPECT_STREQ(makeSafe(target, sizeof target, euro, 1), "?");
  EXPECT_STREQ(makeSafe(target, sizeof target, euro, 0), "");
  // The terminator ends a sequence as well.
  EXPECT_STREQ(makeSafe(target, sizeof target, "\xE2\x82\0\xAC", 4), "??");
}

TEST_F(MakeSafe, WithoutUTF8EachByteAboveAsciiIsReplaced) {
  allowUTF8(false);
  EXPECT_EQ(safe("caf\xC3\xA9"), "caf??");
  EXPECT_EQ(safe("\xE2\x82\xAC"), "???");
  EXPECT_EQ(safe("\xF0\x9F\x98\x80"), "????");
  EXPECT_EQ(safe("\xE9"), "?");
  EXPECT_EQ(safe("plain\x1b"), "plain?");
  for (int value = 0x80; value < 0x100; value++) {
    EXPECT_EQ(safe(std::string(1, static_cast<char>(value))), "?") << value;
  }
  allowUTF8(true);
  EXPECT_EQ(safe("caf\xC3\xA9"), "caf\xC3\xA9");
}

}  // namespace
