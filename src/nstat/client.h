// The client of the kernel's network-statistics service: connects the control socket, asks for all
// TCP and UDP sources, polls their counts once a second and files what comes back into the tables
// of nstat/accounting.h. Who shows the tables is not its business. Messages are written and read in
// the running kernel's layout (nstat/layouts.h).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "darwin/ntstat.h"
#include "state/word.h"

namespace sondex {

// The connected control socket; -1 before it is set up and when that failed.
extern SharedInt nstat_socket;

// Above 0: traces go to standard error. Raised when the reader starts with ZDEBUG set.
extern SharedInt g_debug;

// Per place of a source: nothing yet, and 1 once the source was removed. Kept for a later view of
// single connections; written by the reader alone.
constexpr int kDescriptorSlots = 2048;
extern void *descriptors[kDescriptorSlots];
extern int32_t descriptorsModded[kDescriptorSlots];

// The request for the description of a source with a small reference, sent again and again by the
// reader.
extern darwin::nstat_msg_get_src_description gsdreq;

// Opens the control socket and connects it to the service. Returns its descriptor, or -1 after it
// has said on standard error what failed.
int setupSocket();

// Write requests to nstat_socket: for all sources of each provider, and for the counts of all.
// queryAll() returns false when it can't.
void subscribeToAll();
bool queryAll();

// Body of the polling thread: sets up the socket, subscribes, and then asks for all counts once a
// second for ever. Returns null when there is no socket.
void *nstat_register(void *argument);

// Body of the reader thread: starts the polling thread, gives it a second to connect, and reads for
// the life of the program. Ends at once when there is no socket by then.
void *doNStat(void *argument);

// Called before that thread is started: from now on there may be counts to wait for.
void expectCounts();

// Asks for all counts and waits until they and the owners of the sources are filed: at most that
// many milliseconds, and not at all where no client was started or none could connect. True when
// all are.
bool awaitCounts(int32_t milliseconds);

// Reads datagrams from `socket` until one is empty or fails, and files the message at the start of
// each; of kernels that tell how long messages are, all. Asks for the rest of an answer that comes
// in pages.
void readNotifications(int socket);

// Files one notification of `length` bytes, of any alignment. Those shorter than their fields, of
// other types or providers, and those about sources beyond the tables or without a place are
// ignored, which the trace tells. Returns the type of an "added" or "removed" message that was
// filed, else 0.
int32_t print_nstat_msg(const void *message, size_t length);

// Files the counts of a message that has them up to the sent bytes, and asks for the source's
// description while its owner is not known. A small reference above kLastSource ends the program
// with status 0, and says so. A wide one is left out when all places are taken.
void print_counts(const void *message);

}  // namespace sondex
