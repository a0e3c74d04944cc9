// Runs a program to its end and keeps what it wrote.
#pragma once

#include <sys/types.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "harness/child.h"

namespace test {

struct Outcome {
  std::string output;
  std::string error;
  std::optional<Ending> ending;  // nothing: stopped by the harness, as it ran beyond the deadline

  bool exitedWith(int status) const { return ending && ending->exitedWith(status); }
};

// All of it, for the message of a failed test.
std::ostream &operator<<(std::ostream &out, const Outcome &outcome);

// Standard input is empty. The descriptors of `launch` are not looked at.
Outcome run(Launch launch, Duration patience = kPatience);

// A PID beyond what any kernel gives.
inline constexpr char kNoPid[] = "2147483646";

// The program that was built, or the one that the variable SONDEX_PROGRAM names in its place.
std::string sondexPath();
// Whether that program has a sanitizer in it: its memory is not what it would be otherwise.
bool sondexIsSanitized();
Outcome runSondex(const std::vector<std::string> &arguments, const Environment &environment = {},
                  std::optional<uid_t> user = std::nullopt);

// sondex-capture beside it, with a TERM that every machine describes.
Outcome runCapture(const std::vector<std::string> &arguments, const Environment &environment = {},
                   std::optional<uid_t> user = std::nullopt);

// Curses does not give back what it has when it can't start: to be left unsaid in a sanitizer
// build.
Environment withoutLeakDetection(Environment environment = {});

// The process list in plain text.
Outcome listProcesses(std::optional<uid_t> user = std::nullopt);

std::vector<std::string> splitLines(const std::string &text);

// What the sampler says of entries that are no process: as often as there are processes that ended
// meanwhile, and once for the list's spare entry.
inline constexpr char kNoSuchProcess[] = "proc_pidinfo: No such process";
// The same of processes that the caller may not look at.
inline constexpr char kNotPermitted[] = "proc_pidinfo: Operation not permitted";
// The stackshot at the end of a report on one process is for root only.
inline constexpr char kNoStackshot[] = "sswc: Operation not permitted\n";

// What the Wi-Fi line says each time it opens its socket.
inline constexpr char kWirelessAttempt[] = "on 32-bit platforms Sizeof the struct is 40, length: 4";

// How often standard error says a line: what is said over and over stands there once, with how
// often it came.
size_t timesSaid(const std::string &error, const std::string &message);

// Standard error without those lines, and without those on processes with too many threads.
std::string withoutSampling(const std::string &error);

// Standard error without what the thread of the network statistics says, at a time of its own,
// where there is no such service.
std::string withoutNetworkService(std::string error);

}  // namespace test
