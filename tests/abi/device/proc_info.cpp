// The process-information structures, flavours and calls beside the platform's.
#include "host/darwin/proc_info.h"
#include "host/darwin/libproc.h"
#include "same.h"

#define NAMES(EACH)                  \
  EACH(PROC_PIDLISTFDS);             \
  EACH(PROC_PIDTASKALLINFO);         \
  EACH(PROC_PIDTBSDINFO);            \
  EACH(PROC_PIDTASKINFO);            \
  EACH(PROC_PIDTHREADINFO);          \
  EACH(PROC_PIDLISTTHREADS);         \
  EACH(PROC_PIDREGIONINFO);          \
  EACH(PROC_PIDREGIONPATHINFO);      \
  EACH(PROC_PIDPATHINFO);            \
  EACH(PROC_PIDWORKQUEUEINFO);       \
  EACH(PROC_PIDT_SHORTBSDINFO);      \
  EACH(PROC_PIDTHREADID64INFO);      \
  EACH(PROC_PIDFDVNODEINFO);         \
  EACH(PROC_PIDFDVNODEPATHINFO);     \
  EACH(PROC_PIDFDSOCKETINFO);        \
  EACH(PROC_PIDFDPSEMINFO);          \
  EACH(PROC_PIDFDPSHMINFO);          \
  EACH(PROC_PIDFDPIPEINFO);          \
  EACH(PROC_PIDFDKQUEUEINFO);        \
  EACH(PROC_PIDFDCHANNELINFO);       \
  EACH(PROX_FDTYPE_ATALK);           \
  EACH(PROX_FDTYPE_VNODE);           \
  EACH(PROX_FDTYPE_SOCKET);          \
  EACH(PROX_FDTYPE_PSHM);            \
  EACH(PROX_FDTYPE_PSEM);            \
  EACH(PROX_FDTYPE_KQUEUE);          \
  EACH(PROX_FDTYPE_PIPE);            \
  EACH(PROX_FDTYPE_FSEVENTS);        \
  EACH(PROX_FDTYPE_NETPOLICY);       \
  EACH(PROX_FDTYPE_CHANNEL);         \
  EACH(PROX_FDTYPE_NEXUS);           \
  EACH(SIDL);                        \
  EACH(SRUN);                        \
  EACH(SSLEEP);                      \
  EACH(SSTOP);                       \
  EACH(SZOMB);                       \
  EACH(PROC_FLAG_SYSTEM);            \
  EACH(PROC_FLAG_TRACED);            \
  EACH(PROC_FLAG_INEXIT);            \
  EACH(PROC_FLAG_PPWAIT);            \
  EACH(PROC_FLAG_LP64);              \
  EACH(PROC_FLAG_SLEADER);           \
  EACH(PROC_FLAG_CTTY);              \
  EACH(PROC_FLAG_CONTROLT);          \
  EACH(PROC_FLAG_THCWD);             \
  EACH(PROC_FLAG_PC_THROTTLE);       \
  EACH(PROC_FLAG_PC_SUSP);           \
  EACH(PROC_FLAG_PA_THROTTLE);       \
  EACH(PROC_FLAG_PA_SUSP);           \
  EACH(PROC_FLAG_PSUGID);            \
  EACH(PROC_FLAG_EXEC);              \
  EACH(TH_USAGE_SCALE);              \
  EACH(TH_STATE_RUNNING);            \
  EACH(TH_STATE_STOPPED);            \
  EACH(TH_STATE_WAITING);            \
  EACH(TH_STATE_UNINTERRUPTIBLE);    \
  EACH(TH_STATE_HALTED);             \
  EACH(TH_FLAGS_SWAPPED);            \
  EACH(TH_FLAGS_IDLE);               \
  EACH(POLICY_TIMESHARE);            \
  EACH(POLICY_RR);                   \
  EACH(POLICY_FIFO);                 \
  EACH(PROC_FP_SHARED);              \
  EACH(PROC_FP_CLEXEC);              \
  EACH(PROC_FP_GUARDED);             \
  EACH(PROC_FP_CLFORK);              \
  EACH(PROC_FI_GUARD_CLOSE);         \
  EACH(PROC_FI_GUARD_DUP);           \
  EACH(PROC_FI_GUARD_SOCKET_IPC);    \
  EACH(PROC_FI_GUARD_FILEPORT);      \
  EACH(PROC_REGION_SUBMAP);          \
  EACH(PROC_REGION_SHARED);          \
  EACH(SM_COW);                      \
  EACH(SM_PRIVATE);                  \
  EACH(SM_EMPTY);                    \
  EACH(SM_SHARED);                   \
  EACH(SM_TRUESHARED);               \
  EACH(SM_PRIVATE_ALIASED);          \
  EACH(SM_SHARED_ALIASED);           \
  EACH(SM_LARGE_PAGE);               \
  EACH(PROC_CHANNEL_TYPE_USER_PIPE); \
  EACH(INI_IPV4);                    \
  EACH(INI_IPV6);                    \
  EACH(TSI_T_NTIMERS);               \
  EACH(TSI_S_CLOSED);                \
  EACH(TSI_S_LISTEN);                \
  EACH(TSI_S_SYN_SENT);              \
  EACH(TSI_S_SYN_RECEIVED);          \
  EACH(TSI_S_ESTABLISHED);           \
  EACH(TSI_S__CLOSE_WAIT);           \
  EACH(TSI_S_FIN_WAIT_1);            \
  EACH(TSI_S_CLOSING);               \
  EACH(TSI_S_LAST_ACK);              \
  EACH(TSI_S_FIN_WAIT_2);            \
  EACH(TSI_S_TIME_WAIT);             \
  EACH(SOCKINFO_GENERIC);            \
  EACH(SOCKINFO_IN);                 \
  EACH(SOCKINFO_TCP);                \
  EACH(SOCKINFO_UN);                 \
  EACH(SOCKINFO_NDRV);               \
  EACH(SOCKINFO_KERN_EVENT);         \
  EACH(SOCKINFO_KERN_CTL);           \
  EACH(SOCKINFO_VSOCK)
