#include "capture/check.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "capture/process_checks.h"
#include "capture/system_checks.h"
#include "capture/verdict.h"
#include "darwin/libproc.h"
#include "state/system.h"

namespace sondex {

constexpr int kMostProcesses = 4;

struct Chosen {
  int32_t pids[kMostProcesses];
  int count;
};

static void choose(Chosen *chosen, int32_t pid) {
  for (int i = 0; i < chosen->count; i++) {
    if (chosen->pids[i] == pid) return;
  }
  if (pid > 0 && chosen->count < kMostProcesses) chosen->pids[chosen->count++] = pid;
}

// A simulated device does not have this process.
static void chooseAmong(Chosen *chosen, const int32_t *pids, int count) {
  for (int i = 0; i < count; i++) {
    if (pids[i] == getpid()) choose(chosen, pids[i]);
  }
  choose(chosen, 1);
  int32_t stranger = 0;
  int32_t holder = 0;
  uint32_t mostFiles = 0;
  for (int i = 0; i < count; i++) {
    darwin::proc_taskallinfo info = {};
    const int size =
        darwin::proc_pidinfo(pids[i], darwin::PROC_PIDTASKALLINFO, 0, &info, sizeof info);
    if (size != static_cast<int>(sizeof info) || pids[i] == getpid()) continue;
    if (stranger == 0 && info.pbsd.pbi_uid != getuid()) stranger = pids[i];
    if (info.pbsd.pbi_nfiles > mostFiles) {
      mostFiles = info.pbsd.pbi_nfiles;
      holder = pids[i];
    }
  }
  choose(chosen, stranger);
  choose(chosen, holder);
}

static Chosen chooseProcesses() {
  Chosen chosen = {};
  const int room = darwin::proc_listpids(darwin::PROC_ALL_PIDS, 0, nullptr, 0);
  int32_t *pids = room > 0 ? static_cast<int32_t *>(malloc(static_cast<size_t>(room))) : nullptr;
  if (pids == nullptr) return chosen;
  const int size = darwin::proc_listpids(darwin::PROC_ALL_PIDS, 0, pids, room);
  if (size > 0 && size <= room) {
    chooseAmong(&chosen, pids, size / static_cast<int>(sizeof *pids));
  }
  free(pids);
  return chosen;
}

bool checkCalls() {
  checkSystem();
  const Chosen chosen = chooseProcesses();
  for (int i = 0; i < chosen.count; i++) checkProcess(chosen.pids[i]);
  const Verdicts told = verdictsTold();
  printf("%d fine, %d refused%s, %d different\n", told.fine, told.refused,
         g_r00t != 0 ? " to root" : "", told.different);
  return told.different == 0;
}

}  // namespace sondex
