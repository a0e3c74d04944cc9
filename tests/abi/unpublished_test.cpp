// Fields and numbers that the platform's public headers leave out, against tables written down here
// from the kernel's published sources.
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>

#include "darwin/kqueue.h"
#include "darwin/libproc.h"
#include "darwin/mach_vm.h"
#include "darwin/sandbox.h"
#include "darwin/socket.h"
#include "host/darwin/code_signing.h"
#include "host/darwin/mach_host.h"
#include "host/darwin/memorystatus.h"
#include "host/darwin/proc_info.h"
#include "host/darwin/syscalls.h"
#include "layouts.h"

namespace {

TEST(UnpublishedLayout, HasNoPadding) {
  EXPECT_NO_PADDING(proc_pidcoalitioninfo);
  EXPECT_NO_PADDING(kevent_qos_s);
  EXPECT_NO_PADDING(kevent_extinfo);
  EXPECT_NO_PADDING(memorystatus_priority_entry);
  EXPECT_NO_PADDING(memorystatus_memlimit_properties);
}

TEST(UnpublishedLayout, SignedFields) {
  EXPECT_TRUE(std::is_signed_v<decltype(darwin::kevent_qos_s::filter)>);
  EXPECT_TRUE(std::is_signed_v<decltype(darwin::kevent_qos_s::data)>);
  EXPECT_TRUE(std::is_signed_v<decltype(darwin::memorystatus_priority_entry::limit)>);
  EXPECT_TRUE(std::is_signed_v<decltype(darwin::memorystatus_priority_properties::priority)>);
  EXPECT_TRUE(
      std::is_signed_v<decltype(darwin::memorystatus_memlimit_properties::memlimit_active)>);
}

TEST(UnpublishedNumbers, ProcessInformation) {
  expectNumbers({NUMBER(PROC_PIDCOALITIONINFO, 20), NUMBER(PROC_PIDLISTTHREADIDS, 28),
                 NUMBER(PROC_PIDFDKQUEUE_EXTINFO, 9), NUMBER(WQ_EXCEEDED_TOTAL_THREAD_LIMIT, 2),
                 NUMBER(COALITION_TYPE_RESOURCE, 0), NUMBER(COALITION_TYPE_JETSAM, 1)});
}

TEST(UnpublishedNumbers, ProcessFlags) {
  expectNumbers(
      {NUMBER(PROC_FLAG_DARWINBG, 1 << 15), NUMBER(PROC_FLAG_EXT_DARWINBG, 1 << 16),
       NUMBER(PROC_FLAG_IOS_APPLEDAEMON, 1 << 17), NUMBER(PROC_FLAG_DELAYIDLESLEEP, 1 << 18),
       NUMBER(PROC_FLAG_IOS_IMPPROMOTION, 1 << 19), NUMBER(PROC_FLAG_ADAPTIVE, 1 << 20),
       NUMBER(PROC_FLAG_ADAPTIVE_IMPORTANT, 1 << 21), NUMBER(PROC_FLAG_IMPORTANCE_DONOR, 1 << 22),
       NUMBER(PROC_FLAG_SUPPRESSED, 1 << 23), NUMBER(PROC_FLAG_APPLICATION, 1 << 24)});
}

TEST(UnpublishedNumbers, SocketProtocolsAndEvents) {
  expectNumbers({NUMBER(SYSPROTO_EVENT, 1), NUMBER(SYSPROTO_CONTROL, 2), NUMBER(KEV_ANY_CLASS, 0),
                 NUMBER(KEV_VENDOR_APPLE, 1), NUMBER(KEV_NETWORK_CLASS, 1),
                 NUMBER(KEV_IOKIT_CLASS, 2), NUMBER(KEV_SYSTEM_CLASS, 3),
                 NUMBER(KEV_APPLESHARE_CLASS, 4), NUMBER(KEV_FIREWALL_CLASS, 5),
                 NUMBER(KEV_IEEE80211_CLASS, 6)});
}

TEST(UnpublishedNumbers, EventFilters) {
  expectNumbers({NUMBER(EVFILT_WORKLOOP, -17)});
}

TEST(UnpublishedNumbers, SystemCalls) {
  expectNumbers({NUMBER(DARWIN_SYS_csops, 169), NUMBER(DARWIN_SYS_vm_pressure_monitor, 296),
                 NUMBER(DARWIN_SYS_process_policy, 323), NUMBER(DARWIN_SYS_proc_info, 336),
                 NUMBER(DARWIN_SYS_memorystatus_control, 440),
                 NUMBER(DARWIN_SYS_memorystatus_get_level, 453),
                 NUMBER(DARWIN_SYS_stack_snapshot_with_config, 491),
                 NUMBER(PROC_INFO_CALL_LISTPIDS, 1), NUMBER(PROC_INFO_CALL_PIDINFO, 2),
                 NUMBER(PROC_INFO_CALL_PIDFDINFO, 3), NUMBER(PROC_INFO_CALL_PIDRUSAGE, 9)});
}

TEST(UnpublishedNumbers, ProcessPolicy) {
  expectNumbers({NUMBER(PROC_POLICY_SCOPE_PROCESS, 1), NUMBER(PROC_POLICY_SCOPE_THREAD, 2),
                 NUMBER(PROC_POLICY_ACTION_SET, 10), NUMBER(PROC_POLICY_ACTION_GET, 11),
                 NUMBER(PROC_POLICY_APP_LIFECYCLE, 5), NUMBER(PROC_POLICY_APPTYPE, 6),
                 NUMBER(PROC_POLICY_APPLIFE_STATE, 1), NUMBER(PROC_POLICY_APPLIFE_DEVSTATUS, 2),
                 NUMBER(PROC_APPSTATE_NONE, 0), NUMBER(PROC_APPSTATE_ACTIVE, 1),
                 NUMBER(PROC_APPSTATE_BACKGROUND, 2), NUMBER(PROC_APPSTATE_NONUI, 3),
                 NUMBER(PROC_APPSTATE_INACTIVE, 4)});
}

TEST(UnpublishedNumbers, Host) {
  expectNumbers({NUMBER(DARWIN_HOST_KERNEL_PORT, 4), NUMBER(HOST_VM_INFO64_COUNT, 38)});
}

TEST(UnpublishedNumbers, Jetsam) {
  expectNumbers({NUMBER(MEMORYSTATUS_CMD_GET_PRIORITY_LIST, 1),
                 NUMBER(MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES, 2),
                 NUMBER(MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES, 7),
                 NUMBER(MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES, 8),
                 NUMBER(MEMORYSTATUS_MEMLIMIT_ATTR_FATAL, 1), NUMBER(JETSAM_PRIORITY_IDLE_HEAD, -2),
                 NUMBER(JETSAM_PRIORITY_IDLE, 0), NUMBER(JETSAM_PRIORITY_AGING_BAND1, 1),
                 NUMBER(JETSAM_PRIORITY_AGING_BAND2, 2), NUMBER(JETSAM_PRIORITY_DEFAULT, 18),
                 NUMBER(JETSAM_PRIORITY_MAX, 21)});
}

TEST(UnpublishedNumbers, CodeSigning) {
  expectNumbers({NUMBER(CS_OPS_STATUS, 0),
                 NUMBER(CS_OPS_MARKKILL, 3),
                 NUMBER(CS_OPS_BLOB, 10),
                 NUMBER(CS_OPS_IDENTITY, 11),
                 NUMBER(CS_VALID, 0x1),
                 NUMBER(CS_ADHOC, 0x2),
                 NUMBER(CS_GET_TASK_ALLOW, 0x4),
                 NUMBER(CS_INSTALLER, 0x8),
                 NUMBER(CS_HARD, 0x100),
                 NUMBER(CS_KILL, 0x200),
                 NUMBER(CS_CHECK_EXPIRATION, 0x400),
                 NUMBER(CS_RESTRICT, 0x800),
                 NUMBER(CS_ENFORCEMENT, 0x1000),
                 NUMBER(CS_REQUIRE_LV, 0x2000),
                 NUMBER(CS_ENTITLEMENTS_VALIDATED, 0x4000),
                 NUMBER(CS_RUNTIME, 0x10000),
                 NUMBER(CS_LINKER_SIGNED, 0x20000),
                 NUMBER(CS_EXEC_SET_HARD, 0x100000),
                 NUMBER(CS_EXEC_SET_KILL, 0x200000),
                 NUMBER(CS_KILLED, 0x1000000),
                 NUMBER(CS_PLATFORM_BINARY, 0x4000000),
                 NUMBER(CS_DEBUGGED, 0x10000000),
                 NUMBER(CS_SIGNED, 0x20000000)});
}

TEST(UnpublishedPrototypes, ArgumentsAndResults) {
  EXPECT_PROTOTYPE(csops, int(int, unsigned int, void *, size_t));
  EXPECT_PROTOTYPE(sandbox_check, int(int, const char *, int, ...));
  EXPECT_PROTOTYPE(sandbox_container_path_for_pid, int(int, char *, size_t));
  EXPECT_PROTOTYPE(mach_vm_read_overwrite,
                   int32_t(uint32_t, uint64_t, uint64_t, uint64_t, uint64_t *));
  EXPECT_PROTOTYPE(mach_vm_page_range_query,
                   int32_t(uint32_t, uint64_t, uint64_t, uint64_t, uint64_t *));
  EXPECT_TRUE((std::is_same_v<darwin::memorystatus_get_level_function, int (*)(unsigned int *)>));
}

}  // namespace
