#include "capture/system_checks.h"

#include <curses.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <term.h>
#include <time.h>
#include <unistd.h>

#include "capture/verdict.h"
#include "darwin/errors.h"
#include "darwin/gestalt.h"
#include "darwin/interfaces.h"
#include "darwin/kcdata.h"
#include "darwin/kext.h"
#include "darwin/kqueue.h"
#include "darwin/libproc.h"
#include "darwin/mach_host.h"
#include "darwin/mach_task.h"
#include "darwin/mach_vm.h"
#include "darwin/power_sources.h"
#include "darwin/socket.h"
#include "darwin/stackshot.h"
#include "darwin/syscalls.h"
#include "darwin/sysctl.h"
#include "device/gestalt.h"
#include "kcdata/stackshot.h"
#include "nstat/accounting.h"
#include "nstat/client.h"
#include "nstat/layouts.h"
#include "proc/jetsam.h"
#include "state/system.h"

namespace sondex {

constexpr int32_t kCountsPatience = 5000;  // milliseconds
constexpr int64_t kClockTolerance = 2;     // seconds
constexpr int32_t kFirstProcess = 1;
static const char kMissing[] = "not in this system";

static void checkVersion() {
  Call call = beginCall("uname", kNoProcess);
  utsname names = {};
  if (uname(&names) != 0) {
    tellError(&call, errno);
    return;
  }
  expect(&call, strstr(names.version, "xnu-") != nullptr, "no kernel's number in \"%s\"",
         names.version);
  endCall(&call);
}

static void checkEntryPoints() {
  const struct {
    const char *name;
    bool isFound;
  } points[] = {
      {"symbol memorystatus_get_level", memorystatus_get_level_funcptr != nullptr},
      {"symbol proc_pid_rusage", proc_pid_rusage_funcptr != nullptr},
      {"symbol mach_vm_page_range_query", mach_vm_page_range_query_funcptr != nullptr},
  };
  for (const auto &point : points) {
    Call call = beginCall(point.name, kNoProcess);
    if (!point.isFound) tellRefused(&call, kMissing);
    endCall(&call);
  }
}

static bool hasFirstProcess(const int32_t *pids, int count) {
  for (int i = 0; i < count; i++) {
    if (pids[i] == kFirstProcess) return true;
  }
  return false;
}

static void checkProcessList() {
  Call call = beginCall("proc_listpids PROC_ALL_PIDS", kNoProcess);
  const int room = darwin::proc_listpids(darwin::PROC_ALL_PIDS, 0, nullptr, 0);
  if (room <= 0) {
    tellError(&call, errno);
    return;
  }
  auto *pids = static_cast<int32_t *>(malloc(static_cast<size_t>(room)));
  if (pids == nullptr) {
    tellError(&call, errno);
    return;
  }
  const int size = darwin::proc_listpids(darwin::PROC_ALL_PIDS, 0, pids, room);
  constexpr int kEntry = sizeof *pids;
  const int count = size > 0 && size <= room ? size / kEntry : 0;
  if (size <= 0) tellError(&call, errno);
  expect(&call, size <= room && size % kEntry == 0, "%d bytes in room for %d", size, room);
  expect(&call, size <= 0 || hasFirstProcess(pids, count), "process 1 is not in it");
  free(pids);
  endCall(&call);
}

static void checkJetsam() {
  Call call = beginCall("memorystatus_control GET_PRIORITY_LIST", kNoProcess);
  constexpr int kEntry = sizeof(darwin::memorystatus_priority_entry);
  const int size =
      memorystatus_control(darwin::MEMORYSTATUS_CMD_GET_PRIORITY_LIST, 0, 0, nullptr, 0);
  if (size < 0) tellError(&call, errno);
  expect(&call, size < 0 || size % kEntry == 0, "%d bytes are no whole entries of %d", size,
         kEntry);
  endCall(&call);

  Call level = beginCall("memorystatus_get_level", kNoProcess);
  unsigned int percent = 0;
  if (memorystatus_get_level_funcptr == nullptr) {
    tellRefused(&level, kMissing);
  } else if (memorystatus_get_level_funcptr(&percent) != 0) {
    tellError(&level, errno);
  }
  expect(&level, percent <= 100, "%u percent", percent);
  endCall(&level);

  Call pressure = beginCall("vm_pressure_monitor", kNoProcess);
  uint32_t reclaimed = 0;
  if (syscall(darwin::DARWIN_SYS_vm_pressure_monitor, 0, 1, &reclaimed) < 0) {
    tellError(&pressure, errno);
  }
  endCall(&pressure);
}

static void checkMemory() {
  Call call = beginCall("host_statistics64 HOST_VM_INFO64", kNoProcess);
  darwin::vm_statistics64 memory = {};
  constexpr darwin::mach_msg_type_number_t kWords = sizeof memory / sizeof(darwin::integer_t);
  darwin::mach_msg_type_number_t words = kWords;
  if (expectSuccess(&call, darwin::host_statistics64(
                               host_self, darwin::HOST_VM_INFO64,
                               reinterpret_cast<darwin::host_info64_t>(&memory), &words))) {
    expect(&call, words == kWords, "%u words expected, %u came", kWords, words);
    expect(&call, memory.speculative_count <= memory.free_count,
           "%u of %u free pages are speculative", memory.speculative_count, memory.free_count);
    endCall(&call);
  }

  Call page = beginCall("host_page_size", kNoProcess);
  darwin::vm_size_t size = 0;
  if (expectSuccess(&page, darwin::host_page_size(host_self, &size))) {
    expect(&page, size >= 4096 && (size & (size - 1)) == 0, "%llu bytes",
           static_cast<unsigned long long>(size));
    endCall(&page);
  }
}

static void checkProcessor(darwin::processor_t processor) {
  Call call = beginCall("processor_info PROCESSOR_CPU_LOAD_INFO", kNoProcess);
  darwin::processor_cpu_load_info ticks = {};
  darwin::host_t host = 0;
  darwin::mach_msg_type_number_t words = darwin::CPU_STATE_MAX;
  if (!expectSuccess(&call, darwin::processor_info(
                                processor, darwin::PROCESSOR_CPU_LOAD_INFO, &host,
                                reinterpret_cast<darwin::processor_info_t>(&ticks), &words))) {
    return;
  }
  expect(&call, words == darwin::CPU_STATE_MAX, "%d words expected, %u came", darwin::CPU_STATE_MAX,
         words);
  endCall(&call);
}

static void releasePorts(const darwin::mach_port_t *ports, uint32_t count) {
  if (ports == nullptr) return;
  for (uint32_t i = 0; i < count; i++) {
    darwin::mach_port_deallocate(darwin::mach_task_self_, ports[i]);
  }
  darwin::vm_deallocate(darwin::mach_task_self_, reinterpret_cast<darwin::vm_address_t>(ports),
                        count * sizeof *ports);
}

static void checkProcessors() {
  Call basic = beginCall("host_info HOST_BASIC_INFO", kNoProcess);
  darwin::host_basic_info info = {};
  constexpr darwin::mach_msg_type_number_t kWords = sizeof info / sizeof(darwin::integer_t);
  darwin::mach_msg_type_number_t words = kWords;
  if (expectSuccess(&basic,
                    darwin::host_info(host_self, darwin::HOST_BASIC_INFO,
                                      reinterpret_cast<darwin::host_info_t>(&info), &words))) {
    expect(&basic, words == kWords, "%u words expected, %u came", kWords, words);
    expect(&basic, info.logical_cpu > 0 && info.logical_cpu <= info.logical_cpu_max,
           "%d of %d processors", info.logical_cpu, info.logical_cpu_max);
    endCall(&basic);
  }

  Call list = beginCall("host_processors", kNoProcess);
  darwin::processor_array_t processors = nullptr;
  darwin::mach_msg_type_number_t count = 0;
  if (expectSuccess(&list, darwin::host_processors(host_self, &processors, &count))) {
    expect(&list, count > 0 && processors != nullptr, "%u processors", count);
    endCall(&list);
    if (processors != nullptr && count > 0) checkProcessor(processors[0]);
    releasePorts(processors, count);
  }

  Call sets = beginCall("host_processor_sets", kNoProcess);
  darwin::processor_set_name_array_t names = nullptr;
  darwin::mach_msg_type_number_t number = 0;
  if (expectSuccess(&sets, darwin::host_processor_sets(host_self, &names, &number))) {
    expect(&sets, number > 0 && names != nullptr, "%u sets", number);
    endCall(&sets);
    releasePorts(names, number);
  }

  Call kernel = beginCall("host_get_special_port HOST_KERNEL_PORT", kNoProcess);
  darwin::mach_port_t port = darwin::DARWIN_MACH_PORT_NULL;
  if (expectSuccess(&kernel,
                    darwin::host_get_special_port(host_self, darwin::HOST_LOCAL_NODE,
                                                  darwin::DARWIN_HOST_KERNEL_PORT, &port))) {
    endCall(&kernel);
    if (port != darwin::DARWIN_MACH_PORT_NULL) {
      darwin::mach_port_deallocate(darwin::mach_task_self_, port);
    }
  }
}

// Whether the value came, of exactly the size of `value`.
template <typename Value>
static bool readValue(Call *call, const char *name, Value *value) {
  size_t size = sizeof *value;
  if (darwin::sysctlbyname(name, value, &size, nullptr, 0) != 0) {
    tellError(call, errno);
    return false;
  }
  return expect(call, size == sizeof *value, "%zu bytes expected, %zu came", sizeof *value, size);
}

static void checkKernelState() {
  Call boot = beginCall("sysctl kern.boottime", kNoProcess);
  darwin::timeval booted = {};
  if (readValue(&boot, "kern.boottime", &booted)) {
    expect(&boot, booted.tv_sec <= time(nullptr) + kClockTolerance, "started in the future");
    expect(&boot, booted.tv_usec >= 0 && booted.tv_usec < 1'000'000, "%d microseconds of a second",
           booted.tv_usec);
    endCall(&boot);
  }
  Call load = beginCall("sysctl vm.loadavg", kNoProcess);
  darwin::loadavg average = {};
  if (readValue(&load, "vm.loadavg", &average)) {
    expect(&load, average.fscale > 0, "to be divided by %lld",
           static_cast<long long>(average.fscale));
    endCall(&load);
  }
  Call swap = beginCall("sysctl vm.swapusage", kNoProcess);
  darwin::xsw_usage usage = {};
  if (readValue(&swap, "vm.swapusage", &usage)) {
    expect(&swap, usage.xsu_used <= usage.xsu_total, "%llu of %llu bytes used",
           static_cast<unsigned long long>(usage.xsu_used),
           static_cast<unsigned long long>(usage.xsu_total));
    endCall(&swap);
  }
}

// The messages have to fill the list: each tells its length.
static void followInterfaces(Call *call, const uint8_t *list, size_t size) {
  int interfaces = 0;
  for (size_t at = 0; at < size;) {
    uint16_t length = 0;
    memcpy(&length, list + at, size - at < sizeof length ? size - at : sizeof length);
    if (!expect(call, length >= 4 && length <= size - at,
                "a message of %u bytes where %zu are left", length, size - at)) {
      return;
    }
    if (list[at + 3] == darwin::RTM_IFINFO2) {
      interfaces++;
      expect(call, length >= sizeof(darwin::if_msghdr2), "an interface in %u bytes", length);
    }
    at += length;
  }
  expect(call, interfaces > 0 || size == 0, "no interface in %zu bytes", size);
}

static void checkInterfaces() {
  Call call = beginCall("sysctl NET_RT_IFLIST2", kNoProcess);
  int name[] = {
      darwin::DARWIN_CTL_NET, darwin::DARWIN_AF_ROUTE, 0, 0, darwin::DARWIN_NET_RT_IFLIST2, 0};
  constexpr unsigned int kNumbers = sizeof name / sizeof name[0];
  size_t size = 0;
  if (darwin::sysctl(name, kNumbers, nullptr, &size, nullptr, 0) != 0) {
    tellError(&call, errno);
    return;
  }
  const size_t room = size;
  auto *list = static_cast<uint8_t *>(malloc(room > 0 ? room : 1));
  if (list == nullptr || darwin::sysctl(name, kNumbers, list, &size, nullptr, 0) != 0) {
    tellError(&call, errno);
  } else if (expect(&call, size <= room, "%zu bytes in room for %zu", size, room)) {
    followInterfaces(&call, list, size);
  }
  free(list);
  endCall(&call);
}

static void checkWiFi() {
  Call call = beginCall("ioctl SIOCGA80211 CHANNEL", kNoProcess);
  const int asked = socket(AF_INET, SOCK_DGRAM, 0);
  darwin::apple80211_channel_data reply = {};
  darwin::apple80211req request = {};
  snprintf(request.req_if_name, sizeof request.req_if_name, "en0");
  request.req_type = darwin::APPLE80211_IOC_CHANNEL;
  request.req_len = sizeof reply;
  request.req_data = &reply;
  if (asked < 0 || ioctl(asked, darwin::SIOCGA80211, &request) != 0) tellError(&call, errno);
  if (asked >= 0) close(asked);
  endCall(&call);
}

static void checkStatistics() {
  Call call = beginCall("network statistics", kNoProcess);
  expectCounts();
  pthread_t reader;
  if (pthread_create(&reader, nullptr, doNStat, nullptr) != 0) {
    tellRefused(&call, "no thread");
    return;
  }
  pthread_detach(reader);
  const bool isWhole = awaitCounts(kCountsPatience);
  if (nstat_ok() == 0) {
    tellRefused(&call, "no connection: see standard error");
    return;
  }
  expect(&call, isWhole, "no whole answer in the form of kernels from %u on",
         statisticsLayout->firstKernel);
  endCall(&call);
}

static void checkStackshot() {
  Call call = beginCall("stackshot_capture_with_config", kNoProcess);
  uint32_t size = 0;
  int error = 0;
  const void *snapshot = takeStackshot(kFirstProcess, &size, &error);
  if (error != 0) {
    tellError(&call, error);
    return;
  }
  darwin::kcdata_item first = {};
  if (snapshot != nullptr && size >= sizeof first) {
    memcpy(&first, snapshot, sizeof first);
    expect(&call, first.type == darwin::KCDATA_BUFFER_BEGIN_STACKSHOT, "it begins with type %#x",
           first.type);
  } else {
    expect(&call, false, "success, and %u bytes", size);
  }
  endCall(&call);
}

static void checkEvents() {
  Call call = beginCall("kevent EVFILT_PROC", kNoProcess);
  const int queue = darwin::kqueue();
  struct darwin::kevent watched = {};
  watched.ident = kFirstProcess;
  watched.filter = darwin::EVFILT_PROC;
  watched.flags = darwin::EV_ADD;
  watched.fflags = darwin::NOTE_EXIT | darwin::NOTE_FORK | darwin::NOTE_EXEC;
  if (queue < 0 || darwin::kevent(queue, &watched, 1, nullptr, 0, nullptr) < 0) {
    tellError(&call, errno);
  }
  if (queue >= 0) close(queue);
  endCall(&call);
}

static void checkGestalt() {
  for (const char *key : {"marketing-name", "ProductVersion", "BuildVersion"}) {
    char name[48];
    snprintf(name, sizeof name, "MGCopyAnswerWithError %s", key);
    Call call = beginCall(name, kNoProcess);
    const char *answer = gestaltAnswer(key);
    if (answer == nullptr) {
      tellRefused(&call, "no answer");
    } else if (strcmp(answer, "?") == 0) {
      tellRefused(&call, "by the service");
    }
    expect(&call, answer == nullptr || strcmp(answer, "?!") != 0, "the answer is no text");
    endCall(&call);
  }
}

static void checkPower() {
  Call call = beginCall("IOPSCopyPowerSourcesInfo", kNoProcess);
  const darwin::CFTypeRef info = darwin::IOPSCopyPowerSourcesInfo();
  const darwin::CFArrayRef sources =
      info != nullptr ? darwin::IOPSCopyPowerSourcesList(info) : nullptr;
  if (sources == nullptr) tellRefused(&call, "no answer");
  if (sources != nullptr) darwin::CFRelease(sources);
  if (info != nullptr) darwin::CFRelease(info);
  endCall(&call);

  Call extensions = beginCall("OSKextCopyLoadedKextInfo", kNoProcess);
  const darwin::CFDictionaryRef loaded = darwin::OSKextCopyLoadedKextInfo(nullptr, nullptr);
  if (loaded == nullptr) tellRefused(&extensions, "no answer");
  if (loaded != nullptr) darwin::CFRelease(loaded);
  endCall(&extensions);
}

static void checkSurroundings() {
  Call terminal = beginCall("setupterm", kNoProcess);
  int reason = 0;
  if (setupterm(nullptr, STDOUT_FILENO, &reason) != OK) {
    const char *name = getenv("TERM");
    char by[128];
    snprintf(by, sizeof by, "%s for TERM \"%s\"",
             reason < 0 ? "no descriptions of terminals" : "no description",
             name != nullptr ? name : "");
    tellRefused(&terminal, by);
  }
  endCall(&terminal);

  Call folder = beginCall("/tmp", kNoProcess);
  char path[32];
  snprintf(path, sizeof path, "/tmp/.sondex-check.%d", getpid());
  const int probe = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (probe < 0) {
    tellError(&folder, errno);
    return;
  }
  close(probe);
  unlink(path);
  endCall(&folder);
}

void checkSystem() {
  checkVersion();
  checkEntryPoints();
  checkProcessList();
  checkJetsam();
  checkMemory();
  checkProcessors();
  checkKernelState();
  checkInterfaces();
  checkWiFi();
  checkStatistics();
  checkStackshot();
  checkEvents();
  checkGestalt();
  checkPower();
  checkSurroundings();
}

}  // namespace sondex
