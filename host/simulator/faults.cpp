#include "host/simulator/faults.h"

#include <algorithm>

namespace host::simulator {

void Faults::add(const FailCall &fault, Nanoseconds now, std::optional<Nanoseconds> lasts) {
  Fault added;
  added.questions = questionsOf(fault.call, fault.form);
  added.pid = fault.pid;
  added.error = fault.error;
  if (lasts) added.until = addSaturating(now, *lasts);
  if (added.questions == 0 || added.error == kAnswered) return;

  // One that comes again and again takes the place of its like, so that they don't pile up.
  std::erase_if(faults_, [&](const Fault &known) {
    const bool isSame =
        known.questions == added.questions && known.pid == added.pid && known.error == added.error;
    if (isSame) added.until = std::max(added.until, known.until);
    return isSame || known.isOver(now);
  });
  faults_.push_back(added);
  questions_ = 0;
  for (const Fault &known : faults_) questions_ |= known.questions;
}

Errno Faults::find(Question question, std::optional<int32_t> pid, Nanoseconds now) const {
  if ((questions_ & only(question)) == 0) return kAnswered;
  const auto found = std::find_if(faults_.rbegin(), faults_.rend(), [&](const Fault &fault) {
    return (fault.questions & only(question)) != 0 && (!fault.pid || fault.pid == pid) &&
           !fault.isOver(now);
  });
  return found == faults_.rend() ? kAnswered : found->error;
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
