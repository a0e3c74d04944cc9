// Fields and numbers of the network statistics and of Wi-Fi requests, which the platform's public
// headers leave out.
#include <gtest/gtest.h>

#include <type_traits>

#include "darwin/kernel_control.h"
#include "host/darwin/interfaces.h"
#include "host/darwin/ntstat.h"
#include "layouts.h"

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
                 NUMBER(NSTAT_MSG_TYPE_SRC_COUNTS, 10004), NUMBER(NSTAT_PROVIDER_ROUTE, 1),
                 NUMBER(NSTAT_PROVIDER_TCP, 2), NUMBER(NSTAT_PROVIDER_UDP, 3),
                 NUMBER(NSTAT_PROVIDER_SYSINFO, 5), NUMBER(NSTAT_SRC_REF_ALL, 4294967295),
                 NUMBER(AF_SYS_CONTROL, 2)});
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
