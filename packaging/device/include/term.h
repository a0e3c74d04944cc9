// The part of the device's terminal library that the program uses beside curses.h.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

int setupterm(const char *name, int descriptor, int *reason);

#ifdef __cplusplus
}
#endif
