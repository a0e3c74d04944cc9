// What the system's services say of the machine, in a device file.
#pragma once

namespace sondex {

// Each writes its table, or key of the one that is open, where the machine has such a service.

void writeExtensions();  // identifiers of those that the kernel has loaded
void writeWiFi();
void writePower();
void writeGestalt();

}  // namespace sondex