#define PREFIXED_NAMES(EACH) \
  EACH(MAXCOMLEN);           \
  EACH(MAXPATHLEN);          \
  EACH(MAXTHREADNAMESIZE)
#define LIST_TYPES(EACH) \
  EACH(PROC_ALL_PIDS);   \
  EACH(PROC_PGRP_ONLY);  \
  EACH(PROC_TTY_ONLY);   \
  EACH(PROC_UID_ONLY);   \
  EACH(PROC_RUID_ONLY);  \
  EACH(PROC_PPID_ONLY)

NAMES(KEEP);
PREFIXED_NAMES(KEEP_PREFIXED);
LIST_TYPES(KEEP);

#include <libproc.h>
#include <mach/policy.h>
#include <mach/thread_info.h>
#include <mach/vm_region.h>
#include <sys/proc.h>
#include <sys/proc_info.h>

NAMES(SAME_VALUE);
PREFIXED_NAMES(SAME_VALUE);
LIST_TYPES(SAME_VALUE);

SAME_STRUCTURE(proc_bsdinfo, pbi_flags, pbi_status, pbi_xstatus, pbi_pid, pbi_ppid, pbi_uid,
               pbi_gid, pbi_ruid, pbi_rgid, pbi_svuid, pbi_svgid, rfu_1, pbi_comm, pbi_name,
               pbi_nfiles, pbi_pgid, pbi_pjobc, e_tdev, e_tpgid, pbi_nice, pbi_start_tvsec,
               pbi_start_tvusec);
