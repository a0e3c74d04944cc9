// The list of loaded kernel extensions.
#pragma once

#include "darwin/core_foundation.h"

namespace darwin {

extern "C" {

// What is known of the loaded kernel extensions, by their identifiers; both arguments may be null:
// all extensions, and all of their keys. The caller releases the answer. Null when there is no such
// list.
CFDictionaryRef OSKextCopyLoadedKextInfo(CFArrayRef identifiers, CFArrayRef keys);

}  // extern "C"

}  // namespace darwin
