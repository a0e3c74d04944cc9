#include "text/format.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "tests/unit/freed.h"
#include "tests/unit/size_units.h"

namespace {

using namespace sondex;

struct ShownNumber {
  uint64_t number;
  const char *text;
};

TEST(PrintSize, TextsOfSingleCounts) {
  const ShownNumber cases[] = {
      // Bytes up to 9999.
      {0, "    0B"},
      {1, "    1B"},
      {512, "  512B"},
      {999, "  999B"},
      {1000, " 1000B"},
      {1024, " 1024B"},
      {9999, " 9999B"},
      // The three formats with a fraction, and none.
      {10000, "9.766K"},
      {10239, "9.999K"},
      {10240, "   10K"},
      {10241, "10.00K"},
      {10752, "10.50K"},
      {15000, "14.65K"},
      {102399, "100.00K"},
      {102400, "  100K"},
      {102401, "100.0K"},
      {102912, "100.5K"},
      {150000, "146.5K"},
      // Exactly 999 units stay in the smaller one.
      {999 * kKilo - 1, "999.0K"},
      {999 * kKilo, "  999K"},
      {999 * kKilo + 1, "0.976M"},
      {1024000, "0.977M"},
      {kMega - 1, "1.000M"},
      {kMega, "    1M"},
      {5000000, "4.768M"},
      {10 * kMega, "   10M"},
      {10 * kMega + kMega / 4, "10.25M"},
      {100 * kMega + kMega / 2, "100.5M"},
      {999 * kMega, "  999M"},
      {999 * kMega + 1, "0.976G"},
      {kGiga, "    1G"},
      {kGiga + kGiga / 2, "1.500G"},
      {64 * kGiga, "   64G"},
      {64 * kGiga + kGiga / 8, "64.12G"},
      // Nothing is larger than G.
      {999 * kGiga + kGiga / 2, "999.5G"},
      {1000 * kGiga, " 1000G"},
      {2000 * kGiga + kGiga / 2, "2000.5G"},
      {100000 * kGiga, "100000G"},
      {uint64_t{1} << 63, "8589934592G"},
      {UINT64_MAX, "17179869184G"},
  };
  for (const ShownNumber &row : cases) EXPECT_STREQ(printSize(row.number), row.text) << row.number;
}

// The same rules in whole numbers, which is exact below 2^53.
std::string expectedSize(uint64_t bytes) {
  uint64_t unit = kGiga;
  char letter = 'G';
  if (bytes <= 9999) {
    unit = 1;
    letter = 'B';
  } else if (bytes <= 999 * kKilo) {
    unit = kKilo;
    letter = 'K';
  } else if (bytes <= 999 * kMega) {
    unit = kMega;
    letter = 'M';
  }
  char text[64];
  if (bytes % unit == 0) {
    snprintf(text, sizeof text, "%5llu%c", static_cast<unsigned long long>(bytes / unit), letter);
  } else {
    const int decimals = bytes > 100 * unit ? 1 : bytes > 10 * unit ? 2 : 3;
    snprintf(text, sizeof text, "%.*Lf%c", decimals,
             static_cast<long double>(bytes) / static_cast<long double>(unit), letter);
  }
  return text;
}

TEST(PrintSize, WholeRange) {
  for (uint64_t bytes = 0; bytes <= 11000; bytes++) {
    ASSERT_EQ(printSize(bytes), expectedSize(bytes)) << bytes;
  }
  for (uint64_t bytes = 11000; bytes < uint64_t{1} << 52; bytes += bytes / 97) {
    ASSERT_EQ(printSize(bytes), expectedSize(bytes)) << bytes;
  }
  for (int power = 10; power < 53; power++) {
    for (uint64_t factor : {1, 10, 100, 999, 1000}) {
      const uint64_t border = factor << power;
      if (border >= uint64_t{1} << 53) continue;
      for (uint64_t bytes = border - 2; bytes <= border + 2; bytes++) {
        ASSERT_EQ(printSize(bytes), expectedSize(bytes)) << bytes;
      }
    }
  }
}

TEST(PrintSize, NextCallOverwritesTheText) {
  const char *first = printSize(1);
  const char *second = printSize(2);
  EXPECT_EQ(first, second);
  EXPECT_STREQ(first, "    2B");
}

struct TimeCase {
  uint64_t seconds;
  uint64_t fraction;
  int longForm;
  const char *text;
};

constexpr uint64_t kDay = 86400;

TEST(SecsToTimeString, TextsOfSingleTimes) {
  const TimeCase cases[] = {
      {0, 0, 0, "   00.00"},
      {0, 0, 1, "   00.00"},
      {1, 5000000, 0, "   01.50"},
      {59, 0, 1, "   59.00"},
      {59, 9999999, 0, "   59.99"},
      {60, 0, 0, " 1:00.00"},
      {61, 0, 0, " 1:01.00"},
      {61, 0, 1, " 1:01.00"},
      {599, 0, 0, " 9:59.00"},
      {600, 1200000, 0, "10:00.12"},
      {3599, 9999999, 0, "59:59.99"},
      {3600, 9999999, 0, "01:00:00"},
      {3600, 0, 1, "01:00:00"},
      {3661, 0, 0, "01:01:01"},
      {kDay - 1, 0, 0, "23:59:59"},
      {kDay - 1, 0, 1, "23:59:59"},
      {kDay, 0, 0, " >1 day "},
      {kDay, 0, 1, " 1 days, 00 mins"},
      {kDay + 59, 0, 1, " 1 days, 00 mins"},
      {kDay + 60, 0, 1, " 1 days, 01 mins"},
      {kDay + 3599, 0, 1, " 1 days, 59 mins"},
      {90000, 0, 0, " >1 day "},
      {90000, 0, 1, " 1 days, 01:00"},
      {90000, 0, -1, " 1 days, 01:00"},
      {2 * kDay - 1, 0, 1, " 1 days, 23:59"},
      {10 * kDay, 0, 1, "10 days, 00 mins"},
      {99 * kDay + 3660, 0, 1, "99 days, 01:01"},
      {100 * kDay, 0, 1, "100 days, 00 mins"},
      {1234567 * kDay + 7200, 0, 1, "1234567 days, 02:00"},
  };
  for (const TimeCase &row : cases) {
    EXPECT_STREQ(secsToTimeString(row.seconds, row.fraction, row.longForm), row.text)
        << row.seconds << " s, long form " << row.longForm;
  }
}

TEST(SecsToTimeString, HundredthsComeFromUnitsOfHundredNanoseconds) {
  const ShownNumber cases[] = {
      {0, "   07.00"},        {99999, "   07.00"},      {100000, "   07.01"},
      {199999, "   07.01"},   {1000000, "   07.10"},    {9900000, "   07.99"},
      {9999999, "   07.99"},  {10000000, "   07.00"},  // a whole second is not carried over
      {10100000, "   07.01"}, {UINT64_MAX, "   07.95"},
  };
  for (const ShownNumber &row : cases) {
    EXPECT_STREQ(secsToTimeString(7, row.number, 0), row.text) << row.number;
  }
}

TEST(SecsToTimeString, EverySecondOfADay) {
  uint64_t seconds = 0;
  for (int hour = 0; hour < 24; hour++) {
    for (int minute = 0; minute < 60; minute++) {
      for (int second = 0; second < 60; second++, seconds++) {
        char expected[32];
        if (hour != 0) {
          snprintf(expected, sizeof expected, "%02d:%02d:%02d", hour, minute, second);
        } else if (minute != 0) {
          snprintf(expected, sizeof expected, "%2d:%02d.42", minute, second);
        } else {
          snprintf(expected, sizeof expected, "   %02d.42", second);
        }
        ASSERT_STREQ(secsToTimeString(seconds, 4200000, 0), expected) << seconds;
        ASSERT_STREQ(secsToTimeString(seconds, 4200000, 1), expected) << seconds;
      }
    }
  }
}

TEST(SecsToTimeString, EveryMinuteOfLongerTimes) {
  for (const int days : {1, 2, 9, 10, 31, 99, 100, 365, 24855, 49711, 2147483647}) {
    for (int hour = 0; hour < 24; hour++) {
      for (int minute = 0; minute < 60; minute++) {
        const uint64_t seconds = static_cast<uint64_t>(days) * kDay +
                                 static_cast<uint64_t>(hour * 3600 + minute * 60 + 59);
        char expected[36];
        if (hour != 0) {
          snprintf(expected, sizeof expected, "%2d days, %02d:%02d", days, hour, minute);
        } else {
          snprintf(expected, sizeof expected, "%2d days, %02d mins", days, minute);
        }
        ASSERT_STREQ(secsToTimeString(seconds, 0, 1), expected) << seconds;
        ASSERT_STREQ(secsToTimeString(seconds, 0, 0), " >1 day ") << seconds;
      }
    }
  }
}

TEST(SecsToTimeString, DaysBeyondTheirFieldSaturate) {
  const uint64_t beyond = (uint64_t{1} << 31) * kDay;
  EXPECT_STREQ(secsToTimeString(beyond - 1, 0, 1), "2147483647 days, 23:59");
  EXPECT_STREQ(secsToTimeString(beyond, 0, 1), "2147483647 days, 00 mins");
  EXPECT_STREQ(secsToTimeString(uint64_t{1} << 63, 0, 1), "2147483647 days, 15:30");
  EXPECT_STREQ(secsToTimeString(UINT64_MAX, UINT64_MAX, 1), "2147483647 days, 07:00");
  EXPECT_STREQ(secsToTimeString(UINT64_MAX, UINT64_MAX, 0), " >1 day ");
}

TEST(SecsToTimeString, NextCallOverwritesTheTextButNotThatOfASize) {
  const char *size = printSize(512);
  const char *first = secsToTimeString(1, 0, 0);
  const char *second = secsToTimeString(2, 0, 0);
  EXPECT_EQ(first, second);
  EXPECT_STREQ(first, "   02.00");
  EXPECT_STREQ(size, "  512B");
}

using HeapText = std::unique_ptr<char, Freed>;

TEST(NsecsToTimeString, TextsOfSingleTimes) {
  const ShownNumber cases[] = {
      {0, "   00.00"},
      {1, "   00.00"},
      {9999999, "   00.00"},
      {10000000, "   00.01"},
      {999999999, "   00.99"},
      {1000000000, "   01.00"},
      {1500000000, "   01.50"},
      {59999999999, "   59.99"},
      {60000000000, " 1:00.00"},
      {3599999999999, "59:59.99"},
      {3600000000000, "01:00:00"},
      {86399999999999, "23:59:59"},
      {86400000000000, " >1 day "},
      {UINT64_MAX, " >1 day "},
  };
  for (const ShownNumber &row : cases) {
    const HeapText text(nsecsToTimeString(row.number));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text.get(), row.text) << row.number;
  }
}

TEST(NsecsToTimeString, EachResultIsTheCallersOwn) {
  const HeapText first(nsecsToTimeString(1500000000));
  const HeapText second(nsecsToTimeString(2500000000));
  const char *shared = secsToTimeString(9, 0, 0);
  EXPECT_STREQ(first.get(), "   01.50");
  EXPECT_STREQ(second.get(), "   02.50");
  EXPECT_NE(first.get(), shared);
  EXPECT_NE(second.get(), shared);
}

}  // namespace
