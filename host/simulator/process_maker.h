// Makes the processes of a plan, one after the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/simulator/device.h"
#include "host/simulator/loading.h"
#include "host/simulator/process_plan.h"
#include "host/simulator/process_texts.h"

namespace host::simulator {

// Where a process that was made has gone.
struct Spot {
  bool isEvent;
  size_t index;

  Process &in(Device &device) const;
};

class ProcessMaker {
 public:
  // Both must outlive it.
  ProcessMaker(Loading &loading, const Plan &plan) : loading_(loading), plan_(plan) {}

  // `name` is where it stands, `index` its place among those of the plan. `pid`: nothing when it is
  // known only later. `seed` is what sets its figures apart from those of the others.
  Process make(const Field &name, std::optional<int32_t> pid, size_t index, int64_t seed);

  // What the process made last has to do with others.
  void connect(Spot spot);

 private:
  std::string fill(const std::string &text, size_t most, const Place &place);
  Label fill(const Label &label);
  template <typename Owner>
  void fillAll(Owner &owner, const std::vector<Pattern<Owner>> &patterns);
  template <typename EntryOfItem>
  std::vector<typename EntryOfItem::Item> filledItems(const Items<EntryOfItem> &items);
  void growAllTimes(Process &process) const;

  Loading &loading_;
  const Plan &plan_;
  PatternValues values_;
  std::string name_;
};

}  // namespace host::simulator
