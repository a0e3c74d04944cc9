// The events of a device file.
#pragma once

#include "host/simulator/loading.h"
#include "host/simulator/templates.h"
#include "host/simulator/toml_reader.h"

namespace host::simulator {

// `[[event]]`, into the device, whose processes and power sources are known by now.
void readEvents(Loading &loading, const Templates &templates, const Field &field);

// What stands for the seconds that power lasts: a time, or a word.
double readRemaining(const Field &field);

}  // namespace host::simulator
