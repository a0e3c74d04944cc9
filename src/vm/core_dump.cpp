#include "vm/core_dump.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "darwin/libproc.h"
#include "darwin/mach_task.h"
#include "darwin/mach_vm.h"
#include "darwin/macho.h"
#include "darwin/sysctl.h"
#include "darwin/thread_state.h"
#include "files/safe_file.h"
#include "state/tracing.h"
#include "text/safe_text.h"

namespace sondex {

constexpr int kNoTaskPort = -5;
constexpr int kCantOpenExecutable = 1;
constexpr int kFailed = -1;

constexpr int kMostRegions = 4096;
constexpr uint64_t kPageSize = 4096;
constexpr size_t kArgumentArea = 8192;
constexpr size_t kPieceSize = 1 << 20;  // of memory read and written at a time
constexpr size_t kThreadBuffer = 102400;
constexpr mode_t kOwnerOnly = 0600;
// What starts before it belongs to a 32-bit process.
constexpr uint64_t kFirst64BitAddress = 0xFFFFFFFF;

// Kept: the room for the commands is counted with the wider segment command for either word size.
constexpr uint64_t kSegmentRoom = sizeof(darwin::segment_command_64);

// A thread command: two words of its own, flavour and count, then the registers.
constexpr size_t kThreadHeader = sizeof(darwin::thread_command) + 2 * sizeof(darwin::natural_t);
constexpr size_t kThreadSize64 = kThreadHeader + sizeof(darwin::arm_thread_state64_t);
constexpr size_t kThreadSize32 = kThreadHeader + sizeof(darwin::arm_thread_state32_t);
static_assert(kThreadSize64 == 288 && kThreadSize32 == 84);

// Progress is shown after the first second, then twice a second.
constexpr int64_t kQuietTime = 1000;
constexpr int64_t kProgressPeriod = 500;

// The regions of a process, on the heap.
struct RegionTable {
  darwin::proc_regionwithpathinfo *regions;
  int count;
};

// What is being written, and how far it has come. Times are in milliseconds.
struct Core {
  int descriptor;
  char path[64];
  bool is32Bit;
  char *piece;  // kPieceSize bytes on the heap
  uint64_t done;
  uint64_t total;
  int64_t nextProgress;
  bool showsProgress;
  bool progressShown;
};

static int64_t milliseconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Returns the port, or null with a message.
static darwin::mach_port_t obtainTaskPort(int32_t pid) {
  darwin::mach_port_name_t task = darwin::DARWIN_MACH_PORT_NULL;
  const darwin::kern_return_t result = darwin::task_for_pid(darwin::mach_task_self_, pid, &task);
  if (result != darwin::KERN_SUCCESS) task = darwin::DARWIN_MACH_PORT_NULL;
  if (result != darwin::KERN_SUCCESS && pid == 0) {
    fprintf(
        stderr,
        "Unable to get Task port for PID 0 (kernel_task) - trying special port #4 instead...\n");
    const darwin::mach_port_t host = darwin::mach_host_self();
    if (darwin::host_get_special_port(host, darwin::HOST_LOCAL_NODE,
                                      darwin::DARWIN_HOST_KERNEL_PORT,
                                      &task) != darwin::KERN_SUCCESS) {
      task = darwin::DARWIN_MACH_PORT_NULL;
    }
    darwin::mach_port_deallocate(darwin::mach_task_self_, host);
    fprintf(stderr, "Task port: 0x%x\n", task);
  }
  if (task == darwin::DARWIN_MACH_PORT_NULL) {
    fputs(geteuid() != 0 ? "Unable to get task port (Not root, or possibly due to SIP)\n"
                         : "Unable to get task port (SIP?)\n",
          stderr);
  }
  return task;
}

// *read becomes the bytes that are now at `to`: at most `size`, none on failure.
static darwin::kern_return_t readMemory(darwin::mach_port_t task, uint64_t address, void *to,
                                        uint32_t size, uint32_t *read) {
  darwin::mach_vm_size_t copied = 0;
  const darwin::kern_return_t result = darwin::mach_vm_read_overwrite(
      task, address, size, reinterpret_cast<darwin::mach_vm_address_t>(to), &copied);
  if (result != darwin::KERN_SUCCESS) copied = 0;
  *read = copied < size ? static_cast<uint32_t>(copied) : size;
  return result;
}

static void reportUnread(uint64_t address, uint32_t size, darwin::kern_return_t result) {
  fprintf(stderr, "Failed to read %x bytes of memory from %llx - Error %d\n", size,
          static_cast<unsigned long long>(address), result);
}

void *readProcessMemory(darwin::mach_port_t task, uint64_t address, uint32_t *size) {
  void *memory = calloc(1, *size != 0 ? *size : 1);
  uint32_t read = 0;
  const darwin::kern_return_t result = memory != nullptr
                                           ? readMemory(task, address, memory, *size, &read)
                                           : darwin::KERN_RESOURCE_SHORTAGE;
  if (result != darwin::KERN_SUCCESS) {
    reportUnread(address, *size, result);
    free(memory);
    memory = nullptr;
  }
  *size = read;
  return memory;
}

int writeProcessMemory(darwin::mach_port_t, uint64_t, const void *, uint32_t) {
  fputs("Not yet\n", stderr);
  return -1;
}

int listImages(int32_t pid, darwin::mach_port_t task) {
  if (task != darwin::DARWIN_MACH_PORT_NULL) return 0;
  const darwin::mach_port_t obtained = obtainTaskPort(pid);
  if (obtained == darwin::DARWIN_MACH_PORT_NULL) return kNoTaskPort;
  darwin::mach_port_deallocate(darwin::mach_task_self_, obtained);
  return 0;
}

// A kernel that answers with the unified form puts a flavour and a count before the registers.
static void skipUnifiedHeader(darwin::thread_act_t thread, darwin::natural_t *registers) {
  if (registers[0] != darwin::ARM_THREAD_STATE32 ||
      registers[1] != darwin::ARM_THREAD_STATE32_COUNT) {
    return;
  }
  if (isTracing()) fputs("Workaround\n", stderr);
  // Asked with room for both, a kernel that gives just registers says so by its count: there a
  // thread happened to hold the two numbers.
  darwin::natural_t unified[2 + darwin::ARM_THREAD_STATE32_COUNT] = {};
  darwin::mach_msg_type_number_t count = sizeof unified / sizeof *unified;
  if (darwin::act_get_state(thread, darwin::ARM_THREAD_STATE, unified, &count) ==
          darwin::KERN_SUCCESS &&
      count == sizeof unified / sizeof *unified) {
    memcpy(registers, unified + 2, sizeof(darwin::arm_thread_state32_t));
  }
}

static void fillThreadCommand(darwin::thread_act_t thread, bool is32Bit, char *to) {
  const size_t size = is32Bit ? kThreadSize32 : kThreadSize64;
  const darwin::thread_command command = {darwin::LC_THREAD, static_cast<uint32_t>(size)};
  const darwin::natural_t form[] = {
      static_cast<darwin::natural_t>(is32Bit ? darwin::ARM_THREAD_STATE
                                             : darwin::ARM_THREAD_STATE64),
      is32Bit ? darwin::ARM_THREAD_STATE32_COUNT : darwin::ARM_THREAD_STATE64_COUNT};
  // Words of their own, so that a kernel that gives nothing leaves zeros.
  darwin::natural_t registers[darwin::ARM_THREAD_STATE64_COUNT] = {};
  darwin::mach_msg_type_number_t count = form[1];
  const darwin::kern_return_t result =
      darwin::act_get_state(thread, static_cast<int>(form[0]), registers, &count);
  if (is32Bit && result == darwin::KERN_SUCCESS) skipUnifiedHeader(thread, registers);

  memcpy(to, &command, sizeof command);
  memcpy(to + sizeof command, form, sizeof form);
  memcpy(to + kThreadHeader, registers, size - kThreadHeader);
}

char *makeThreadCommands(darwin::mach_port_t task, uint32_t *threadCount, uint32_t *totalSize,
                         bool is32Bit) {
  *threadCount = 0;
  *totalSize = 0;
  darwin::thread_act_array_t threads = nullptr;
  darwin::mach_msg_type_number_t count = 0;
  if (darwin::task_threads(task, &threads, &count) != darwin::KERN_SUCCESS) {
    fputs("Unable to obtain task thread ports\n", stderr);
    return nullptr;
  }
  const size_t commandSize = is32Bit ? kThreadSize32 : kThreadSize64;
  const uint64_t needed = uint64_t{count} * commandSize;
  char *commands = nullptr;
  if (needed <= UINT32_MAX) {
    commands = static_cast<char *>(calloc(1, needed > kThreadBuffer ? needed : kThreadBuffer));
  }
  if (commands == nullptr) fputs("Unable to obtain task thread ports\n", stderr);
  for (uint32_t i = 0; i < count; i++) {
    if (commands != nullptr) {
      char *command = commands + i * commandSize;
      if (isTracing()) {
        fprintf(stderr, "Thread %u (%x), LC @%p\n", i, threads[i], static_cast<void *>(command));
      }
      fillThreadCommand(threads[i], is32Bit, command);
    }
    darwin::mach_port_deallocate(darwin::mach_task_self_, threads[i]);
  }
  darwin::vm_deallocate(darwin::mach_task_self_, reinterpret_cast<darwin::vm_address_t>(threads),
                        count * sizeof *threads);
  if (commands == nullptr) return nullptr;
  *threadCount = count;
  *totalSize = static_cast<uint32_t>(needed);
  return commands;
}

// False when there is no memory for the table.
static bool listRegions(int32_t pid, darwin::mach_port_t task, RegionTable *table) {
  table->count = 0;
  table->regions = static_cast<darwin::proc_regionwithpathinfo *>(
      calloc(kMostRegions, sizeof(darwin::proc_regionwithpathinfo)));
  if (table->regions == nullptr) return false;
  darwin::vm_address_t address = 0;
  for (;;) {
    const darwin::vm_address_t asked = address;
    darwin::vm_size_t size = 0;
    darwin::natural_t depth = 1;
    darwin::vm_region_submap_info_64 info = {};
    darwin::mach_msg_type_number_t count = darwin::VM_REGION_SUBMAP_INFO_COUNT_64;
    const darwin::kern_return_t result = darwin::vm_region_recurse_64(
        task, &address, &size, &depth, reinterpret_cast<darwin::vm_region_recurse_info_t>(&info),
        &count);
    if (size == 0) return true;
    if (address % kPageSize == 0) {
      if (table->count == kMostRegions) {
        fprintf(stderr, "Warning: More than %d regions detected!\n", kMostRegions);
        return true;
      }
      if (isTracing()) {
        printf("KR: %d ADDR: %llx Size: %x infoCnt : %d, Submap: %d\n", result,
               static_cast<unsigned long long>(address), static_cast<unsigned int>(size),
               static_cast<int>(count), info.is_submap);
      }
      darwin::proc_regionwithpathinfo *region = &table->regions[table->count++];
      if (darwin::proc_pidinfo(pid, darwin::PROC_PIDREGIONPATHINFO, address, region,
                               sizeof *region) == 0) {
        region->prp_prinfo.pri_protection = static_cast<uint32_t>(info.protection);
        region->prp_prinfo.pri_max_protection = static_cast<uint32_t>(info.max_protection);
      }
      region->prp_prinfo.pri_address = address;
      region->prp_prinfo.pri_size = size;
    }
    // Kept: one past the end, as the kernel tells the region that contains an address.
    address += size + 1;
    if (address <= asked) return true;
  }
}

static bool isFor32Bit(const RegionTable *table) {
  return table->count > 0 &&
         table->regions[table->count - 1].prp_prinfo.pri_address < kFirst64BitAddress;
}

static void showProgress(Core *core) {
  if (!core->showsProgress) return;
  const int64_t now = milliseconds();
  if (now < core->nextProgress) return;
  core->nextProgress = now + kProgressPeriod;
  core->progressShown = true;
  fprintf(stderr, "\r%s: %llu of %llu MB", core->path,
          static_cast<unsigned long long>(core->done >> 20),
          static_cast<unsigned long long>(core->total >> 20));
}

// Leaves the line to what is written next.
static void clearProgress(Core *core) {
  if (core->progressShown) fputs("\r\033[K", stderr);
  core->progressShown = false;
}

// Writes all bytes at a place in the file. False with errno set.
static bool writeAt(const Core *core, const void *bytes, size_t size, uint64_t offset) {
  const char *from = static_cast<const char *>(bytes);
  while (size > 0) {
    const ssize_t written = pwrite(core->descriptor, from, size, static_cast<off_t>(offset));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      if (written == 0) errno = ENOSPC;
      return false;
    }
    from += written;
    size -= static_cast<size_t>(written);
    offset += static_cast<uint64_t>(written);
  }
  return true;
}

