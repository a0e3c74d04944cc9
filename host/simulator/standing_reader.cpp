#include "host/simulator/standing_reader.h"

#include <array>
#include <string>
#include <vector>

#include "host/darwin/code_signing.h"
#include "host/darwin/syscalls.h"

namespace host::simulator {

namespace {

constexpr Word kSigningFlags[] = {{"valid", darwin::CS_VALID},
                                  {"ad-hoc", darwin::CS_ADHOC},
                                  {"get-task-allow", darwin::CS_GET_TASK_ALLOW},
                                  {"installer", darwin::CS_INSTALLER},
                                  {"hard", darwin::CS_HARD},
                                  {"kill", darwin::CS_KILL},
                                  {"expires", darwin::CS_CHECK_EXPIRATION},
                                  {"restrict", darwin::CS_RESTRICT},
                                  {"enforce", darwin::CS_ENFORCEMENT},
                                  {"library-validation", darwin::CS_REQUIRE_LV},
                                  {"entitlements", darwin::CS_ENTITLEMENTS_VALIDATED},
                                  {"runtime", darwin::CS_RUNTIME},
                                  {"linker", darwin::CS_LINKER_SIGNED},
                                  {"killed", darwin::CS_KILLED},
                                  {"platform", darwin::CS_PLATFORM_BINARY},
                                  {"debugged", darwin::CS_DEBUGGED},
                                  {"signed", darwin::CS_SIGNED}};
constexpr Word kApplicationStates[] = {{"none", darwin::PROC_APPSTATE_NONE},
                                       {"active", darwin::PROC_APPSTATE_ACTIVE},
                                       {"background", darwin::PROC_APPSTATE_BACKGROUND},
                                       {"no-ui", darwin::PROC_APPSTATE_NONUI},
                                       {"inactive", darwin::PROC_APPSTATE_INACTIVE}};

WorkQueue readWorkQueue(const Field &field) {
  TableReader reader(field);
  WorkQueue queue;
  reader.number("threads", queue.threads);
  reader.number("running", queue.running);
  reader.number("blocked", queue.blocked);
  reader.number("state", queue.state);
  reader.finish();
  return queue;
}

// One for both kinds, or one each.
std::array<uint64_t, 2> readCoalitions(const Field &field) {
  if (!field.isArray()) {
    const uint64_t both = field.address();
    return {both, both};
  }
  const std::vector<Field> each = field.elementsOf(2, 2, "a number, or an array of two");
  return {each[0].address(), each[1].address()};
}

void readJetsam(TableReader &reader, std::optional<Jetsam> &jetsam) {
  bool isInList = true;
  Jetsam read;
  reader.flag("jetsam", isInList);
  reader.number("band", read.band);
  reader.number("limit", read.limit, -1);
  read.inactiveLimit = read.limit;
  reader.number("jetsam-state", read.state);
  if (isInList) jetsam = read;
}

}  // namespace

void readStanding(TableReader &reader, Process &process) {
  reader.read("work-queue", process.workQueue, readWorkQueue);
  reader.read("coalition", process.coalitions, readCoalitions);
  readJetsam(reader, process.jetsam);
  reader.read("sandbox", process.sandboxed, readSandbox);
  process.codeSigningFlags = darwin::CS_VALID | darwin::CS_PLATFORM_BINARY;
  reader.read("signing", process.codeSigningFlags, readSigning);
  reader.read("signature", process.codeSignature, &Field::bytes);
  reader.read("application-state", process.applicationState, readApplicationState);
}

int32_t readSandbox(const Field &field) {
  if (const bool *isSandboxed = field.as<bool>()) return *isSandboxed ? 1 : 0;
  const std::string *text = field.as<std::string>();
  if (text == nullptr || *text != "unknown") field.fail("true, false or \"unknown\"");
  return -1;
}

uint32_t readSigning(const Field &field) {
  return field.severalOfOrNumber(kSigningFlags);
}

int32_t readApplicationState(const Field &field) {
  return static_cast<int32_t>(field.oneOf(kApplicationStates));
}

}  // namespace host::simulator
