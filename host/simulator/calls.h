// The questions that a machine is asked, as the calls of a Darwin kernel that ask them: by these
// names a device file lets a call fail, and a test counts it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace host::simulator {

enum class Question : uint8_t {
  kernelName,
  processIDs,
  taskAllInfo,
  bsdInfo,
  executablePath,
  workQueue,
  threadHandles,
  threadInfo,
  threadIDs,
  threadInfoByID,
  coalition,
  descriptors,
  region,
  vnodeDescriptor,
  socketDescriptor,
  semaphoreDescriptor,
  sharedMemoryDescriptor,
  pipeDescriptor,
  kqueueDescriptor,
  kqueueEvents,
  channelDescriptor,
  resourceUsage,
  codeSigningFlags,
  codeSignature,
  sandboxCheck,
  containerPath,
  applicationState,
  memoryStatusList,
  setMemoryStatusPlace,
  memoryLimits,
  setMemoryLimits,
  memoryStatusLevel,
  hostBasicInfo,
  virtualMemory,
  processorCount,
  processorLoad,
  bootTime,
  loadAverage,
  swapUsage,
  arguments,
  interfaces,
  wirelessNetwork,
  networkStatistics,
  networkSubscription,
  networkSources,
  gestaltAnswer,
  powerStatus,
  memoryPressure,
  processEvents,
  sendSignal,
  taskPort,
  taskNamePort,
  kernelTaskPort,
  threadRegisters,
  readMemory,
  pages,
  kernelExtensions,
  stackshot,
};
inline constexpr size_t kQuestions = static_cast<size_t>(Question::stackshot) + 1;

// One bit for each question.
using QuestionSet = uint64_t;
static_assert(kQuestions <= 64);

constexpr size_t indexOf(Question question) {
  return static_cast<size_t>(question);
}
constexpr QuestionSet only(Question question) {
  return QuestionSet{1} << indexOf(question);
}

// A call, and the form of it that one question stands for; the form is empty where there is one
// only.
struct CallForm {
  std::string_view call;
  std::string_view form;
};

// In the order of the questions.
extern const std::array<CallForm, kQuestions> kCallForms;

// The questions that a call asks, or one form of it; an empty form is every one. None for a name
// that is not known.
QuestionSet questionsOf(std::string_view call, std::string_view form = {});

}  // namespace host::simulator