static bool setFileSize(const Core *core, uint64_t size) {
  return ftruncate(core->descriptor, static_cast<off_t>(size)) == 0;
}

// False with a message.
static bool openCore(Core *core) {
  core->piece = static_cast<char *>(malloc(kPieceSize));
  if (core->piece == nullptr) {
    perror("malloc");
    return false;
  }
  core->descriptor = openToRewrite(core->path, kOwnerOnly);
  if (core->descriptor >= 0 && fchmod(core->descriptor, kOwnerOnly) == 0) {
    core->showsProgress = isatty(STDERR_FILENO) == 1;
    core->nextProgress = milliseconds() + kQuietTime;
    return true;
  }
  perror(core->path);
  if (core->descriptor >= 0) close(core->descriptor);
  free(core->piece);
  return false;
}

// Takes away a file that is not whole, unless something else has its name by now.
static void discardCore(const Core *core) {
  struct stat opened = {};
  struct stat named = {};
  if (!setFileSize(core, 0)) perror(core->path);
  if (fstat(core->descriptor, &opened) == 0 && lstat(core->path, &named) == 0 &&
      opened.st_dev == named.st_dev && opened.st_ino == named.st_ino) {
    unlink(core->path);
  }
}

// Returns `result`, or kFailed with the file gone when that, or the closing, is a failure.
static int closeCore(Core *core, int result) {
  clearProgress(core);
  if (result < 0) discardCore(core);
  if (close(core->descriptor) != 0 && result >= 0) {
    perror(core->path);
    unlink(core->path);
    result = kFailed;
  }
  free(core->piece);
  return result;
}

