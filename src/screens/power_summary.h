// The battery line of the list screen's header: charge, source, time remaining and how many
// processes keep the device awake.
#pragma once

#include "darwin/core_foundation.h"

namespace sondex {

// The line without a newline, or a fixed text that says what failed. In a buffer that the next call
// overwrites; only the drawing thread calls it. Which processes hold assertions goes to standard
// error.
const char *getPowerDetails();

// Writes a dictionary to standard output as an XML property list; nothing when it is not one. For
// debugging. Nothing calls it yet.
void dumpDict(darwin::CFDictionaryRef dictionary);

}  // namespace sondex
