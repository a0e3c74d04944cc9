// Wi-Fi with replies made up here: few machines that run tests have any.
#include "host/linux/wireless.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/genetlink.h>
#include <linux/nl80211.h>

#include <map>

#include "host/darwin/errors.h"
#include "tests/unit/netlink_bytes.h"

namespace {

using namespace host;
using namespace host::linux_machine;
using netlink_test::Bytes;
using testing::ElementsAre;

constexpr uint16_t kFamily = 29;
constexpr int kNoSuchFamily = 2;

TEST(Channel, OfFrequency) {
  const struct {
    uint32_t megahertz;
    uint32_t channel;
  } kRows[] = {{2412, 1}, {2437, 6}, {2472, 13}, {2484, 14},  {5180, 36}, {5825, 165},
               {5935, 2}, {5955, 1}, {6115, 33}, {7115, 233}, {0, 0},     {2411, 0},
               {2413, 0}, {2485, 0}, {5182, 0},  {5900, 0},   {60480, 0}, {0xFFFFFFFF, 0}};
  for (const auto &row : kRows) EXPECT_EQ(channelOf(row.megahertz), row.channel) << row.megahertz;
}

class WirelessInterface : public testing::Test {
 protected:
  static Bytes entry(uint32_t index, const std::string &name) {
    Bytes made;
    made.add(genlmsghdr{NL80211_CMD_NEW_INTERFACE, 1, 0})
        .number(NL80211_ATTR_IFINDEX, index)
        .attribute(NL80211_ATTR_IFNAME, name + '\0');
    return made;
  }
  static Bytes connected(uint32_t index, const std::string &name, const std::string &ssid) {
    return entry(index, name)
        .attribute(NL80211_ATTR_SSID, ssid)
        .number(NL80211_ATTR_WIPHY_FREQ, uint32_t{5180});
  }
  static Bytes station(const Bytes &info) {
    Bytes made;
    made.add(genlmsghdr{NL80211_CMD_NEW_STATION, 1, 0})
        .attribute(NL80211_ATTR_STA_INFO | NLA_F_NESTED, info);
    return made;
  }

  DumpProgress answer(const NetlinkRequest &request, uint16_t type, uint16_t flags,
                      const Wireless::Visitor &visit) {
    DumpProgress progress;
    progress.done = true;
    genlmsghdr command;
    memcpy(&command, request.bytes + NLMSG_HDRLEN, sizeof command);
    if (type == GENL_ID_CTRL) {
      familyQuestions++;
      EXPECT_EQ(flags, NLM_F_ACK);
      EXPECT_EQ(command.cmd, CTRL_CMD_GETFAMILY);
      EXPECT_EQ(request.size, 16u + 4 + 12);
      EXPECT_EQ(memcmp(request.bytes + 24, "nl80211\0", 8), 0);
      if (!hasFamily) {
        progress.error = kNoSuchFamily;
        return progress;
      }
      Bytes family;
      family.add(genlmsghdr{CTRL_CMD_NEWFAMILY, 2, 0}).number(CTRL_ATTR_FAMILY_ID, kFamily);
      progress.malformed = !visit(GENL_ID_CTRL, family.span());
      return progress;
    }
    EXPECT_EQ(type, kFamily);
    EXPECT_EQ(flags, NLM_F_DUMP);
    const std::vector<Bytes> *list = &interfaces;
    if (command.cmd == NL80211_CMD_GET_STATION) {
      EXPECT_EQ(request.size, 16u + 4 + 8);
      uint32_t index = 0;
      memcpy(&index, request.bytes + 24, sizeof index);
      list = &stations[index];
    } else {
      EXPECT_EQ(command.cmd, NL80211_CMD_GET_INTERFACE);
      EXPECT_EQ(request.size, 16u + 4);
    }
    for (const Bytes &each : *list) {
      if (!visit(kFamily, each.span())) progress.malformed = true;
    }
    progress.error = listError;
    return progress;
  }

  void connectFirst() {
    interfaces = {connected(3, "wlan0", "Cafe")};
    Bytes info;
    info.number(NL80211_STA_INFO_SIGNAL, int8_t{-61});
    stations[3] = {station(info)};
  }

