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
#include "proc/descriptor_kinds.h"
#include "proc/process_record.h"
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
constexpr int kAskedSize = 4096;  // the part of it that the kernel may fill
constexpr size_t kLineSize = 256;

// Room for the kernel's answer about a descriptor. It is larger than any answer and zeroed before,
// so that also a text at the end of an answer has a NUL behind it.
union DescriptorInfo {
  darwin::proc_fileinfo file;  // every answer but a kqueue's events begins with it
  darwin::vnode_fdinfowithpath vnode;
  darwin::socket_fdinfo socket;
  darwin::psem_fdinfo semaphore;
  darwin::pshm_fdinfo sharedMemory;
  darwin::kevent_extinfo event;
  darwin::channel_fdinfo channel;
  uint8_t bytes[kInfoSize];
};
static_assert(sizeof(DescriptorInfo) == kInfoSize);

// Not through output(), but to the terminal itself. curses takes that back with its next refresh:
// until then nothing may stay in the stream's buffer. Standard error, which closing the screen let
// go, is held back again.
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

int showProcessFDs(int32_t pid, const darwin::proc_fdinfo *fds, int32_t count, int32_t wantedType,
                   int32_t detailed, const char *name) {
  int32_t files = 0;
  int32_t sockets = 0;
  for (int32_t i = 0; i < std::min(count, kFDSlots); i++) {
    const uint32_t type = fds[i].proc_fdtype;
    const DescriptorKind *kind = findDescriptorKind(type);
    const int32_t flavour = kind != nullptr ? kind->flavour : 0;
    if (type == darwin::PROX_FDTYPE_VNODE) files++;
    if (type == darwin::PROX_FDTYPE_SOCKET) sockets++;
    if (flavour == 0) reportUnknownType(type);
    if (wantedType != kEveryType && static_cast<uint32_t>(wantedType) != type) continue;
    if (flavour == 0) {
      output("UNknown", 0);
    } else if (detailed != 0) {
      do_pidfdinfo(pid, fds[i].proc_fd, flavour, 0, name);
    }
  }
  if (detailed == 0) showCounts(files, sockets);
  return 0;
}

static char accessOf(uint32_t openFlags) {
  static const char kLetters[] = {' ', 'r', 'w', 'u'};
  return kLetters[openFlags & (darwin::DARWIN_FREAD | darwin::DARWIN_FWRITE)];
}

static void appendUnhandled(char *line, const DescriptorInfo *, int32_t rc) {
  append(line, kLineSize, "(Not handled yet - rc %d)\n", rc);
}

static void appendChannel(char *line, const DescriptorInfo *info, int32_t rc) {
  if (isTracing()) hexDump(info->bytes, std::min(rc, kInfoSize));
  const darwin::proc_channel_info *channel = &info->channel.channelinfo;
  char uuid[darwin::UUID_STRING_SIZE];
  darwin::uuid_unparse(channel->chi_instance, uuid);
  const char *kind = channel->chi_type != darwin::PROC_CHANNEL_TYPE_USER_PIPE ? "kpipe" : "upipe";
  append(line, kLineSize, "%s\t %s[%d]\n", kind, uuid, static_cast<int32_t>(channel->chi_port));
}

static void printVnode(const DescriptorInfo *info, int32_t) {
  print_vnode_info_path(&info->vnode);
}

static void printSocket(const DescriptorInfo *info, int32_t pid) {
  print_socket_fdinfo(&info->socket, pid, 0);
}

static void printSemaphore(const DescriptorInfo *info, int32_t) {
  print_sem_info(&info->semaphore);
}

static void printSharedMemory(const DescriptorInfo *info, int32_t) {
  print_shm_info(&info->sharedMemory);
}

// How the answer to a flavour is shown.
struct AnswerForm {
  int32_t flavour;
  const char *prefix;
  // Appends the rest of a line that has neither number nor access, and is shown also of an answer
  // that the kernel refused. Null for the usual line.
  void (*appendRest)(char *line, const DescriptorInfo *info, int32_t rc);
  // Prints the details behind the usual line's prefix; null when there are none.
  void (*printDetails)(const DescriptorInfo *info, int32_t pid);
};

static const AnswerForm kForms[] = {
    {darwin::PROC_PIDFDVNODEPATHINFO, "", nullptr, printVnode},
    {darwin::PROC_PIDFDSOCKETINFO, "socket ", nullptr, printSocket},
    {darwin::PROC_PIDFDPSEMINFO, "sem ", nullptr, printSemaphore},
    {darwin::PROC_PIDFDPSHMINFO, "shmem ", nullptr, printSharedMemory},
    {darwin::PROC_PIDFDPIPEINFO, "pipe ", nullptr, nullptr},
    // Kept: kqueues come here too, and are never shown as such.
    {darwin::PROC_PIDFDKQUEUE_EXTINFO, "NPOLICY ", appendUnhandled, nullptr},
    {darwin::PROC_PIDFDCHANNELINFO, "CHANNEL ", appendChannel, nullptr},
    {kNexusFlavour, "NEXUS ", appendUnhandled, nullptr},
};

static const AnswerForm *findForm(int32_t flavour) {
  for (const AnswerForm &form : kForms) {
    if (form.flavour == flavour) return &form;
  }
  return nullptr;
}

int do_pidfdinfo(int32_t pid, int32_t fd, int32_t flavour, int32_t, const char *name) {
  DescriptorInfo info;
  memset(&info, 0, sizeof info);
  const int32_t rc = darwin::proc_pidfdinfo(pid, fd, flavour, &info, kAskedSize);
  const int error = errno;

  const AnswerForm *form = findForm(flavour);
  char command[darwin::DARWIN_MAXCOMLEN + 1];
  makeSafe(command, sizeof command, name, darwin::DARWIN_MAXCOMLEN);
  char line[kLineSize] = "";
  if (form != nullptr && form->appendRest != nullptr) {
    append(line, sizeof line, "%-16s %5d FD    %s", command, pid, form->prefix);
    form->appendRest(line, &info, rc);
    return output(line, 0);
  }
  if (rc <= 0) {
    append(line, sizeof line, "Can't get info (%d) - Error %s\n", flavour, strerror(error));
    return output(line, 0);
  }
  if (load(wantCurses) == 0) append(line, sizeof line, "%-16s %5d FD", command, pid);
  append(line, sizeof line, "%3d%c  ", fd, accessOf(info.file.fi_openflags));
  if (form != nullptr) {
    append(line, sizeof line, "%s", form->prefix);
  } else {
    append(line, sizeof line, "not handled yet (%d) ", flavour);
  }
  output(line, 0);
  if (form != nullptr && form->printDetails != nullptr) form->printDetails(&info, pid);
  return output("\n", 0);
}

const char *fdtype_to_txt(int32_t type) {
  const DescriptorKind *kind = findDescriptorKind(static_cast<uint32_t>(type));
  return kind != nullptr && kind->name != nullptr ? kind->name : "?!?";
}

}  // namespace sondex
