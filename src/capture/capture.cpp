#include "capture/capture.h"

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <unistd.h>

#include "capture/device_file_writer.h"
#include "capture/figures.h"
#include "capture/memory_capture.h"
#include "capture/process_capture.h"
#include "capture/progress.h"
#include "capture/refusals.h"
#include "capture/stack_capture.h"
#include "capture/system_capture.h"
#include "capture/thread_capture.h"
#include "control/signals.h"
#include "darwin/libproc.h"
#include "files/whole_file.h"
#include "nstat/accounting.h"
#include "nstat/client.h"
#include "state/system.h"
#include "terminal/ending.h"

namespace sondex {

constexpr int32_t kCountsPatience = 2000;  // milliseconds
constexpr int64_t kMillion = 1'000'000;
constexpr int64_t kBetweenSamples = kMillion;  // microseconds
constexpr uint64_t kLargestFile = uint64_t{128} << 20;
constexpr int32_t kMostPIDs = 100'000;

// The threads of all processes in the second sample; `end` is by process, where those of it end.
struct Shares {
  ThreadShare *list;
  size_t count;
  size_t room;
  size_t *end;
};

struct Capture {
  const CaptureOptions *options;
  int32_t *pids;  // in the order of the file
  int32_t count;
  ProcessFigures *first;
  ProcessFigures *second;
  ProcessParts *parts;
  Shares shares;
  SystemFigures firstSystem;
  SystemFigures secondSystem;
  FILE *spool;
  JetsamList *jetsam;
};

static Capture g_capture;

static int fail(const char *what, int error) {
  fprintf(stderr, "sondex-capture: %s: %s\n", what, strerror(error));
  return 1;
}

static const char *nameOf(const CaptureOptions *options) {
  return options->path != nullptr ? options->path : "standard output";
}

static int failForSize(const Capture *capture) {
  fprintf(stderr, "sondex-capture: %s: a device file has at most 128 MiB: name fewer processes\n",
          nameOf(capture->options));
  return 1;
}

static bool isWanted(const int32_t *pids, int32_t count, int32_t pid) {
  for (int32_t i = 0; i < count; i++) {
    if (pids[i] == pid) return true;
  }
  return false;
}

// The kernel lists the newest first, a device file the oldest.
static bool listProcesses(Capture *capture) {
  const CaptureOptions *options = capture->options;
  const int room = darwin::proc_listpids(darwin::PROC_ALL_PIDS, 0, nullptr, 0);
  if (room <= 0 || room > kMostPIDs * static_cast<int>(sizeof(int32_t))) return false;
  auto *listed = static_cast<int32_t *>(malloc(static_cast<size_t>(room)));
  if (listed == nullptr) return false;
  const int size = darwin::proc_listpids(darwin::PROC_ALL_PIDS, 0, listed, room);
  const int32_t count = size > 0 && size <= room ? size / static_cast<int>(sizeof *listed) : 0;
  capture->pids = static_cast<int32_t *>(calloc(static_cast<size_t>(count) + 1, sizeof *listed));
  for (int32_t i = count; capture->pids != nullptr && i-- > 0;) {
    const bool isNamed = isWanted(options->pids, options->pidCount, listed[i]);
    if (listed[i] >= 0 && (options->pidCount == 0 || isNamed)) {
      capture->pids[capture->count++] = listed[i];
    }
  }
  free(listed);
  return capture->pids != nullptr;
}

static bool makeRoom(Capture *capture) {
  const size_t count = static_cast<size_t>(capture->count) + 1;
  capture->first = static_cast<ProcessFigures *>(calloc(count, sizeof *capture->first));
  capture->second = static_cast<ProcessFigures *>(calloc(count, sizeof *capture->second));
  capture->parts = static_cast<ProcessParts *>(calloc(count, sizeof *capture->parts));
  capture->shares.end = static_cast<size_t *>(calloc(count, sizeof *capture->shares.end));
  return capture->first != nullptr && capture->second != nullptr && capture->parts != nullptr &&
         capture->shares.end != nullptr;
}

static bool addShares(Shares *shares, int32_t pid) {
  if (shares->room - shares->count < kMostThreads) {
    const size_t room = 2 * shares->room + kMostThreads;
    auto *larger = static_cast<ThreadShare *>(realloc(shares->list, room * sizeof *shares->list));
    if (larger == nullptr) return false;
    shares->list = larger;
    shares->room = room;
  }
  shares->count += static_cast<size_t>(listShares(pid, shares->list + shares->count));
  return true;
}

static void takeFirstSample(Capture *capture) {
  capture->jetsam = g_r00t != 0 ? getMemoryStatusPriorityList() : nullptr;
  sampleSystem(&capture->firstSystem);
  SourceSums *sums = takeSourceSums();
  for (int32_t i = 0; i < capture->count; i++) {
    const ProcessFigures *figures = &capture->first[i];
    capture->parts[i].isWhole = sampleProcess(capture->pids[i], sums, &capture->first[i]);
    if (isZombie(figures) && figures->isTold) capture->firstSystem.tellsOfZombies = true;
  }
  releaseSourceSums(sums);
}

// Asks all else. What ends meanwhile is left out: not all of it is known.
static void spoolAll(Capture *capture) {
  const CaptureOptions *options = capture->options;
  for (int32_t i = 0; i < capture->count && reasonToEnd() == 0; i++) {
    const int32_t pid = capture->pids[i];
    if (!capture->parts[i].isWhole) continue;
    if (options->withStacks && options->pidCount > 0) takeStacks(pid);
    spoolProcess(pid, &capture->first[i], isWanted(options->memory, options->memoryCount, pid),
                 capture->spool, &capture->parts[i]);
    showProgress("processes", i + 1, capture->count);
  }
}

static int64_t microsecondsSinceFirst(const Capture *capture, int64_t seconds,
                                      int64_t microseconds) {
  return (seconds - capture->firstSystem.seconds) * kMillion + microseconds -
         capture->firstSystem.microseconds;
}

static void waitForSecondSample(const Capture *capture) {
  timeval now = {};
  gettimeofday(&now, nullptr);
  const int64_t passed = microsecondsSinceFirst(capture, now.tv_sec, now.tv_usec);
  if (passed >= 0 && passed < kBetweenSamples) {
    pauseUnlessEnding(static_cast<int32_t>((kBetweenSamples - passed) / 1000));
  }
}

// One that has ended is as it was, and so is one that is stopped in the file.
static void sampleAgain(Capture *capture, int32_t index, const SourceSums *sums) {
  const ProcessFigures *first = &capture->first[index];
  ProcessFigures *second = &capture->second[index];
  const bool isThere = sampleProcess(capture->pids[index], sums, second);
  if (!isThere || !isSameProcess(first, second) || isStopped(first)) *second = *first;
}

static bool takeSecondSample(Capture *capture) {
  const int32_t noted = refusalsNoted();
  // How the first one began, too.
  darwin::proc_listpids(darwin::PROC_ALL_PIDS, 0, nullptr, 0);
  awaitCounts(kCountsPatience);
  sampleSystem(&capture->secondSystem);
  SourceSums *sums = takeSourceSums();
  bool hasRoom = true;
  for (int32_t i = 0; i < capture->count && hasRoom; i++) {
    if (capture->parts[i].isWhole) {
      sampleAgain(capture, i, sums);
      hasRoom = addShares(&capture->shares, capture->pids[i]);
    }
    capture->shares.end[i] = capture->shares.count;
  }
  releaseSourceSums(sums);
  setSampleDistance(microsecondsSinceFirst(capture, capture->secondSystem.seconds,
                                           capture->secondSystem.microseconds));
  forgetRefusals(noted);
  return hasRoom;
}

// Of what is to be loaded again.
static bool isTooLarge(const Capture *capture) {
  return capture->options->isLoadedAgain && deviceFileSize() > kLargestFile;
}

static bool writeOne(const Capture *capture, int32_t index, const CaptureMoment *moment) {
  const Shares *shares = &capture->shares;
  const size_t start = index > 0 ? shares->end[index - 1] : 0;
  const CapturedProcess process = {
      capture->pids[index],
      &capture->first[index],
      &capture->second[index],
      &capture->parts[index],
      {capture->spool, shares->list + start, static_cast<int32_t>(shares->end[index] - start)}};
  return writeProcess(&process, moment);
}

// Zombies first, unless they are told of in their place: the kernel lists them after all others,
// but some became that once it had.
static bool writeProcesses(Capture *capture, const CaptureMoment *moment) {
  beginThreadIDs();
  for (const bool areApart : {true, false}) {
    for (int32_t i = 0; i < capture->count; i++) {
      const ProcessFigures *figures = &capture->first[i];
      const bool isApart = isZombie(figures) && !figures->isTold;
      if (isApart != areApart || !capture->parts[i].isWhole) continue;
      if (!writeOne(capture, i, moment)) return false;
      if (deviceFileError() != 0 || isTooLarge(capture)) return true;
    }
  }
  return true;
}

static bool writeMachine(Capture *capture, FILE *to) {
  const int64_t up = upAt(&capture->firstSystem);
  const CaptureMoment moment = {capture->firstSystem.seconds, capture->firstSystem.microseconds, up,
                                capture->jetsam};
  beginDeviceFile(to);
  writeSystem(&capture->firstSystem, &capture->secondSystem, up);
  const bool isWhole = writeProcesses(capture, &moment);
  writeRefusals();
  endDeviceFile();
  return isWhole;
}

static int writeFile(Capture *capture, WholeFile *file) {
  FILE *to = file != nullptr ? file->stream : stdout;
  const char *name = nameOf(capture->options);
  errno = 0;
  if (!writeMachine(capture, to)) return fail("the temporary file", errno != 0 ? errno : EIO);
  endProgress();
  if (deviceFileError() != 0) return fail(name, deviceFileError());
  if (isTooLarge(capture)) return failForSize(capture);
  if (reasonToEnd() != 0) return 1;
  const bool isWritten = file != nullptr ? finishWholeFile(file) : fflush(stdout) == 0;
  return isWritten ? 0 : fail(name, errno);
}

static void startClient() {
  expectCounts();
  pthread_t reader;
  if (pthread_create(&reader, nullptr, doNStat, nullptr) == 0) pthread_detach(reader);
  awaitCounts(kCountsPatience);
}

static int captureAll(Capture *capture, WholeFile *file) {
  errno = 0;
  if (!listProcesses(capture) || !makeRoom(capture)) {
    return fail("the list of processes", errno != 0 ? errno : EIO);
  }
  if (capture->options->withStacks && capture->options->pidCount == 0) {
    const int error = takeStacks(kEveryProcess);
    if (error != 0) return fail("the stackshot", error > 0 ? error : errno);
  }
  takeFirstSample(capture);
  spoolAll(capture);
  if (deviceFileError() != 0) return fail("the temporary file", deviceFileError());
  if (fflush(capture->spool) != 0 || ferror(capture->spool) != 0) {
    return fail("the temporary file", errno != 0 ? errno : EIO);
  }
  if (isMemoryTooMuch()) return failForSize(capture);
  waitForSecondSample(capture);
  if (!takeSecondSample(capture)) return fail("the threads", ENOMEM);
  return writeFile(capture, file);
}

static void release(Capture *capture) {
  if (capture->spool != nullptr) fclose(capture->spool);
  free(capture->pids);
  free(capture->first);
  free(capture->second);
  free(capture->parts);
  free(capture->shares.list);
  free(capture->shares.end);
  free(capture->jetsam);
  releaseRefusals();
}

int captureMachine(const CaptureOptions *options) {
  Capture *capture = &g_capture;
  capture->options = options;
  noteEndingSignals();
  WholeFile file = {};
  // At once, so that what can't be written is not asked for.
  if (options->path != nullptr && !beginWholeFile(&file, options->path)) {
    return fail(options->path, errno);
  }
  capture->spool = tmpfile();
  int result = 0;
  if (capture->spool == nullptr) {
    result = fail("a temporary file", errno);
  } else {
    startClient();
    result = captureAll(capture, options->path != nullptr ? &file : nullptr);
  }
  dropWholeFile(&file);
  release(capture);
  endIfSignalled();
  return result;
}

}  // namespace sondex
