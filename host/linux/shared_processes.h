// The processes of the live system as all parts of the machine share them: one at a time is looked
// at, and what is remembered of the others is kept together.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <mutex>
#include <vector>

#include "host/linux/clock.h"
#include "host/linux/descriptors.h"
#include "host/linux/kernel_looks.h"
#include "host/linux/known_processes.h"
#include "host/linux/present_process.h"
#include "host/linux/procfs.h"
#include "host/linux/task_survey.h"

namespace host::linux_machine {

struct SharedProcesses {
  // `procDirectory` is an open handle of /proc.
  explicit SharedProcesses(FileHandle procDirectory);

  // For all below, but not for `proc`.
  std::mutex mutex;

  const FileHandle proc;
  DirectoryReader lister;
  TaskSurvey survey;
  KnownProcesses known;
  PresentProcess present;
  Descriptors descriptors;

  // Looks at many of the kernel's objects at once. They take their time to be prepared, so are
  // there once a caller that has many to look at asked for them.
  const KernelLooks &preparedLooks();
  const KernelLooks &looks() const { return looks_; }

  // A sample of all processes begins: one listing answers all its questions for the list.
  void beginSample();
  // Newest first, as far as numbers tell: they start again from low ones after the highest.
  Errno list(std::vector<int32_t> &pids);
  // What may be remembered for one pass only is dropped, and so are processes that are not among
  // `pids`.
  void beginPass(const std::vector<int32_t> &pids);

  // Whether the last pass listed all descriptors of a process, and began a moment ago.
  bool hasJustListed(int32_t pid);

  // bootMoment() as of a moment ago: one reading serves a sample.
  const WallTime &boot();

  // Whether the present process is one that the caller may ask about.
  Errno checkLive();
  // As those of PresentProcess, for one that the caller may ask about.
  Errno readLive(pid_t pid);
  Errno readLiveFor(pid_t pid, Question question);
  Errno holdLive(pid_t pid);
  // A kernel thread has no task of its own.
  Errno holdUserProcess(pid_t pid);

 private:
  void surveyTasks();
  Errno readList(std::vector<int32_t> &pids);

  uint64_t samples_ = 0;
  bool areLooksPrepared_ = false;
  KernelLooks looks_;

  std::vector<int32_t> listed_;
  uint64_t listedAt_ = 0;
  int listAnswers_ = 0;  // how often it may still be given
  uint64_t passBegan_ = 0;
  WallTime boot_{};
  uint64_t bootReadAt_ = 0;
};

}  // namespace host::linux_machine
