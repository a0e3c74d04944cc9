#include "host/linux/shared_processes.h"
#include "host/darwin/errors.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace host::linux_machine {

SharedProcesses::SharedProcesses(FileHandle procDirectory)
    : proc(std::move(procDirectory)),
      known(descriptorsToKeep()),
      present(proc.get(), known, survey) {}

// What a sample asks for: how many processes there are, which, and where memory status puts them.
static constexpr int kListsOfSample = 3;
static constexpr uint64_t kSampleTime = 100'000'000;

// A survey can't tell anything yet in the first sample, and takes its time to be prepared: not for
// reports that are made of two.
static constexpr uint64_t kFirstSurveyed = 3;

void SharedProcesses::beginSample() {
  const std::lock_guard lock(mutex);
  listed_.clear();
  listAnswers_ = kListsOfSample;
  surveyTasks();
}

void SharedProcesses::surveyTasks() {
  if (samples_ < kFirstSurveyed) samples_++;
  if (samples_ < kFirstSurveyed || !preparedLooks().tasks) return;
  survey.take([this](std::vector<TaskRecord> &tasks) { return looks_.tasks->read(tasks); });
}

const KernelLooks &SharedProcesses::preparedLooks() {
  if (!areLooksPrepared_) looks_ = KernelLooks::load(proc.get());
  areLooksPrepared_ = true;
  return looks_;
}

Errno SharedProcesses::list(std::vector<int32_t> &pids) {
  const bool isPartOfSample = listAnswers_ > 0;
  if (isPartOfSample) listAnswers_--;
  if (isPartOfSample && !listed_.empty() && coarseNanoseconds() - listedAt_ < kSampleTime) {
    pids = listed_;
    return kAnswered;
  }
  Errno error = kAnswered;
  if (isPartOfSample && survey.isFresh()) {
    survey.listProcesses(pids);
  } else {
    error = readList(pids);
  }
  if (error == kAnswered && isPartOfSample) {
    listed_ = pids;
    listedAt_ = coarseNanoseconds();
  }
  return error;
}

Errno SharedProcesses::readList(std::vector<int32_t> &pids) {
  std::vector<int32_t> listed;
  Errno error = lister.readNumbers(proc.get(), listed);
  if (error != kAnswered) return error;
  std::sort(listed.begin(), listed.end(), std::greater<>());
  pids = std::move(listed);
  return kAnswered;
}

void SharedProcesses::beginPass(const std::vector<int32_t> &pids) {
  passBegan_ = coarseNanoseconds();
  present.beginPass();
  known.keepOnly(pids);
  descriptors.beginPass();
}

bool SharedProcesses::hasJustListed(int32_t pid) {
  constexpr uint64_t kMoment = 3'000'000'000;
  const KnownProcess *process = known.look(pid);
  return process != nullptr && process->descriptors &&
         process->descriptors->size() < process->descriptorLimit &&
         coarseNanoseconds() - passBegan_ < kMoment;
}

const WallTime &SharedProcesses::boot() {
  const uint64_t now = coarseNanoseconds();
  if (bootReadAt_ == 0 || now - bootReadAt_ >= kSampleTime) {
    boot_ = bootMoment();
    bootReadAt_ = now;
  }
  return boot_;
}

Errno SharedProcesses::checkLive() {
  return present.stat().isZombie() ? darwin::DARWIN_ESRCH : present.checkAccess();
}

Errno SharedProcesses::readLive(pid_t pid) {
  Errno error = present.read(pid);
  return error == kAnswered ? checkLive() : error;
}

Errno SharedProcesses::readLiveFor(pid_t pid, Question question) {
  Errno error = present.readFor(pid, question);
  return error == kAnswered ? checkLive() : error;
}

Errno SharedProcesses::holdLive(pid_t pid) {
  Errno error = present.hold(pid);
  return error == kAnswered ? checkLive() : error;
}

Errno SharedProcesses::holdUserProcess(pid_t pid) {
  Errno error = holdLive(pid);
  if (error == kAnswered && present.stat().isKernelThread()) error = darwin::DARWIN_EPERM;
  return error;
}

}  // namespace host::linux_machine