// Copies a region's memory to a place in the file, piece by piece. *read becomes the bytes that
// could be read; where these are not all, the file ends before the region. False when the file
// can't be written.
static bool copyRegion(Core *core, darwin::mach_port_t task, uint64_t address, uint32_t size,
                       uint64_t offset, uint32_t *read) {
  bool hasSignature = false;
  *read = 0;
  while (*read < size) {
    const uint32_t rest = size - *read;
    const uint32_t wanted = rest < kPieceSize ? rest : kPieceSize;
    uint32_t got = 0;
    const darwin::kern_return_t result =
        readMemory(task, address + *read, core->piece, wanted, &got);
    if (result != darwin::KERN_SUCCESS) {
      clearProgress(core);
      reportUnread(address, size, result);
      *read = 0;  // as nothing comes of a read of the whole region then
      return setFileSize(core, offset);
    }
    uint32_t magic = 0;
    if (*read == 0 && got >= sizeof magic) memcpy(&magic, core->piece, sizeof magic);
    hasSignature = hasSignature || magic == darwin::MH_MAGIC_64;
    if (!writeAt(core, core->piece, got, offset + *read)) return false;
    *read += got;
    if (got < wanted) return setFileSize(core, offset);
    core->done += got;
    showProgress(core);
  }
  if (hasSignature && isTracing()) {
    fprintf(stderr, "Mach-O Sig @0x%llx\n", static_cast<unsigned long long>(address));
  }
  return true;
}

