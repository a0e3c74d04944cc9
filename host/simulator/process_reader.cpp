#include "host/simulator/process_reader.h"

#include <algorithm>
#include <string>
#include <unordered_set>
#include <utility>
#include <variant>

#include "host/simulator/limits.h"
#include "host/simulator/process_maker.h"
#include "host/simulator/process_plan.h"

namespace host::simulator {

namespace {

// What says which processes an entry is about. The fields are of its own table.
struct Numbering {
  Field pid;
  std::vector<Field> names;  // empty: they are called alike
  size_t count = 1;
};

Numbering readNumbering(TableReader &reader) {
  Numbering numbering;
  numbering.pid = reader.findOwn("pid");
  const Field names = reader.findOwn("names");
  const Field copies = reader.findOwn("copies");
  if (copies) numbering.count = static_cast<size_t>(copies.number(1, int64_t{kMostProcesses}));
  if (!names) return numbering;
  if (copies) copies.fail("found `copies` beside `names`", "one of them");
  if (const Field name = reader.findOwn("name")) {
    name.fail("found `name` beside `names`", "one of them");
  }
  numbering.names = names.elements();
  numbering.count = numbering.names.size();
  if (numbering.count == 0) names.fail("found no name", "at least one");
  for (const Field &name : numbering.names) name.text(kLongestName);
  return numbering;
}

// The entry of some processes, with what it takes over.
struct ProcessEntry {
  std::vector<std::unique_ptr<TableReader>> layers;
  Numbering numbering;
  Plan plan;

  const Field &nameOf(size_t index) const {
    return numbering.names.empty() ? plan.name : numbering.names[index];
  }
};

// Finishes with `reader`, which must outlive the entry.
ProcessEntry readEntry(Loading &loading, const Templates &templates, TableReader &reader,
                       PlanOf kind) {
  ProcessEntry entry;
  entry.layers = templates.layersOf(reader);
  reader.putOnTopOf(entry.layers);
  entry.numbering = readNumbering(reader);
  loading.take(Limit::kProcesses, entry.numbering.count, 1, reader.place());
  entry.plan = readPlan(loading, reader, kind, entry.numbering.count);
  reader.finish();
  if (!entry.plan.name && entry.numbering.names.empty()) {
    failAt(entry.plan.place, "has neither `name` nor `names`", "one of them");
  }
  return entry;
}

void checkPid(int32_t pid, const Place &place) {
  if (pid <= kLargestPid) return;
  failAt(place, "there is no PID above 99999 left for it", "a smaller `pid`");
}

// Gives numbers to the processes that are listed.
class Pids {
 public:
  // Of an entry's first process.
  int32_t first(const Field &field, const Place &place, const Loading &loading) {
    if (!field) return next(place);
    last_ = static_cast<int32_t>(field.number(0, kLargestPid));
    if (const Process *other = loading.findListed(last_)) {
      field.fail("found " + std::to_string(last_) + ", which is the PID of " + quoted(other->name) +
                     " already",
                 "a PID of its own");
    }
    return taken();
  }
  // Of the further ones.
  int32_t further(const Place &place, const Loading &loading) {
    do {
      last_++;
      checkPid(last_, place);
    } while (loading.findListed(last_) != nullptr);
    return taken();
  }

 private:
  int32_t next(const Place &place) {
    last_ = largest_ + 1;
    checkPid(last_, place);
    return taken();
  }
  int32_t taken() {
    largest_ = std::max(largest_, last_);
    return last_;
  }
  int32_t last_ = 0;
  int32_t largest_ = 0;
};

void checkThreadIDs(const Process &process, const Place &place,
                    std::unordered_set<uint64_t> &taken) {
  for (const Thread &thread : process.threads) {
    if (thread.id == 0 || taken.insert(thread.id).second) continue;
    failAt(place,
           "a thread of another process has the ID " + std::to_string(thread.id) + " already",
           "one of its own");
  }
}

}  // namespace

void readProcesses(Loading &loading, const Templates &templates, const Field &field) {
  Pids pids;
  std::unordered_set<uint64_t> threadIDs;
  for (const Field &element : field.elements()) {
    TableReader reader(element);
    const ProcessEntry entry = readEntry(loading, templates, reader, PlanOf::kListed);
    const Place &place = entry.plan.place;
    ProcessMaker maker(loading, entry.plan);
    for (size_t i = 0; i < entry.numbering.count; i++) {
      const int32_t pid =
          i == 0 ? pids.first(entry.numbering.pid, place, loading) : pids.further(place, loading);
      Process process = maker.make(entry.nameOf(i), pid, i, pid);
      checkThreadIDs(process, place, threadIDs);
      loading.addListed(std::move(process));
      maker.connect({false, loading.device.processes.size() - 1});
    }
  }
}

void readStartedProcesses(Loading &loading, const Templates &templates, TableReader &reader,
                          const Event &event) {
  const ProcessEntry entry = readEntry(loading, templates, reader, PlanOf::kStarted);
  std::optional<int32_t> pid;
  if (const Field &first = entry.numbering.pid) {
    pid = static_cast<int32_t>(first.number(0, kLargestPid));
  }
  ProcessMaker maker(loading, entry.plan);
  for (size_t i = 0; i < entry.numbering.count; i++) {
    if (pid) checkPid(*pid, entry.plan.place);
    // Where the PID is not known, the place in the file is what makes it different from others.
    const int64_t seed =
        pid ? int64_t{*pid} : -1 - static_cast<int64_t>(loading.device.events.size());
    Event made = event;
    made.action = StartProcess{maker.make(entry.nameOf(i), pid, i, seed)};
    loading.addName(std::get<StartProcess>(made.action).process.name, pid);
    loading.device.events.push_back(std::move(made));
    maker.connect({true, loading.device.events.size() - 1});
    if (pid) ++*pid;
  }
}

}  // namespace host::simulator
