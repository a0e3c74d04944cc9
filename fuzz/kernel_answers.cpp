// What the kernel answers about processes, in samples, lists and reports. The first byte has the
// kernel's generation and the column that the list is sorted by; each answer is a piece of the
// input, however long the structure is that was asked for. When there are no more, the kernel
// refuses.
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>

#include "columns/perspective.h"
#include "columns/sort.h"
#include "darwin/libproc.h"
#include "fds/listing.h"
#include "fuzz/input.h"
#include "fuzz/printed.h"
#include "host/none/no_machine.h"
#include "inspect/details_report.h"
#include "proc/sampler.h"
#include "screens/process_list.h"
#include "state/display.h"
#include "state/system.h"
#include "tests/unit/display_state.h"

using namespace sondex;
using fuzz::check;

namespace {

constexpr int32_t kGenerations[] = {8, 9, 10, 14};
// The sampler leaves out as many places of the list as the kernel counts too much.
constexpr int kSpareEntries = 19;
constexpr int kMostProcesses = 8;
constexpr size_t kMostPrinted = 8 << 20;

fuzz::Input g_answers(nullptr, 0);
int g_processes = 0;

// Returns how much of it there was.
int answer(void *to, size_t room) {
  if (g_answers.isEmpty()) {
    errno = ESRCH;
    return 0;
  }
  const std::string_view given = g_answers.piece().substr(0, room);
  std::copy(given.begin(), given.end(), static_cast<char *>(to));
  return static_cast<int>(given.size());
}

int usageOf(int, int, darwin::rusage_info_t *usage) {
  return answer(usage, sizeof(darwin::rusage_info_v3)) != 0 ? 0 : -1;
}

void setKernel(uint8_t how) {
  g_OsVer = kGenerations[how % std::size(kGenerations)];
  proc_pid_rusage_funcptr = usageOf;
  g_r00t = how >> 2 & 1;
  Perspective *perspective = getCurrentPerspective();
  store(perspective->selectedColumn, (how >> 3) % perspective->numColumns);
  // What goes to the terminal is text alone.
  store(g_Color, 0);
  store(g_showArgs, 1);
}

void sampleAndShow() {
  g_Prev_Total_Rusage = g_Total_Rusage;
  g_Total_Rusage = {};
  const TableView before = previousTable();
  setCurrentTable(getPIDList());
  doSort(sortOf(getCurrentPerspective()));
  showProcesses(currentTable(), before, nullptr);
  indexProcessTable(currentTable());
  setPreviousTable(currentTable());
  retireProcessTable(before.records);
}

void report(ProcessRecord *record) {
  check(record->numFDs >= 0 && record->numFDs <= kFDSlots);
  const DetailsReport details = openDetailsReport(record, {});
  printDetails(&details);
  check(fuzz::isTerminated(record->path));
  showProcessFDs(pidOf(record), record->fds, record->numFDs, darwin::PROX_FDTYPE_SOCKET, 1,
                 record->taskAllInfo.pbsd.pbi_comm);
}

}  // namespace

extern "C" {

int __wrap_proc_listpids(uint32_t, uint32_t, void *to, int room) {
  if (to == nullptr) return (g_processes + kSpareEntries) * static_cast<int>(sizeof(int32_t));
  return answer(to, static_cast<size_t>(room));
}

int __wrap_proc_pidinfo(int, int, uint64_t, void *to, int room) {
  return answer(to, static_cast<size_t>(room));
}

int __wrap_proc_pidfdinfo(int, int, int, void *to, int room) {
  return answer(to, static_cast<size_t>(room));
}

int __wrap_sysctl(int *, unsigned int, void *old, size_t *size, void *, size_t) {
  if (old == nullptr) {
    *size = 0;
    return 0;
  }
  *size = static_cast<size_t>(answer(old, *size));
  return *size != 0 ? 0 : -1;
}

}  // extern "C"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  static host::NoMachine machine;
  host::useMachine(&machine);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const DisplayStateGuard guard;
  g_answers = fuzz::Input(data, size);
  const fuzz::Printed output(stdout, kMostPrinted);
  const fuzz::Printed messages(stderr, kMostPrinted);
  setKernel(g_answers.byte());
  g_processes = g_answers.byte() % kMostProcesses;
  sampleAndShow();
  sampleAndShow();
  for (int32_t i = 0; i < currentTable().count; i++) report(&currentTable().records[i]);
  return 0;
}
