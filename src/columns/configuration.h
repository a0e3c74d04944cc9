// The configuration file: the perspective as text, for the user to keep. It is written only;
// nothing reads it back.
#pragma once

#include <stdio.h>

#include "columns/perspective.h"

namespace sondex {

// Writes the default perspective to /tmp/.sdrc, whatever `name` says. The status bar tells when the
// file can't be opened, standard error when it can't be written.
void saveConfigToFile(const char *name);

// Writes one perspective to `stream`, whose error indicator tells of failures. Null writes nothing.
void savePerspectiveToFile(const Perspective *perspective, FILE *stream);

}  // namespace sondex
