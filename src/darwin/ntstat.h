// Messages of the kernel's network-statistics service, a kernel control socket of the name below:
// revision 6, in host byte order, with source references of 32 bits. One message per datagram.
#pragma once

#include <cstdint>

#include "darwin/layout.h"

namespace darwin {

constexpr char NET_STAT_CONTROL_NAME[] = "com.apple.network.statistics";

constexpr uint32_t NSTAT_MSG_TYPE_SUCCESS = 0;
constexpr uint32_t NSTAT_MSG_TYPE_ERROR = 1;
constexpr uint32_t NSTAT_MSG_TYPE_ADD_ALL_SRCS = 1002;
constexpr uint32_t NSTAT_MSG_TYPE_QUERY_SRC = 1004;
constexpr uint32_t NSTAT_MSG_TYPE_GET_SRC_DESC = 1005;
constexpr uint32_t NSTAT_MSG_TYPE_SRC_ADDED = 10001;
constexpr uint32_t NSTAT_MSG_TYPE_SRC_REMOVED = 10002;
constexpr uint32_t NSTAT_MSG_TYPE_SRC_DESC = 10003;
constexpr uint32_t NSTAT_MSG_TYPE_SRC_COUNTS = 10004;

constexpr uint32_t NSTAT_PROVIDER_TCP = 2;
constexpr uint32_t NSTAT_PROVIDER_UDP = 3;

constexpr uint32_t NSTAT_SRC_REF_ALL = 0xFFFFFFFF;

#pragma pack(push, 4)

// The last two fields are one word of padding up to revision 6, and zero.
struct nstat_msg_hdr {
  uint64_t context;  // of the request that is answered
  uint32_t type;
  uint16_t length;
  uint16_t flags;
};
DARWIN_LAYOUT(nstat_msg_hdr, 16, 4, (context, 0), (type, 8), (length, 12), (flags, 14));

struct nstat_msg_error {
  nstat_msg_hdr hdr;
  uint32_t error;  // an errno value
};
DARWIN_LAYOUT(nstat_msg_error, 20, 4, (hdr, 0), (error, 16));

struct nstat_msg_add_all_srcs {
  nstat_msg_hdr hdr;
  uint32_t provider;
};
DARWIN_LAYOUT(nstat_msg_add_all_srcs, 20, 4, (hdr, 0), (provider, 16));

struct nstat_msg_query_src_req {
  nstat_msg_hdr hdr;
  uint32_t srcref;
};
DARWIN_LAYOUT(nstat_msg_query_src_req, 20, 4, (hdr, 0), (srcref, 16));

struct nstat_msg_get_src_description {
  nstat_msg_hdr hdr;
  uint32_t srcref;
};
DARWIN_LAYOUT(nstat_msg_get_src_description, 20, 4, (hdr, 0), (srcref, 16));

struct nstat_msg_src_added {
  nstat_msg_hdr hdr;
  uint32_t provider;
  uint32_t srcref;
};
DARWIN_LAYOUT(nstat_msg_src_added, 24, 4, (hdr, 0), (provider, 16), (srcref, 20));

struct nstat_msg_src_removed {
  nstat_msg_hdr hdr;
  uint32_t srcref;
};
DARWIN_LAYOUT(nstat_msg_src_removed, 20, 4, (hdr, 0), (srcref, 16));

// The descriptor of the provider follows.
struct nstat_msg_src_description {
  nstat_msg_hdr hdr;
  uint32_t srcref;
  uint32_t provider;
};
DARWIN_LAYOUT(nstat_msg_src_description, 24, 4, (hdr, 0), (srcref, 16), (provider, 20));

// Running totals since the source appeared.
struct nstat_counts {
  uint64_t nstat_rxpackets;
  uint64_t nstat_rxbytes;
  uint64_t nstat_txpackets;
  uint64_t nstat_txbytes;
  uint32_t nstat_rxduplicatebytes;
  uint32_t nstat_rxoutoforderbytes;
  uint32_t nstat_txretransmit;
  uint32_t nstat_connectattempts;
  uint32_t nstat_connectsuccesses;
  uint32_t nstat_min_rtt;
  uint32_t nstat_avg_rtt;
  uint32_t nstat_var_rtt;
  uint64_t nstat_cell_rxbytes;
  uint64_t nstat_cell_txbytes;
  uint64_t nstat_wifi_rxbytes;
  uint64_t nstat_wifi_txbytes;
  uint64_t nstat_wired_rxbytes;
  uint64_t nstat_wired_txbytes;
};
DARWIN_LAYOUT(nstat_counts, 112, 4, (nstat_rxpackets, 0), (nstat_rxbytes, 8), (nstat_txpackets, 16),
              (nstat_txbytes, 24), (nstat_rxduplicatebytes, 32), (nstat_rxoutoforderbytes, 36),
              (nstat_txretransmit, 40), (nstat_connectattempts, 44), (nstat_connectsuccesses, 48),
              (nstat_min_rtt, 52), (nstat_avg_rtt, 56), (nstat_var_rtt, 60),
              (nstat_cell_rxbytes, 64), (nstat_cell_txbytes, 72), (nstat_wifi_rxbytes, 80),
              (nstat_wifi_txbytes, 88), (nstat_wired_rxbytes, 96), (nstat_wired_txbytes, 104));

struct nstat_msg_src_counts {
  nstat_msg_hdr hdr;
  uint32_t srcref;
  nstat_counts counts;
};
DARWIN_LAYOUT(nstat_msg_src_counts, 132, 4, (hdr, 0), (srcref, 16), (counts, 20));

// A sockaddr_in (16 bytes) or a sockaddr_in6 (28): length, family, port in network order, then the
// address from byte 4 or byte 8 on.
struct nstat_address {
  uint8_t length;
  uint8_t family;
  uint16_t port;
  uint32_t words[6];
};
DARWIN_LAYOUT(nstat_address, 28, 4, (length, 0), (family, 1), (port, 2), (words, 4));

struct nstat_tcp_descriptor {
  nstat_address local;
  nstat_address remote;
  uint32_t ifindex;
  uint32_t state;
  uint32_t sndbufsize;
  uint32_t sndbufused;
  uint32_t rcvbufsize;
  uint32_t rcvbufused;
  uint32_t txunacked;
  uint32_t txwindow;
  uint32_t txcwindow;
  uint32_t traffic_class;
  uint32_t traffic_mgt_flags;
  char cc_algo[16];
  uint64_t upid;
  uint32_t pid;
  char pname[64];
  uint64_t eupid;
  uint32_t epid;
  uint8_t uuid[16];
  uint8_t euuid[16];
  uint8_t vuuid[16];
};
DARWIN_LAYOUT(nstat_tcp_descriptor, 252, 4, (local, 0), (remote, 28), (ifindex, 56), (state, 60),
              (sndbufsize, 64), (sndbufused, 68), (rcvbufsize, 72), (rcvbufused, 76),
              (txunacked, 80), (txwindow, 84), (txcwindow, 88), (traffic_class, 92),
              (traffic_mgt_flags, 96), (cc_algo, 100), (upid, 116), (pid, 124), (pname, 128),
              (eupid, 192), (epid, 200), (uuid, 204), (euuid, 220), (vuuid, 236));

struct nstat_udp_descriptor {
  nstat_address local;
  nstat_address remote;
  uint32_t ifindex;
  uint32_t rcvbufsize;
  uint32_t rcvbufused;
  uint32_t traffic_class;
  uint64_t upid;
  uint32_t pid;
  char pname[64];
  uint64_t eupid;
  uint32_t epid;
  uint8_t uuid[16];
  uint8_t euuid[16];
  uint8_t vuuid[16];
};
DARWIN_LAYOUT(nstat_udp_descriptor, 208, 4, (local, 0), (remote, 28), (ifindex, 56),
              (rcvbufsize, 60), (rcvbufused, 64), (traffic_class, 68), (upid, 72), (pid, 80),
              (pname, 84), (eupid, 148), (epid, 156), (uuid, 160), (euuid, 176), (vuuid, 192));

#pragma pack(pop)

}  // namespace darwin
