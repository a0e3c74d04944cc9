#include "text/printer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

#include "tests/unit/sampled_machine.h"

namespace {

using namespace sondex;
using sampled::outputOf;

template <typename... Pieces>
std::string printed(const Pieces &...pieces) {
  return outputOf([&] {
    Printer out;
    print(out, pieces...);
    handOver(out);
  });
}

TEST(Printer, PutsPiecesTogether) {
  EXPECT_EQ(printed("a", 12, "", " 0x", Hexadecimal{0xAB}, Repeated{'\t', 2}, UnsafeText{"b", 1}),
            "a12 0xab\t\tb");
  EXPECT_EQ(printed(), "");
}

TEST(Printer, Numbers) {
  EXPECT_EQ(printed(0, " ", -1, " ", std::numeric_limits<int32_t>::min()), "0 -1 -2147483648");
  EXPECT_EQ(printed(std::numeric_limits<int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(printed(std::numeric_limits<int64_t>::max()), "9223372036854775807");
  EXPECT_EQ(printed(Hexadecimal{0}, " ", Hexadecimal{0x10}, " ", Hexadecimal{0x90ABCDEF12345678}),
            "0 10 90abcdef12345678");
  EXPECT_EQ(printed(Hexadecimal{~uint64_t{0}}), "ffffffffffffffff");
}

TEST(Printer, UnsafeTextEndsAtItsSizeOrANul) {
  EXPECT_EQ(printed(UnsafeText{"abcd", 3}), "abc");
  EXPECT_EQ(printed(UnsafeText{"ab\0cd", 5}), "ab");
  EXPECT_EQ(printed(UnsafeText{"a\x1B\x7F\n", 4}), "a???");
  EXPECT_EQ(printed(UnsafeText{nullptr, 0}), "");
}

// Each kind of piece at each place before the buffer is full, and behind it.
TEST(Printer, NothingIsLostWhereTheBufferEnds) {
  const size_t size = sizeof Printer::text;
  for (size_t before = size - 40; before <= size + 1; before++) {
    const std::string start(before, 'x');
    EXPECT_TRUE(printed(start.c_str(), "0123456789", "end") == start + "0123456789end") << before;
    EXPECT_TRUE(printed(start.c_str(), INT64_MIN, "end") == start + "-9223372036854775808end")
        << before;
    EXPECT_TRUE(printed(start.c_str(), Hexadecimal{~uint64_t{0}}, "end") ==
                start + "ffffffffffffffffend")
        << before;
    EXPECT_TRUE(printed(start.c_str(), Repeated{'-', 50}, "end") ==
                start + std::string(50, '-') + "end")
        << before;
    EXPECT_TRUE(printed(start.c_str(), UnsafeText{"\xF0\x9F\x98\x80\xF0\x9F\x98\x80\x01", 9},
                        "end") == start + "\xF0\x9F\x98\x80\xF0\x9F\x98\x80?end")
        << before;
  }
}

TEST(Printer, PiecesMayBeLongerThanTheBuffer) {
  const std::string text(5 * sizeof Printer::text + 7, 't');
  EXPECT_TRUE(printed("a", text.c_str(), "b") == "a" + text + "b");
  EXPECT_TRUE(printed("a", UnsafeText{text.data(), text.size()}, "b") == "a" + text + "b");
  EXPECT_TRUE(printed("a", Repeated{'t', text.size()}, "b") == "a" + text + "b");
}

TEST(Printer, KeepsTheOrderOfOtherOutput) {
  EXPECT_EQ(outputOf([] {
              std::fputs("before, ", stdout);
              Printer out;
              print(out, "printed, ");
              handOver(out);
              handOver(out);
              std::fputs("after", stdout);
            }),
            "before, printed, after");
}

// A full disk is noticed by whoever asks the stream.
TEST(Printer, LeavesAnErrorToTheStream) {
  std::FILE *const before = stdout;
  stdout = std::fopen("/dev/full", "we");
  ASSERT_NE(stdout, nullptr);
  Printer out;
  print(out, Repeated{'x', 100000});
  handOver(out);
  const bool hasFailed = std::ferror(stdout) != 0;
  std::fclose(stdout);
  stdout = before;
  EXPECT_TRUE(hasFailed);
}

}  // namespace
