// The processes of a device file: which there are, and their names and PIDs.
#pragma once

#include "host/simulator/device.h"
#include "host/simulator/loading.h"
#include "host/simulator/templates.h"
#include "host/simulator/toml_reader.h"

namespace host::simulator {

// `[[process]]`, into the device.
void readProcesses(Loading &loading, const Templates &templates, const Field &field);

// The processes that an event starts, whose other keys are in `reader`, which is finished with it.
// `event` has all but the action: each process makes one event of the device.
void readStartedProcesses(Loading &loading, const Templates &templates, TableReader &reader,
                          const Event &event);

}  // namespace host::simulator
