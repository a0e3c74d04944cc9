#include "host/simulator/faults.h"

#include <algorithm>
#include <limits>

namespace host::simulator {

static constexpr int32_t kAnyProcess = std::numeric_limits<int32_t>::min();

void Faults::add(const FailCall &fault, Nanoseconds now, std::optional<Nanoseconds> lasts) {
  Fault added;
  added.order = ++lastOrder_;
  added.questions = questionsOf(fault.call, fault.form);
  added.error = fault.error;
  if (lasts) added.until = addSaturating(now, *lasts);
  if (added.questions == 0 || added.error == kAnswered) return;

  // One that comes again and again takes the place of its like, so that they don't pile up.
  std::vector<Fault> &faults = faults_[fault.pid.value_or(kAnyProcess)];
  std::erase_if(faults, [&](const Fault &known) {
    const bool isSame = known.questions == added.questions && known.error == added.error;
    if (isSame) added.until = std::max(added.until, known.until);
    return isSame || known.isOver(now);
  });
  faults.push_back(added);
  questions_ |= added.questions;
}

const Faults::Fault *Faults::lastOf(int32_t pid, Question question, Nanoseconds now) const {
  const auto faults = faults_.find(pid);
  if (faults == faults_.end()) return nullptr;
  const auto found =
      std::find_if(faults->second.rbegin(), faults->second.rend(), [&](const Fault &fault) {
        return (fault.questions & only(question)) != 0 && !fault.isOver(now);
      });
  return found == faults->second.rend() ? nullptr : &*found;
}

Errno Faults::find(Question question, std::optional<int32_t> pid, Nanoseconds now) const {
  if ((questions_ & only(question)) == 0) return kAnswered;
  const Fault *found = lastOf(kAnyProcess, question, now);
  const Fault *own = pid ? lastOf(*pid, question, now) : nullptr;
  if (own != nullptr && (found == nullptr || own->order > found->order)) found = own;
  return found == nullptr ? kAnswered : found->error;
}

size_t QuestionCounts::of(std::string_view call) const {
  const QuestionSet questions = questionsOf(call);
  size_t count = 0;
  for (size_t i = 0; i < counts_.size(); ++i) {
    if ((questions >> i & 1) != 0) count += counts_[i];
  }
  return count;
}

}  // namespace host::simulator
