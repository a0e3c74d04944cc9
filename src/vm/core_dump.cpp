#include "vm/core_dump.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "darwin/mach_task.h"
#include "darwin/macho.h"
#include "darwin/sysctl.h"
#include "state/tracing.h"
#include "terminal/ending.h"
#include "text/safe_text.h"
#include "vm/core_file.h"
#include "vm/core_regions.h"
#include "vm/page_map.h"
#include "vm/task_memory.h"
#include "vm/thread_commands.h"

namespace sondex {

constexpr int kCantOpenExecutable = 1;
constexpr int kFailed = -1;

constexpr size_t kArgumentArea = 8192;

// Kept: the room for the commands is counted with the wider segment command for either word size.
constexpr uint64_t kSegmentRoom = sizeof(darwin::segment_command_64);

// What a file is made of.
struct Core {
  CoreFile file;
  darwin::mach_port_t task;
  PageMap pages;
  const RegionTable *table;
  bool is32Bit;
  darwin::segment_command_64 *segments;  // one for each region
  char *threads;                         // their load commands
  uint32_t threadCount;
  uint32_t threadSize;
};

static bool beginsAsMachO(const char *bytes, size_t size) {
  uint32_t magic = 0;
  if (size >= sizeof magic) memcpy(&magic, bytes, sizeof magic);
  return magic == darwin::MH_MAGIC_64;
}

// Whether a region can be read, and holds zeros where nobody has touched it: its memory is the
// process's own, and comes from nowhere else.
static bool isZeroFilled(const RegionTable *table, int index) {
  const darwin::proc_regioninfo *region = &table->regions[index].prp_prinfo;
  const bool isOwn = region->pri_share_mode == darwin::SM_PRIVATE ||
                     region->pri_share_mode == darwin::SM_COW ||
                     region->pri_share_mode == darwin::SM_EMPTY;
  return isOwn && !table->hasPager[index] && (region->pri_protection & darwin::VM_PROT_READ) != 0;
}

// Copies a region's memory to a place in the file, piece by piece; what is zeros becomes a hole,
// also at its end. *read becomes the bytes that could be read; where these are not all, the file
// ends before the region. False when the file can't be written.
static bool copyRegion(Core *core, int index, uint64_t offset, uint32_t *read) {
  CoreFile *file = &core->file;
  const uint64_t address = core->table->regions[index].prp_prinfo.pri_address;
  const uint32_t size = static_cast<uint32_t>(core->table->regions[index].prp_prinfo.pri_size);
  const bool mayBeUntouched = isZeroFilled(core->table, index);
  PageRun run = {size, false};
  if (mayBeUntouched) run.size = 0;
  bool hasSignature = false;
  *read = 0;
  while (*read < size) {
    // Whoever ends the program waits for the file to go.
    if (reasonToEnd() != 0) {
      errno = EINTR;
      return false;
    }
    if (run.size == 0) run = pageRunAt(&core->pages, address + *read, size - *read);
    if (run.isUntouched) {
      *read += static_cast<uint32_t>(run.size);
      addProgress(file, run.size);
      run.size = 0;
      continue;
    }
    const uint32_t wanted = static_cast<uint32_t>(run.size < kPieceSize ? run.size : kPieceSize);
    uint32_t got = 0;
    const darwin::kern_return_t answer =
        copyTaskMemory(core->task, address + *read, file->piece, wanted, &got);
    if (answer != darwin::KERN_SUCCESS) {
      clearProgress(file);
      reportUnreadMemory(address, size, answer);
      *read = 0;  // as nothing comes of a read of the whole region then
      return setFileSize(file, offset);
    }
    if (*read == 0) hasSignature = beginsAsMachO(file->piece, got);
    if (!writePiece(file, got, offset + *read)) return false;
    *read += got;
    run.size -= got;
    if (got < wanted) return setFileSize(file, offset);
    addProgress(file, got);
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
  clearProgress(&core->file);
  fprintf(stderr, "Warning: Segment at %llx only read partially (%x/%lx bytes)\n",
          static_cast<unsigned long long>(region->pri_address), read,
          static_cast<unsigned long>(region->pri_size));
}

// Writes a region's data at `offset`. *written becomes its bytes in the file: all, or none for one
// that can't be read. False when the file can't be written.
static bool writeRegion(Core *core, int index, uint64_t offset, uint32_t *written) {
  const darwin::proc_regioninfo *region = &core->table->regions[index].prp_prinfo;
  *written = 0;
  const bool fits = fitsCore(core, region->pri_size, offset);
  const uint32_t size = fits ? static_cast<uint32_t>(region->pri_size) : 0;
  if (region->pri_protection == 0) {
    // Its zeros are what the file reads where nothing was written.
    *written = size;
    return true;
  }
  uint32_t read = 0;
  if (fits && !copyRegion(core, index, offset, &read)) return false;
  if (read == region->pri_size) {
    *written = read;
  } else {
    reportPartial(core, region, read);
  }
  return true;
}

// Where the regions' data begins, behind the commands.
static uint64_t offsetOfData(const Core *core) {
  uint64_t offset = static_cast<uint64_t>(core->table->count) * kSegmentRoom +
                    sizeof(darwin::mach_header_64) + core->threadSize;
  offset += kCorePage - offset % kCorePage;
  if (isTracing()) {
    fprintf(stderr, "OVERALL SIZE OF HEADER: %x\n", static_cast<unsigned int>(offset));
  }
  return offset;
}

// Writes all regions' data, and makes their segments. False when the file can't be written.
static bool writeRegions(Core *core) {
  uint64_t offset = offsetOfData(core);
  for (int i = 0; i < core->table->count; i++) {
    const darwin::proc_regioninfo *region = &core->table->regions[i].prp_prinfo;
    if (isTracing()) {
      fprintf(stderr, "Segment %d - %llx - File Position is now %llx -- ", i,
              static_cast<unsigned long long>(region->pri_address),
              static_cast<unsigned long long>(offset));
    }
    uint32_t written = 0;
    if (!writeRegion(core, i, offset, &written)) return false;
    core->segments[i] = makeSegment(region, i, offset, written, core->is32Bit);
    offset += written;
  }
  // The gap after the commands and zeros are holes.
  return setFileSize(&core->file, offset);
}

static bool writeSegments(const Core *core, uint64_t *offset) {
  for (int i = 0; i < core->table->count; i++) {
    const darwin::segment_command_64 *wide = &core->segments[i];
    const darwin::segment_command narrow = narrowSegment(wide);
    const void *command = wide;
    if (core->is32Bit) command = &narrow;
    if (!writeAt(&core->file, command, wide->cmdsize, *offset)) return false;
    *offset += wide->cmdsize;
  }
  return true;
}

static bool writeHeader(const Core *core, uint32_t commandSize) {
  const uint32_t commands = static_cast<uint32_t>(core->table->count) + core->threadCount;
  if (core->is32Bit) {
    const darwin::mach_header header = {darwin::MH_MAGIC,
                                        darwin::CPU_TYPE_ARM,
                                        darwin::CPU_SUBTYPE_ARM_V7,
                                        darwin::MH_CORE,
                                        commands,
                                        commandSize,
                                        0};
    return writeAt(&core->file, &header, sizeof header, 0);
  }
  const darwin::mach_header_64 header = {darwin::MH_MAGIC_64,
                                         darwin::CPU_TYPE_ARM64,
                                         darwin::CPU_SUBTYPE_ARM64_ALL,
                                         darwin::MH_CORE,
                                         commands,
                                         commandSize,
                                         0,
                                         0};
  return writeAt(&core->file, &header, sizeof header, 0);
}

// Segments, threads, and the header last: until then the file does not begin as a core does.
static bool writeCommands(const Core *core) {
  const uint64_t first =
      core->is32Bit ? sizeof(darwin::mach_header) : sizeof(darwin::mach_header_64);
  uint64_t end = first;
  return writeSegments(core, &end) && writeAt(&core->file, core->threads, core->threadSize, end) &&
         writeHeader(core, static_cast<uint32_t>(end - first) + core->threadSize);
}

static int writeFile(Core *core) {
  if (!openCoreFile(&core->file)) return kFailed;
  const bool written = writeRegions(core) && writeCommands(core);
  if (!written) reportUnwritten(&core->file);
  return closeCoreFile(&core->file, written) ? 0 : kFailed;
}

static int writeCore(int32_t pid, darwin::mach_port_t task, const RegionTable *table) {
  Core core = {};
  const size_t slots = table->count > 0 ? static_cast<size_t>(table->count) : 1;
  core.segments = static_cast<darwin::segment_command_64 *>(calloc(slots, sizeof *core.segments));
  if (core.segments == nullptr) {
    perror("malloc");
    return kFailed;
  }
  core.task = task;
  openPageMap(&core.pages, task);
  core.table = table;
  core.is32Bit = areFor32Bit(table);
  core.threads = makeThreadCommands(task, &core.threadCount, &core.threadSize, core.is32Bit);
  core.file.total = readableBytes(table);
  snprintf(core.file.path, sizeof core.file.path, "/tmp/core.%d", pid);
  const int result = writeFile(&core);
  closePageMap(&core.pages);
  free(core.threads);
  free(core.segments);
  errno = core.file.failure;
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
  core.task = task;
  core.table = table;
  core.file.total = region->pri_size;
  snprintf(core.file.path, sizeof core.file.path, "/tmp/CORE");
  if (!openCoreFile(&core.file)) return kFailed;
  openPageMap(&core.pages, task);
  int result = kFailed;
  uint32_t read = 0;
  if (fitsCore(&core, region->pri_size, 0) &&
      !(copyRegion(&core, 0, 0, &read) && setFileSize(&core.file, read))) {
    reportUnwritten(&core.file);
  } else if (read == region->pri_size) {
    result = positionInExecutable(path, region->pri_size);
  } else {
    reportPartial(&core, region, read);
  }
  closePageMap(&core.pages);
  return closeCoreFile(&core.file, result >= 0) ? result : kFailed;
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
  const int error = errno;
  free(table.regions);
  if (obtained) darwin::mach_port_deallocate(darwin::mach_task_self_, task);
  errno = error;
  return result;
}

}  // namespace sondex
