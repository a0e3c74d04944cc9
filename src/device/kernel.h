// What a program learns about the kernel that it runs on before it asks for more.
#pragma once

namespace sondex {

// Sets host_self, g_r00t and the optional entry points.
void probeRights();

// Sets g_hostName and what noteKernelVersion() sets. Returns the version text that it goes by,
// which stays; null, after a message, when the kernel does not tell.
const char *probeKernel();

// Sets g_isARM64, g_OsVer and g_Compression from the long version text of the kernel.
void noteKernelVersion(const char *version);

}  // namespace sondex
