// A machine that supports nothing: every question gets its default answer. The program has to end
// cleanly on it, in every mode.
#pragma once

#include "host/machine.h"

namespace host {

class NoMachine final : public Machine {};

}  // namespace host
