#include "host/linux/registers.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <utility>

#include "host/darwin/errors.h"
#include "host/linux/blocked_call.h"
#include "host/linux/own_thread.h"
#include "host/linux/process_text.h"
#include "host/linux/register_set.h"
#include "host/linux/stopped_threads.h"

namespace host::linux_machine {

namespace {

// On a busy machine a thread that computes stops only when it has a processor again.
constexpr std::chrono::seconds kPatience(2);

bool isThere(const ThreadPlace &place) {
  return faccessat(place.directory.get(), "stat", F_OK, 0) == 0;
}

Errno trace(const ThreadPlace &place, ThreadRegisters &registers) {
  const StoppedThreads halt({place.thread}, kPatience);
  if (halt.stopped().empty()) return darwin::DARWIN_EBUSY;
  // A thread that is traced keeps its number.
  if (!isThere(place)) return darwin::DARWIN_ESRCH;
  RegisterSet set{};
  iovec room = {set.data(), set.size()};
  if (ptrace(PTRACE_GETREGSET, place.thread, NT_PRSTATUS, &room) != 0) return darwinError(errno);
  return registersOfSet(set, room.iov_len, registers) ? kAnswered : darwin::DARWIN_ENOTSUP;
}

// Traces from a thread of its own: whatever it left traced, even what will stop only later, the
// kernel sets free when that thread ends.
Errno traceApart(const ThreadPlace &place, ThreadRegisters &registers) {
  Errno error = darwin::DARWIN_EIO;
  runInOwnThread([&] { error = trace(place, registers); });
  return error;
}

Errno readBlockedCall(const ThreadPlace &place, ThreadRegisters &registers) {
  FileReader reader;
  std::string_view text;
  const Errno error = reader.readRecord(place.directory.get(), "syscall", text);
  if (error == darwin::DARWIN_ENOENT) {
    return isThere(place) ? darwin::DARWIN_ENOTSUP : darwin::DARWIN_ESRCH;
  }
  if (error != kAnswered) return error;
  BlockedCall call{};
  if (!parseBlockedCall(text, call)) return darwin::DARWIN_EBUSY;
  registers = registersOfCall(call, place.is64Bit);
  return kAnswered;
}

// The letter of its state.
Errno readState(const ThreadPlace &place, char &state) {
  FileReader reader;
  std::string_view text;
  ProcessStat stat{};
  const Errno error = reader.readRecord(place.directory.get(), "stat", text);
  if (error == darwin::DARWIN_ENOENT) return darwin::DARWIN_ESRCH;
  if (error != kAnswered) return error;
  if (!parseProcessStat(text, stat)) return darwin::DARWIN_EIO;
  state = stat.state;
  return kAnswered;
}

bool canStop(const ThreadPlace &place, char state) {
  constexpr char kUndisturbed = 'D';
  constexpr char kTraced = 't';
  return place.process != getpid() && state != kUndisturbed && state != kTraced;
}

}  // namespace

Errno findThreadPlace(int processDirectory, uint64_t id, ThreadPlace &place) {
  pid_t thread = 0;
  if (!parseNumber(std::to_string(id), thread) || thread == 0) return darwin::DARWIN_ESRCH;
  const std::string name = std::string("task/").append(std::to_string(id));
  FileHandle directory = openStartingPoint(processDirectory, name.c_str());
  if (!directory.isOpen()) {
    return errno == ENOENT ? darwin::DARWIN_ESRCH : darwinError(errno);
  }
  place.directory = std::move(directory);
  place.thread = thread;
  return kAnswered;
}

Errno readRegisters(const ThreadPlace &place, ThreadRegisters &registers) {
  char state = '?';
  Errno error = readState(place, state);
  if (error != kAnswered) return error;
  if (state == 'Z' || state == 'X' || state == 'x') return darwin::DARWIN_ESRCH;
  if (canStop(place, state)) {
    error = traceApart(place, registers);
    if (error == kAnswered || error == darwin::DARWIN_ESRCH) return error;
  }
  return readBlockedCall(place, registers);
}

}  // namespace host::linux_machine
