// The processor part of the list screen's header: shares of all ticks since the frame before.
#pragma once

#include <cstdint>

#include "darwin/mach_host.h"

namespace sondex {

// Set by showProcessorInfo: the host's logical processors, and all ticks of all processors since
// the frame before (single-line form only).
extern int32_t g_num_cpus;
extern uint32_t g_totalTicksThisSample;

// Takes the processor ports of `host`, which only its privileged port gives away. Returns the
// result of host_processor_sets: 0 or a Mach error, after which showProcessorInfo knows no more
// than the counts.
darwin::kern_return_t get_host_processors(darwin::host_t host);

// The text, ended by a newline: one line, or with g_EachCPU one per processor. In a buffer that the
// next call overwrites; drawing thread only. Figures come from host_info and processor_info.
const char *showProcessorInfo();

}  // namespace sondex
