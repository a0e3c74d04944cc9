#include "screens/network_summary.h"

#include <cstdlib>

#include "tests/unit/network_machine.h"
#include "tests/unit/process_of_its_own.h"

namespace {

using namespace sondex;
using entry_test::NetworkMachine;

// Time that the test sets.
class ClockedMachine : public NetworkMachine {
 public:
  darwin::timeval now{1000000000, 0};
  void wallClock(darwin::timeval &time) override { time = now; }
};

host::NetworkInterface makeLink(uint8_t type, uint64_t received, uint64_t sent) {
  host::NetworkInterface made;
  made.name = "if" + std::to_string(type);
  made.type = type;
  made.receivedBytes = received;
  made.receivedPackets = received / 10;
  made.sentBytes = sent;
  made.sentPackets = sent / 10;
  return made;
}

class NetworkSummary : public ProcessOfItsOwn<ClockedMachine> {};

TEST_F(NetworkSummary, AddsUpAllInterfacesButLocalOnes) {
  expectGood(
      [] {
        unsetenv("INCLUDE_LOOPBACK");
        machine().links = {makeLink(6, 1000, 2000), makeLink(24, 50000, 50000),
                           makeLink(23, 70000, 70000), makeLink(255, 10, 20)};
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
        machine().links = {makeLink(6, 1000, 2000), makeLink(24, 50000, 50000),
                           makeLink(23, 70000, 70000)};
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
        machine().links = {makeLink(6, 1000, 2000)};
        sample_networks();
        setenv("INCLUDE_LOOPBACK", "1", 1);
        machine().links = {makeLink(6, 1000, 2000), makeLink(24, 50000, 50000)};
        REQUIRE(sample_networks()->receivedBytes == 1000);
      },
      "^$");
}

TEST_F(NetworkSummary, RatesAreOfTheTimeSinceTheLastCall) {
  expectGood(
      [] {
        machine().links = {makeLink(6, 3000000000, 5000000000)};
        const NetworkSample *sample = sample_networks();
        // The first: since the epoch.
        REQUIRE(sample->receivedBytesPerSecond == 3 && sample->sentBytesPerSecond == 5);
        machine().links = {makeLink(6, 3000001000, 5000000500)};
        machine().now = {1000000000, 500000};
        sample_networks();
        REQUIRE(sample->receivedBytesPerSecond == 2000 && sample->sentBytesPerSecond == 1000);
        machine().links = {makeLink(6, 3000003000, 5000000501)};
        machine().now = {1000000003, 0};
        sample_networks();
        REQUIRE(sample->receivedBytesPerSecond == 800 && sample->sentBytesPerSecond == 0);
      },
      "^$");
}

TEST_F(NetworkSummary, RatesThatCanNotBe) {
  expectGood(
      [] {
        machine().links = {makeLink(6, 1000, 1000)};
        const NetworkSample *sample = sample_networks();
        // No time has passed.
        machine().links = {makeLink(6, 2000, 2000)};
        sample_networks();
        REQUIRE(sample->receivedBytesPerSecond == 0 && sample->sentBytesPerSecond == 0);
        // Totals fall.
        machine().now.tv_sec++;
        machine().links = {makeLink(6, 1500, 2000)};
        sample_networks();
        REQUIRE(sample->receivedBytesPerSecond == 0 && sample->sentBytesPerSecond == 0);
        // The clock is set back.
        machine().now.tv_sec -= 100;
        machine().links = {makeLink(6, 9000, 9000)};
        sample_networks();
        REQUIRE(sample->receivedBytesPerSecond == 0 && sample->sentBytesPerSecond == 0);
        // More than a product of 64 bits holds.
        machine().now.tv_sec += 2;
        machine().links = {makeLink(6, UINT64_MAX, UINT64_MAX)};
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

}  // namespace
