// The errno that an entry point leaves behind has Darwin's numbers, which the C library of this
// machine would name wrongly: perror() and strerror() are caught at link time and told apart by
// what was set last.
#pragma once

#include "host/errno.h"

namespace host {

// Sets errno of the calling thread to a Darwin number.
void setErrno(Errno error) noexcept;

// The errno value of this machine's C library that means the same; the number itself where both
// agree.
int nativeErrno(Errno error) noexcept;

}  // namespace host
