// Fields and numbers of the network statistics and of Wi-Fi requests, which the platform's public
// headers leave out.
#include <gtest/gtest.h>

#include <iterator>
#include <type_traits>
#include <vector>

#include "darwin/kernel_control.h"
#include "host/darwin/interfaces.h"
#include "host/darwin/ntstat.h"
#include "layouts.h"
#include "nstat/layouts.h"

namespace {

using namespace darwin;

TEST(NetworkStatisticsLayout, HasNoPadding) {
  EXPECT_NO_PADDING(nstat_msg_hdr);
  EXPECT_NO_PADDING(nstat_msg_error);
  EXPECT_NO_PADDING(nstat_msg_add_all_srcs);
  EXPECT_NO_PADDING(nstat_msg_query_src_req);
  EXPECT_NO_PADDING(nstat_msg_get_src_description);
  EXPECT_NO_PADDING(nstat_msg_src_added);
  EXPECT_NO_PADDING(nstat_msg_src_removed);
  EXPECT_NO_PADDING(nstat_msg_src_description);
  EXPECT_NO_PADDING(nstat_msg_src_counts);
  EXPECT_NO_PADDING(nstat_counts);
  EXPECT_NO_PADDING(nstat_address);
  EXPECT_NO_PADDING(nstat_tcp_descriptor);
  EXPECT_NO_PADDING(nstat_udp_descriptor);
}

TEST(NetworkStatisticsNumbers, TypesAndProviders) {
  EXPECT_STREQ(NET_STAT_CONTROL_NAME, "com.apple.network.statistics");
  expectNumbers({NUMBER(NSTAT_MSG_TYPE_SUCCESS, 0), NUMBER(NSTAT_MSG_TYPE_ERROR, 1),
                 NUMBER(NSTAT_MSG_TYPE_ADD_ALL_SRCS, 1002), NUMBER(NSTAT_MSG_TYPE_QUERY_SRC, 1004),
                 NUMBER(NSTAT_MSG_TYPE_GET_SRC_DESC, 1005), NUMBER(NSTAT_MSG_TYPE_SRC_ADDED, 10001),
                 NUMBER(NSTAT_MSG_TYPE_SRC_REMOVED, 10002), NUMBER(NSTAT_MSG_TYPE_SRC_DESC, 10003),
                 NUMBER(NSTAT_MSG_TYPE_SRC_COUNTS, 10004), NUMBER(NSTAT_MSG_TYPE_SRC_UPDATE, 10006),
                 NUMBER(NSTAT_MSG_HDR_FLAG_SUPPORTS_AGGREGATE, 1),
                 NUMBER(NSTAT_MSG_HDR_FLAG_CONTINUATION, 2), NUMBER(NSTAT_PROVIDER_ROUTE, 1),
                 NUMBER(NSTAT_PROVIDER_TCP, 2), NUMBER(NSTAT_PROVIDER_UDP, 3),
                 NUMBER(NSTAT_PROVIDER_SYSINFO, 5), NUMBER(NSTAT_SRC_REF_ALL, 4294967295),
                 NUMBER(AF_SYS_CONTROL, 2)});
}

// The fields of one family's messages, by the structures that it was built with: offsets from the
// start of the message, but for those of descriptors.
struct Fields {
  uint32_t firstKernel;
  size_t reference;  // its width
  size_t addAll, addAllProvider;
  size_t added, addedProvider, addedReference;
  size_t counts;
  size_t descriptionProvider, descriptor;
  size_t updateProvider, updateDescriptor;
  size_t tcp, tcpPID, tcpName, udpPID, udpName;
  std::vector<uint32_t> tcpProviders, udpProviders;
};

TEST(NetworkStatisticsLayouts, OfEachFamily) {
  const Fields kFamilies[] = {
      {0, 4, 20, 16, 24, 16, 20, 20, 20, 24, 0, 0, 128, 124, 128, 80, 84, {2}, {3}},
      {3247, 4, 28, 16, 24, 16, 20, 20, 20, 24, 132, 136, 128, 124, 128, 80, 84, {2}, {3}},
      {3789, 8, 56, 16, 28, 16, 20, 32, 32, 36, 144, 148, 128, 124, 128, 80, 84, {2, 3}, {4, 5}},
      {4570,
       8,
       56,
       32,
       32,
       24,
       16,
       32,
       32,
       40,
       144,
       152,
       304,
       100,
       180,
       128,
       132,
       {2, 3, 8},
       {4, 5}},
      {7195,
       8,
       56,
       32,
       32,
       24,
       16,
       32,
       32,
       40,
       144,
       152,
       336,
       116,
       196,
       128,
       132,
       {2, 3, 8},
       {4, 5}},
  };
  ASSERT_EQ(std::size(kFamilies), sondex::kStatisticsLayouts);
  for (size_t i = 0; i < sondex::kStatisticsLayouts; i++) {
    const Fields &is = kFamilies[i];
    const sondex::StatisticsLayout &layout = sondex::kStatisticsLayout[i];
    SCOPED_TRACE(is.firstKernel);
    EXPECT_EQ(layout.firstKernel, is.firstKernel);
    EXPECT_EQ(layout.tellsLength, is.firstKernel >= 3247);
    EXPECT_EQ(layout.hasWideReferences, is.reference == 8);
    EXPECT_EQ(layout.addAllSize, is.addAll);
    EXPECT_EQ(layout.addAllProvider, is.addAllProvider);
    EXPECT_EQ(layout.addedSize, is.added);
    EXPECT_EQ(layout.addedProvider, is.addedProvider);
    EXPECT_EQ(layout.addedReference, is.addedReference);
    EXPECT_EQ(layout.counts, is.counts);
    EXPECT_EQ(layout.descriptionProvider, is.descriptionProvider);
    EXPECT_EQ(layout.descriptionDescriptor, is.descriptor);
    EXPECT_EQ(layout.updateProvider, is.updateProvider);
    EXPECT_EQ(layout.updateDescriptor, is.updateDescriptor);
    EXPECT_EQ(layout.shortestTCP, is.tcp);
    EXPECT_EQ(layout.tcp.pid, is.tcpPID);
    EXPECT_EQ(layout.tcp.name, is.tcpName);
    EXPECT_EQ(layout.udp.pid, is.udpPID);
    EXPECT_EQ(layout.udp.name, is.udpName);
    std::vector<uint32_t> tcp;
    std::vector<uint32_t> udp;
    for (size_t each = 0; each < layout.providerCount; each++) {
      const bool isTCP = layout.providers[each].descriptor == sondex::DescriptorKind::tcp;
      (isTCP ? tcp : udp).push_back(layout.providers[each].number);
    }
    EXPECT_EQ(tcp, is.tcpProviders);
    EXPECT_EQ(udp, is.udpProviders);
  }
}

TEST(InterfaceNumbers, TypesOfInterfaces) {
  EXPECT_EQ(IFT_ETHER, 6);
  EXPECT_EQ(IFT_PPP, 23);
  EXPECT_EQ(IFT_LOOP, 24);
}

TEST(WirelessLayout, HasFieldsOfTheirWidthAndSign) {
  EXPECT_NO_PADDING(apple80211_channel_data);
  EXPECT_NO_PADDING(apple80211_rssi_data);
  // With padding before its pointer.
  EXPECT_EQ(sizeof(apple80211req::req_type), 4u);
  EXPECT_EQ(sizeof(apple80211req::req_val), 4u);
  EXPECT_EQ(sizeof(apple80211req::req_len), 4u);
  EXPECT_TRUE(std::is_signed_v<decltype(apple80211req::req_val)>);
  EXPECT_TRUE(std::is_signed_v<decltype(apple80211_rssi_data::aggregate_rssi)>);
}

TEST(WirelessNumbers, Requests) {
  expectNumbers({NUMBER(SIOCGA80211, 0xC02869C9), NUMBER(APPLE80211_IOC_SSID, 1),
                 NUMBER(APPLE80211_IOC_CHANNEL, 4), NUMBER(APPLE80211_IOC_RSSI, 16),
                 NUMBER(APPLE80211_MAX_SSID_LEN, 32), NUMBER(APPLE80211_MAX_RADIO, 4)});
}

}  // namespace
