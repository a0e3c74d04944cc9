#include "tests/cost/steps.h"

static uint64_t steps = 0;

// The compiler puts a call of this into every basic block.
extern "C" void __sanitizer_cov_trace_pc() {
  steps++;
}

namespace cost {

uint64_t stepsOf(const std::function<void()> &act) {
  const uint64_t before = steps;
  act();
  return steps - before;
}

}  // namespace cost
