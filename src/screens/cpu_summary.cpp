#include "screens/cpu_summary.h"

#include <math.h>
#include <string.h>
#include <unistd.h>

#include "state/display.h"
#include "state/system.h"
#include "text/append.h"

namespace sondex {

int32_t g_num_cpus = 0;
uint32_t g_totalTicksThisSample = 0;

constexpr uint32_t kMaxProcessors = 32;
constexpr uint32_t kSummedProcessors =
    4;  // the single line's shares cover these, whatever their number
constexpr darwin::mach_msg_type_number_t kHostInfoWords =
    48;  // more than the kernel needs; it takes up to 68

using Load = darwin::processor_cpu_load_info;

static darwin::processor_t *processors = nullptr;
static darwin::mach_msg_type_number_t processor_count = 0;
static darwin::mach_port_t *processor_sets = nullptr;
static darwin::mach_msg_type_number_t processor_set_count = 0;

static Load processorLoadInfo[kMaxProcessors];
static Load oldProcessorLoadInfo[kMaxProcessors];
static Load processorLoadInfoTotal;
static Load oldProcessorLoadInfoTotal;

static char text[4096];

darwin::kern_return_t get_host_processors(darwin::host_t host) {
  darwin::host_processors(host, &processors, &processor_count);
  return darwin::host_processor_sets(host, &processor_sets, &processor_set_count);
}

// The tick counters wrap; differences of them don't.
static uint32_t allTicks(const Load *load) {
  uint32_t sum = 0;
  for (const uint32_t ticks : load->cpu_ticks) sum += ticks;
  return sum;
}

static float share(const Load *now, const Load *before, int state, uint32_t ticks) {
  const uint32_t part = now->cpu_ticks[state] - before->cpu_ticks[state];
  // What 0 / 0 gives everywhere, without the sign that some processors put before it.
  if (part == 0 && ticks == 0) return NAN;
  return 100.0f * static_cast<float>(part) / static_cast<float>(ticks);
}

static uint32_t sampleProcessors(uint32_t count) {
  uint32_t ticks = 0;
  for (uint32_t i = 0; i < count; i++) {
    darwin::host_t host = 0;
    darwin::mach_msg_type_number_t words = sizeof(Load) / sizeof(darwin::integer_t);
    darwin::processor_info(processors[i], darwin::PROCESSOR_CPU_LOAD_INFO, &host,
                           reinterpret_cast<darwin::processor_info_t>(&processorLoadInfo[i]),
                           &words);
    ticks += allTicks(&processorLoadInfo[i]) - allTicks(&oldProcessorLoadInfo[i]);
  }
  processorLoadInfoTotal = {};
  for (uint32_t i = 0; i < kSummedProcessors; i++) {
    for (int state = 0; state < darwin::CPU_STATE_MAX; state++) {
      processorLoadInfoTotal.cpu_ticks[state] += processorLoadInfo[i].cpu_ticks[state];
    }
  }
  return ticks;
}

static void appendEachProcessor(uint32_t count) {
  for (uint32_t i = 0; i < count; i++) {
    const Load *now = &processorLoadInfo[i];
    const Load *before = &oldProcessorLoadInfo[i];
    const uint32_t ticks = allTicks(now) - allTicks(before);
    append(text, sizeof text, "%s %u: %6.2f%% User, %6.2f%% System, %6.2f%% Idle, %5.2f%% Nice\n",
           i == 0 ? "CPU" : "   ", i,
           static_cast<double>(share(now, before, darwin::CPU_STATE_USER, ticks)),
           static_cast<double>(share(now, before, darwin::CPU_STATE_SYSTEM, ticks)),
           static_cast<double>(share(now, before, darwin::CPU_STATE_IDLE, ticks)),
           static_cast<double>(share(now, before, darwin::CPU_STATE_NICE, ticks)));
  }
}

static void appendTotals(uint32_t ticks) {
  const Load *now = &processorLoadInfoTotal;
  const Load *before = &oldProcessorLoadInfoTotal;
  append(text, sizeof text, "  %6.2f%% User, %6.2f%% System, %6.2f%% Idle ",
         static_cast<double>(share(now, before, darwin::CPU_STATE_USER, ticks)),
         static_cast<double>(share(now, before, darwin::CPU_STATE_SYSTEM, ticks)),
         static_cast<double>(share(now, before, darwin::CPU_STATE_IDLE, ticks)));
  g_totalTicksThisSample = ticks;
  append(text, sizeof text, "\n");
}

const char *showProcessorInfo() {
  static const char *rootNote = nullptr;
  if (rootNote == nullptr) {
    rootNote = geteuid() != 0 ? " (can't tell you more without being root) " : "";
  }

  union {
    darwin::host_basic_info basic;
    darwin::integer_t words[kHostInfoWords];
  } host = {};
  darwin::mach_msg_type_number_t words = kHostInfoWords;
  darwin::host_info(host_self, darwin::HOST_BASIC_INFO, host.words, &words);
  g_num_cpus = host.basic.logical_cpu;

  const bool eachProcessor = load(g_EachCPU) != 0;
  text[0] = '\0';
  if (!eachProcessor) {
    append(text, sizeof text, "CPU:   %d/%d active %s", host.basic.logical_cpu,
           host.basic.logical_cpu_max, rootNote);
  }
  if (processors == nullptr) {
    append(text, sizeof text, "\n");
    return text;
  }

  const uint32_t count = processor_count < kMaxProcessors ? processor_count : kMaxProcessors;
  const uint32_t ticks = sampleProcessors(count);
  if (eachProcessor) {
    appendEachProcessor(count);
  } else {
    appendTotals(ticks);
  }
  memcpy(oldProcessorLoadInfo, processorLoadInfo, sizeof oldProcessorLoadInfo);
  oldProcessorLoadInfoTotal = processorLoadInfoTotal;
  return text;
}

}  // namespace sondex
