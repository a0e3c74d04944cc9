// The battery line of the list screen's header.
#pragma once

namespace sondex {

// Charge, source, time remaining and power assertions as one line without a newline, in a buffer
// that the next call overwrites.
const char *getPowerDetails();

}  // namespace sondex
