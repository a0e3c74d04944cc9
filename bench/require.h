// What a benchmark can't do without.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace bench {

// Ends the benchmark, with `what` and errno, when something did not succeed.
inline void require(bool succeeded, const char *what) {
  if (succeeded) return;
  std::perror(what);
  std::exit(1);
}

}  // namespace bench
