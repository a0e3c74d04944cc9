#include "fds/descriptors.h"

#include <stdio.h>

#include "darwin/kqueue.h"
#include "terminal/output.h"
#include "text/safe_text.h"

namespace sondex {

constexpr size_t kVnodeTextSize = 2048;
constexpr size_t kTextSize = 1044;  // the longest name with an address behind it
constexpr size_t kNameSize = darwin::DARWIN_MAXPATHLEN + 1;

struct FilterName {
  int16_t filter;
  const char *name;
};

// Kept: the kernel's filters for sockets, memory status and channels are not among them.
static const FilterName kFilterNames[] = {
    {darwin::EVFILT_READ, "EVFILT_READ"},
    {darwin::EVFILT_WRITE, "EVFILT_WRITE"},
    {darwin::EVFILT_AIO, "EVFILT_AIO"},
    {darwin::EVFILT_VNODE, "EVFILT_VNODE"},
    {darwin::EVFILT_PROC, "EVFILT_PROC"},
    {darwin::EVFILT_SIGNAL, "EVFILT_SIGNAL"},
    {darwin::EVFILT_TIMER, "EVFILT_TIMER"},
    {darwin::EVFILT_MACHPORT, "EVFILT_MACHPORT"},
    {darwin::EVFILT_FS, "EVFILT_FS"},
    {darwin::EVFILT_USER, "EVFILT_USER"},
    {darwin::EVFILT_VM, "EVFILT_VM"},
    {darwin::EVFILT_EXCEPT, "EVFILT_EXCEPT"},
    {darwin::EVFILT_WORKLOOP, "EVFILT_WORKLOOP"},
};

int print_vnode_info_path(const darwin::vnode_fdinfowithpath *info) {
  if (info == nullptr) return output("?????", 0);
  char path[kNameSize];
  makeSafe(path, sizeof path, info->pvip.vip_path, sizeof info->pvip.vip_path);
  char text[kVnodeTextSize];
  snprintf(text, sizeof text, "%s @0x%-8llx ", path,
           static_cast<unsigned long long>(info->pfi.fi_offset));
  return output(text, 0);
}

int print_sem_info(const darwin::psem_fdinfo *info) {
  char text[kTextSize];
  makeSafe(text, sizeof text, info->pseminfo.psem_name, sizeof info->pseminfo.psem_name);
  return output(text, 0);
}

int print_shm_info(const darwin::pshm_fdinfo *info) {
  char name[kNameSize];
  makeSafe(name, sizeof name, info->pshminfo.pshm_name, sizeof info->pshminfo.pshm_name);
  char text[kTextSize];
  snprintf(text, sizeof text, "%s@0x%llx", name,
           static_cast<unsigned long long>(info->pshminfo.pshm_mappaddr));
  return output(text, 0);
}

int print_kqueue_info(const darwin::kevent_extinfo *events) {
  const darwin::kevent_qos_s *event = &events->kqext_kev;
  char text[kTextSize];
  snprintf(text, sizeof text, "(Filter: %s on descriptor %d) ", evfiltToText(event->filter),
           static_cast<int32_t>(event->ident));
  return output(text, 0);
}

const char *evfiltToText(int32_t filter) {
  for (const FilterName &row : kFilterNames) {
    if (row.filter == filter) return row.name;
  }
  static char unknown[48];
  snprintf(unknown, sizeof unknown, "Unknown: %d - please tell Z!\n", filter);
  return unknown;
}

}  // namespace sondex
