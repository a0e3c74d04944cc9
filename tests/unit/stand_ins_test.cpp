// What stands for somebody's own texts in a captured machine: of the same kind, and never the same
// for two.
#include "capture/stand_ins.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace sondex;

class StandIns : public testing::Test {
 protected:
  static void SetUpTestSuite() { useStandIns(); }

  static std::string hidden(const char *address) {
    const bool isIPv6 = std::string(address).find(':') != std::string::npos;
    const int family = isIPv6 ? AF_INET6 : AF_INET;
    uint8_t bytes[16] = {};
    EXPECT_EQ(inet_pton(family, address, bytes), 1) << address;
    hideAddress(bytes, isIPv6 ? 16 : 4);
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(family, bytes, text, sizeof text);
    return text;
  }
};

TEST_F(StandIns, AddressesThatAreNobodysStay) {
  for (const char *address : {"0.0.0.0", "127.0.0.1", "127.1.2.3", "224.0.0.251", "255.255.255.255",
                              "::", "::1", "ff02::fb"}) {
    EXPECT_EQ(hidden(address), address);
  }
}

TEST_F(StandIns, PrivateAddressesStayPrivate) {
  EXPECT_EQ(hidden("10.20.30.40").substr(0, 3), "10.");
  EXPECT_EQ(hidden("192.168.1.23").substr(0, 8), "192.168.");
  EXPECT_EQ(hidden("172.16.5.4").substr(0, 7), "172.16.");
  EXPECT_EQ(hidden("169.254.7.7").substr(0, 8), "169.254.");
  EXPECT_EQ(hidden("fe80::1234").substr(0, 6), "fe80::");
  EXPECT_EQ(hidden("fd12::1").substr(0, 6), "fd12::");
}

TEST_F(StandIns, PublicAddressesStayPublicAndAsLong) {
  for (int first = 1; first < 224; first++) {
    if (first == 10 || first == 127) continue;
    const std::string address = std::to_string(first) + ".200.3.44";
    const std::string hiddenOne = hidden(address.c_str());
    EXPECT_EQ(hiddenOne.size(), address.size());
    const int hiddenFirst = std::stoi(hiddenOne);
    EXPECT_TRUE(hiddenFirst > 0 && hiddenFirst < 224 && hiddenFirst != 10 && hiddenFirst != 127)
        << address << " became " << hiddenOne;
    for (const char *isPrivate : {"192.168.", "169.254.", "172.16."}) {
      EXPECT_NE(hiddenOne.substr(0, std::string(isPrivate).size()), isPrivate);
    }
  }
  EXPECT_EQ(hidden("2001:db8::5")[0], '2');
}

TEST_F(StandIns, AddressesThatDifferStayDifferent) {
  std::set<std::string> seen;
  for (int first = 1; first < 224; first++) {
    for (const char *rest : {".1.2.3", ".1.2.4", ".17.2.3"}) {
      EXPECT_TRUE(seen.insert(hidden((std::to_string(first) + rest).c_str())).second);
    }
  }
  for (int last = 0; last < 512; last++) {
    char address[40];
    snprintf(address, sizeof address, "2001:db8::%x:%x", last, 512 - last);
    EXPECT_TRUE(seen.insert(hidden(address)).second) << address;
  }
}

TEST_F(StandIns, MappedAddressesAreHiddenAsWhatTheyMap) {
  EXPECT_EQ(hidden("::ffff:93.184.216.34"), "::ffff:" + hidden("93.184.216.34"));
}

}  // namespace