// Whether a region's data can stand in a core of its word size at that place.
static bool fitsCore(const Core *core, uint64_t size, uint64_t offset) {
  if (size > INT32_MAX) return false;
  return !core->is32Bit || offset + size <= UINT32_MAX;
}

static void reportPartial(Core *core, const darwin::proc_regioninfo *region, uint32_t read) {
  clearProgress(core);
  fprintf(stderr, "Warning: Segment at %llx only read partially (%x/%lx bytes)\n",
          static_cast<unsigned long long>(region->pri_address), read,
          static_cast<unsigned long>(region->pri_size));
}

// Writes a region's data at `offset`. *written becomes its bytes in the file: all, or none for one
// that can't be read. False when the file can't be written.
static bool writeRegion(Core *core, darwin::mach_port_t task, const darwin::proc_regioninfo *region,
                        uint64_t offset, uint32_t *written) {
  *written = 0;
  const bool fits = fitsCore(core, region->pri_size, offset);
  const uint32_t size = fits ? static_cast<uint32_t>(region->pri_size) : 0;
  if (region->pri_protection == 0) {
    // Its zeros are what the file reads where nothing was written.
    *written = size;
    return true;
  }
  uint32_t read = 0;
  if (fits && !copyRegion(core, task, region->pri_address, size, offset, &read)) return false;
  if (read == region->pri_size) {
    *written = read;
  } else {
    reportPartial(core, region, read);
  }
  return true;
}