  Wireless wireless{
      [this](const NetlinkRequest &request, uint16_t type, uint16_t flags,
             const Wireless::Visitor &visit) { return answer(request, type, flags, visit); }};
  bool hasFamily = true;
  int familyQuestions = 0;
  int listError = 0;
  std::vector<Bytes> interfaces;
  std::map<uint32_t, std::vector<Bytes>> stations;
  WirelessNetwork network;
};

TEST_F(WirelessInterface, Connected) {
  connectFirst();
  ASSERT_EQ(wireless.network("wlan0", network), kAnswered);
  EXPECT_TRUE(network.connected);
  EXPECT_EQ(network.name, "Cafe");
  EXPECT_EQ(network.channel, 36u);
  EXPECT_EQ(network.signal, -61);
  EXPECT_TRUE(network.radios.empty());
  ASSERT_EQ(wireless.network("wlan0", network), kAnswered);
  EXPECT_EQ(familyQuestions, 1);
}

TEST_F(WirelessInterface, TheUsualNameIsTheFirst) {
  connectFirst();
  interfaces.insert(interfaces.begin(), connected(9, "wlan9", "Other"));
  // One that only belongs to the radio has no name.
  Bytes nameless;
  nameless.add(genlmsghdr{NL80211_CMD_NEW_INTERFACE, 1, 0}).number(NL80211_ATTR_IFINDEX, 1u);
  interfaces.push_back(nameless);
  ASSERT_EQ(wireless.network("en0", network), kAnswered);
  EXPECT_EQ(network.name, "Cafe");
  interfaces.push_back(connected(12, "en0", "Really"));
  stations[12] = stations[3];
  ASSERT_EQ(wireless.network("en0", network), kAnswered);
  EXPECT_EQ(network.name, "Really");
}

TEST_F(WirelessInterface, EachRadio) {
  connectFirst();
  Bytes chains;
  for (const int level : {-61, -58, -70, -71, -72}) {
    chains.number(0, static_cast<int8_t>(level));
  }
  Bytes info;
  info.attribute(NL80211_STA_INFO_CHAIN_SIGNAL | NLA_F_NESTED, chains)
      .number(NL80211_STA_INFO_SIGNAL, int8_t{-57});
  stations[3] = {station(info)};
  ASSERT_EQ(wireless.network("en0", network), kAnswered);
  EXPECT_THAT(network.radios, ElementsAre(-61, -58, -70, -71));
  EXPECT_EQ(network.signal, -57);
}

TEST_F(WirelessInterface, NotConnected) {
  connectFirst();
  interfaces = {entry(3, "wlan0")};
  ASSERT_EQ(wireless.network("wlan0", network), kAnswered);
  EXPECT_FALSE(network.connected);
  // A name, but nobody who is heard.
  connectFirst();
  stations.clear();
  ASSERT_EQ(wireless.network("wlan0", network), kAnswered);
  EXPECT_FALSE(network.connected);
  EXPECT_EQ(network.name, "");
}

TEST_F(WirelessInterface, ThatIsNotThere) {
  EXPECT_EQ(wireless.network("en0", network), darwin::DARWIN_ENXIO);
  connectFirst();
  EXPECT_EQ(wireless.network("en1", network), darwin::DARWIN_ENXIO);
  EXPECT_EQ(wireless.network("", network), darwin::DARWIN_ENXIO);
  listError = 19;
  EXPECT_EQ(wireless.network("en0", network), darwin::DARWIN_ENXIO);
  listError = 0;
  EXPECT_EQ(wireless.network("en0", network), kAnswered);
  EXPECT_EQ(familyQuestions, 2) << "after a failure the family may have another number";
}

TEST_F(WirelessInterface, AKernelWithoutWiFi) {
  hasFamily = false;
  EXPECT_EQ(wireless.network("en0", network), darwin::DARWIN_ENXIO);
}

TEST_F(WirelessInterface, BrokenReplies) {
  connectFirst();
  interfaces = {Bytes(), Bytes().add(uint16_t{5}),
                connected(3, "wlan0", std::string(60, 'n')).add(nlattr{900, 4})};
  Bytes info;
  info.attribute(NL80211_STA_INFO_SIGNAL, std::string());
  stations[3] = {station(info), Bytes().add(uint16_t{5})};
  ASSERT_EQ(wireless.network("en0", network), kAnswered);
  EXPECT_FALSE(network.connected) << "a signal of no bytes";
  info.number(NL80211_STA_INFO_SIGNAL, int8_t{-1});
  stations[3] = {station(info)};
  ASSERT_EQ(wireless.network("en0", network), kAnswered);
  EXPECT_EQ(network.name, std::string(32, 'n'));
}

TEST(LiveWireless, AnswersOneWayOrTheOther) {
  Wireless wireless;
  WirelessNetwork network;
  const Errno error = wireless.network("en0", network);
  EXPECT_TRUE(error == kAnswered || error == darwin::DARWIN_ENXIO) << error;
  if (error == kAnswered && network.connected) {
    EXPECT_FALSE(network.name.empty());
    EXPECT_LT(network.signal, 0);
  }
  EXPECT_EQ(wireless.network("no such name", network), darwin::DARWIN_ENXIO);
}

}  // namespace
