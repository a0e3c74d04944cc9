#include "host/linux/child_answer.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "host/linux/procfs.h"
#include "host/posix.h"

namespace host::linux_machine {

using Clock = std::chrono::steady_clock;

// The child stops itself in time; this is how much later it is stopped from outside.
static constexpr std::chrono::seconds kGrace{1};

static constexpr size_t kWordsAtOnce = 8192;

static void limit(int resource, rlim_t most) {
  const struct rlimit limits = {most, most};
  setrlimit(static_cast<__rlimit_resource>(resource), &limits);
}

static rlim_t addressSpace() {
  FileReader reader;
  std::string_view text;
  rlim_t pages = 0;
  if (reader.readRecord(AT_FDCWD, "/proc/self/statm", text) != kAnswered) return 0;
  TextCursor(text).number(pages);
  return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

// What the program does on signals is not to happen here; those of its terminal are not for this
// process at all.
static void standAlone(pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);
  setpgid(0, 0);
  for (int number = 1; number < NSIG; number++) signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

static bool writeAll(int descriptor, const void *bytes, size_t size) {
  const char *next = static_cast<const char *>(bytes);
  while (size != 0) {
    const ssize_t written = write(descriptor, next, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    next += written;
    size -= static_cast<size_t>(written);
  }
  return true;
}

[[noreturn]] static void runChild(const std::function<std::vector<uint64_t>()> &work,
                                  const ChildLimits &limits, int output, pid_t parent) {
  standAlone(parent);
  alarm(static_cast<unsigned int>(limits.time.count()));
  limit(RLIMIT_CORE, 0);
  limit(RLIMIT_FSIZE, 0);
  limit(RLIMIT_CPU, static_cast<rlim_t>(limits.time.count()));
  limit(RLIMIT_AS, addressSpace() + limits.memory);
  try {
    const std::vector<uint64_t> answer = work();
    const uint64_t size = answer.size();
    const bool isTold = writeAll(output, &size, sizeof size) &&
                        writeAll(output, answer.data(), answer.size() * sizeof answer[0]);
    _exit(isTold ? 0 : 1);
  } catch (...) {
    _exit(1);
  }
}

// Reads up to the end of what the child writes; false when that does not come in time or is more
// than expected.
static bool readAnswer(int input, const ChildLimits &limits, std::vector<uint64_t> &words) {
  const Clock::time_point deadline = Clock::now() + limits.time + kGrace;
  const size_t most = (limits.answer + 1) * sizeof(uint64_t);
  size_t filled = 0;  // bytes
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    struct pollfd ready = {input, POLLIN, 0};
    const int count = poll(&ready, 1, static_cast<int>(left));
    if (count < 0 && errno != EINTR) return false;
    if (count <= 0) continue;
    if (words.size() * sizeof(uint64_t) - filled < sizeof(uint64_t)) {
      words.resize(words.size() + kWordsAtOnce);
    }
    const size_t room = words.size() * sizeof(uint64_t) - filled;
    const ssize_t got = ::read(input, reinterpret_cast<char *>(words.data()) + filled, room);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) break;
    filled += static_cast<size_t>(got);
    if (filled > most) return false;
  }
  if (filled == 0 || filled % sizeof(uint64_t) != 0) return false;
  words.resize(filled / sizeof(uint64_t));
  return words.front() == words.size() - 1;
}

std::optional<std::vector<uint64_t>> answerOfChild(
    const std::function<std::vector<uint64_t>()> &work, const ChildLimits &limits) {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0) return std::nullopt;
  const FileHandle input(ends[0]);
  FileHandle output(ends[1]);

  // Held back until the child has left the program's handlers behind.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) runChild(work, limits, output.get(), parent);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (child < 0) return std::nullopt;

  output.close();
  std::vector<uint64_t> words;
  const bool isWhole = readAnswer(input.get(), limits, words);
  if (!isWhole) __real_kill(child, SIGKILL);
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) continue;
  if (!isWhole) return std::nullopt;
  words.erase(words.begin());
  return words;
}

}  // namespace host::linux_machine