static void fillSegment(const darwin::proc_regioninfo *region, int index, uint64_t offset,
                        uint32_t written, bool is32Bit, darwin::segment_command_64 *segment) {
  segment->cmd = is32Bit ? darwin::LC_SEGMENT : darwin::LC_SEGMENT_64;
  segment->cmdsize = is32Bit ? sizeof(darwin::segment_command) : sizeof *segment;
  char name[32] = "";
  snprintf(name, sizeof name, "Segment.%d", index);
  memcpy(segment->segname, name, sizeof segment->segname);
  segment->vmaddr = region->pri_address;
  segment->vmsize = region->pri_size;
  segment->fileoff = offset;
  segment->filesize = written;
  segment->maxprot = static_cast<darwin::vm_prot_t>(region->pri_max_protection);
  segment->initprot = static_cast<darwin::vm_prot_t>(region->pri_protection);
}

static uint32_t narrowed(uint64_t value) {
  return value > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(value);
}

static darwin::segment_command narrowSegment(const darwin::segment_command_64 *wide) {
  darwin::segment_command segment = {};
  segment.cmd = wide->cmd;
  segment.cmdsize = wide->cmdsize;
  memcpy(segment.segname, wide->segname, sizeof segment.segname);
  segment.vmaddr = narrowed(wide->vmaddr);
  segment.vmsize = narrowed(wide->vmsize);
  segment.fileoff = narrowed(wide->fileoff);
  segment.filesize = narrowed(wide->filesize);
  segment.maxprot = wide->maxprot;
  segment.initprot = wide->initprot;
  return segment;
}

static bool writeSegments(const Core *core, const darwin::segment_command_64 *segments, int count,
                          uint64_t *offset) {
  for (int i = 0; i < count; i++) {
    const darwin::segment_command narrow = narrowSegment(&segments[i]);
    const void *command = &segments[i];
    if (core->is32Bit) command = &narrow;
    if (!writeAt(core, command, segments[i].cmdsize, *offset)) return false;
    *offset += segments[i].cmdsize;
  }
  return true;
}

// Written last: until then the file does not begin as a core does.
static bool writeHeader(const Core *core, uint32_t commands, uint32_t commandSize) {
  if (core->is32Bit) {
    const darwin::mach_header header = {darwin::MH_MAGIC,
                                        darwin::CPU_TYPE_ARM,
                                        darwin::CPU_SUBTYPE_ARM_V7,
                                        darwin::MH_CORE,
                                        commands,
                                        commandSize,
                                        0};
    return writeAt(core, &header, sizeof header, 0);
  }
  const darwin::mach_header_64 header = {darwin::MH_MAGIC_64,
                                         darwin::CPU_TYPE_ARM64,
                                         darwin::CPU_SUBTYPE_ARM64_ALL,
                                         darwin::MH_CORE,
                                         commands,
                                         commandSize,
                                         0,
                                         0};
  return writeAt(core, &header, sizeof header, 0);
}

// Puts all parts of the core into its file. False when one can't be written.
static bool writeParts(Core *core, darwin::mach_port_t task, const RegionTable *table,
                       darwin::segment_command_64 *segments, const char *threads,
                       uint32_t threadCount, uint32_t threadSize) {
  const uint32_t regions = static_cast<uint32_t>(table->count);
  uint64_t offset = regions * kSegmentRoom + sizeof(darwin::mach_header_64) + threadSize;
  offset += kPageSize - offset % kPageSize;
  if (isTracing()) {
    fprintf(stderr, "OVERALL SIZE OF HEADER: %x\n", static_cast<unsigned int>(offset));
  }

  for (int i = 0; i < table->count; i++) {
    const darwin::proc_regioninfo *region = &table->regions[i].prp_prinfo;
    if (isTracing()) {
      fprintf(stderr, "Segment %d - %llx - File Position is now %llx -- ", i,
              static_cast<unsigned long long>(region->pri_address),
              static_cast<unsigned long long>(offset));
    }
    uint32_t written = 0;
    if (!writeRegion(core, task, region, offset, &written)) return false;
    fillSegment(region, i, offset, written, core->is32Bit, &segments[i]);
    offset += written;
  }
  // The gap after the commands and the zeros of regions without access are holes.
  if (!setFileSize(core, offset)) return false;

  uint64_t commands = core->is32Bit ? sizeof(darwin::mach_header) : sizeof(darwin::mach_header_64);
  const uint64_t first = commands;
  return writeSegments(core, segments, table->count, &commands) &&
         writeAt(core, threads, threadSize, commands) &&
         writeHeader(core, regions + threadCount,
                     static_cast<uint32_t>(commands - first) + threadSize);
}

