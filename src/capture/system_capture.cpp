#include "capture/system_capture.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include "capture/device_file_writer.h"
#include "capture/figures.h"
#include "capture/refusals.h"
#include "capture/service_capture.h"
#include "capture/stand_ins.h"
#include "capture/time_zone.h"
#include "darwin/errors.h"
#include "darwin/mach_task.h"
#include "darwin/mach_vm.h"
#include "darwin/socket.h"
#include "state/system.h"

namespace sondex {

constexpr uint32_t kUnknownLevel = UINT32_MAX;
constexpr int64_t kMillion = 1'000'000;

template <typename Value>
static void readVariable(const char *name, Value *value) {
  size_t size = sizeof *value;
  errno = 0;
  if (darwin::sysctlbyname(name, value, &size, nullptr, 0) == 0 && size == sizeof *value) return;
  noteRefusal(kEveryProcess, "sysctl", name, errno);
  memset(value, 0, sizeof *value);
}

static void readProcessors(SystemFigures *figures) {
  darwin::processor_array_t ports = nullptr;
  darwin::mach_msg_type_number_t count = 0;
  if (darwin::host_processors(host_self, &ports, &count) != darwin::KERN_SUCCESS) {
    noteRefusal(kEveryProcess, "host_processors", nullptr, darwin::DARWIN_EPERM);
    return;
  }
  figures->processorCount = count < kMostProcessors ? count : kMostProcessors;
  for (uint32_t i = 0; i < count; i++) {
    if (i < figures->processorCount) {
      darwin::host_t host = 0;
      darwin::mach_msg_type_number_t words = darwin::CPU_STATE_MAX;
      darwin::processor_info(
          ports[i], darwin::PROCESSOR_CPU_LOAD_INFO, &host,
          reinterpret_cast<darwin::processor_info_t>(figures->processors[i].cpu_ticks), &words);
    }
    darwin::mach_port_deallocate(darwin::mach_task_self_, ports[i]);
  }
  darwin::vm_deallocate(darwin::mach_task_self_, reinterpret_cast<darwin::vm_address_t>(ports),
                        count * sizeof *ports);
}

static void readName(const uint8_t *message, size_t size, char *name, size_t room) {
  darwin::sockaddr_dl address = {};
  if (size < sizeof(darwin::if_msghdr2) + offsetof(darwin::sockaddr_dl, sdl_data)) return;
  const uint8_t *link = message + sizeof(darwin::if_msghdr2);
  const size_t left = size - sizeof(darwin::if_msghdr2);
  memcpy(&address, link, left < sizeof address ? left : sizeof address);
  const size_t start = offsetof(darwin::sockaddr_dl, sdl_data);
  size_t length = address.sdl_nlen;
  if (length > left - start) length = left - start;
  if (length >= room) length = room - 1;
  memcpy(name, link + start, length);
}

// The messages that say of an interface all that is known of it, each before those of its
// addresses.
static void readMessages(const uint8_t *list, size_t size, SystemFigures *figures) {
  for (size_t at = 0; size - at >= 4;) {
    uint16_t length = 0;
    memcpy(&length, list + at, sizeof length);
    if (length < 4 || length > size - at) return;
    if (list[at + 3] == darwin::RTM_IFINFO2 && length >= sizeof(darwin::if_msghdr2) &&
        figures->interfaceCount < kMostInterfaces) {
      InterfaceFigures *interface = &figures->interfaces[figures->interfaceCount];
      memcpy(&interface->message, list + at, sizeof interface->message);
      readName(list + at, length, interface->name, sizeof interface->name);
      if (interface->name[0] != '\0') figures->interfaceCount++;
    }
    at += length;
  }
}

static void readInterfaces(SystemFigures *figures) {
  int name[] = {
      darwin::DARWIN_CTL_NET, darwin::DARWIN_AF_ROUTE, 0, 0, darwin::DARWIN_NET_RT_IFLIST2, 0};
  constexpr unsigned int kNumbers = sizeof name / sizeof name[0];
  size_t size = 0;
  if (darwin::sysctl(name, kNumbers, nullptr, &size, nullptr, 0) != 0) {
    noteRefusal(kEveryProcess, "sysctl", "net.route.iflist2", errno);
    return;
  }
  if (size == 0) return;
  const size_t room = size;
  auto *list = static_cast<uint8_t *>(malloc(room));
  if (list != nullptr && darwin::sysctl(name, kNumbers, list, &size, nullptr, 0) == 0 &&
      size <= room) {
    readMessages(list, size, figures);
  }
  free(list);
}

void sampleSystem(SystemFigures *figures) {
  memset(figures, 0, sizeof *figures);
  timeval now = {};
  gettimeofday(&now, nullptr);
  figures->seconds = now.tv_sec;
  figures->microseconds = now.tv_usec;
  darwin::mach_msg_type_number_t words = sizeof figures->memory / sizeof(darwin::integer_t);
  if (darwin::host_statistics64(host_self, darwin::HOST_VM_INFO64,
                                reinterpret_cast<darwin::host_info64_t>(&figures->memory),
                                &words) != darwin::KERN_SUCCESS) {
    noteRefusal(kEveryProcess, "host_statistics64", nullptr, darwin::DARWIN_EPERM);
  }
  readVariable("vm.loadavg", &figures->load);
  readVariable("vm.swapusage", &figures->swap);
  unsigned int level = 0;
  figures->level = memorystatus_get_level_funcptr != nullptr &&
                           memorystatus_get_level_funcptr(&level) == 0 && level <= 100
                       ? level
                       : kUnknownLevel;
  readProcessors(figures);
  readInterfaces(figures);
}

int64_t upAt(const SystemFigures *figures) {
  darwin::timeval booted = {};
  readVariable("kern.boottime", &booted);
  const int64_t up =
      (figures->seconds - booted.tv_sec) * kMillion + figures->microseconds - booted.tv_usec;
  return up > 0 && booted.tv_sec > 0 ? up : 0;
}

static uint64_t millionths(uint32_t average, int64_t scale) {
  const uint64_t divisor = scale > 0 ? static_cast<uint64_t>(scale) : 1;
  return (average * uint64_t{kMillion} + divisor / 2) / divisor;
}

static void writeLoad(const darwin::loadavg *first, const darwin::loadavg *second) {
  beginArray("load");
  for (size_t i = 0; i < sizeof first->ldavg / sizeof first->ldavg[0]; i++) {
    writeMillionths(nullptr, millionths(first->ldavg[i], first->fscale),
                    millionths(second->ldavg[i], second->fscale));
  }
  endArray();
}

static void writeTop(const SystemFigures *first, const SystemFigures *second) {
  const uid_t caller = geteuid();
  if (caller != 0) writeNumber("caller", caller);
  writeFlag("counted-sockets", false);
  if (first->tellsOfZombies) writeFlag("told-zombies", true);
  writeLoad(&first->load, &second->load);
  if (first->level != kUnknownLevel) {
    writeCount("memory-level", first->level,
               second->level != kUnknownLevel ? second->level : first->level, UINT64_MAX);
  }
}

static void writeMissing() {
  const struct {
    const char *name;
    bool isThere;
  } points[] = {
      {"memorystatus_get_level", memorystatus_get_level_funcptr != nullptr},
      {"proc_pid_rusage", proc_pid_rusage_funcptr != nullptr},
      {"mach_vm_page_range_query", mach_vm_page_range_query_funcptr != nullptr},
  };
  bool isOpen = false;
  for (const auto &point : points) {
    if (point.isThere) continue;
    if (!isOpen) beginArray("missing");
    isOpen = true;
    writePlainText(nullptr, point.name);
  }
  if (isOpen) endArray();
}

static void writeKernelTask() {
  darwin::mach_port_t port = darwin::DARWIN_MACH_PORT_NULL;
  if (darwin::host_get_special_port(host_self, darwin::HOST_LOCAL_NODE,
                                    darwin::DARWIN_HOST_KERNEL_PORT,
                                    &port) == darwin::KERN_SUCCESS &&
      port != darwin::DARWIN_MACH_PORT_NULL) {
    writeFlag("kernel-task", true);
    darwin::mach_port_deallocate(darwin::mach_task_self_, port);
  }
}

static void writeKernel() {
  writeTable("kernel");
  utsname names = {};
  if (uname(&names) == 0) {
    writePlainText("version", names.version);
    writePlainText("release", names.release);
    writeName("host", names.nodename, sizeof names.nodename);
    writePlainText("hardware", names.machine);
  }
  darwin::vm_size_t page = 0;
  if (darwin::host_page_size(host_self, &page) == darwin::KERN_SUCCESS && page == 4096) {
    writeNumber("page-size", 4096);
  }
  darwin::mach_timebase_info_data_t timebase = {};
  if (darwin::mach_timebase_info(&timebase) == darwin::KERN_SUCCESS && timebase.denom != 0) {
    beginArray("timebase");
    writeNumber(nullptr, timebase.numer);
    writeNumber(nullptr, timebase.denom);
    endArray();
  }
  writeMissing();
  writeKernelTask();
  writeExtensions();
}

static void writeClock(const SystemFigures *first, int64_t up) {
  writeTable("clock");
  writePlainText("mode", "stepped");
  if (sampleDistance() > 0 && sampleDistance() != kMillion) {
    writeDecimal("step", sampleDistance(), 6);
  }
  writeMoment("start", first->seconds, static_cast<int32_t>(first->microseconds));
  char zone[kZoneSize];
  writePlainText("zone", findTimeZone(zone));
  writeDecimal("up", up, 6);
}

// Counts of 32 bits that start again: what is less has done so.
static uint64_t later(uint32_t first, uint32_t second) {
  return second >= first ? second : second + (uint64_t{1} << 32);
}

static void writeProcessor(const darwin::processor_cpu_load_info *first,
                           const darwin::processor_cpu_load_info *second) {
  static const struct {
    const char *key;
    int state;
  } kStates[] = {{"user", darwin::CPU_STATE_USER},
                 {"system", darwin::CPU_STATE_SYSTEM},
                 {"nice", darwin::CPU_STATE_NICE}};
  writeEntryWithin("processor");
  for (const auto &row : kStates) {
    writeCount(row.key, first->cpu_ticks[row.state],
               later(first->cpu_ticks[row.state], second->cpu_ticks[row.state]));
  }
  // With its growth, which is else what the others leave.
  const uint32_t idle = first->cpu_ticks[darwin::CPU_STATE_IDLE];
  const uint64_t after = later(idle, second->cpu_ticks[darwin::CPU_STATE_IDLE]);
  if (after != idle) {
    writeCount("idle", idle, after);
  } else {
    beginInlineTable("idle");
    if (idle != 0) writeNumber("start", idle);
    writeNumber("growth", 0);
    endInlineTable();
  }
}

static void writeHardware(const SystemFigures *first, const SystemFigures *second) {
  writeTable("hardware");
  darwin::host_basic_info info = {};
  darwin::mach_msg_type_number_t words = sizeof info / sizeof(darwin::integer_t);
  if (darwin::host_info(host_self, darwin::HOST_BASIC_INFO,
                        reinterpret_cast<darwin::host_info_t>(&info),
                        &words) == darwin::KERN_SUCCESS) {
    const auto count = static_cast<int32_t>(first->processorCount != 0 ? first->processorCount : 1);
    writeSize("memory", info.max_mem);
    writeUnless("logical", info.logical_cpu, count);
    writeUnless("logical-most", info.logical_cpu_max, count);
    writeUnless("physical", info.physical_cpu, count);
    writeUnless("physical-most", info.physical_cpu_max, count);
    writeUnless("type", info.cpu_type, 0x0100000C);
    writeUnless("subtype", info.cpu_subtype, 2);
  }
  for (uint32_t i = 0; i < first->processorCount; i++) {
    const bool isInBoth = i < second->processorCount;
    writeProcessor(&first->processors[i], &(isInBoth ? second : first)->processors[i]);
  }
}

static void writeMemory(const darwin::vm_statistics64 *first,
                        const darwin::vm_statistics64 *second) {
  writeTable("memory");
  writeCount("free", first->free_count, second->free_count);
  writeCount("active", first->active_count, second->active_count);
  writeCount("inactive", first->inactive_count, second->inactive_count);
  writeCount("wired", first->wire_count, second->wire_count);
  writeCount("purgeable", first->purgeable_count, second->purgeable_count);
  writeCount("speculative", first->speculative_count, second->speculative_count);
  writeCount("throttled", first->throttled_count, second->throttled_count);
  writeCount("external", first->external_page_count, second->external_page_count);
  writeCount("internal", first->internal_page_count, second->internal_page_count);
  writeCount("compressor", first->compressor_page_count, second->compressor_page_count);
  writeCount("uncompressed", first->total_uncompressed_pages_in_compressor,
             second->total_uncompressed_pages_in_compressor);
  writeCount("compressions", first->compressions, second->compressions);
  writeCount("decompressions", first->decompressions, second->decompressions);
  writeCount("page-ins", first->pageins, second->pageins);
  writeCount("page-outs", first->pageouts, second->pageouts);
  writeCount("swap-ins", first->swapins, second->swapins);
  writeCount("swap-outs", first->swapouts, second->swapouts);
  writeCount("faults", first->faults, second->faults);
  writeCount("copy-on-write-faults", first->cow_faults, second->cow_faults);
  writeCount("zero-fills", first->zero_fill_count, second->zero_fill_count);
  writeCount("reactivations", first->reactivations, second->reactivations);
  writeCount("purges", first->purges, second->purges);
  writeCount("lookups", first->lookups, second->lookups);
  writeCount("hits", first->hits, second->hits);
}

static void writeSwap(const darwin::xsw_usage *first, const darwin::xsw_usage *second) {
  if (first->xsu_pagesize == 0) return;
  writeTable("swap");
  if (first->xsu_total != 0) writeSize("total", first->xsu_total);
  writeBytes("used", first->xsu_used, second->xsu_used);
  if (first->xsu_encrypted != 0) writeFlag("encrypted", true);
}

static const InterfaceFigures *findInterface(const SystemFigures *figures, const char *name) {
  for (int32_t i = 0; i < figures->interfaceCount; i++) {
    if (strcmp(figures->interfaces[i].name, name) == 0) return &figures->interfaces[i];
  }
  return nullptr;
}

static const FlagWord kInterfaceTypes[] = {
    {"ethernet", 6}, {"point-to-point", 23}, {"loopback", 24}, {"cellular", 255}};

static void writeInterface(const InterfaceFigures *interface, const SystemFigures *second) {
  const InterfaceFigures *again = findInterface(second, interface->name);
  const darwin::if_data64 &first = interface->message.ifm_data;
  const darwin::if_data64 &after = again != nullptr ? again->message.ifm_data : first;
  writeEntry("interface");
  writePlainText("name", interface->name);
  for (const FlagWord &type : kInterfaceTypes) {
    if (type.bits == first.ifi_type && type.bits != 6) writePlainText("type", type.word);
  }
  writeUnless("flags", static_cast<uint32_t>(interface->message.ifm_flags), 0x8863);
  writeUnless("mtu", first.ifi_mtu, 1500);
  writeCount("speed", first.ifi_baudrate, first.ifi_baudrate);
  writeCount("received-packets", first.ifi_ipackets, after.ifi_ipackets);
  writeCount("sent-packets", first.ifi_opackets, after.ifi_opackets);
  writeBytes("received", first.ifi_ibytes, after.ifi_ibytes);
  writeBytes("sent", first.ifi_obytes, after.ifi_obytes);
}

void writeSystem(const SystemFigures *first, const SystemFigures *second, int64_t up) {
  writeTop(first, second);
  writeKernel();
  writeClock(first, up);
  writeHardware(first, second);
  writeMemory(&first->memory, &second->memory);
  writeSwap(&first->swap, &second->swap);
  for (int32_t i = 0; i < first->interfaceCount; i++) {
    if (findInterface(first, first->interfaces[i].name) == &first->interfaces[i]) {
      writeInterface(&first->interfaces[i], second);
    }
  }
  writeWiFi();
  writePower();
  writeGestalt();
}

}  // namespace sondex
