// Kernel state names, structures and calls beside the platform's.
#include "host/darwin/sysctl.h"
#include "same.h"

#define PREFIXED_NAMES(EACH) \
  EACH(CTL_KERN);            \
  EACH(CTL_VM);              \
  EACH(CTL_NET);             \
  EACH(KERN_BOOTTIME);       \
  EACH(KERN_PROCARGS);       \
  EACH(KERN_PROCARGS2);      \
  EACH(VM_LOADAVG);          \
  EACH(VM_SWAPUSAGE)

PREFIXED_NAMES(KEEP_PREFIXED);

#include <sys/sysctl.h>
#include <sys/time.h>

PREFIXED_NAMES(SAME_VALUE);

SAME_STRUCTURE(timeval, tv_sec, tv_usec);
SAME_STRUCTURE(xsw_usage, xsu_total, xsu_avail, xsu_used, xsu_pagesize, xsu_encrypted);

// fscale is a long there: as wide as ours, and as signed.
SAME_STRUCTURE(loadavg, ldavg, fscale);

SAME_FUNCTION(sysctl);
SAME_FUNCTION(sysctlbyname);
