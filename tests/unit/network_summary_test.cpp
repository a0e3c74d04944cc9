#include "screens/network_summary.h"

#include <errno.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "darwin/interfaces.h"
#include "tests/unit/display_state.h"
#include "tests/unit/network_machine.h"

namespace {

using namespace sondex;
using entry_test::NetworkMachine;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

constexpr char kStructLine[] = "on 32-bit platforms Sizeof the struct is 40, length: 4\n";

// Time that the test sets.
class ClockedMachine : public NetworkMachine {
 public:
  darwin::timeval now{1000000000, 0};
  void wallClock(darwin::timeval &time) override { time = now; }
};

host::NetworkInterface link(uint8_t type, uint64_t received, uint64_t sent) {
  host::NetworkInterface made;
  made.name = "if" + std::to_string(type);
  made.type = type;
  made.receivedBytes = received;
  made.receivedPackets = received / 10;
  made.sentBytes = sent;
  made.sentPackets = sent / 10;
  return made;
}

#define REQUIRE(condition)                                    \
  do {                                                        \
    if (!(condition)) {                                       \
      fprintf(stderr, "line %d: %s\n", __LINE__, #condition); \
      _exit(1);                                               \
    }                                                         \
  } while (false)

// What is remembered from the first call on is the process's: each test has one of its own.
class NetworkSummary : public testing::Test {
 protected:
  NetworkSummary() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  template <typename Body>
  static void expectGood(Body body, const std::string &error) {
    EXPECT_EXIT(
        {
          body();
          _exit(0);
        },
        testing::ExitedWithCode(0), error);
  }

  // Never freed: the process ends.
  static ClockedMachine &machine() {
    static auto *const made = [] {
      auto *machine = new ClockedMachine;
      host::useMachine(machine);
      return machine;
    }();
    return *made;
  }
};

TEST_F(NetworkSummary, AddsUpAllInterfacesButLocalOnes) {
  expectGood(
      [] {
        unsetenv("INCLUDE_LOOPBACK");
        machine().links = {link(6, 1000, 2000), link(24, 50000, 50000), link(23, 70000, 70000),
                           link(255, 10, 20)};
        const NetworkSample *sample = sample_networks();
        REQUIRE(sample != nullptr);
        REQUIRE(sample->receivedBytes == 1010 && sample->receivedPackets == 101);
        REQUIRE(sample->sentBytes == 2020 && sample->sentPackets == 202);
        REQUIRE(sample->seconds == 1000000000 && sample->microseconds == 0);
        // The variable is not looked at again.
        setenv("INCLUDE_LOOPBACK", "1", 1);
        REQUIRE(sample_networks() == sample && sample->receivedBytes == 1010);
      },
      "^$");
}

TEST_F(NetworkSummary, LocalInterfacesCountWhenToldSo) {
  expectGood(
      [] {
        setenv("INCLUDE_LOOPBACK", "", 1);
        machine().links = {link(6, 1000, 2000), link(24, 50000, 50000), link(23, 70000, 70000)};
        REQUIRE(sample_networks()->receivedBytes == 121000);
        unsetenv("INCLUDE_LOOPBACK");
        REQUIRE(sample_networks()->sentBytes == 122000);
      },
      "^$");
}

TEST_F(NetworkSummary, TheFirstCallSettlesWhetherLocalInterfacesCount) {
  expectGood(
      [] {
        unsetenv("INCLUDE_LOOPBACK");
        machine().links = {link(6, 1000, 2000)};
        sample_networks();
        setenv("INCLUDE_LOOPBACK", "1", 1);
        machine().links = {link(6, 1000, 2000), link(24, 50000, 50000)};
        REQUIRE(sample_networks()->receivedBytes == 1000);
      },
      "^$");
}

TEST_F(NetworkSummary, RatesAreOfTheTimeSinceTheLastCall) {
  expectGood(
      [] {
        machine().links = {link(6, 3000000000, 5000000000)};
        const NetworkSample *sample = sample_networks();
        // The first: since the epoch.
        REQUIRE(sample->receivedBytesPerSecond == 3 && sample->sentBytesPerSecond == 5);
        machine().links = {link(6, 3000001000, 5000000500)};
        machine().now = {1000000000, 500000};
        sample_networks();
        REQUIRE(sample->receivedBytesPerSecond == 2000 && sample->sentBytesPerSecond == 1000);
        machine().links = {link(6, 3000003000, 5000000501)};
        machine().now = {1000000003, 0};
        sample_networks();
        REQUIRE(sample->receivedBytesPerSecond == 800 && sample->sentBytesPerSecond == 0);
      },
      "^$");
}

TEST_F(NetworkSummary, RatesThatCanNotBe) {
  expectGood(
      [] {
        machine().links = {link(6, 1000, 1000)};
        const NetworkSample *sample = sample_networks();
        // No time has passed.
        machine().links = {link(6, 2000, 2000)};
        sample_networks();
        REQUIRE(sample->receivedBytesPerSecond == 0 && sample->sentBytesPerSecond == 0);
        // Totals fall.
        machine().now.tv_sec++;
        machine().links = {link(6, 1500, 2000)};
        sample_networks();
        REQUIRE(sample->receivedBytesPerSecond == 0 && sample->sentBytesPerSecond == 0);
        // The clock is set back.
        machine().now.tv_sec -= 100;
        machine().links = {link(6, 9000, 9000)};
        sample_networks();
        REQUIRE(sample->receivedBytesPerSecond == 0 && sample->sentBytesPerSecond == 0);
        // More than a product of 64 bits holds.
        machine().now.tv_sec += 2;
        machine().links = {link(6, UINT64_MAX, UINT64_MAX)};
        sample_networks();
        REQUIRE(sample->receivedBytesPerSecond == (UINT64_MAX - 9000) / 2);
      },
      "^$");
}

TEST_F(NetworkSummary, AListThatCanNotBeReadIsNull) {
  expectGood(
      [] {
        machine().interfacesRefusal = darwin::DARWIN_ENOTSUP;
        REQUIRE(sample_networks() == nullptr);
        machine().interfacesRefusal = host::kAnswered;
        const NetworkSample *sample = sample_networks();
        REQUIRE(sample != nullptr && sample->receivedBytes == 0 && sample->seconds == 1000000000);
      },
      "^$");
}

class WiFi : public NetworkSummary {
 protected:
  static host::WirelessNetwork &connect() {
    host::WirelessNetwork &network = machine().wireless["en0"];
    network.connected = true;
    network.name = "Cafe";
    network.channel = 11;
    network.radios = {-61};
    network.signal = -50;
    return network;
  }
  static std::string shown() {
    CaptureStdout();
    showWiFiDetails();
    fflush(stdout);
    return GetCapturedStdout();
  }
};

TEST_F(WiFi, ShowsNameAndSignal) {
  expectGood(
      [] {
        DisplayStateGuard::reset();
        host::WirelessNetwork &network = connect();
        REQUIRE(shown() == "WiFi: Connected to Cafe, RSSI: -61\n");
        REQUIRE(zWiFiGetChannel() == 11);
        // Several radios, or none: the value over all.
        network.radios = {-61, -70};
        REQUIRE(zWiFiGetRSSI() == -50);
        network.radios.clear();
        REQUIRE(shown() == "WiFi: Connected to Cafe, RSSI: -50\n");
        // The interface was looked for once.
        fputs("end\n", stderr);
      },
      std::string("^") + kStructLine + "end\n$");
}

TEST_F(WiFi, NamesAreAnyBytes) {
  expectGood(
      [] {
        DisplayStateGuard::reset();
        host::WirelessNetwork &network = connect();
        network.name = "a\033[31m\n\x80";
        REQUIRE(shown() == "WiFi: Connected to a?[31m??, RSSI: -61\n");
        network.name = std::string(32, 'n');
        REQUIRE(std::strlen(zWiFiGetSSID()) == 32);
        REQUIRE(shown() == "WiFi: Connected to " + std::string(32, 'n') + ", RSSI: -61\n");
        // A shorter one leaves nothing of the one before.
        network.name = "b";
        REQUIRE(shown() == "WiFi: Connected to b, RSSI: -61\n");
        network.radios = {INT32_MIN};
        network.name = std::string(32, 'n');
        REQUIRE(shown() == "WiFi: Connected to " + std::string(32, 'n') + ", RSSI: -2147483648\n");
      },
      kStructLine);
}

TEST_F(WiFi, NothingIsShownWithoutASignalOrAName) {
  expectGood(
      [] {
        DisplayStateGuard::reset();
        host::WirelessNetwork &network = connect();
        network.radios = {0};
        REQUIRE(shown().empty());
        network.connected = false;
        REQUIRE(shown().empty());
        REQUIRE(zWiFiGetSSID() == nullptr && zWiFiGetRSSI() == 0 && zWiFiGetChannel() == 0);
        network.connected = true;
        network.radios = {-40};
        REQUIRE(shown() == "WiFi: Connected to Cafe, RSSI: -40\n");
        machine().wireless.clear();
        REQUIRE(shown().empty());
      },
      kStructLine);
}

TEST_F(WiFi, ADeviceWithoutWiFiIsAskedOnce) {
  expectGood(
      [] {
        DisplayStateGuard::reset();
        machine().wireless.clear();
        REQUIRE(shown().empty());
        connect();
        REQUIRE(shown().empty());
        REQUIRE(zWiFiGetSSID() == nullptr && zWiFiGetRSSI() == 0 && zWiFiGetChannel() == 0);
        fputs("end\n", stderr);
      },
      std::string("^") + kStructLine + "end\n$");
}

TEST_F(WiFi, BindingSaysTheLineEveryTime) {
  expectGood(
      [] {
        connect();
        REQUIRE(bindToInterface("en1") == -1);
        REQUIRE(bindToInterface("a name that is far too long for an interface") == -1);
        const int bound = bindToInterface("en0");
        REQUIRE(bound > 0);
      },
      std::string("^") + kStructLine + kStructLine + kStructLine + "$");
}

}  // namespace
