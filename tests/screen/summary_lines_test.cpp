// The lines above the list that keys switch on and off, with the figures of a device whose figures
// are known at each moment.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "harness/screen_text.h"
#include "screen/display.h"

namespace test {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

constexpr int kStartOfClock = 14 * 3600 + 7 * 60 + 9;
const Place kKinds{"kinds", 132, 50, false};

class Lines : public testing::Test {
 protected:
  Lines() : display(kKinds) {}
  void SetUp() override { ASSERT_EQ(display.begin(), ""); }

  // Since the start of the device's clock.
  int seconds() const { return display.clock().value_or(0) - kStartOfClock; }

  Display display;
};

TEST_F(Lines, OfEachProcessor) {
  EXPECT_THAT(display.summary(),
              HasSubstr("CPU:   2/2 active    12.50% User,   5.00% System,  75.00% Idle"));
  ASSERT_EQ(display.press("1"), "");
  EXPECT_THAT(display.summary(),
              HasSubstr("CPU 0:  25.00% User,  10.00% System,  50.00% Idle, 15.00% Nice\n"
                        "    1:   0.00% User,   0.00% System, 100.00% Idle,  0.00% Nice\n"));
  EXPECT_THAT(display.summary(), Not(HasSubstr("2/2 active")));
  ASSERT_EQ(display.press("1"), "");
  EXPECT_THAT(display.summary(), HasSubstr("CPU:   2/2 active "));
}

TEST_F(Lines, OnMemory) {
  for (const char *keys : {"mM", "Mm"}) {
    for (const char *line : {"RAM: ", "Memstatus: ", "Comp: ", "Swap: "}) {
      EXPECT_THAT(display.summary(), HasSubstr(line));
    }
    ASSERT_EQ(display.press(std::string(1, keys[0])), "");
    for (const char *line : {"RAM: ", "Memstatus: ", "Comp: ", "Swap: "}) {
      EXPECT_THAT(display.summary(), Not(HasSubstr(line)));
    }
    ASSERT_EQ(display.press(std::string(1, keys[1])), "");
  }
  const int t = seconds();
  // A megabyte a second from the free to the active pages.
  EXPECT_THAT(display.summary(), HasSubstr("RAM:    " + std::to_string(100 - t) + "M Free + "));
  EXPECT_THAT(display.summary(), HasSubstr("Inactive:  300M + Wired:  400M Comp:   40M)   10M "
                                           "purgeable\n"));
  EXPECT_THAT(display.summary(), HasSubstr(" Comp: " + std::to_string(1000 + t) +
                                           "M , Decomp:  " + std::to_string(500 + t / 2) +
                                           "M  File:   50M  Anon:  450M Throttled:    1M\n"));
  EXPECT_THAT(display.summary(), HasSubstr("Swap:  " + std::to_string(768 - t) + "M Free +  " +
                                           std::to_string(256 + t) + "M Used (enc)\n"));
}

TEST_F(Lines, OnDisks) {
  // Of the one process that reads and writes.
  EXPECT_THAT(display.summary(), HasSubstr("Disks: Read:    10K/sec Written:    20K/sec"));
}

TEST_F(Lines, OnNetworks) {
  for (const char *keys : {"nN", "Nn"}) {
    EXPECT_THAT(display.summary(), Not(HasSubstr("Pkts:")));
    ASSERT_EQ(display.press(std::string(1, keys[0])), "");
    // Against the sample before: the second time it is known.
    ASSERT_EQ(display.press(kIdleKey), "");
    const int t = seconds();
    // The loopback interface is not counted.
    EXPECT_THAT(display.summary(), HasSubstr("Pkts: RX: " + std::to_string(5000 + 10 * t) + "/"));
    EXPECT_THAT(display.summary(), ContainsRegex("/8\\.[0-9]{3}M \\(2000 bytes/sec\\) TX: " +
                                                 std::to_string(4000 + 5 * t) +
                                                 "/2\\.[0-9]{3}M \\(1000 bytes/sec\\)"));
    ASSERT_EQ(display.press(std::string(1, keys[1])), "");
  }
}

TEST_F(Lines, OnTheBattery) {
  for (const char *keys : {"pP", "Pp"}) {
    EXPECT_THAT(display.summary(), Not(HasSubstr("Batt:")));
    ASSERT_EQ(display.press(std::string(1, keys[0])), "");
    EXPECT_THAT(display.summary(),
                HasSubstr("\nBatt:  79% (on AC Power,Charging) 1 assertions ()\n"));
    ASSERT_EQ(display.press(std::string(1, keys[1])), "");
  }
}

TEST(Battery, ThatIsNotChargedHasATime) {
  Display display(kKinds);
  // In the second sample: the charger is plugged in later.
  ASSERT_EQ(awaitWholeFrame(display.terminal()), "");
  ASSERT_EQ(display.press("p"), "");
  EXPECT_THAT(display.summary(), HasSubstr("\nBatt:  80% (on Battery Power, Not Charging - "
                                           "01:00:00 remaining) 1 assertions ()\n"));
}

struct BatteryText {
  const char *device;
  const char *text;
};

std::ostream &operator<<(std::ostream &out, const BatteryText &row) {
  return out << row.device;
}

class BatteryOf : public testing::TestWithParam<BatteryText> {};

TEST_P(BatteryOf, IsTold) {
  Display display({GetParam().device, 132, 50, false});
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press("p"), "");
  EXPECT_THAT(display.summary(), HasSubstr("\n" + std::string(GetParam().text) + "\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Device, BatteryOf,
    testing::Values(
        // Without a time limit, and with a list of assertions that is empty.
        BatteryText{"ipad-16cpu", "Batt:  96% (on AC Power,Charging))"},
        // Neither the time nor assertions are known.
        BatteryText{"old-32bit",
                    "Batt:  34% (on Battery Power, Not Charging(calculating)) No assertions"},
        // Without the service.
        BatteryText{"minimal", "Error: IOPsCopyPowerSourcesInfo()"}),
    [](const auto &row) {
      std::string name = row.param.device;
      std::erase(name, '-');
      return name;
    });

TEST_F(Lines, OnWiFi) {
  EXPECT_THAT(display.summary(), HasSubstr("\nWiFi: Connected to kinds, RSSI: -60\n"));
}

// With one process: the figures of the others' columns are not what is kept here.
const KeptFile kAllLines("screen/kinds-all-lines-132x50.txt");
const KeptFile kAllLinesDelta("screen/kinds-all-lines-delta-132x50.txt");

TEST_F(Lines, OfAllKindsAtOnceAreAsKept) {
  ASSERT_EQ(display.answer("/", "Enter a filter expression:", "disk-grows"), "");
  for (const char *key : {"1", "n", "p"}) ASSERT_EQ(display.press(key), "");
  ASSERT_EQ(display.press("I"), "");
  EXPECT_EQ(complaintAboutScreen(display.terminal(), kAllLines), "");
  ASSERT_EQ(display.press("d"), "");
  EXPECT_EQ(complaintAboutScreen(display.terminal(), kAllLinesDelta), "");
}

TEST_F(Lines, TakeTheirRowsFromTheList) {
  Display low({"kinds", 132, 24, false});
  ASSERT_EQ(low.begin(), "");
  EXPECT_THAT(low.pids(), SizeIs(14));
  ASSERT_EQ(low.press("n"), "");
  EXPECT_THAT(low.pids(), SizeIs(13));
  ASSERT_EQ(low.press("p"), "");
  EXPECT_THAT(low.pids(), SizeIs(12));
  // One line for the processors before, two now.
  ASSERT_EQ(low.press("1"), "");
  EXPECT_THAT(low.pids(), SizeIs(11));
}

TEST(Sockets, LeaveOnlyThoseThatHaveSome) {
  for (const char *keys : {"sS", "Ss"}) {
    Display display;
    ASSERT_EQ(display.begin(), "");
    ASSERT_EQ(display.press(std::string(1, keys[0])), "");
    // The counters come with time.
    const bool came = display.terminal().waitFor([&] {
      return display.press(kIdleKey).empty() && display.pids() == std::vector<pid_t>{40};
    });
    EXPECT_TRUE(came) << display.terminal().text();
    EXPECT_EQ(display.status(), "---- Filtering processes by : - Active Sockets -  ----");
    ASSERT_EQ(display.press(std::string(1, keys[1])), "");
    EXPECT_THAT(display.pids(), SizeIs(3));
    EXPECT_EQ(display.status(), "");
  }
}

TEST(Sockets, AreForgottenByAnotherFilter) {
  Display display;
  ASSERT_EQ(display.begin(), "");
  ASSERT_EQ(display.press("s"), "");
  ASSERT_EQ(display.answer("/", "Enter a filter expression:", "launchd"), "");
  EXPECT_EQ(display.pids(), std::vector<pid_t>{1});
}

}  // namespace
}  // namespace test
