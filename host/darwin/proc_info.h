// The rest of darwin/proc_info.h: what only the side that answers names.
#pragma once

#include "darwin/proc_info.h"

namespace darwin {

// Flavours of proc_pidinfo().
constexpr int PROC_PIDTBSDINFO = 3;
constexpr int PROC_PIDTASKINFO = 4;
constexpr int PROC_PIDREGIONINFO = 7;
constexpr int PROC_PIDPATHINFO = 11;
constexpr int PROC_PIDT_SHORTBSDINFO = 13;
constexpr int PROC_PIDTHREADID64INFO = 15;
constexpr int PROC_PIDLISTTHREADIDS = 28;

// Flavours of proc_pidfdinfo().
constexpr int PROC_PIDFDVNODEINFO = 1;
constexpr int PROC_PIDFDKQUEUEINFO = 7;

// pbi_flags.
constexpr uint32_t PROC_FLAG_DELAYIDLESLEEP = 0x40000;
constexpr uint32_t PROC_FLAG_IOS_IMPPROMOTION = 0x80000;

// pth_cpu_usage of a thread that fills one processor.
constexpr int32_t TH_USAGE_SCALE = 1000;

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

// pwq_state: the limits that the queue has reached.
constexpr uint32_t WQ_EXCEEDED_TOTAL_THREAD_LIMIT = 0x2;

constexpr int COALITION_TYPE_RESOURCE = 0;
constexpr int COALITION_TYPE_JETSAM = 1;

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