SAME_STRUCTURE(proc_taskinfo, pti_virtual_size, pti_resident_size, pti_total_user, pti_total_system,
               pti_threads_user, pti_threads_system, pti_policy, pti_faults, pti_pageins,
               pti_cow_faults, pti_messages_sent, pti_messages_received, pti_syscalls_mach,
               pti_syscalls_unix, pti_csw, pti_threadnum, pti_numrunning, pti_priority);
SAME_STRUCTURE(proc_taskallinfo, pbsd, ptinfo);
SAME_STRUCTURE(proc_threadinfo, pth_user_time, pth_system_time, pth_cpu_usage, pth_policy,
               pth_run_state, pth_flags, pth_sleep_time, pth_curpri, pth_priority, pth_maxpriority,
               pth_name);
SAME_STRUCTURE(proc_workqueueinfo, pwq_nthreads, pwq_runthreads, pwq_blockedthreads, pwq_state);
SAME_STRUCTURE(proc_fdinfo, proc_fd, proc_fdtype);
SAME_STRUCTURE(vinfo_stat, vst_dev, vst_mode, vst_nlink, vst_ino, vst_uid, vst_gid, vst_atime,
               vst_atimensec, vst_mtime, vst_mtimensec, vst_ctime, vst_ctimensec, vst_birthtime,
               vst_birthtimensec, vst_size, vst_blocks, vst_blksize, vst_flags, vst_gen, vst_rdev,
               vst_qspare);
SAME_STRUCTURE(vnode_info, vi_stat, vi_type, vi_pad, vi_fsid);
SAME_STRUCTURE(vnode_info_path, vip_vi, vip_path);
SAME_STRUCTURE(proc_regioninfo, pri_protection, pri_max_protection, pri_inheritance, pri_flags,
               pri_offset, pri_behavior, pri_user_wired_count, pri_user_tag, pri_pages_resident,
               pri_pages_shared_now_private, pri_pages_swapped_out, pri_pages_dirtied,
               pri_ref_count, pri_shadow_depth, pri_share_mode, pri_private_pages_resident,
               pri_shared_pages_resident, pri_obj_id, pri_depth, pri_address, pri_size);
SAME_STRUCTURE(proc_regionwithpathinfo, prp_prinfo, prp_vip);
SAME_STRUCTURE(proc_fileinfo, fi_openflags, fi_status, fi_offset, fi_type, fi_guardflags);
SAME_STRUCTURE(vnode_fdinfo, pfi, pvi);
SAME_STRUCTURE(vnode_fdinfowithpath, pfi, pvip);
SAME_STRUCTURE(psem_info, psem_stat, psem_name);
SAME_STRUCTURE(psem_fdinfo, pfi, pseminfo);
SAME_STRUCTURE(pshm_info, pshm_stat, pshm_mappaddr, pshm_name);
SAME_STRUCTURE(pshm_fdinfo, pfi, pshminfo);
SAME_STRUCTURE(pipe_info, pipe_stat, pipe_handle, pipe_peerhandle, pipe_status, rfu_1);
SAME_STRUCTURE(pipe_fdinfo, pfi, pipeinfo);
SAME_STRUCTURE(kqueue_info, kq_stat, kq_state, rfu_1);
SAME_STRUCTURE(kqueue_fdinfo, pfi, kqueueinfo);
SAME_STRUCTURE(proc_channel_info, chi_instance, chi_port, chi_type, chi_flags, rfu_1);
SAME_STRUCTURE(channel_fdinfo, pfi, channelinfo);
SAME_STRUCTURE(in4in6_addr, i46a_pad32, i46a_addr4);
SAME_STRUCTURE(in_sockinfo, insi_fport, insi_lport, insi_gencnt, insi_flags, insi_flow, insi_vflag,
               insi_ip_ttl, rfu_1, insi_faddr, insi_laddr, insi_v4, insi_v6);
SAME_STRUCTURE(tcp_sockinfo, tcpsi_ini, tcpsi_state, tcpsi_timer, tcpsi_mss, tcpsi_flags, rfu_1,
               tcpsi_tp);
