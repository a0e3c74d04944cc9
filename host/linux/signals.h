// Signal numbers: Darwin's and Linux's differ from 7 on.
#pragma once

namespace host::linux_machine {

// 0 for a signal that Darwin does not have.
int darwinSignal(int signal);

// 0 for one that Linux does not have, and for a number that is none of Darwin's.
int linuxSignal(int signal);

}  // namespace host::linux_machine
