// Calls that fail because an event said so, and how often each call was asked for.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/errno.h"
#include "host/simulator/calls.h"
#include "host/simulator/device.h"

namespace host::simulator {

// Not for use by several threads at once.
class Faults {
 public:
  // From `now` on, for ever or as long as given. A call that is not known fails nowhere. The fault
  // added last counts where several apply.
  void add(const FailCall &fault, Nanoseconds now, std::optional<Nanoseconds> lasts);

  // The error that a question meets, or kAnswered. `pid` is nothing for questions that are about no
  // process.
  Errno find(Question question, std::optional<int32_t> pid, Nanoseconds now) const;

 private:
  struct Fault {
    uint64_t order = 0;
    QuestionSet questions = 0;
    Errno error = kAnswered;
    Nanoseconds until = Nanoseconds::max();  // the largest one: for ever

    bool isOver(Nanoseconds now) const { return until != Nanoseconds::max() && until <= now; }
  };

  // Null for none.
  const Fault *lastOf(int32_t pid, Question question, Nanoseconds now) const;

  // By PID, those of any process under a key of their own, in the order in which they came: there
  // may be some for each of thousands of processes.
  std::unordered_map<int32_t, std::vector<Fault>> faults_;
  uint64_t lastOrder_ = 0;
  QuestionSet questions_ = 0;  // of all that there have been
};

class QuestionCounts {
 public:
  void add(Question question) { ++counts_[indexOf(question)]; }
  size_t of(std::string_view call) const;

 private:
  std::array<size_t, kQuestions> counts_{};
};

}  // namespace host::simulator