static uint64_t readableBytes(const RegionTable *table) {
  uint64_t bytes = 0;
  for (int i = 0; i < table->count; i++) {
    const darwin::proc_regioninfo *region = &table->regions[i].prp_prinfo;
    if (region->pri_protection != 0 && region->pri_size <= INT32_MAX) bytes += region->pri_size;
  }
  return bytes;
}

static int writeCore(int32_t pid, darwin::mach_port_t task, const RegionTable *table) {
  const size_t slots = table->count > 0 ? static_cast<size_t>(table->count) : 1;
  darwin::segment_command_64 *segments =
      static_cast<darwin::segment_command_64 *>(calloc(slots, sizeof *segments));
  if (segments == nullptr) {
    perror("malloc");
    return kFailed;
  }
  Core core = {};
  core.is32Bit = isFor32Bit(table);
  core.total = readableBytes(table);
  snprintf(core.path, sizeof core.path, "/tmp/core.%d", pid);
  uint32_t threadCount = 0;
  uint32_t threadSize = 0;
  char *threads = makeThreadCommands(task, &threadCount, &threadSize, core.is32Bit);

  int result = kFailed;
  if (openCore(&core)) {
    const bool written = writeParts(&core, task, table, segments, threads, threadCount, threadSize);
    if (!written) {
      clearProgress(&core);
      perror(core.path);
    }
    result = closeCore(&core, written ? 0 : kFailed);
  }
  free(threads);
  free(segments);
  return result;
}

// The executable's path, as the process was started with it: a text in `path`, which has room for
// the argument area and a NUL; empty when it can't be had.
static void getExecutablePath(int32_t pid, char *path) {
  int name[] = {darwin::DARWIN_CTL_KERN, darwin::DARWIN_KERN_PROCARGS, pid};
  size_t length = kArgumentArea;
  if (darwin::sysctl(name, sizeof name / sizeof *name, path, &length, nullptr, 0) != 0) {
    path[0] = '\0';
    return;
  }
  path[length < kArgumentArea ? length : kArgumentArea] = '\0';
  char safe[kArgumentArea + 1];
  fprintf(stderr, "PID %d is %s..\n", pid, makeSafe(safe, sizeof safe, path, kArgumentArea));
}

// Opens the executable and goes to the place after what was dumped of it. Nothing is read yet.
static int positionInExecutable(const char *path, uint64_t offset) {
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) {
    perror("open");
    return kCantOpenExecutable;
  }
  lseek(descriptor, static_cast<off_t>(offset), SEEK_SET);
  close(descriptor);
  return 0;
}

static int writeBinary(darwin::mach_port_t task, const RegionTable *table, const char *path) {
  if (table->count == 0) {
    fputs("No region to dump\n", stderr);
    return kFailed;
  }
  const darwin::proc_regioninfo *region = &table->regions[0].prp_prinfo;
  Core core = {};
  snprintf(core.path, sizeof core.path, "/tmp/CORE");
  core.total = region->pri_size;
  if (!openCore(&core)) return kFailed;
  int result = kFailed;
  uint32_t read = 0;
  if (fitsCore(&core, region->pri_size, 0) &&
      !copyRegion(&core, task, region->pri_address, static_cast<uint32_t>(region->pri_size), 0,
                  &read)) {
    clearProgress(&core);
    perror(core.path);
  } else if (read == region->pri_size) {
    result = positionInExecutable(path, region->pri_size);
  } else {
    reportPartial(&core, region, read);
  }
  return closeCore(&core, result);
}

int dumpCore(int32_t pid, darwin::mach_port_t task, int mode) {
  char path[kArgumentArea + 1] = "";
  if (mode == kBinaryCore) getExecutablePath(pid, path);
  const bool obtained = task == darwin::DARWIN_MACH_PORT_NULL;
  if (obtained) task = obtainTaskPort(pid);
  if (task == darwin::DARWIN_MACH_PORT_NULL) return kNoTaskPort;

  RegionTable table = {};
  int result = kFailed;
  if (!listRegions(pid, task, &table)) {
    perror("malloc");
  } else {
    result = mode == kBinaryCore ? writeBinary(task, &table, path) : writeCore(pid, task, &table);
  }
  free(table.regions);
  if (obtained) darwin::mach_port_deallocate(darwin::mach_task_self_, task);
  return result;
}

}  // namespace sondex
