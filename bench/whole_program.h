// What a refresh of a whole program costs, measured from outside: user and system time of all of
// its threads, as the kernel accounts it while they run.
#pragma once

#include <string>
#include <vector>

namespace bench {

enum class Pace {
  kOwn,      // the program refreshes by itself, several times a second
  kOnResize  // it refreshes at once when told that its window has a new size
};

// Seconds of processor time (user and system) of one refresh: the mean over `refreshes` of them
// after the first frame. The program draws on a pseudo-terminal and is ended afterwards. Negative
// when it can't be run.
double secondsPerRefresh(const std::vector<std::string> &arguments, Pace pace, int refreshes);

}  // namespace bench
