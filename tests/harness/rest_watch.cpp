#include "harness/rest_watch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "harness/process_facts.h"

namespace test {

namespace {

// A thread that is being woken on another processor still looks blocked, for as long as that takes.
constexpr std::chrono::seconds kStillness{2};
// A screen of its own looks for a key once a second, in ten naps, and a prompt ten times a second.
// After some of those seconds they have drawn what a key asked for, and what comes by itself.
constexpr uint64_t kNapsToRest = 40;

bool isNap(const BlockedCall &call) {
#ifdef SYS_nanosleep
  if (call.number == SYS_nanosleep) return true;
#endif
  return call.number == SYS_clock_nanosleep;
}

bool isReadOfKeys(const BlockedCall &call) {
  return call.number == SYS_read && call.arguments[0] == STDIN_FILENO;
}

std::string folderOf(pid_t program, pid_t thread) {
  return "/proc/" + std::to_string(program) + "/task/" + std::to_string(thread) + "/";
}

bool isAsleep(const std::string &status) {
  const std::vector<std::string> state = fieldWords(status, "State");
  return !state.empty() && state.front() == "S";
}

std::optional<uint64_t> napsOf(const std::string &status) {
  return fieldNumber(status, "voluntary_ctxt_switches");
}

}  // namespace

std::optional<BlockedCall> blockedCall(pid_t program, pid_t thread) {
  const std::string folder = folderOf(program, thread);
  BlockedCall call;
  const std::string before = readFile(folder + "status");
  call.naps = napsOf(before).value_or(0);
  std::istringstream text(readFile(folder + "syscall"));  // "running", or numbers
  text >> call.number >> std::hex;
  for (unsigned long long &argument : call.arguments) text >> argument;
  const std::string after = readFile(folder + "status");
  if (!text || !isAsleep(before) || !isAsleep(after) || napsOf(after) != call.naps) {
    return std::nullopt;
  }
  return call;
}

bool isPoll(const BlockedCall &call) {
#ifdef SYS_poll
  if (call.number == SYS_poll) return true;
#endif
  return call.number == SYS_ppoll;
}

void RestWatch::restart() {
  last_.reset();
  lastSince_ = Clock::now();
  firstNap_.reset();
}

// It reads keys for most of the time, and waits for them on a screen of its own.
void RestWatch::findInputThread() {
  std::error_code gone;
  const std::string threads = "/proc/" + std::to_string(program_) + "/task";
  for (const auto &entry : std::filesystem::directory_iterator(threads, gone)) {
    const pid_t thread = std::stoi(entry.path().filename());
    const std::optional<BlockedCall> call = blockedCall(program_, thread);
    if (thread == program_) continue;
    if ((call && isReadOfKeys(*call)) || polled(thread) == STDIN_FILENO) inputThread_ = thread;
  }
}

std::optional<RestWatch::Look> RestWatch::look() {
  if (inputThread_ < 0) findInputThread();
  const std::optional<BlockedCall> main = blockedCall(program_, program_);
  const std::optional<BlockedCall> input = blockedCall(program_, inputThread_);
  if (!main || !input || !isPoll(*main)) return std::nullopt;
  if (!isReadOfKeys(*input) && !isPoll(*input) && !isNap(*input)) return std::nullopt;
  return Look{*main, *input};
}

bool RestWatch::isAtRest() {
  const std::optional<Look> now = look();
  const bool isSame = now && now == last_;
  if (!isSame) lastSince_ = Clock::now();
  last_ = now;
  if (!isSame) return false;
  if (isReadOfKeys(now->input)) return Clock::now() - lastSince_ >= kStillness;
  if (!firstNap_) firstNap_ = now->input.naps;
  return now->input.naps - *firstNap_ >= kNapsToRest;
}

bool RestWatch::isSettled() {
  if (inputThread_ < 0) findInputThread();
  // In this order: what the one thread has asked for by now, the other has taken up, and it is
  // done.
  const std::optional<BlockedCall> input = blockedCall(program_, inputThread_);
  if (!input || !isReadOfKeys(*input)) return false;
  const std::optional<int> pipe = polled(program_);  // what wakes it comes first
  int wakes = 0;
  if (!pipe || ioctl(openedPipe(*pipe).get(), FIONREAD, &wakes) != 0 || wakes != 0) return false;
  const std::optional<BlockedCall> main = blockedCall(program_, program_);
  return main && isPoll(*main);
}

FileHandle RestWatch::openedPipe(int descriptor) const {
  const std::string path =
      "/proc/" + std::to_string(program_) + "/fd/" + std::to_string(descriptor);
  return FileHandle(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
}

// The first that a thread polls.
std::optional<int> RestWatch::polled(pid_t thread) const {
  const std::optional<BlockedCall> call = blockedCall(program_, thread);
  if (!call || !isPoll(*call)) return std::nullopt;
  pollfd first{};
  const iovec here{&first, sizeof first};
  const iovec there{reinterpret_cast<void *>(call->arguments[0]), sizeof first};
  if (process_vm_readv(program_, &here, 1, &there, 1, 0) != sizeof first) return std::nullopt;
  return first.fd;
}

std::optional<Duration> RestWatch::wait() const {
  if (!last_) return std::nullopt;
  const BlockedCall &call = last_->main;
#ifdef SYS_poll
  if (call.number == SYS_poll) return Duration(static_cast<int>(call.arguments[2]));
#endif
  if (call.arguments[2] == 0) return Duration(-1);
  timespec time{};
  const iovec here{&time, sizeof time};
  const iovec there{reinterpret_cast<void *>(call.arguments[2]), sizeof time};
  if (process_vm_readv(program_, &here, 1, &there, 1, 0) != sizeof time) return std::nullopt;
  return std::chrono::duration_cast<Duration>(std::chrono::seconds(time.tv_sec) +
                                              std::chrono::nanoseconds(time.tv_nsec));
}

}  // namespace test
