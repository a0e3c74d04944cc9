#include "host/simulator/process_maker.h"

#include <utility>
#include <variant>

#include "host/simulator/spread.h"

namespace host::simulator {

Process &Spot::in(Device &device) const {
  if (!isEvent) return device.processes[index];
  return std::get<StartProcess>(device.events[index].action).process;
}

Process ProcessMaker::make(const Field &name, std::optional<int32_t> pid, size_t index,
                           int64_t seed) {
  Process process = plan_.process;
  process.pid = pid.value_or(-1);
  values_ = {std::nullopt, pid, index};
  process.name = fill(name.text(kLongestName), kLongestName, name.place());
  name_ = process.name;
  values_.name = name_;
  fillAll(process, plan_.patterns);
  process.threads = filledItems(plan_.threads);
  process.descriptors = filledItems(plan_.descriptors);
  process.regions = filledItems(plan_.regions);
  if (!plan_.hasArguments) {
    loading_.take(Limit::kBytes, textBytes(process.path), 1, plan_.place);
    process.arguments = {process.path};
  }
  process.parent = process.pid == 0 || process.pid == 1 ? 0 : 1;
  spreadFigures(process, plan_.spread, seed);
  if (!plan_.hasFootprint) process.footprint = process.residentSize;
  growAllTimes(process);
  return process;
}

void ProcessMaker::connect(Spot spot) {
  if (plan_.parent) {
    loading_.withProcess(plan_.parent,
                         [spot](Device &device, int32_t pid) { spot.in(device).parent = pid; });
  }
  for (size_t i = 0; i < plan_.descriptors.items.size(); i++) {
    const DescriptorEntry &entry = plan_.descriptors.entryAt(i);
    if (entry.label.text.empty() && entry.peer.text.empty()) continue;
    loading_.addEnd(
        {fill(entry.label), fill(entry.peer),
         [spot, i](Device &device) -> Descriptor & { return spot.in(device).descriptors[i]; }});
  }
}

std::string ProcessMaker::fill(const std::string &text, size_t most, const Place &place) {
  if (!hasPattern(text)) return text;
  std::string filled = filledIn(text, values_);
  if (filled.size() > most) {
    failAt(place,
           "found a text of " + std::to_string(filled.size()) +
               " bytes once its patterns are filled in",
           "a text of at most " + std::to_string(most) + " bytes");
  }
  loading_.take(Limit::kBytes, filled.size(), 1, place);
  return filled;
}

Label ProcessMaker::fill(const Label &label) {
  if (label.text.empty()) return label;
  return {fill(label.text, kLongestName, *label.place), label.place};
}

template <typename Owner>
void ProcessMaker::fillAll(Owner &owner, const std::vector<Pattern<Owner>> &patterns) {
  for (const Pattern<Owner> &pattern : patterns) {
    pattern.put(owner, pattern.place, fill(pattern.text, pattern.most, pattern.place));
  }
}

template <typename EntryOfItem>
std::vector<typename EntryOfItem::Item> ProcessMaker::filledItems(const Items<EntryOfItem> &items) {
  std::vector<typename EntryOfItem::Item> filled = items.items;
  for (size_t i = 0; i < filled.size(); i++) fillAll(filled[i], items.entryAt(i).patterns);
  return filled;
}

void ProcessMaker::growAllTimes(Process &process) const {
  uint64_t shares = 0;
  for (size_t i = 0; i < process.threads.size(); i++) {
    Thread &thread = process.threads[i];
    shares += thread.share.start;
    growTimes(thread.share.start, plan_.threads.entryAt(i).given, thread.userTime,
              thread.systemTime);
  }
  growTimes(shares, plan_.given, process.userTime, process.systemTime);
}

}  // namespace host::simulator
