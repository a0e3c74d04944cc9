// What signals do to the processes of a simulated device, none of which handles any.
#pragma once

#include <cstdint>

#include "host/simulator/device.h"

namespace host::simulator {

// Signals have Darwin's numbers, up to this one.
inline constexpr int kLargestSignal = 31;

enum class SignalEffect : uint8_t { none, end, stop, resume };

// 0 has none.
SignalEffect effectOf(int signal);

// Whether the kernel lets a user send it. Nobody kills launchd.
bool maySignal(uint32_t user, const Process &process, int signal);

// The kernel itself, and launchd, which has no other parent: they let every signal pass.
bool ignoresSignals(const Process &process);

// Whether the process is one of those that a signal to a group or to all reaches.
bool isReachedInGroup(const Process &process);

}  // namespace host::simulator
