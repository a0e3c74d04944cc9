// Layouts and numbers of the network statistics and of Wi-Fi requests, which the platform's public
// headers leave out, against the offsets that are counted on from the start of a whole message.
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "darwin/interfaces.h"
#include "darwin/kernel_control.h"
#include "darwin/ntstat.h"
#include "layouts.h"

namespace {

using namespace darwin;

TEST(NetworkStatisticsLayout, Messages) {
  expectLayout<darwin::nstat_msg_hdr>(
      16, 4,
      {ROW(nstat_msg_hdr, context, 0, 8), ROW(nstat_msg_hdr, type, 8, 4),
       ROW(nstat_msg_hdr, length, 12, 2), ROW(nstat_msg_hdr, flags, 14, 2)});
  expectLayout<darwin::nstat_msg_error>(
      20, 4, {ROW(nstat_msg_error, hdr, 0, 16), ROW(nstat_msg_error, error, 16, 4)});
  expectLayout<darwin::nstat_msg_add_all_srcs>(
      20, 4,
      {ROW(nstat_msg_add_all_srcs, hdr, 0, 16), ROW(nstat_msg_add_all_srcs, provider, 16, 4)});
  expectLayout<darwin::nstat_msg_query_src_req>(
      20, 4,
      {ROW(nstat_msg_query_src_req, hdr, 0, 16), ROW(nstat_msg_query_src_req, srcref, 16, 4)});
  expectLayout<darwin::nstat_msg_get_src_description>(
      20, 4,
      {ROW(nstat_msg_get_src_description, hdr, 0, 16),
       ROW(nstat_msg_get_src_description, srcref, 16, 4)});
  expectLayout<darwin::nstat_msg_src_added>(
      24, 4,
      {ROW(nstat_msg_src_added, hdr, 0, 16), ROW(nstat_msg_src_added, provider, 16, 4),
       ROW(nstat_msg_src_added, srcref, 20, 4)});
  expectLayout<darwin::nstat_msg_src_removed>(
      20, 4, {ROW(nstat_msg_src_removed, hdr, 0, 16), ROW(nstat_msg_src_removed, srcref, 16, 4)});
  expectLayout<darwin::nstat_msg_src_description>(
      24, 4,
      {ROW(nstat_msg_src_description, hdr, 0, 16), ROW(nstat_msg_src_description, srcref, 16, 4),
       ROW(nstat_msg_src_description, provider, 20, 4)});
  expectLayout<darwin::nstat_msg_src_counts>(
      132, 4,
      {ROW(nstat_msg_src_counts, hdr, 0, 16), ROW(nstat_msg_src_counts, srcref, 16, 4),
       ROW(nstat_msg_src_counts, counts, 20, 112)});
}

TEST(NetworkStatisticsLayout, Counts) {
  expectLayout<darwin::nstat_counts>(
      112, 4,
      {ROW(nstat_counts, nstat_rxpackets, 0, 8), ROW(nstat_counts, nstat_rxbytes, 8, 8),
       ROW(nstat_counts, nstat_txpackets, 16, 8), ROW(nstat_counts, nstat_txbytes, 24, 8),
       ROW(nstat_counts, nstat_rxduplicatebytes, 32, 4),
       ROW(nstat_counts, nstat_rxoutoforderbytes, 36, 4),
       ROW(nstat_counts, nstat_txretransmit, 40, 4),
       ROW(nstat_counts, nstat_connectattempts, 44, 4),
       ROW(nstat_counts, nstat_connectsuccesses, 48, 4), ROW(nstat_counts, nstat_min_rtt, 52, 4),
       ROW(nstat_counts, nstat_avg_rtt, 56, 4), ROW(nstat_counts, nstat_var_rtt, 60, 4),
       ROW(nstat_counts, nstat_cell_rxbytes, 64, 8), ROW(nstat_counts, nstat_cell_txbytes, 72, 8),
       ROW(nstat_counts, nstat_wifi_rxbytes, 80, 8), ROW(nstat_counts, nstat_wifi_txbytes, 88, 8),
       ROW(nstat_counts, nstat_wired_rxbytes, 96, 8),
       ROW(nstat_counts, nstat_wired_txbytes, 104, 8)});
}

TEST(NetworkStatisticsLayout, Descriptors) {
  expectLayout<darwin::nstat_address>(
      28, 4,
      {ROW(nstat_address, length, 0, 1), ROW(nstat_address, family, 1, 1),
       ROW(nstat_address, port, 2, 2), ROW(nstat_address, words, 4, 24)});
  expectLayout<darwin::nstat_tcp_descriptor>(252, 4,
                                             {ROW(nstat_tcp_descriptor, local, 0, 28),
                                              ROW(nstat_tcp_descriptor, remote, 28, 28),
                                              ROW(nstat_tcp_descriptor, ifindex, 56, 4),
                                              ROW(nstat_tcp_descriptor, state, 60, 4),
                                              ROW(nstat_tcp_descriptor, sndbufsize, 64, 4),
                                              ROW(nstat_tcp_descriptor, sndbufused, 68, 4),
                                              ROW(nstat_tcp_descriptor, rcvbufsize, 72, 4),
                                              ROW(nstat_tcp_descriptor, rcvbufused, 76, 4),
                                              ROW(nstat_tcp_descriptor, txunacked, 80, 4),
                                              ROW(nstat_tcp_descriptor, txwindow, 84, 4),
                                              ROW(nstat_tcp_descriptor, txcwindow, 88, 4),
                                              ROW(nstat_tcp_descriptor, traffic_class, 92, 4),
                                              ROW(nstat_tcp_descriptor, traffic_mgt_flags, 96, 4),
                                              ROW(nstat_tcp_descriptor, cc_algo, 100, 16),
                                              ROW(nstat_tcp_descriptor, upid, 116, 8),
                                              ROW(nstat_tcp_descriptor, pid, 124, 4),
                                              ROW(nstat_tcp_descriptor, pname, 128, 64),
                                              ROW(nstat_tcp_descriptor, eupid, 192, 8),
                                              ROW(nstat_tcp_descriptor, epid, 200, 4),
                                              ROW(nstat_tcp_descriptor, uuid, 204, 16),
                                              ROW(nstat_tcp_descriptor, euuid, 220, 16),
                                              ROW(nstat_tcp_descriptor, vuuid, 236, 16)});
  expectLayout<darwin::nstat_udp_descriptor>(
      208, 4,
      {ROW(nstat_udp_descriptor, local, 0, 28), ROW(nstat_udp_descriptor, remote, 28, 28),
       ROW(nstat_udp_descriptor, ifindex, 56, 4), ROW(nstat_udp_descriptor, rcvbufsize, 60, 4),
       ROW(nstat_udp_descriptor, rcvbufused, 64, 4),
       ROW(nstat_udp_descriptor, traffic_class, 68, 4), ROW(nstat_udp_descriptor, upid, 72, 8),
       ROW(nstat_udp_descriptor, pid, 80, 4), ROW(nstat_udp_descriptor, pname, 84, 64),
       ROW(nstat_udp_descriptor, eupid, 148, 8), ROW(nstat_udp_descriptor, epid, 156, 4),
       ROW(nstat_udp_descriptor, uuid, 160, 16), ROW(nstat_udp_descriptor, euuid, 176, 16),
       ROW(nstat_udp_descriptor, vuuid, 192, 16)});
}

// Where readers find a field, from the start of a whole message.
TEST(NetworkStatisticsLayout, OffsetsInMessages) {
  constexpr size_t kDescriptor = sizeof(nstat_msg_src_description);
  EXPECT_EQ(kDescriptor + sizeof(nstat_tcp_descriptor), 276u);
  EXPECT_EQ(kDescriptor + sizeof(nstat_udp_descriptor), 232u);
  EXPECT_EQ(kDescriptor + offsetof(nstat_tcp_descriptor, pid), 148u);
  EXPECT_EQ(kDescriptor + offsetof(nstat_tcp_descriptor, pname), 152u);
  EXPECT_EQ(kDescriptor + offsetof(nstat_udp_descriptor, pid), 104u);
  EXPECT_EQ(kDescriptor + offsetof(nstat_udp_descriptor, pname), 108u);
  EXPECT_EQ(offsetof(nstat_msg_src_counts, counts.nstat_rxpackets), 20u);
  EXPECT_EQ(offsetof(nstat_msg_src_counts, counts.nstat_rxbytes), 28u);
  EXPECT_EQ(offsetof(nstat_msg_src_counts, counts.nstat_txpackets), 36u);
  EXPECT_EQ(offsetof(nstat_msg_src_counts, counts.nstat_txbytes), 44u);
}

TEST(NetworkStatisticsNumbers, TypesAndProviders) {
  EXPECT_STREQ(NET_STAT_CONTROL_NAME, "com.apple.network.statistics");
  expectNumbers({NUMBER(NSTAT_MSG_TYPE_SUCCESS, 0), NUMBER(NSTAT_MSG_TYPE_ERROR, 1),
                 NUMBER(NSTAT_MSG_TYPE_ADD_ALL_SRCS, 1002), NUMBER(NSTAT_MSG_TYPE_QUERY_SRC, 1004),
                 NUMBER(NSTAT_MSG_TYPE_GET_SRC_DESC, 1005), NUMBER(NSTAT_MSG_TYPE_SRC_ADDED, 10001),
                 NUMBER(NSTAT_MSG_TYPE_SRC_REMOVED, 10002), NUMBER(NSTAT_MSG_TYPE_SRC_DESC, 10003),
                 NUMBER(NSTAT_MSG_TYPE_SRC_COUNTS, 10004), NUMBER(NSTAT_PROVIDER_ROUTE, 1),
                 NUMBER(NSTAT_PROVIDER_TCP, 2), NUMBER(NSTAT_PROVIDER_UDP, 3),
                 NUMBER(NSTAT_PROVIDER_IFNET, 4), NUMBER(NSTAT_PROVIDER_SYSINFO, 5),
                 NUMBER(NSTAT_SRC_REF_ALL, 4294967295), NUMBER(NSTAT_SRC_REF_INVALID, 0),
                 NUMBER(AF_SYS_CONTROL, 2)});
}

TEST(InterfaceNumbers, TypesOfInterfaces) {
  EXPECT_EQ(IFT_ETHER, 6);
  EXPECT_EQ(IFT_PPP, 23);
  EXPECT_EQ(IFT_LOOP, 24);
}

TEST(WirelessLayout, RequestAndAnswers) {
  expectLayout<darwin::apple80211req>(
      40, 8,
      {ROW(apple80211req, req_if_name, 0, 16), ROW(apple80211req, req_type, 16, 4),
       ROW(apple80211req, req_val, 20, 4), ROW(apple80211req, req_len, 24, 4),
       ROW(apple80211req, req_data, 32, 8)});
  expectLayout<darwin::apple80211_channel_data>(
      16, 4,
      {ROW(apple80211_channel_data, version, 0, 4),
       ROW(apple80211_channel_data, channel_version, 4, 4),
       ROW(apple80211_channel_data, channel, 8, 4), ROW(apple80211_channel_data, flags, 12, 4)});
  expectLayout<darwin::apple80211_rssi_data>(
      52, 4,
      {ROW(apple80211_rssi_data, version, 0, 4), ROW(apple80211_rssi_data, num_radios, 4, 4),
       ROW(apple80211_rssi_data, rssi_unit, 8, 4), ROW(apple80211_rssi_data, rssi, 12, 16),
       ROW(apple80211_rssi_data, aggregate_rssi, 28, 4),
       ROW(apple80211_rssi_data, rssi_ext, 32, 16),
       ROW(apple80211_rssi_data, aggregate_rssi_ext, 48, 4)});
  EXPECT_TRUE(std::is_signed_v<decltype(apple80211req::req_val)>);
  EXPECT_TRUE(std::is_signed_v<decltype(apple80211_rssi_data::aggregate_rssi)>);
}

TEST(WirelessNumbers, Requests) {
  expectNumbers({NUMBER(SIOCGA80211, 0xC02869C9), NUMBER(APPLE80211_IOC_SSID, 1),
                 NUMBER(APPLE80211_IOC_CHANNEL, 4), NUMBER(APPLE80211_IOC_RSSI, 16),
                 NUMBER(APPLE80211_MAX_SSID_LEN, 32), NUMBER(APPLE80211_MAX_RADIO, 4)});
}

}  // namespace
