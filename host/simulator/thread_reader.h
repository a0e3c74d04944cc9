// The entries of `threads` in a device file.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "host/darwin/proc_info.h"
#include "host/simulator/device.h"
#include "host/simulator/loading.h"
#include "host/simulator/process_entry.h"
#include "host/simulator/toml_reader.h"

namespace host::simulator {

inline constexpr Word kPolicies[] = {{"timeshare", darwin::POLICY_TIMESHARE},
                                     {"round-robin", darwin::POLICY_RR},
                                     {"fifo", darwin::POLICY_FIFO}};

// Of a process or a thread: the times whose growth the file says. The others grow with the share of
// the processor.
struct GivenGrowth {
  bool user = false;
  bool system = false;
};

// `user-time` and `system-time`.
GivenGrowth readTimes(TableReader &reader, Figure &user, Figure &system);
// The growth of the other times, by a `share` in tenths of a percent.
void growTimes(uint64_t share, GivenGrowth given, Figure &user, Figure &system);

struct ThreadEntry : Entry<Thread> {
  GivenGrowth given;
};

// What threads have from their process.
struct ThreadDefaults {
  int32_t priority = Process{}.priority;
  int32_t policy = Process{}.policy;
  std::optional<bool> is64Bit;  // nothing: not known, their registers tell
};

// `copies` threads of which nothing more is said.
ThreadEntry plainThreads(const ThreadDefaults &defaults, int64_t copies, Place place);
// Calls `add` with each entry: of an array of tables, or the one that a number stands for.
void readThreads(const Field &field, const ThreadDefaults &defaults,
                 const std::function<void(ThreadEntry)> &add);

// Makes what the entry says. It counts towards the limits as often as there are processes, `times`.
void addThreads(Loading &loading, uint64_t times, ThreadEntry entry, Items<ThreadEntry> &threads);
// Refuses a handle or an ID that several entries have.
void checkThreadNumbers(const std::vector<ThreadEntry> &entries);

}  // namespace host::simulator
