// Interface messages and kernel controls beside the platform's.
#include "host/darwin/interfaces.h"

#include "darwin/kernel_control.h"
#include "same.h"

#define NAMES(EACH)    \
  EACH(RTM_VERSION);   \
  EACH(RTM_IFINFO2);   \
  EACH(RTA_IFP);       \
  EACH(MAX_KCTL_NAME); \
  EACH(CTLIOCGINFO)

NAMES(KEEP);
KEEP_PREFIXED(NET_RT_IFLIST2);

#include <net/if.h>
#include <net/if_dl.h>
#include <net/if_var.h>
#include <net/route.h>
#include <sys/ioctl.h>
#include <sys/kern_control.h>
#include <sys/socket.h>

NAMES(SAME_VALUE);
SAME_VALUE(NET_RT_IFLIST2);

SAME_STRUCTURE(if_msghdr2, ifm_msglen, ifm_version, ifm_type, ifm_addrs, ifm_flags, ifm_index,
               ifm_snd_len, ifm_snd_maxlen, ifm_snd_drops, ifm_timer, ifm_data);
SAME_STRUCTURE(timeval32, tv_sec, tv_usec);
SAME_STRUCTURE(if_data64, ifi_type, ifi_typelen, ifi_physical, ifi_addrlen, ifi_hdrlen,
               ifi_recvquota, ifi_xmitquota, ifi_unused1, ifi_mtu, ifi_metric, ifi_baudrate,
               ifi_ipackets, ifi_ierrors, ifi_opackets, ifi_oerrors, ifi_collisions, ifi_ibytes,
               ifi_obytes, ifi_imcasts, ifi_omcasts, ifi_iqdrops, ifi_noproto, ifi_recvtiming,
               ifi_xmittiming, ifi_lastchange);
SAME_STRUCTURE(sockaddr_dl, sdl_len, sdl_family, sdl_index, sdl_type, sdl_nlen, sdl_alen, sdl_slen,
               sdl_data);
SAME_STRUCTURE(ctl_info, ctl_id, ctl_name);
SAME_STRUCTURE(sockaddr_ctl, sc_len, sc_family, ss_sysaddr, sc_id, sc_unit, sc_reserved);
