#include "fds/listing.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "darwin/file_flags.h"
#include "darwin/libproc.h"
#include "darwin/uuid.h"
#include "fds/descriptors.h"
#include "fds/sockets.h"
#include "proc/process_record.h"
#include "proc/sampler.h"
#include "state/display.h"
#include "state/tracing.h"
#include "terminal/held_stderr.h"
#include "terminal/output.h"
#include "terminal/screen.h"
#include "text/append.h"
#include "text/hex_dump.h"
#include "text/safe_text.h"

namespace sondex {

constexpr int kInfoSize = 8192;
constexpr int kAskedSize = 4096;  // of it, what the kernel may fill
constexpr size_t kLineSize = 256;

// No kernel knows it: such descriptors are refused.
constexpr int kNexusFlavour = 11;

// What the kernel answers about a descriptor. It is larger than any answer and zeroed before, so
// that a text at its end ends all the same.
union DescriptorInfo {
  darwin::proc_fileinfo file;  // each but the events begins with it
  darwin::vnode_fdinfowithpath vnode;
  darwin::socket_fdinfo socket;
  darwin::psem_fdinfo semaphore;
  darwin::pshm_fdinfo sharedMemory;
  darwin::kevent_extinfo event;
  darwin::channel_fdinfo channel;
  uint8_t bytes[kInfoSize];
};
static_assert(sizeof(DescriptorInfo) == kInfoSize);

static const char *const kTypeTexts[] = {"AppleTalk", "File",   "Socket",    "Shared Mem",
                                         "Semaphore", "KQueue", "Pipe/FIFO", "FSEvents"};

// The flavour that a descriptor type is asked with, 0 for a type that is not known. Kept: events of
// the file system are asked about as pipes, and network policies as kqueues.
static int32_t flavourOf(uint32_t type) {
  switch (type) {
    case darwin::PROX_FDTYPE_NETPOLICY:
      return darwin::PROC_PIDFDKQUEUE_EXTINFO;
    case darwin::PROX_FDTYPE_FSEVENTS:
      return darwin::PROC_PIDFDPIPEINFO;
    case darwin::PROX_FDTYPE_CHANNEL:
      return darwin::PROC_PIDFDCHANNELINFO;
    case darwin::PROX_FDTYPE_NEXUS:
      return kNexusFlavour;
    default:
      return sampledFlavour(type);
  }
}

// Past the sink: on the terminal itself, which curses takes back with its next refresh. Until then
// nothing may stay in the stream's buffer, and afterwards standard error is held back again.
static void reportUnknownType(uint32_t type) {
  closeScreen();
  printf("FLAVOR: %d\n", static_cast<int32_t>(type));
  if (load(wantCurses) == 0) return;
  fflush(stdout);
  holdStandardError();
}

static void showCounts(int32_t files, int32_t sockets) {
  char text[80];
  snprintf(text, sizeof text, "%d files", files);
  if (sockets != 0) append(text, sizeof text, ", %d sockets", sockets);
  append(text, sizeof text, " (press F for detailed information)\n");
  output(text, 0);
}

int showProcessFDs(int32_t pid, const darwin::proc_fdinfo *fds, int32_t count, int32_t mode,
                   int32_t detailed, const char *name) {
  int32_t files = 0;
  int32_t sockets = 0;
  for (int32_t i = 0; i < std::min(count, kFDSlots); i++) {
    const uint32_t type = fds[i].proc_fdtype;
    const int32_t flavour = flavourOf(type);
    if (type == darwin::PROX_FDTYPE_VNODE) files++;
    if (type == darwin::PROX_FDTYPE_SOCKET) sockets++;
    if (flavour == 0) reportUnknownType(type);
    if (mode != kEveryType && static_cast<uint32_t>(mode) != type) continue;
    if (flavour == 0) {
      output("UNknown", 0);
    } else if (detailed != 0) {
      const bool socketsOnly = mode == static_cast<int32_t>(darwin::PROX_FDTYPE_SOCKET);
      do_pidfdinfo(pid, fds[i].proc_fd, flavour, socketsOnly ? 1 : 0, name);
    }
  }
  if (detailed == 0) showCounts(files, sockets);
  return 0;
}

static char accessOf(uint32_t openFlags) {
  static const char kLetters[] = {' ', 'r', 'w', 'u'};
  return kLetters[openFlags & (darwin::DARWIN_FREAD | darwin::DARWIN_FWRITE)];
}

// Writes what `line` has so far and the details of the descriptor behind it.
static void showDetails(char *line, int32_t pid, int32_t flavour, const DescriptorInfo *info) {
  switch (flavour) {
    case darwin::PROC_PIDFDVNODEPATHINFO:
      output(line, 0);
      print_vnode_info_path(&info->vnode);
      break;
    case darwin::PROC_PIDFDSOCKETINFO:
      append(line, kLineSize, "socket ");
      output(line, 0);
      print_socket_fdinfo(&info->socket, pid, 0);
      break;
    case darwin::PROC_PIDFDPSEMINFO:
      append(line, kLineSize, "sem ");
      output(line, 0);
      print_sem_info(&info->semaphore);
      break;
    case darwin::PROC_PIDFDPSHMINFO:
      append(line, kLineSize, "shmem ");
      output(line, 0);
      print_shm_info(&info->sharedMemory);
      break;
    case darwin::PROC_PIDFDPIPEINFO:
      append(line, kLineSize, "pipe ");
      output(line, 0);
      break;
    default:
      append(line, kLineSize, "not handled yet (%d) ", flavour);
      output(line, 0);
  }
}

static void describeChannel(char *line, const char *name, int32_t pid, const DescriptorInfo *info,
                            int32_t rc) {
  if (isTracing()) hexDump(info->bytes, std::min(rc, kInfoSize));
  const darwin::proc_channel_info *channel = &info->channel.channelinfo;
  char uuid[darwin::UUID_STRING_SIZE];
  darwin::uuid_unparse(channel->chi_instance, uuid);
  const char *kind = channel->chi_type != darwin::PROC_CHANNEL_TYPE_USER_PIPE ? "kpipe" : "upipe";
  snprintf(line, kLineSize, "%-16s %5d FD    CHANNEL %s\t %s[%d]\n", name, pid, kind, uuid,
           static_cast<int32_t>(channel->chi_port));
}

int do_pidfdinfo(int32_t pid, int32_t fd, int32_t flavour, int32_t, const char *name) {
  DescriptorInfo info;
  memset(&info, 0, sizeof info);
  const int32_t rc = darwin::proc_pidfdinfo(pid, fd, flavour, &info, kAskedSize);
  const int error = errno;

  char command[darwin::DARWIN_MAXCOMLEN + 1];
  makeSafe(command, sizeof command, name, darwin::DARWIN_MAXCOMLEN);
  char line[kLineSize];
  line[0] = '\0';
  if (flavour == kNexusFlavour) {
    snprintf(line, sizeof line, "%-16s %5d FD    NEXUS (Not handled yet - rc %d)\n", command, pid,
             rc);
  } else if (flavour == darwin::PROC_PIDFDKQUEUE_EXTINFO) {
    // Kept: kqueues come here too, and are never shown as such.
    snprintf(line, sizeof line, "%-16s %5d FD    NPOLICY (Not handled yet - rc %d)\n", command, pid,
             rc);
  } else if (flavour == darwin::PROC_PIDFDCHANNELINFO) {
    describeChannel(line, command, pid, &info, rc);
  } else if (rc > 0) {
    if (load(wantCurses) == 0) append(line, sizeof line, "%-16s %5d FD", command, pid);
    append(line, sizeof line, "%3d%c  ", fd, accessOf(info.file.fi_openflags));
    showDetails(line, pid, flavour, &info);
    return output("\n", 0);
  } else {
    snprintf(line, sizeof line, "Can't get info (%d) - Error %s\n", flavour, strerror(error));
  }
  return output(line, 0);
}

const char *fdtype_to_txt(int32_t type) {
  constexpr int32_t kEnd = sizeof kTypeTexts / sizeof kTypeTexts[0];
  return type >= 0 && type < kEnd ? kTypeTexts[type] : "?!?";
}

}  // namespace sondex
