// Network interfaces: the messages of the interface list, which sysctl() answers to the name
// {CTL_NET, AF_ROUTE, 0, 0, NET_RT_IFLIST2, 0}, and the requests that a Wi-Fi interface answers.
#pragma once

#include <cstdint>

#include "darwin/layout.h"

namespace darwin {

constexpr int DARWIN_NET_RT_IFLIST2 = 6;

// The list is a run of messages. Each begins with its length (16 bits, a multiple of 4), version
// and type; an interface's own message comes before those of its addresses.
constexpr int RTM_IFINFO2 = 0x12;

// ifi_type.
constexpr uint8_t IFT_PPP = 0x17;
constexpr uint8_t IFT_LOOP = 0x18;

#pragma pack(push, 4)

struct timeval32 {
  int32_t tv_sec;
  int32_t tv_usec;
};
DARWIN_LAYOUT(timeval32, 8, 4, (tv_sec, 0), (tv_usec, 4));

struct if_data64 {
  uint8_t ifi_type;
  uint8_t ifi_typelen;
  uint8_t ifi_physical;
  uint8_t ifi_addrlen;
  uint8_t ifi_hdrlen;
  uint8_t ifi_recvquota;
  uint8_t ifi_xmitquota;
  uint8_t ifi_unused1;
  uint32_t ifi_mtu;
  uint32_t ifi_metric;
  uint64_t ifi_baudrate;  // bits per second
  uint64_t ifi_ipackets;
  uint64_t ifi_ierrors;
  uint64_t ifi_opackets;
  uint64_t ifi_oerrors;
  uint64_t ifi_collisions;
  uint64_t ifi_ibytes;
  uint64_t ifi_obytes;
  uint64_t ifi_imcasts;
  uint64_t ifi_omcasts;
  uint64_t ifi_iqdrops;
  uint64_t ifi_noproto;
  uint32_t ifi_recvtiming;
  uint32_t ifi_xmittiming;
  timeval32 ifi_lastchange;
};
DARWIN_LAYOUT(if_data64, 128, 4, (ifi_type, 0), (ifi_typelen, 1), (ifi_physical, 2),
              (ifi_addrlen, 3), (ifi_hdrlen, 4), (ifi_recvquota, 5), (ifi_xmitquota, 6),
              (ifi_unused1, 7), (ifi_mtu, 8), (ifi_metric, 12), (ifi_baudrate, 16),
              (ifi_ipackets, 24), (ifi_ierrors, 32), (ifi_opackets, 40), (ifi_oerrors, 48),
              (ifi_collisions, 56), (ifi_ibytes, 64), (ifi_obytes, 72), (ifi_imcasts, 80),
              (ifi_omcasts, 88), (ifi_iqdrops, 96), (ifi_noproto, 104), (ifi_recvtiming, 112),
              (ifi_xmittiming, 116), (ifi_lastchange, 120));

// Message of type RTM_IFINFO2; the sockaddr_dl follows.
struct if_msghdr2 {
  uint16_t ifm_msglen;
  uint8_t ifm_version;
  uint8_t ifm_type;
  int32_t ifm_addrs;
  int32_t ifm_flags;
  uint16_t ifm_index;
  int32_t ifm_snd_len;
  int32_t ifm_snd_maxlen;
  int32_t ifm_snd_drops;
  int32_t ifm_timer;
  if_data64 ifm_data;
};
DARWIN_LAYOUT(if_msghdr2, 160, 4, (ifm_msglen, 0), (ifm_version, 2), (ifm_type, 3), (ifm_addrs, 4),
              (ifm_flags, 8), (ifm_index, 12), (ifm_snd_len, 16), (ifm_snd_maxlen, 20),
              (ifm_snd_drops, 24), (ifm_timer, 28), (ifm_data, 32));

#pragma pack(pop)

// A longer name makes the structure longer: sdl_len says how long.
struct sockaddr_dl {
  uint8_t sdl_len;
  uint8_t sdl_family;  // DARWIN_AF_LINK
  uint16_t sdl_index;
  uint8_t sdl_type;
  uint8_t sdl_nlen;  // bytes of the name, which has no NUL
  uint8_t sdl_alen;
  uint8_t sdl_slen;
  char sdl_data[12];  // the name, then the address
};
DARWIN_LAYOUT(sockaddr_dl, 20, 2, (sdl_len, 0), (sdl_family, 1), (sdl_index, 2), (sdl_type, 4),
              (sdl_nlen, 5), (sdl_alen, 6), (sdl_slen, 7), (sdl_data, 8));

// ioctl() on an IPv4 datagram socket, with a request that names the interface. ENXIO when there is
// none of that name; other refusals are the driver's.
constexpr unsigned long SIOCGA80211 = 0xC02869C9;

constexpr uint32_t APPLE80211_IOC_SSID = 1;
constexpr uint32_t APPLE80211_IOC_CHANNEL = 4;
constexpr uint32_t APPLE80211_IOC_RSSI = 16;

constexpr uint32_t APPLE80211_MAX_SSID_LEN = 32;
constexpr int APPLE80211_MAX_RADIO = 4;

struct apple80211req {
  char req_if_name[16];
  uint32_t req_type;  // APPLE80211_IOC_*
  int32_t req_val;
  uint32_t req_len;  // bytes at req_data
  void *req_data;
};
DARWIN_LAYOUT(apple80211req, 40, 8, (req_if_name, 0), (req_type, 16), (req_val, 20), (req_len, 24),
              (req_data, 32));

// Answer to APPLE80211_IOC_CHANNEL.
struct apple80211_channel_data {
  uint32_t version;
  uint32_t channel_version;
  uint32_t channel;
  uint32_t flags;
};
DARWIN_LAYOUT(apple80211_channel_data, 16, 4, (version, 0), (channel_version, 4), (channel, 8),
              (flags, 12));

// Answer to APPLE80211_IOC_RSSI, in dBm.
struct apple80211_rssi_data {
  uint32_t version;
  uint32_t num_radios;
  uint32_t rssi_unit;
  int32_t rssi[APPLE80211_MAX_RADIO];
  int32_t aggregate_rssi;
  int32_t rssi_ext[APPLE80211_MAX_RADIO];
  int32_t aggregate_rssi_ext;
};
DARWIN_LAYOUT(apple80211_rssi_data, 52, 4, (version, 0), (num_radios, 4), (rssi_unit, 8),
              (rssi, 12), (aggregate_rssi, 28), (rssi_ext, 32), (aggregate_rssi_ext, 48));

}  // namespace darwin
