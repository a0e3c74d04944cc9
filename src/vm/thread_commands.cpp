#include "vm/thread_commands.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "darwin/mach_task.h"
#include "darwin/mach_vm.h"
#include "darwin/macho.h"
#include "darwin/thread_state.h"
#include "state/tracing.h"

namespace sondex {

constexpr size_t kFewestBytes = 102400;  // of the buffer

// A thread command: two words of its own, flavour and count, then the registers.
constexpr size_t kHeader = sizeof(darwin::thread_command) + 2 * sizeof(darwin::natural_t);
constexpr size_t kSize64 = kHeader + sizeof(darwin::arm_thread_state64_t);
constexpr size_t kSize32 = kHeader + sizeof(darwin::arm_thread_state32_t);
static_assert(kSize64 == 288 && kSize32 == 84);

// A kernel that answers with the unified form puts a flavour and a count before the registers.
static void skipUnifiedHeader(darwin::thread_act_t thread, darwin::natural_t *registers) {
  if (registers[0] != darwin::ARM_THREAD_STATE32 ||
      registers[1] != darwin::ARM_THREAD_STATE32_COUNT) {
    return;
  }
  if (isTracing()) fputs("Workaround\n", stderr);
  // Asked with room for both, a kernel that gives just registers says so by its count: there a
  // thread happened to hold the two numbers.
  darwin::natural_t unified[2 + darwin::ARM_THREAD_STATE32_COUNT] = {};
  darwin::mach_msg_type_number_t count = sizeof unified / sizeof *unified;
  if (darwin::act_get_state(thread, darwin::ARM_THREAD_STATE, unified, &count) ==
          darwin::KERN_SUCCESS &&
      count == sizeof unified / sizeof *unified) {
    memcpy(registers, unified + 2, sizeof(darwin::arm_thread_state32_t));
  }
}

static void fillCommand(darwin::thread_act_t thread, bool is32Bit, char *to) {
  const size_t size = is32Bit ? kSize32 : kSize64;
  const darwin::thread_command command = {darwin::LC_THREAD, static_cast<uint32_t>(size)};
  const darwin::natural_t form[] = {
      static_cast<darwin::natural_t>(is32Bit ? darwin::ARM_THREAD_STATE
                                             : darwin::ARM_THREAD_STATE64),
      is32Bit ? darwin::ARM_THREAD_STATE32_COUNT : darwin::ARM_THREAD_STATE64_COUNT};
  // Words of their own, so that a kernel that gives nothing leaves zeros.
  darwin::natural_t registers[darwin::ARM_THREAD_STATE64_COUNT] = {};
  darwin::mach_msg_type_number_t count = form[1];
  const darwin::kern_return_t answer =
      darwin::act_get_state(thread, static_cast<int>(form[0]), registers, &count);
  if (is32Bit && answer == darwin::KERN_SUCCESS) skipUnifiedHeader(thread, registers);

  memcpy(to, &command, sizeof command);
  memcpy(to + sizeof command, form, sizeof form);
  memcpy(to + kHeader, registers, size - kHeader);
}

static void fillCommands(const darwin::thread_act_t *threads, uint32_t count, bool is32Bit,
                         char *commands) {
  for (uint32_t i = 0; i < count; i++) {
    char *command = commands + i * (is32Bit ? kSize32 : kSize64);
    if (isTracing()) {
      fprintf(stderr, "Thread %u (%x), LC @%p\n", i, threads[i], static_cast<void *>(command));
    }
    fillCommand(threads[i], is32Bit, command);
  }
}

static void releaseThreads(darwin::thread_act_array_t threads, uint32_t count) {
  for (uint32_t i = 0; i < count; i++) {
    darwin::mach_port_deallocate(darwin::mach_task_self_, threads[i]);
  }
  darwin::vm_deallocate(darwin::mach_task_self_, reinterpret_cast<darwin::vm_address_t>(threads),
                        count * sizeof *threads);
}

char *makeThreadCommands(darwin::mach_port_t task, uint32_t *threadCount, uint32_t *totalSize,
                         bool is32Bit) {
  *threadCount = 0;
  *totalSize = 0;
  darwin::thread_act_array_t threads = nullptr;
  darwin::mach_msg_type_number_t count = 0;
  if (darwin::task_threads(task, &threads, &count) != darwin::KERN_SUCCESS) {
    fputs("Unable to obtain task thread ports\n", stderr);
    return nullptr;
  }
  const uint64_t needed = uint64_t{count} * (is32Bit ? kSize32 : kSize64);
  char *commands = nullptr;
  if (needed <= UINT32_MAX) {
    commands = static_cast<char *>(calloc(1, needed > kFewestBytes ? needed : kFewestBytes));
  }
  if (commands != nullptr) {
    fillCommands(threads, count, is32Bit, commands);
    *threadCount = count;
    *totalSize = static_cast<uint32_t>(needed);
  } else {
    fputs("Unable to obtain task thread ports\n", stderr);
  }
  releaseThreads(threads, count);
  return commands;
}

}  // namespace sondex