SAME_STRUCTURE(un_sockinfo, unsi_conn_so, unsi_conn_pcb, unsi_addr, unsi_caddr);
SAME_STRUCTURE(ndrv_info, ndrvsi_if_family, ndrvsi_if_unit, ndrvsi_if_name);
SAME_STRUCTURE(kern_event_info, kesi_vendor_code_filter, kesi_class_filter, kesi_subclass_filter);
SAME_STRUCTURE(kern_ctl_info, kcsi_id, kcsi_reg_unit, kcsi_flags, kcsi_recvbufsize,
               kcsi_sendbufsize, kcsi_unit, kcsi_name);
SAME_STRUCTURE(vsock_sockinfo, local_cid, local_port, remote_cid, remote_port);
SAME_STRUCTURE(sockbuf_info, sbi_cc, sbi_hiwat, sbi_mbcnt, sbi_mbmax, sbi_lowat, sbi_flags,
               sbi_timeo);
SAME_STRUCTURE(socket_info, soi_stat, soi_so, soi_pcb, soi_type, soi_protocol, soi_family,
               soi_options, soi_linger, soi_state, soi_qlen, soi_incqlen, soi_qlimit, soi_timeo,
               soi_error, soi_oobmark, soi_rcv, soi_snd, soi_kind, rfu_1, soi_proto);
SAME_STRUCTURE(socket_fdinfo, pfi, psi);

// The platform leaves these without a name.
static_assert(sizeof(::fsid_t) == sizeof(darwin::fsid));
static_assert(sizeof(::in6_addr) == sizeof(darwin::in6_addr));
static_assert(sizeof(::in_sockinfo::insi_v4) == sizeof(darwin::in_sockinfo_v4));
static_assert(sizeof(::in_sockinfo::insi_v6) == sizeof(darwin::in_sockinfo_v6));
static_assert(offsetof(::in_sockinfo, insi_v4.in4_tos) ==
              offsetof(darwin::in_sockinfo, insi_v4.in4_tos));
static_assert(offsetof(::in_sockinfo, insi_v6.in6_hlim) ==
              offsetof(darwin::in_sockinfo, insi_v6.in6_hlim));
static_assert(offsetof(::in_sockinfo, insi_v6.in6_cksum) ==
              offsetof(darwin::in_sockinfo, insi_v6.in6_cksum));
static_assert(offsetof(::in_sockinfo, insi_v6.in6_ifindex) ==
              offsetof(darwin::in_sockinfo, insi_v6.in6_ifindex));
static_assert(offsetof(::in_sockinfo, insi_v6.in6_hops) ==
              offsetof(darwin::in_sockinfo, insi_v6.in6_hops));
static_assert(offsetof(::in_sockinfo, insi_faddr.ina_46.i46a_addr4) ==
              offsetof(darwin::in_sockinfo, insi_faddr.ina_46.i46a_addr4));
static_assert(offsetof(::un_sockinfo, unsi_caddr.ua_sun.sun_path) ==
              offsetof(darwin::un_sockinfo, unsi_caddr.ua_sun.sun_path));
static_assert(sizeof(::un_sockinfo::unsi_addr.ua_dummy) ==
              sizeof(darwin::un_sockinfo::unsi_addr.ua_dummy));
static_assert(offsetof(::socket_info, soi_proto.pri_tcp.tcpsi_state) ==
              offsetof(darwin::socket_info, soi_proto.pri_tcp.tcpsi_state));
static_assert(offsetof(::socket_info, soi_proto.pri_kern_ctl.kcsi_name) ==
              offsetof(darwin::socket_info, soi_proto.pri_kern_ctl.kcsi_name));

SAME_FUNCTION(proc_listpids);
SAME_FUNCTION(proc_pidinfo);
SAME_FUNCTION(proc_pidfdinfo);
SAME_FUNCTION(proc_pid_rusage);
