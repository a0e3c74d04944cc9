// The client of the kernel's network-statistics service: connects the control socket, asks for all
// TCP and UDP sources, polls their counts once a second and files what comes back into the tables
// of nstat/accounting.h. Who shows the tables is not its business.
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

// Per source reference: nothing yet, and 1 once the source was removed. Kept for a later view of
// single connections; written by the reader alone.
constexpr int kDescriptorSlots = 2048;
extern void *descriptors[kDescriptorSlots];
extern int32_t descriptorsModded[kDescriptorSlots];

// The request for a source's description, sent again and again by the reader.
extern darwin::nstat_msg_get_src_description gsdreq;

// Opens the control socket and connects it to the service. Returns its descriptor, or -1 after it
// has said on standard error what failed.
int setupSocket();

// Body of the polling thread: sets up the socket, subscribes, and then asks for all counts once a
// second for ever. Returns null when there is no socket.
void *nstat_register(void *argument);

// Body of the reader thread: starts the polling thread, gives it a second to connect, and reads for
// the life of the program. Ends at once when there is no socket by then.
void *doNStat(void *argument);

// Called before that thread is started: from now on there may be counts to wait for.
void expectCounts();

// Asks for all counts and waits until they and the owners of the sources are filed: at most that
// many milliseconds, and not at all where no client was started or none could connect.
void awaitCounts(int32_t milliseconds);

// Reads datagrams from `socket` until one is empty or fails, and files the message at the start of
// each.
void readNotifications(int socket);

// Files one notification of `length` bytes, of any alignment. Those shorter than their fields, of
// other types, and those about sources beyond the tables are ignored. Returns the type of an
// "added" or "removed" message that was filed, else 0.
int32_t print_nstat_msg(const void *message, size_t length);

// Files the counts of a whole nstat_msg_src_counts up to its sent bytes, and asks for the source's
// description while its owner is not known. A reference above kLastSource ends the program with
// status 0, and says so.
void print_counts(const void *message);

}  // namespace sondex
