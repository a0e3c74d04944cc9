// What the process-information calls answer: the structures of the pid and descriptor flavours, and
// the values of their fields. The calls themselves are in libproc.h; memory regions are not here.
#pragma once

#include <cstdint>

#include "darwin/layout.h"
#include "darwin/socket.h"

namespace darwin {

constexpr int DARWIN_MAXCOMLEN = 16;
constexpr int DARWIN_MAXPATHLEN = 1024;
constexpr int DARWIN_MAXTHREADNAMESIZE = 64;

// Flavours of proc_pidinfo().
constexpr int PROC_PIDLISTFDS = 1;
constexpr int PROC_PIDTASKALLINFO = 2;
constexpr int PROC_PIDTHREADINFO = 5;
constexpr int PROC_PIDLISTTHREADS = 6;
constexpr int PROC_PIDREGIONPATHINFO = 8;
constexpr int PROC_PIDWORKQUEUEINFO = 12;
constexpr int PROC_PIDTHREADID64INFO = 15;
constexpr int PROC_PIDCOALITIONINFO = 20;
constexpr int PROC_PIDLISTTHREADIDS = 28;

// Flavours of proc_pidfdinfo().
constexpr int PROC_PIDFDVNODEPATHINFO = 2;
constexpr int PROC_PIDFDSOCKETINFO = 3;
constexpr int PROC_PIDFDPSEMINFO = 4;
constexpr int PROC_PIDFDPSHMINFO = 5;
constexpr int PROC_PIDFDPIPEINFO = 6;
constexpr int PROC_PIDFDKQUEUE_EXTINFO = 9;
constexpr int PROC_PIDFDCHANNELINFO = 10;

// proc_fdtype and fi_type; 8 is not used.
constexpr uint32_t PROX_FDTYPE_ATALK = 0;
constexpr uint32_t PROX_FDTYPE_VNODE = 1;
constexpr uint32_t PROX_FDTYPE_SOCKET = 2;
constexpr uint32_t PROX_FDTYPE_PSHM = 3;
constexpr uint32_t PROX_FDTYPE_PSEM = 4;
constexpr uint32_t PROX_FDTYPE_KQUEUE = 5;
constexpr uint32_t PROX_FDTYPE_PIPE = 6;
constexpr uint32_t PROX_FDTYPE_FSEVENTS = 7;
constexpr uint32_t PROX_FDTYPE_NETPOLICY = 9;
constexpr uint32_t PROX_FDTYPE_CHANNEL = 10;
constexpr uint32_t PROX_FDTYPE_NEXUS = 11;

// pbi_status.
constexpr uint32_t SIDL = 1;
constexpr uint32_t SRUN = 2;
constexpr uint32_t SSLEEP = 3;
constexpr uint32_t SSTOP = 4;
constexpr uint32_t SZOMB = 5;

// pbi_flags.
constexpr uint32_t PROC_FLAG_SYSTEM = 0x1;
constexpr uint32_t PROC_FLAG_TRACED = 0x2;
constexpr uint32_t PROC_FLAG_INEXIT = 0x4;
constexpr uint32_t PROC_FLAG_PPWAIT = 0x8;
constexpr uint32_t PROC_FLAG_LP64 = 0x10;
constexpr uint32_t PROC_FLAG_SLEADER = 0x20;
constexpr uint32_t PROC_FLAG_CTTY = 0x40;
constexpr uint32_t PROC_FLAG_CONTROLT = 0x80;
constexpr uint32_t PROC_FLAG_THCWD = 0x100;
constexpr uint32_t PROC_FLAG_PC_THROTTLE = 0x200;
constexpr uint32_t PROC_FLAG_PC_SUSP = 0x400;
constexpr uint32_t PROC_FLAG_PA_THROTTLE = 0x800;
constexpr uint32_t PROC_FLAG_PA_SUSP = 0x1000;
constexpr uint32_t PROC_FLAG_PSUGID = 0x2000;
constexpr uint32_t PROC_FLAG_EXEC = 0x4000;
constexpr uint32_t PROC_FLAG_DARWINBG = 0x8000;
constexpr uint32_t PROC_FLAG_EXT_DARWINBG = 0x10000;
constexpr uint32_t PROC_FLAG_IOS_APPLEDAEMON = 0x20000;
constexpr uint32_t PROC_FLAG_DELAYIDLESLEEP = 0x40000;
constexpr uint32_t PROC_FLAG_IOS_IMPPROMOTION = 0x80000;
constexpr uint32_t PROC_FLAG_ADAPTIVE = 0x100000;
constexpr uint32_t PROC_FLAG_ADAPTIVE_IMPORTANT = 0x200000;
constexpr uint32_t PROC_FLAG_IMPORTANCE_DONOR = 0x400000;
constexpr uint32_t PROC_FLAG_SUPPRESSED = 0x800000;
constexpr uint32_t PROC_FLAG_APPLICATION = 0x1000000;

// One process as the BSD side of the kernel sees it. pbi_comm and pbi_name end with a NUL; e_tdev
// is 0xFFFFFFFF without a controlling terminal; the start time is since the epoch.
struct proc_bsdinfo {
  uint32_t pbi_flags;
  uint32_t pbi_status;
  uint32_t pbi_xstatus;
  uint32_t pbi_pid;
  uint32_t pbi_ppid;
  uint32_t pbi_uid;
  uint32_t pbi_gid;
  uint32_t pbi_ruid;
  uint32_t pbi_rgid;
  uint32_t pbi_svuid;
  uint32_t pbi_svgid;
  uint32_t rfu_1;
  char pbi_comm[DARWIN_MAXCOMLEN];
  char pbi_name[2 * DARWIN_MAXCOMLEN];
  uint32_t pbi_nfiles;
  uint32_t pbi_pgid;
  uint32_t pbi_pjobc;
  uint32_t e_tdev;
  uint32_t e_tpgid;
  int32_t pbi_nice;
  uint64_t pbi_start_tvsec;
  uint64_t pbi_start_tvusec;
};
DARWIN_LAYOUT(proc_bsdinfo, 136, 8, (pbi_flags, 0), (pbi_status, 4), (pbi_xstatus, 8),
              (pbi_pid, 12), (pbi_ppid, 16), (pbi_uid, 20), (pbi_gid, 24), (pbi_ruid, 28),
              (pbi_rgid, 32), (pbi_svuid, 36), (pbi_svgid, 40), (rfu_1, 44), (pbi_comm, 48),
              (pbi_name, 64), (pbi_nfiles, 96), (pbi_pgid, 100), (pbi_pjobc, 104), (e_tdev, 108),
              (e_tpgid, 112), (pbi_nice, 116), (pbi_start_tvsec, 120), (pbi_start_tvusec, 128));

// The same process as the Mach side sees it. The four times are in mach absolute time units.
struct proc_taskinfo {
  uint64_t pti_virtual_size;
  uint64_t pti_resident_size;
  uint64_t pti_total_user;
  uint64_t pti_total_system;
  uint64_t pti_threads_user;
  uint64_t pti_threads_system;
  int32_t pti_policy;
  int32_t pti_faults;
  int32_t pti_pageins;
  int32_t pti_cow_faults;
  int32_t pti_messages_sent;
  int32_t pti_messages_received;
  int32_t pti_syscalls_mach;
  int32_t pti_syscalls_unix;
  int32_t pti_csw;
  int32_t pti_threadnum;
  int32_t pti_numrunning;
  int32_t pti_priority;
};
DARWIN_LAYOUT(proc_taskinfo, 96, 8, (pti_virtual_size, 0), (pti_resident_size, 8),
              (pti_total_user, 16), (pti_total_system, 24), (pti_threads_user, 32),
              (pti_threads_system, 40), (pti_policy, 48), (pti_faults, 52), (pti_pageins, 56),
              (pti_cow_faults, 60), (pti_messages_sent, 64), (pti_messages_received, 68),
              (pti_syscalls_mach, 72), (pti_syscalls_unix, 76), (pti_csw, 80), (pti_threadnum, 84),
              (pti_numrunning, 88), (pti_priority, 92));

struct proc_taskallinfo {
  proc_bsdinfo pbsd;
  proc_taskinfo ptinfo;
};
DARWIN_LAYOUT(proc_taskallinfo, 232, 8, (pbsd, 0), (ptinfo, 136));

// One thread. The two times are nanoseconds, pth_cpu_usage tenths of a percent of one processor.
struct proc_threadinfo {
  uint64_t pth_user_time;
  uint64_t pth_system_time;
  int32_t pth_cpu_usage;
  int32_t pth_policy;
  int32_t pth_run_state;
  int32_t pth_flags;
  int32_t pth_sleep_time;
  int32_t pth_curpri;
  int32_t pth_priority;
  int32_t pth_maxpriority;
  char pth_name[DARWIN_MAXTHREADNAMESIZE];
};
DARWIN_LAYOUT(proc_threadinfo, 112, 8, (pth_user_time, 0), (pth_system_time, 8),
              (pth_cpu_usage, 16), (pth_policy, 20), (pth_run_state, 24), (pth_flags, 28),
              (pth_sleep_time, 32), (pth_curpri, 36), (pth_priority, 40), (pth_maxpriority, 44),
              (pth_name, 48));

// pth_run_state.
constexpr int32_t TH_STATE_RUNNING = 1;
constexpr int32_t TH_STATE_STOPPED = 2;
constexpr int32_t TH_STATE_WAITING = 3;
constexpr int32_t TH_STATE_UNINTERRUPTIBLE = 4;
constexpr int32_t TH_STATE_HALTED = 5;

// pth_policy and pti_policy.
constexpr int32_t POLICY_TIMESHARE = 1;
constexpr int32_t POLICY_RR = 2;
constexpr int32_t POLICY_FIFO = 4;

// pth_flags.
constexpr int32_t TH_FLAGS_SWAPPED = 0x1;
constexpr int32_t TH_FLAGS_IDLE = 0x2;

struct proc_workqueueinfo {
  uint32_t pwq_nthreads;
  uint32_t pwq_runthreads;
  uint32_t pwq_blockedthreads;
  uint32_t pwq_state;
};
DARWIN_LAYOUT(proc_workqueueinfo, 16, 4, (pwq_nthreads, 0), (pwq_runthreads, 4),
              (pwq_blockedthreads, 8), (pwq_state, 12));

struct proc_fdinfo {
  int32_t proc_fd;
  uint32_t proc_fdtype;
};
DARWIN_LAYOUT(proc_fdinfo, 8, 4, (proc_fd, 0), (proc_fdtype, 4));

// The coalitions of a process, 0 where it has none. The first kernels that know the flavour write
// 32 bytes: one identifier followed by the three reserved words.
struct proc_pidcoalitioninfo {
  uint64_t coalition_id[2];
  uint64_t reserved1;
  uint64_t reserved2;
  uint64_t reserved3;
};
DARWIN_LAYOUT(proc_pidcoalitioninfo, 40, 8, (coalition_id, 0), (reserved1, 16), (reserved2, 24),
              (reserved3, 32));

struct vinfo_stat {
  uint32_t vst_dev;
  uint16_t vst_mode;
  uint16_t vst_nlink;
  uint64_t vst_ino;
  uint32_t vst_uid;
  uint32_t vst_gid;
  int64_t vst_atime;
  int64_t vst_atimensec;
  int64_t vst_mtime;
  int64_t vst_mtimensec;
  int64_t vst_ctime;
  int64_t vst_ctimensec;
  int64_t vst_birthtime;
  int64_t vst_birthtimensec;
  int64_t vst_size;
  int64_t vst_blocks;
  int32_t vst_blksize;
  uint32_t vst_flags;
  uint32_t vst_gen;
  uint32_t vst_rdev;
  int64_t vst_qspare[2];
};
DARWIN_LAYOUT(vinfo_stat, 136, 8, (vst_dev, 0), (vst_mode, 4), (vst_nlink, 6), (vst_ino, 8),
              (vst_uid, 16), (vst_gid, 20), (vst_atime, 24), (vst_atimensec, 32), (vst_mtime, 40),
              (vst_mtimensec, 48), (vst_ctime, 56), (vst_ctimensec, 64), (vst_birthtime, 72),
              (vst_birthtimensec, 80), (vst_size, 88), (vst_blocks, 96), (vst_blksize, 104),
              (vst_flags, 108), (vst_gen, 112), (vst_rdev, 116), (vst_qspare, 120));

struct fsid {
  int32_t val[2];
};
DARWIN_LAYOUT(fsid, 8, 4, (val, 0));

struct vnode_info {
  vinfo_stat vi_stat;
  int32_t vi_type;
  int32_t vi_pad;
  fsid vi_fsid;
};
DARWIN_LAYOUT(vnode_info, 152, 8, (vi_stat, 0), (vi_type, 136), (vi_pad, 140), (vi_fsid, 144));

// vip_path is empty when the file has no name.
struct vnode_info_path {
  vnode_info vip_vi;
  char vip_path[DARWIN_MAXPATHLEN];
};
DARWIN_LAYOUT(vnode_info_path, 1176, 8, (vip_vi, 0), (vip_path, 152));

// One region of a task's memory. Pages are the kernel's; pri_obj_id is the same for regions that
// share an object.
struct proc_regioninfo {
  uint32_t pri_protection;
  uint32_t pri_max_protection;
  uint32_t pri_inheritance;
  uint32_t pri_flags;
  uint64_t pri_offset;
  uint32_t pri_behavior;
  uint32_t pri_user_wired_count;
  uint32_t pri_user_tag;
  uint32_t pri_pages_resident;
  uint32_t pri_pages_shared_now_private;
  uint32_t pri_pages_swapped_out;
  uint32_t pri_pages_dirtied;
  uint32_t pri_ref_count;
  uint32_t pri_shadow_depth;
  uint32_t pri_share_mode;
  uint32_t pri_private_pages_resident;
  uint32_t pri_shared_pages_resident;
  uint32_t pri_obj_id;
  uint32_t pri_depth;
  uint64_t pri_address;
  uint64_t pri_size;
};
DARWIN_LAYOUT(proc_regioninfo, 96, 8, (pri_protection, 0), (pri_max_protection, 4),
              (pri_inheritance, 8), (pri_flags, 12), (pri_offset, 16), (pri_behavior, 24),
              (pri_user_wired_count, 28), (pri_user_tag, 32), (pri_pages_resident, 36),
              (pri_pages_shared_now_private, 40), (pri_pages_swapped_out, 44),
              (pri_pages_dirtied, 48), (pri_ref_count, 52), (pri_shadow_depth, 56),
              (pri_share_mode, 60), (pri_private_pages_resident, 64),
              (pri_shared_pages_resident, 68), (pri_obj_id, 72), (pri_depth, 76), (pri_address, 80),
              (pri_size, 88));

// vip_path is empty for a region without a file behind it.
struct proc_regionwithpathinfo {
  proc_regioninfo prp_prinfo;
  vnode_info_path prp_vip;
};
DARWIN_LAYOUT(proc_regionwithpathinfo, 1272, 8, (prp_prinfo, 0), (prp_vip, 96));

// pri_share_mode.
constexpr uint32_t SM_COW = 1;
constexpr uint32_t SM_PRIVATE = 2;
constexpr uint32_t SM_EMPTY = 3;
constexpr uint32_t SM_SHARED = 4;
constexpr uint32_t SM_TRUESHARED = 5;
constexpr uint32_t SM_PRIVATE_ALIASED = 6;
constexpr uint32_t SM_SHARED_ALIASED = 7;
constexpr uint32_t SM_LARGE_PAGE = 8;

// fi_openflags holds FREAD and FWRITE with the open flags above them (file_flags.h).
struct proc_fileinfo {
  uint32_t fi_openflags;
  uint32_t fi_status;
  int64_t fi_offset;
  int32_t fi_type;
  uint32_t fi_guardflags;
};
DARWIN_LAYOUT(proc_fileinfo, 24, 8, (fi_openflags, 0), (fi_status, 4), (fi_offset, 8),
              (fi_type, 16), (fi_guardflags, 20));

struct vnode_fdinfo {
  proc_fileinfo pfi;
  vnode_info pvi;
};
DARWIN_LAYOUT(vnode_fdinfo, 176, 8, (pfi, 0), (pvi, 24));

struct vnode_fdinfowithpath {
  proc_fileinfo pfi;
  vnode_info_path pvip;
};
DARWIN_LAYOUT(vnode_fdinfowithpath, 1200, 8, (pfi, 0), (pvip, 24));

// Of psem_stat and pshm_stat only mode, owner and size are set, where a semaphore's size is its use
// count.
struct psem_info {
  vinfo_stat psem_stat;
  char psem_name[DARWIN_MAXPATHLEN];
};
DARWIN_LAYOUT(psem_info, 1160, 8, (psem_stat, 0), (psem_name, 136));

struct psem_fdinfo {
  proc_fileinfo pfi;
  psem_info pseminfo;
};
DARWIN_LAYOUT(psem_fdinfo, 1184, 8, (pfi, 0), (pseminfo, 24));

struct pshm_info {
  vinfo_stat pshm_stat;
  uint64_t pshm_mappaddr;
  char pshm_name[DARWIN_MAXPATHLEN];
};
DARWIN_LAYOUT(pshm_info, 1168, 8, (pshm_stat, 0), (pshm_mappaddr, 136), (pshm_name, 144));

struct pshm_fdinfo {
  proc_fileinfo pfi;
  pshm_info pshminfo;
};
DARWIN_LAYOUT(pshm_fdinfo, 1192, 8, (pfi, 0), (pshminfo, 24));

struct pipe_info {
  vinfo_stat pipe_stat;
  uint64_t pipe_handle;
  uint64_t pipe_peerhandle;
  int32_t pipe_status;
  int32_t rfu_1;
};
DARWIN_LAYOUT(pipe_info, 160, 8, (pipe_stat, 0), (pipe_handle, 136), (pipe_peerhandle, 144),
              (pipe_status, 152), (rfu_1, 156));

struct pipe_fdinfo {
  proc_fileinfo pfi;
  pipe_info pipeinfo;
};
DARWIN_LAYOUT(pipe_fdinfo, 184, 8, (pfi, 0), (pipeinfo, 24));

struct kqueue_info {
  vinfo_stat kq_stat;
  uint32_t kq_state;
  uint32_t rfu_1;
};
DARWIN_LAYOUT(kqueue_info, 144, 8, (kq_stat, 0), (kq_state, 136), (rfu_1, 140));

struct kqueue_fdinfo {
  proc_fileinfo pfi;
  kqueue_info kqueueinfo;
};
DARWIN_LAYOUT(kqueue_fdinfo, 168, 8, (pfi, 0), (kqueueinfo, 24));

// An event as kernel and system libraries exchange it; filters and flags as in kqueue.h.
struct kevent_qos_s {
  uint64_t ident;
  int16_t filter;
  uint16_t flags;
  int32_t qos;
  uint64_t udata;
  uint32_t fflags;
  uint32_t xflags;
  int64_t data;
  uint64_t ext[4];
};
DARWIN_LAYOUT(kevent_qos_s, 72, 8, (ident, 0), (filter, 8), (flags, 10), (qos, 12), (udata, 16),
              (fflags, 24), (xflags, 28), (data, 32), (ext, 40));

// One registered event of a queue: PROC_PIDFDKQUEUE_EXTINFO fills an array of these and answers how
// many events are registered, which may be more than it wrote.
struct kevent_extinfo {
  kevent_qos_s kqext_kev;
  uint64_t kqext_sdata;
  int32_t kqext_status;
  int32_t kqext_sfflags;
  uint64_t kqext_reserved[2];
};
DARWIN_LAYOUT(kevent_extinfo, 104, 8, (kqext_kev, 0), (kqext_sdata, 72), (kqext_status, 80),
              (kqext_sfflags, 84), (kqext_reserved, 88));

struct proc_channel_info {
  uint8_t chi_instance[16];
  uint32_t chi_port;
  uint32_t chi_type;
  uint32_t chi_flags;
  uint32_t rfu_1;
};
DARWIN_LAYOUT(proc_channel_info, 32, 4, (chi_instance, 0), (chi_port, 16), (chi_type, 20),
              (chi_flags, 24), (rfu_1, 28));

struct channel_fdinfo {
  proc_fileinfo pfi;
  proc_channel_info channelinfo;
};
DARWIN_LAYOUT(channel_fdinfo, 56, 8, (pfi, 0), (channelinfo, 24));

// chi_type.
constexpr uint32_t PROC_CHANNEL_TYPE_USER_PIPE = 0;

// An IPv4 address in the space of an IPv6 one: it fills the last four bytes.
struct in4in6_addr {
  uint32_t i46a_pad32[3];
  in_addr i46a_addr4;
};
DARWIN_LAYOUT(in4in6_addr, 16, 4, (i46a_pad32, 0), (i46a_addr4, 12));

union in_sockinfo_address {
  in4in6_addr ina_46;
  in6_addr ina_6;
};
static_assert(sizeof(in_sockinfo_address) == 16 && alignof(in_sockinfo_address) == 4);

struct in_sockinfo_v4 {
  uint8_t in4_tos;
};
DARWIN_LAYOUT(in_sockinfo_v4, 1, 1, (in4_tos, 0));

struct in_sockinfo_v6 {
  uint8_t in6_hlim;
  int32_t in6_cksum;
  uint16_t in6_ifindex;
  int16_t in6_hops;
};
DARWIN_LAYOUT(in_sockinfo_v6, 12, 4, (in6_hlim, 0), (in6_cksum, 4), (in6_ifindex, 8),
              (in6_hops, 10));

// insi_vflag says which form the addresses have. The ports hold 16 bits in network order.
struct in_sockinfo {
  int32_t insi_fport;
  int32_t insi_lport;
  uint64_t insi_gencnt;
  uint32_t insi_flags;
  uint32_t insi_flow;
  uint8_t insi_vflag;
  uint8_t insi_ip_ttl;
  uint32_t rfu_1;
  in_sockinfo_address insi_faddr;
  in_sockinfo_address insi_laddr;
  in_sockinfo_v4 insi_v4;
  in_sockinfo_v6 insi_v6;
};
DARWIN_LAYOUT(in_sockinfo, 80, 8, (insi_fport, 0), (insi_lport, 4), (insi_gencnt, 8),
              (insi_flags, 16), (insi_flow, 20), (insi_vflag, 24), (insi_ip_ttl, 25), (rfu_1, 28),
              (insi_faddr, 32), (insi_laddr, 48), (insi_v4, 64), (insi_v6, 68));

constexpr int TSI_T_NTIMERS = 4;

struct tcp_sockinfo {
  in_sockinfo tcpsi_ini;
  int32_t tcpsi_state;
  int32_t tcpsi_timer[TSI_T_NTIMERS];
  int32_t tcpsi_mss;
  uint32_t tcpsi_flags;
  uint32_t rfu_1;
  uint64_t tcpsi_tp;
};
DARWIN_LAYOUT(tcp_sockinfo, 120, 8, (tcpsi_ini, 0), (tcpsi_state, 80), (tcpsi_timer, 84),
              (tcpsi_mss, 100), (tcpsi_flags, 104), (rfu_1, 108), (tcpsi_tp, 112));

// Room for the longest address the kernel accepts; the path may fill ua_sun without a NUL.
union un_sockinfo_address {
  sockaddr_un ua_sun;
  char ua_dummy[255];
};
static_assert(sizeof(un_sockinfo_address) == 255 && alignof(un_sockinfo_address) == 1);

// A unix socket and its peer. unsi_caddr is filled only when the peer is bound, and is not aligned.
struct un_sockinfo {
  uint64_t unsi_conn_so;
  uint64_t unsi_conn_pcb;
  un_sockinfo_address unsi_addr;
  un_sockinfo_address unsi_caddr;
};
DARWIN_LAYOUT(un_sockinfo, 528, 8, (unsi_conn_so, 0), (unsi_conn_pcb, 8), (unsi_addr, 16),
              (unsi_caddr, 271));

struct ndrv_info {
  uint32_t ndrvsi_if_family;
  uint32_t ndrvsi_if_unit;
  char ndrvsi_if_name[16];
};
DARWIN_LAYOUT(ndrv_info, 24, 4, (ndrvsi_if_family, 0), (ndrvsi_if_unit, 4), (ndrvsi_if_name, 8));

struct kern_event_info {
  uint32_t kesi_vendor_code_filter;
  uint32_t kesi_class_filter;
  uint32_t kesi_subclass_filter;
};
DARWIN_LAYOUT(kern_event_info, 12, 4, (kesi_vendor_code_filter, 0), (kesi_class_filter, 4),
              (kesi_subclass_filter, 8));

// Values of the three filters; 0 means any.
constexpr uint32_t KEV_ANY_CLASS = 0;
constexpr uint32_t KEV_VENDOR_APPLE = 1;
constexpr uint32_t KEV_NETWORK_CLASS = 1;
constexpr uint32_t KEV_IOKIT_CLASS = 2;
constexpr uint32_t KEV_SYSTEM_CLASS = 3;
constexpr uint32_t KEV_APPLESHARE_CLASS = 4;
constexpr uint32_t KEV_FIREWALL_CLASS = 5;
constexpr uint32_t KEV_IEEE80211_CLASS = 6;

struct kern_ctl_info {
  uint32_t kcsi_id;
  uint32_t kcsi_reg_unit;
  uint32_t kcsi_flags;
  uint32_t kcsi_recvbufsize;
  uint32_t kcsi_sendbufsize;
  uint32_t kcsi_unit;
  char kcsi_name[96];
};
DARWIN_LAYOUT(kern_ctl_info, 120, 4, (kcsi_id, 0), (kcsi_reg_unit, 4), (kcsi_flags, 8),
              (kcsi_recvbufsize, 12), (kcsi_sendbufsize, 16), (kcsi_unit, 20), (kcsi_name, 24));

struct vsock_sockinfo {
  uint32_t local_cid;
  uint32_t local_port;
  uint32_t remote_cid;
  uint32_t remote_port;
};
DARWIN_LAYOUT(vsock_sockinfo, 16, 4, (local_cid, 0), (local_port, 4), (remote_cid, 8),
              (remote_port, 12));

struct sockbuf_info {
  uint32_t sbi_cc;
  uint32_t sbi_hiwat;
  uint32_t sbi_mbcnt;
  uint32_t sbi_mbmax;
  uint32_t sbi_lowat;
  int16_t sbi_flags;
  int16_t sbi_timeo;
};
DARWIN_LAYOUT(sockbuf_info, 24, 4, (sbi_cc, 0), (sbi_hiwat, 4), (sbi_mbcnt, 8), (sbi_mbmax, 12),
              (sbi_lowat, 16), (sbi_flags, 20), (sbi_timeo, 22));

union socket_info_proto {
  in_sockinfo pri_in;
  tcp_sockinfo pri_tcp;
  un_sockinfo pri_un;
  ndrv_info pri_ndrv;
  kern_event_info pri_kern_event;
  kern_ctl_info pri_kern_ctl;
  vsock_sockinfo pri_vsock;
};
static_assert(sizeof(socket_info_proto) == 528 && alignof(socket_info_proto) == 8);

// soi_so, soi_pcb and unsi_conn_so are scrambled kernel addresses: good for equality only. A peer's
// soi_so equals this side's unsi_conn_so.
struct socket_info {
  vinfo_stat soi_stat;
  uint64_t soi_so;
  uint64_t soi_pcb;
  int32_t soi_type;
  int32_t soi_protocol;
  int32_t soi_family;
  int16_t soi_options;
  int16_t soi_linger;
  int16_t soi_state;
  int16_t soi_qlen;
  int16_t soi_incqlen;
  int16_t soi_qlimit;
  int16_t soi_timeo;
  uint16_t soi_error;
  uint32_t soi_oobmark;
  sockbuf_info soi_rcv;
  sockbuf_info soi_snd;
  int32_t soi_kind;
  uint32_t rfu_1;
  socket_info_proto soi_proto;
};
DARWIN_LAYOUT(socket_info, 768, 8, (soi_stat, 0), (soi_so, 136), (soi_pcb, 144), (soi_type, 152),
              (soi_protocol, 156), (soi_family, 160), (soi_options, 164), (soi_linger, 166),
              (soi_state, 168), (soi_qlen, 170), (soi_incqlen, 172), (soi_qlimit, 174),
              (soi_timeo, 176), (soi_error, 178), (soi_oobmark, 180), (soi_rcv, 184),
              (soi_snd, 208), (soi_kind, 232), (rfu_1, 236), (soi_proto, 240));

struct socket_fdinfo {
  proc_fileinfo pfi;
  socket_info psi;
};
DARWIN_LAYOUT(socket_fdinfo, 792, 8, (pfi, 0), (psi, 24));

// pri_flags.
constexpr uint32_t PROC_REGION_SUBMAP = 1;
constexpr uint32_t PROC_REGION_SHARED = 2;

// fi_status.
constexpr uint32_t PROC_FP_SHARED = 0x1;
constexpr uint32_t PROC_FP_CLEXEC = 0x2;
constexpr uint32_t PROC_FP_GUARDED = 0x4;
constexpr uint32_t PROC_FP_CLFORK = 0x8;

// fi_guardflags.
constexpr uint32_t PROC_FI_GUARD_CLOSE = 0x1;
constexpr uint32_t PROC_FI_GUARD_DUP = 0x2;
constexpr uint32_t PROC_FI_GUARD_SOCKET_IPC = 0x4;
constexpr uint32_t PROC_FI_GUARD_FILEPORT = 0x8;

// insi_vflag.
constexpr uint8_t INI_IPV4 = 0x1;
constexpr uint8_t INI_IPV6 = 0x2;

// tcpsi_state.
constexpr int32_t TSI_S_CLOSED = 0;
constexpr int32_t TSI_S_LISTEN = 1;
constexpr int32_t TSI_S_SYN_SENT = 2;
constexpr int32_t TSI_S_SYN_RECEIVED = 3;
constexpr int32_t TSI_S_ESTABLISHED = 4;
constexpr int32_t TSI_S__CLOSE_WAIT = 5;
constexpr int32_t TSI_S_FIN_WAIT_1 = 6;
constexpr int32_t TSI_S_CLOSING = 7;
constexpr int32_t TSI_S_LAST_ACK = 8;
constexpr int32_t TSI_S_FIN_WAIT_2 = 9;
constexpr int32_t TSI_S_TIME_WAIT = 10;

// soi_kind: which member of soi_proto is filled.
constexpr int32_t SOCKINFO_GENERIC = 0;
constexpr int32_t SOCKINFO_IN = 1;
constexpr int32_t SOCKINFO_TCP = 2;
constexpr int32_t SOCKINFO_UN = 3;
constexpr int32_t SOCKINFO_NDRV = 4;
constexpr int32_t SOCKINFO_KERN_EVENT = 5;
constexpr int32_t SOCKINFO_KERN_CTL = 6;
constexpr int32_t SOCKINFO_VSOCK = 7;

}  // namespace darwin
