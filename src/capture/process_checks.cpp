#include "capture/process_checks.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "capture/verdict.h"
#include "darwin/code_signing.h"
#include "darwin/errors.h"
#include "darwin/libproc.h"
#include "darwin/mach_task.h"
#include "darwin/mach_vm.h"
#include "darwin/sandbox.h"
#include "darwin/syscalls.h"
#include "darwin/sysctl.h"
#include "darwin/thread_state.h"
#include "proc/system_calls.h"
#include "state/system.h"

namespace sondex {

constexpr int kMostListed = 4096;  // threads, and descriptors, of which the first are asked about
constexpr int kRegions = 16;       // that are followed
constexpr int64_t kClockTolerance = 2;  // seconds by which clocks may differ
constexpr size_t kArgumentArea = 8192;
constexpr int32_t kMostPriority = 127;

template <size_t Size>
static bool isTerminated(const char (&text)[Size]) {
  return strnlen(text, Size) < Size;
}

static uint64_t pageSize() {
  darwin::vm_size_t size = 0;
  const bool isKnown = darwin::host_page_size(host_self, &size) == darwin::KERN_SUCCESS;
  return isKnown && size > 0 ? size : 1;
}

// Whether an answer of exactly `wanted` bytes came. A buffer that is too small means that the
// kernel's structure is another one.
static bool hasSize(Call *call, int size, size_t wanted) {
  if (size <= 0 && errno != darwin::DARWIN_ENOMEM) {
    tellError(call, errno);
    return false;
  }
  return expect(call, size > 0 && static_cast<size_t>(size) == wanted,
                "%zu bytes expected, %d came", wanted, size);
}

static bool readTask(int32_t pid, darwin::proc_taskallinfo *info) {
  errno = 0;
  return darwin::proc_pidinfo(pid, darwin::PROC_PIDTASKALLINFO, 0, info, sizeof *info) ==
         static_cast<int>(sizeof *info);
}

static void checkTask(int32_t pid) {
  Call call = beginCall("proc_pidinfo PROC_PIDTASKALLINFO", pid);
  darwin::proc_taskallinfo info = {};
  errno = 0;
  const int size = darwin::proc_pidinfo(pid, darwin::PROC_PIDTASKALLINFO, 0, &info, sizeof info);
  if (!hasSize(&call, size, sizeof info)) return;
  const darwin::proc_bsdinfo &process = info.pbsd;
  const darwin::proc_taskinfo &task = info.ptinfo;
  const auto started = static_cast<int64_t>(process.pbi_start_tvsec);
  expect(&call, process.pbi_pid == static_cast<uint32_t>(pid), "it is about process %u",
         process.pbi_pid);
  expect(&call, process.pbi_status >= darwin::SIDL && process.pbi_status <= darwin::SZOMB,
         "status %u", process.pbi_status);
  expect(&call, isTerminated(process.pbi_comm) && isTerminated(process.pbi_name),
         "a name without an end");
  expect(&call, started >= 0 && started <= time(nullptr) + kClockTolerance,
         "started at second %lld of the epoch", static_cast<long long>(started));
  expect(&call, process.pbi_start_tvusec < 1'000'000, "%llu microseconds of a second",
         static_cast<unsigned long long>(process.pbi_start_tvusec));
  expect(&call, task.pti_resident_size % pageSize() == 0, "%llu resident bytes are no whole pages",
         static_cast<unsigned long long>(task.pti_resident_size));
  expect(&call,
         task.pti_threadnum >= 0 && task.pti_numrunning >= 0 &&
             task.pti_numrunning <= task.pti_threadnum,
         "%d of %d threads running", task.pti_numrunning, task.pti_threadnum);
  expect(&call, task.pti_priority >= 0 && task.pti_priority <= kMostPriority, "priority %d",
         task.pti_priority);
  endCall(&call);
}

static void checkThread(int32_t pid, uint64_t handle) {
  Call call = beginCall("proc_pidinfo PROC_PIDTHREADINFO", pid);
  darwin::proc_threadinfo info = {};
  errno = 0;
  const int size =
      darwin::proc_pidinfo(pid, darwin::PROC_PIDTHREADINFO, handle, &info, sizeof info);
  if (!hasSize(&call, size, sizeof info)) return;
  expect(&call, isTerminated(info.pth_name), "a name without an end");
  expect(&call, info.pth_cpu_usage >= 0 && info.pth_cpu_usage <= 1000,
         "%d tenths of a percent of a processor", info.pth_cpu_usage);
  expect(&call, info.pth_curpri >= 0 && info.pth_curpri <= kMostPriority, "priority %d",
         info.pth_curpri);
  endCall(&call);
}

// Threads come and go: as many are right as there were before or after, or between these.
static void checkThreads(int32_t pid) {
  static uint64_t handles[kMostListed];
  darwin::proc_taskallinfo before = {};
  darwin::proc_taskallinfo after = {};
  if (!readTask(pid, &before)) return;  // told already
  Call call = beginCall("proc_pidinfo PROC_PIDLISTTHREADS", pid);
  errno = 0;
  const int size =
      darwin::proc_pidinfo(pid, darwin::PROC_PIDLISTTHREADS, 0, handles, sizeof handles);
  if (size <= 0) {
    tellError(&call, errno);
    return;
  }
  const int count = size / static_cast<int>(sizeof handles[0]);
  expect(&call, size % static_cast<int>(sizeof handles[0]) == 0 && count <= kMostListed,
         "%d bytes are no whole handles", size);
  if (readTask(pid, &after)) {
    const int fewest = before.ptinfo.pti_threadnum < after.ptinfo.pti_threadnum
                           ? before.ptinfo.pti_threadnum
                           : after.ptinfo.pti_threadnum;
    const int most = before.ptinfo.pti_threadnum + after.ptinfo.pti_threadnum - fewest;
    expect(&call, count == kMostListed || (count >= fewest && count <= most),
           "%d listed, %d to %d counted", count, fewest, most);
  }
  endCall(&call);
  if (count > 0 && count <= kMostListed) checkThread(pid, handles[0]);
}

static void checkWorkQueue(int32_t pid) {
  Call call = beginCall("proc_pidinfo PROC_PIDWORKQUEUEINFO", pid);
  darwin::proc_workqueueinfo info = {};
  errno = 0;
  const int size = darwin::proc_pidinfo(pid, darwin::PROC_PIDWORKQUEUEINFO, 0, &info, sizeof info);
  if (!hasSize(&call, size, sizeof info)) return;
  expect(&call, info.pwq_runthreads <= info.pwq_nthreads, "%u of %u threads running",
         info.pwq_runthreads, info.pwq_nthreads);
  endCall(&call);
}

static void checkCoalition(int32_t pid) {
  Call call = beginCall("proc_pidinfo PROC_PIDCOALITIONINFO", pid);
  darwin::proc_pidcoalitioninfo info = {};
  constexpr int kShortSize = 32;
  const int wanted = g_OsVer < 11 ? kShortSize : static_cast<int>(sizeof info);
  errno = 0;
  const int size = darwin::proc_pidinfo(pid, darwin::PROC_PIDCOALITIONINFO, 0, &info, wanted);
  // Kept: of kernels that are not told apart the shorter form is wanted, which the later ones
  // refuse.
  if (size <= 0) tellError(&call, errno);
  expect(&call, size <= 0 || size == wanted, "%d bytes expected, %d came", wanted, size);
  endCall(&call);
}

// What the kernel writes about a descriptor of a type; 0 where the answer is a number of events.
struct DetailForm {
  uint32_t type;
  int32_t flavour;
  size_t size;
  const char *call;
};

static const DetailForm kDetailForms[] = {
    {darwin::PROX_FDTYPE_VNODE, darwin::PROC_PIDFDVNODEPATHINFO,
     sizeof(darwin::vnode_fdinfowithpath), "proc_pidfdinfo PROC_PIDFDVNODEPATHINFO"},
    {darwin::PROX_FDTYPE_SOCKET, darwin::PROC_PIDFDSOCKETINFO, sizeof(darwin::socket_fdinfo),
     "proc_pidfdinfo PROC_PIDFDSOCKETINFO"},
    {darwin::PROX_FDTYPE_PSHM, darwin::PROC_PIDFDPSHMINFO, sizeof(darwin::pshm_fdinfo),
     "proc_pidfdinfo PROC_PIDFDPSHMINFO"},
    {darwin::PROX_FDTYPE_PSEM, darwin::PROC_PIDFDPSEMINFO, sizeof(darwin::psem_fdinfo),
     "proc_pidfdinfo PROC_PIDFDPSEMINFO"},
    {darwin::PROX_FDTYPE_KQUEUE, darwin::PROC_PIDFDKQUEUE_EXTINFO, 0,
     "proc_pidfdinfo PROC_PIDFDKQUEUE_EXTINFO"},
    {darwin::PROX_FDTYPE_PIPE, darwin::PROC_PIDFDPIPEINFO, sizeof(darwin::pipe_fdinfo),
     "proc_pidfdinfo PROC_PIDFDPIPEINFO"},
    {darwin::PROX_FDTYPE_CHANNEL, darwin::PROC_PIDFDCHANNELINFO, sizeof(darwin::channel_fdinfo),
     "proc_pidfdinfo PROC_PIDFDCHANNELINFO"},
};

// Null for a type that nothing is asked about, or not in a way that the kernel answers.
static const DetailForm *findDetailForm(uint32_t type) {
  for (const DetailForm &form : kDetailForms) {
    if (form.type == type) return &form;
  }
  return nullptr;
}

static void checkDescriptor(int32_t pid, int32_t descriptor, const DetailForm *form) {
  Call call = beginCall(form->call, pid);
  alignas(uint64_t) uint8_t detail[4096] = {};
  errno = 0;
  const int size = darwin::proc_pidfdinfo(pid, descriptor, form->flavour, detail, sizeof detail);
  if (form->size != 0 && !hasSize(&call, size, form->size)) return;
  if (form->size == 0 && size == 0 && errno != 0) tellError(&call, errno);
  if (form->flavour == darwin::PROC_PIDFDVNODEPATHINFO) {
    darwin::vnode_fdinfowithpath file;
    memcpy(&file, detail, sizeof file);
    expect(&call, isTerminated(file.pvip.vip_path), "a path without an end");
    expect(&call, file.pvip.vip_vi.vi_stat.vst_size >= 0, "a file of %lld bytes",
           static_cast<long long>(file.pvip.vip_vi.vi_stat.vst_size));
  }
  endCall(&call);
}

// The first of each kind.
static void checkDescriptors(int32_t pid) {
  static darwin::proc_fdinfo list[kMostListed];
  Call call = beginCall("proc_pidinfo PROC_PIDLISTFDS", pid);
  errno = 0;
  const int size = darwin::proc_pidinfo(pid, darwin::PROC_PIDLISTFDS, 0, list, sizeof list);
  if (size <= 0 && errno != 0) {
    tellError(&call, errno);
    return;
  }
  expect(&call,
         size >= 0 && size % static_cast<int>(sizeof list[0]) == 0 &&
             size <= static_cast<int>(sizeof list),
         "%d bytes are no whole entries", size);
  const int count = call.isTold ? 0 : size / static_cast<int>(sizeof list[0]);
  for (int i = 0; i < count; i++) {
    expect(&call, list[i].proc_fd >= 0, "descriptor %d", list[i].proc_fd);
    expect(&call, i == 0 || list[i].proc_fd > list[i - 1].proc_fd, "descriptor %d after %d",
           list[i].proc_fd, list[i > 0 ? i - 1 : 0].proc_fd);
  }
  endCall(&call);
  uint32_t asked = 0;
  for (int i = 0; i < count; i++) {
    const DetailForm *form = findDetailForm(list[i].proc_fdtype);
    if (form == nullptr || (asked & (1U << form->type)) != 0) continue;
    asked |= 1U << form->type;
    checkDescriptor(pid, list[i].proc_fd, form);
  }
}

static void checkRegions(int32_t pid) {
  Call call = beginCall("proc_pidinfo PROC_PIDREGIONPATHINFO", pid);
  const uint64_t page = pageSize();
  uint64_t address = 0;
  for (int i = 0; i < kRegions; i++) {
    darwin::proc_regionwithpathinfo region = {};
    errno = 0;
    const int size =
        darwin::proc_pidinfo(pid, darwin::PROC_PIDREGIONPATHINFO, address, &region, sizeof region);
    if (size <= 0 && i > 0 && errno == darwin::DARWIN_EINVAL) break;  // past the last one
    if (!hasSize(&call, size, sizeof region)) return;
    const darwin::proc_regioninfo &info = region.prp_prinfo;
    const bool goesOn = expect(
        &call, info.pri_size > 0 && info.pri_address + info.pri_size > address,
        "%llu bytes at %llx, asked from %llx on", static_cast<unsigned long long>(info.pri_size),
        static_cast<unsigned long long>(info.pri_address),
        static_cast<unsigned long long>(address));
    expect(&call, info.pri_address % page == 0 && info.pri_size % page == 0,
           "%llu bytes at %llx are no whole pages", static_cast<unsigned long long>(info.pri_size),
           static_cast<unsigned long long>(info.pri_address));
    expect(&call, isTerminated(region.prp_vip.vip_path), "a path without an end");
    expect(&call, info.pri_protection <= 7, "protection %u", info.pri_protection);
    if (!goesOn) break;
    address = info.pri_address + info.pri_size;
  }
  endCall(&call);
}

static void checkUsage(int32_t pid) {
  const bool isLater = g_OsVer >= 10;
  Call call = beginCall(isLater ? "proc_pid_rusage version 3" : "proc_pid_rusage version 2", pid);
  if (proc_pid_rusage_funcptr == nullptr) {
    tellRefused(&call, "not in this system");
    return;
  }
  darwin::rusage_info_v4 usage = {};
  if (proc_pid_rusage_funcptr(
          pid, isLater ? darwin::DARWIN_RUSAGE_INFO_V3 : darwin::DARWIN_RUSAGE_INFO_V2,
          reinterpret_cast<darwin::rusage_info_t *>(&usage)) != 0) {
    tellError(&call, errno);
    return;
  }
  expect(
      &call,
      usage.ri_proc_exit_abstime == 0 || usage.ri_proc_exit_abstime >= usage.ri_proc_start_abstime,
      "it ended before it started");
  endCall(&call);
}

static void checkConfinement(int32_t pid) {
  Call check = beginCall("sandbox_check", pid);
  const int verdict = darwin::sandbox_check(pid, nullptr, 0);
  if (verdict < 0) tellError(&check, errno);
  expect(&check, verdict <= 1, "%d is neither yes nor no", verdict);
  endCall(&check);

  if (verdict == 1) {
    Call path = beginCall("sandbox_container_path_for_pid", pid);
    char container[darwin::DARWIN_MAXPATHLEN] = {};
    const int result = darwin::sandbox_container_path_for_pid(pid, container, sizeof container);
    if (result != 0) tellRefused(&path, "it has none");
    expect(&path, isTerminated(container), "a path without an end");
    endCall(&path);
  }

  Call signing = beginCall("csops CS_OPS_STATUS", pid);
  uint32_t flags = 0;
  if (darwin::csops(pid, darwin::CS_OPS_STATUS, &flags, sizeof flags) != 0) {
    tellError(&signing, errno);
  }
  endCall(&signing);
}

static void checkArguments(int32_t pid) {
  Call call = beginCall("sysctl KERN_PROCARGS2", pid);
  static char area[kArgumentArea];
  memset(area, 0, sizeof area);
  int name[] = {darwin::DARWIN_CTL_KERN, darwin::DARWIN_KERN_PROCARGS2, pid};
  size_t size = sizeof area;
  if (darwin::sysctl(name, sizeof name / sizeof name[0], area, &size, nullptr, 0) != 0) {
    tellError(&call, errno);
    return;
  }
  int32_t count = 0;
  memcpy(&count, area, sizeof count);
  expect(&call, size > sizeof count && size <= sizeof area, "%zu bytes came", size);
  expect(&call, count >= 0, "%d arguments", count);
  expect(&call,
         strnlen(area + sizeof count, sizeof area - sizeof count) < sizeof area - sizeof count,
         "a path without an end");
  endCall(&call);
}

static void checkPolicy(int32_t pid) {
  Call call = beginCall("process_policy PROC_POLICY_APPLIFE_STATE", pid);
  int32_t state = 0;
  if (process_policy(darwin::PROC_POLICY_SCOPE_PROCESS, darwin::PROC_POLICY_ACTION_GET,
                     darwin::PROC_POLICY_APP_LIFECYCLE, darwin::PROC_POLICY_APPLIFE_STATE, &state,
                     pid, 0) != 0) {
    tellError(&call, errno);
    return;
  }
  expect(&call, state >= 0 && state <= darwin::PROC_APPSTATE_INACTIVE, "state %d", state);
  endCall(&call);
}

static void checkThreadState(int32_t pid, darwin::thread_act_t thread) {
  Call call = beginCall("act_get_state ARM_THREAD_STATE64", pid);
  darwin::natural_t registers[darwin::ARM_THREAD_STATE64_COUNT] = {};
  darwin::mach_msg_type_number_t count = darwin::ARM_THREAD_STATE64_COUNT;
  if (!expectSuccess(
          &call, darwin::act_get_state(thread, darwin::ARM_THREAD_STATE64, registers, &count))) {
    return;
  }
  expect(&call, count == darwin::ARM_THREAD_STATE64_COUNT, "%u words expected, %u came",
         darwin::ARM_THREAD_STATE64_COUNT, count);
  endCall(&call);
}

static void checkTaskThreads(int32_t pid, darwin::mach_port_t task) {
  Call call = beginCall("task_threads", pid);
  darwin::thread_act_array_t threads = nullptr;
  darwin::mach_msg_type_number_t count = 0;
  if (!expectSuccess(&call, darwin::task_threads(task, &threads, &count))) return;
  expect(&call, count == 0 || threads != nullptr, "%u threads, and no list of them", count);
  endCall(&call);
  if (threads == nullptr) return;
  if (count > 0) checkThreadState(pid, threads[0]);
  for (uint32_t i = 0; i < count; i++) {
    darwin::mach_port_deallocate(darwin::mach_task_self_, threads[i]);
  }
  darwin::vm_deallocate(darwin::mach_task_self_, reinterpret_cast<darwin::vm_address_t>(threads),
                        count * sizeof *threads);
}

static void checkPages(int32_t pid, darwin::mach_port_t task, uint64_t address) {
  Call call = beginCall("mach_vm_page_range_query", pid);
  if (mach_vm_page_range_query_funcptr == nullptr) {
    tellRefused(&call, "not in this system");
    return;
  }
  int page = 0;
  darwin::mach_vm_size_t count = 1;
  if (!expectSuccess(&call, mach_vm_page_range_query_funcptr(
                                task, address, pageSize(),
                                reinterpret_cast<darwin::mach_vm_address_t>(&page), &count))) {
    return;
  }
  expect(&call, count == 1, "%llu pages told of, asked about one",
         static_cast<unsigned long long>(count));
  endCall(&call);
}

static void checkMemory(int32_t pid, darwin::mach_port_t task) {
  Call map = beginCall("vm_region_recurse_64", pid);
  darwin::vm_region_submap_info_64 info = {};
  darwin::vm_address_t address = 0;
  darwin::vm_size_t size = 0;
  darwin::natural_t depth = 1;
  darwin::mach_msg_type_number_t words = darwin::VM_REGION_SUBMAP_INFO_COUNT_64;
  if (!expectSuccess(&map,
                     darwin::vm_region_recurse_64(
                         task, &address, &size, &depth,
                         reinterpret_cast<darwin::vm_region_recurse_info_t>(&info), &words))) {
    return;
  }
  expect(&map, size > 0 && size % pageSize() == 0 && address % pageSize() == 0,
         "%llu bytes at %llx are no whole pages", static_cast<unsigned long long>(size),
         static_cast<unsigned long long>(address));
  endCall(&map);
  checkPages(pid, task, address);
  if ((info.protection & darwin::VM_PROT_READ) == 0) return;

  Call read = beginCall("mach_vm_read_overwrite", pid);
  uint8_t bytes[16];
  darwin::mach_vm_size_t copied = 0;
  if (!expectSuccess(&read, darwin::mach_vm_read_overwrite(
                                task, address, sizeof bytes,
                                reinterpret_cast<darwin::mach_vm_address_t>(bytes), &copied))) {
    return;
  }
  expect(&read, copied == sizeof bytes, "%zu bytes asked for, %llu came", sizeof bytes,
         static_cast<unsigned long long>(copied));
  endCall(&read);
}

static void checkTaskPort(int32_t pid) {
  Call call = beginCall("task_for_pid", pid);
  darwin::mach_port_t task = darwin::DARWIN_MACH_PORT_NULL;
  if (!expectSuccess(&call, darwin::task_for_pid(darwin::mach_task_self_, pid, &task))) return;
  if (!expect(&call, task != darwin::DARWIN_MACH_PORT_NULL, "success, and no port")) return;
  endCall(&call);
  checkTaskThreads(pid, task);
  checkMemory(pid, task);
  darwin::mach_port_deallocate(darwin::mach_task_self_, task);
}

static void checkTaskName(int32_t pid) {
  Call call = beginCall("task_name_for_pid", pid);
  darwin::mach_port_t name = darwin::DARWIN_MACH_PORT_NULL;
  if (!expectSuccess(&call, darwin::task_name_for_pid(darwin::mach_task_self_, pid, &name))) return;
  endCall(&call);

  Call counts = beginCall("task_info TASK_EXTMOD_INFO", pid);
  darwin::task_extmod_info info = {};
  darwin::mach_msg_type_number_t words = sizeof info;
  if (expectSuccess(&counts,
                    darwin::task_info(name, darwin::TASK_EXTMOD_INFO,
                                      reinterpret_cast<darwin::task_info_t>(&info), &words))) {
    expect(&counts, words == sizeof info / sizeof(darwin::natural_t), "%zu words expected, %u came",
           sizeof info / sizeof(darwin::natural_t), words);
    endCall(&counts);
  }
  darwin::mach_port_deallocate(darwin::mach_task_self_, name);
}

void checkProcess(int32_t pid) {
  checkTask(pid);
  checkThreads(pid);
  checkWorkQueue(pid);
  checkDescriptors(pid);
  checkCoalition(pid);
  checkRegions(pid);
  checkUsage(pid);
  checkConfinement(pid);
  checkArguments(pid);
  checkPolicy(pid);
  checkTaskPort(pid);
  checkTaskName(pid);
}

}  // namespace sondex
