// Layouts and numbers of the network statistics and of Wi-Fi requests, which the platform's public
// headers leave out, against the offsets that are counted on from the start of a whole message.
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "darwin/interfaces.h"
#include "darwin/kernel_control.h"
#include "darwin/ntstat.h"

namespace {

using namespace darwin;

TEST(NetworkStatisticsLayout, SizesOfMessages) {
  EXPECT_EQ(sizeof(nstat_msg_hdr), 16u);
  EXPECT_EQ(sizeof(nstat_msg_error), 20u);
  EXPECT_EQ(sizeof(nstat_msg_add_all_srcs), 20u);
  EXPECT_EQ(sizeof(nstat_msg_query_src_req), 20u);
  EXPECT_EQ(sizeof(nstat_msg_get_src_description), 20u);
  EXPECT_EQ(sizeof(nstat_msg_src_added), 24u);
  EXPECT_EQ(sizeof(nstat_msg_src_removed), 20u);
  EXPECT_EQ(sizeof(nstat_msg_src_counts), 132u);
  EXPECT_EQ(sizeof(nstat_counts), 112u);
  EXPECT_EQ(sizeof(nstat_msg_src_description) + sizeof(nstat_tcp_descriptor), 276u);
  EXPECT_EQ(sizeof(nstat_msg_src_description) + sizeof(nstat_udp_descriptor), 232u);
  EXPECT_EQ(sizeof(nstat_address), 28u);
}

TEST(NetworkStatisticsLayout, OffsetsInMessages) {
  constexpr size_t kDescriptor = sizeof(nstat_msg_src_description);
  EXPECT_EQ(kDescriptor + offsetof(nstat_tcp_descriptor, pid), 148u);
  EXPECT_EQ(kDescriptor + offsetof(nstat_tcp_descriptor, pname), 152u);
  EXPECT_EQ(kDescriptor + offsetof(nstat_udp_descriptor, pid), 104u);
  EXPECT_EQ(kDescriptor + offsetof(nstat_udp_descriptor, pname), 108u);
  EXPECT_EQ(offsetof(nstat_msg_src_counts, counts.nstat_rxpackets), 20u);
  EXPECT_EQ(offsetof(nstat_msg_src_counts, counts.nstat_rxbytes), 28u);
  EXPECT_EQ(offsetof(nstat_msg_src_counts, counts.nstat_txpackets), 36u);
  EXPECT_EQ(offsetof(nstat_msg_src_counts, counts.nstat_txbytes), 44u);
  EXPECT_EQ(offsetof(nstat_msg_src_description, srcref), 16u);
  EXPECT_EQ(offsetof(nstat_msg_src_description, provider), 20u);
  EXPECT_EQ(offsetof(nstat_msg_src_added, provider), 16u);
  EXPECT_EQ(offsetof(nstat_msg_src_added, srcref), 20u);
}

TEST(NetworkStatisticsNumbers, TypesAndProviders) {
  EXPECT_STREQ(NET_STAT_CONTROL_NAME, "com.apple.network.statistics");
  EXPECT_EQ(NSTAT_MSG_TYPE_SUCCESS, 0u);
  EXPECT_EQ(NSTAT_MSG_TYPE_ERROR, 1u);
  EXPECT_EQ(NSTAT_MSG_TYPE_ADD_ALL_SRCS, 1002u);
  EXPECT_EQ(NSTAT_MSG_TYPE_QUERY_SRC, 1004u);
  EXPECT_EQ(NSTAT_MSG_TYPE_GET_SRC_DESC, 1005u);
  EXPECT_EQ(NSTAT_MSG_TYPE_SRC_ADDED, 10001u);
  EXPECT_EQ(NSTAT_MSG_TYPE_SRC_REMOVED, 10002u);
  EXPECT_EQ(NSTAT_MSG_TYPE_SRC_DESC, 10003u);
  EXPECT_EQ(NSTAT_MSG_TYPE_SRC_COUNTS, 10004u);
  EXPECT_EQ(NSTAT_PROVIDER_ROUTE, 1u);
  EXPECT_EQ(NSTAT_PROVIDER_TCP, 2u);
  EXPECT_EQ(NSTAT_PROVIDER_UDP, 3u);
  EXPECT_EQ(NSTAT_PROVIDER_IFNET, 4u);
  EXPECT_EQ(NSTAT_PROVIDER_SYSINFO, 5u);
  EXPECT_EQ(NSTAT_SRC_REF_ALL, 4294967295u);
  EXPECT_EQ(NSTAT_SRC_REF_INVALID, 0u);
  EXPECT_EQ(AF_SYS_CONTROL, 2);
}

TEST(InterfaceNumbers, TypesOfInterfaces) {
  EXPECT_EQ(IFT_ETHER, 6);
  EXPECT_EQ(IFT_PPP, 23);
  EXPECT_EQ(IFT_LOOP, 24);
}

TEST(WirelessLayout, RequestAndAnswers) {
  EXPECT_EQ(SIOCGA80211, 0xC02869C9u);
  EXPECT_EQ(sizeof(apple80211req), 40u);
  EXPECT_EQ(offsetof(apple80211req, req_type), 16u);
  EXPECT_EQ(offsetof(apple80211req, req_val), 20u);
  EXPECT_EQ(offsetof(apple80211req, req_len), 24u);
  EXPECT_EQ(offsetof(apple80211req, req_data), 32u);
  EXPECT_EQ(APPLE80211_IOC_SSID, 1u);
  EXPECT_EQ(APPLE80211_IOC_CHANNEL, 4u);
  EXPECT_EQ(APPLE80211_IOC_RSSI, 16u);
  EXPECT_EQ(sizeof(apple80211_channel_data), 16u);
  EXPECT_EQ(offsetof(apple80211_channel_data, channel), 8u);
  EXPECT_EQ(sizeof(apple80211_rssi_data), 52u);
  EXPECT_EQ(offsetof(apple80211_rssi_data, num_radios), 4u);
  EXPECT_EQ(offsetof(apple80211_rssi_data, rssi), 12u);
  EXPECT_EQ(offsetof(apple80211_rssi_data, aggregate_rssi), 28u);
  EXPECT_TRUE(std::is_signed_v<decltype(apple80211_rssi_data::aggregate_rssi)>);
}

}  // namespace
