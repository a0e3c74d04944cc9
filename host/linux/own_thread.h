// Work in a thread of its own: what it changes about its thread (whom that traces, which namespace
// that is in) ends with it.
#pragma once

#include <functional>

namespace host::linux_machine {

// Returns when `work` is done. Its thread gets no signals, and what it throws is thrown here.
void runInOwnThread(const std::function<void()> &work);

}  // namespace host::linux_machine
