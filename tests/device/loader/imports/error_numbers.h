// The program's errno: Darwin's number in a variable of each thread. What the C library of this
// machine leaves in its own is taken over when the program looks.
#pragma once

namespace loader {

// The address that the program reads and writes its errno at.
int *errorAddress() noexcept;

int darwinErrno(int native) noexcept;
int nativeErrno(int darwin) noexcept;

}  // namespace loader
