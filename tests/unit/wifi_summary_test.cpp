#include "screens/wifi_summary.h"

#include <cstring>

#include "tests/unit/display_state.h"
#include "tests/unit/network_machine.h"
#include "tests/unit/process_of_its_own.h"

namespace {

using namespace sondex;
using entry_test::NetworkMachine;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

constexpr char kStructLine[] = "on 32-bit platforms Sizeof the struct is 40, length: 4\n";

class WiFi : public ProcessOfItsOwn<NetworkMachine> {
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
