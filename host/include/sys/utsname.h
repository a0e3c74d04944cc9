// The device's form of this header, in the place of Linux's: its fields are long enough for the
// kernel's version, which is a whole sentence there.
#pragma once

struct utsname {
  char sysname[256];
  char nodename[256];
  char release[256];
  char version[256];
  char machine[256];
};

// Fills *name with NUL-terminated texts. Returns 0, or -1 with errno set.
extern "C" int uname(struct utsname *name) noexcept;
