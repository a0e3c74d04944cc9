// Frees what a call leaves to its caller.
#pragma once

#include <cstdlib>

namespace sondex {

struct Freed {
  void operator()(void *memory) const { std::free(memory); }
};

}  // namespace sondex
