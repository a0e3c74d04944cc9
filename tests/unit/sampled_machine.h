// A machine whose processes a test builds up one by one, for tests of what samples and shows them.
// It keeps a record of what it was asked, refuses single questions when told to, and lets a process
// vanish between two questions.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/darwin/errors.h"
#include "tests/unit/display_state.h"
#include "tests/unit/fake_machine.h"

namespace sampled {

// Of the process in tests that need but one.
inline constexpr int32_t kPid = 123;

struct Process {
  darwin::proc_taskallinfo info{};
  // Without one there is no work queue.
  bool hasQueue = true;
  darwin::proc_workqueueinfo queue{};
  std::vector<uint64_t> handles;
  std::map<uint64_t, darwin::proc_threadinfo> threads;
  std::vector<darwin::proc_fdinfo> descriptors;
  // What stands behind each descriptor number; missing numbers are not open.
  std::map<int, uint32_t> open;
  size_t events = 0;  // registered with each kqueue
  darwin::proc_pidcoalitioninfo coalitions{};
  darwin::rusage_info_v4 usage{};
  int sandboxed = 0;
  uint32_t signing = 0;
  // Questions that are still answered; afterwards the process is gone. Negative: it stays.
  int questionsLeft = -1;
};

struct Asked {
  std::string question;
  int32_t pid;
  uint64_t argument;

  bool operator==(const Asked &) const = default;
};

class SampledMachine : public fake_machine::FakeMachine {
 public:
  std::vector<int32_t> pids;
  // What processIDs answers from the second time on, if set.
  std::vector<int32_t> laterPids;
  bool pidsChange = false;
  std::map<int32_t, Process> processes;
  // By question: what it is refused with.
  std::map<std::string, host::Errno, std::less<>> refusals;
  std::vector<Asked> asked;
  // Signals that were sent, and to which process.
  std::vector<std::pair<int32_t, int>> sent;
  // Answers of isPrivileged one after the other; the last one is repeated.
  std::vector<bool> privileges{true};

  bool entryPoints = true;  // whether the optional ones are there
  // Whether there is an identity library; its answer to every key is the key's beginning
  // in brackets, so that the identity line stays a line.
  bool gestalt = true;

  std::vector<darwin::processor_cpu_load_info> processors;

  // A process of that PID and short name, also listed by processIDs.
  Process &add(int32_t pid, const char *command) {
    pids.push_back(pid);
    Process &process = processes[pid];
    process.info.pbsd.pbi_pid = static_cast<uint32_t>(pid);
    std::strncpy(process.info.pbsd.pbi_comm, command, sizeof process.info.pbsd.pbi_comm - 1);
    return process;
  }

  // A thread of `process` with that handle and share of a processor.
  static void addThread(Process &process, uint64_t handle, int32_t share) {
    process.handles.push_back(handle);
    process.threads[handle].pth_cpu_usage = share;
    process.threads[handle].pth_user_time = handle;
    process.info.ptinfo.pti_threadnum++;
  }

  // An open descriptor that the list names truly.
  static void addDescriptor(Process &process, uint32_t type) {
    const int number = static_cast<int>(process.descriptors.size());
    process.descriptors.push_back({number, type});
    process.open[number] = type;
  }

  size_t timesAsked(std::string_view question) const {
    return static_cast<size_t>(std::count_if(
        asked.begin(), asked.end(), [question](const Asked &a) { return a.question == question; }));
  }

  bool isPrivileged() override {
    const bool answer = privileges.front();
    if (privileges.size() > 1) privileges.erase(privileges.begin());
    return answer;
  }
  bool hasEntryPoint(std::string_view entryPoint) override {
    return entryPoints || entryPoint == "MGCopyAnswerWithError";
  }
  bool hasGestalt() override { return gestalt; }
  host::Errno gestaltAnswer(std::string_view key, host::GestaltAnswer &out) override {
    const host::Errno error = refusalOf("gestaltAnswer");
    if (error == host::kAnswered) out = "[" + std::string(key.substr(0, 3)) + "]";
    return error;
  }

  host::Errno processIDs(std::vector<int32_t> &out) override {
    const bool first = timesAsked("processIDs") == 0;
    return give("processIDs", out, first || !pidsChange ? pids : laterPids);
  }

  host::Errno taskAllInfo(pid_t pid, darwin::proc_taskallinfo &out) override {
    return about("taskAllInfo", pid, 0, [&](Process &p) {
      out = p.info;
      return host::kAnswered;
    });
  }
  host::Errno workQueue(pid_t pid, darwin::proc_workqueueinfo &out) override {
    return about("workQueue", pid, 0, [&](Process &p) -> host::Errno {
      if (!p.hasQueue) return darwin::DARWIN_ESRCH;
      out = p.queue;
      return host::kAnswered;
    });
  }
  host::Errno threadHandles(pid_t pid, std::vector<uint64_t> &out) override {
    return about("threadHandles", pid, 0, [&](Process &p) {
      out = p.handles;
      return host::kAnswered;
    });
  }
  host::Errno threadInfo(pid_t pid, uint64_t handle, darwin::proc_threadinfo &out) override {
    return about("threadInfo", pid, handle, [&](Process &p) -> host::Errno {
      const auto thread = p.threads.find(handle);
      if (thread == p.threads.end()) return darwin::DARWIN_ESRCH;
      out = thread->second;
      return host::kAnswered;
    });
  }
  host::Errno coalition(pid_t pid, darwin::proc_pidcoalitioninfo &out) override {
    return about("coalition", pid, 0, [&](Process &p) {
      out = p.coalitions;
      return host::kAnswered;
    });
  }
  host::Errno resourceUsage(pid_t pid, darwin::rusage_info_v4 &out) override {
    return about("resourceUsage", pid, 0, [&](Process &p) {
      out = p.usage;
      return host::kAnswered;
    });
  }
  int sandboxCheck(pid_t pid) override {
    int answer = -1;
    about("sandboxCheck", pid, 0, [&](Process &p) {
      answer = p.sandboxed;
      return host::kAnswered;
    });
    return answer;
  }
  host::Errno sendSignal(pid_t pid, int signal) override {
    sent.emplace_back(pid, signal);
    return refusalOf("sendSignal");
  }
  host::Errno codeSigningFlags(pid_t pid, uint32_t &flags) override {
    return about("codeSigningFlags", pid, 0, [&](Process &p) {
      flags = p.signing;
      return host::kAnswered;
    });
  }

  host::Errno descriptors(pid_t pid, size_t limit, std::vector<darwin::proc_fdinfo> &out) override {
    return about("descriptors", pid, limit, [&](Process &p) {
      out = p.descriptors;
      return host::kAnswered;
    });
  }
  host::Errno descriptorType(pid_t pid, int fd, uint32_t &type) override {
    return about("descriptorType", pid, static_cast<uint64_t>(fd), [&](Process &p) -> host::Errno {
      const auto found = p.open.find(fd);
      if (found == p.open.end()) return darwin::DARWIN_EBADF;
      type = found->second;
      return host::kAnswered;
    });
  }
  host::Errno socketDescriptor(pid_t pid, int fd, darwin::socket_fdinfo &out) override {
    return detail("socketDescriptor", pid, fd, darwin::PROX_FDTYPE_SOCKET, out);
  }
  host::Errno pipeDescriptor(pid_t pid, int fd, darwin::pipe_fdinfo &out) override {
    return detail("pipeDescriptor", pid, fd, darwin::PROX_FDTYPE_PIPE, out);
  }
  host::Errno kqueueEvents(pid_t pid, int fd, std::vector<darwin::kevent_extinfo> &out) override {
    return about("kqueueEvents", pid, static_cast<uint64_t>(fd), [&](Process &p) -> host::Errno {
      const auto found = p.open.find(fd);
      if (found == p.open.end() || found->second != darwin::PROX_FDTYPE_KQUEUE)
        return darwin::DARWIN_EBADF;
      out.resize(p.events);
      for (darwin::kevent_extinfo &event : out) std::memset(&event, 0x5a, sizeof event);
      return host::kAnswered;
    });
  }

  host::Errno processorCount(unsigned int &out) override {
    return give("processorCount", out, static_cast<unsigned int>(processors.size()));
  }
  host::Errno processorLoad(unsigned int processor, darwin::processor_cpu_load_info &out) override {
    if (processor >= processors.size()) return darwin::DARWIN_EINVAL;
    return give("processorLoad", out, processors[processor]);
  }

 protected:
  host::Errno admit(const char *question) override {
    asked.push_back({question, 0, 0});
    return refusalOf(question);
  }

 private:
  host::Errno refusalOf(std::string_view question) const {
    const auto found = refusals.find(question);
    return found == refusals.end() ? host::kAnswered : found->second;
  }

  template <typename Answer>
  host::Errno about(const char *question, pid_t pid, uint64_t argument, Answer &&answer) {
    asked.push_back({question, pid, argument});
    const host::Errno error = refusalOf(question);
    if (error != host::kAnswered) return error;
    const auto found = processes.find(pid);
    if (found == processes.end() || found->second.questionsLeft == 0) return darwin::DARWIN_ESRCH;
    if (found->second.questionsLeft > 0) found->second.questionsLeft--;
    return answer(found->second);
  }

  // The answer carries the number that was asked for in fi_offset.
  template <typename T>
  host::Errno detail(const char *question, pid_t pid, int fd, uint32_t type, T &out) {
    return about(question, pid, static_cast<uint64_t>(fd), [&](Process &p) -> host::Errno {
      const auto found = p.open.find(fd);
      if (found == p.open.end() || found->second != type) return darwin::DARWIN_EBADF;
      out = {};
      out.pfi.fi_offset = fd;
      out.pfi.fi_type = static_cast<int32_t>(type);
      return host::kAnswered;
    });
  }
};

// Puts such a machine in place, and the shared words at their initial values, for a test's length.
class SampledTest : public fake_machine::MachineTest<SampledMachine> {
 protected:
  sondex::DisplayStateGuard guard;
};

// Sets an environment variable (null: takes it out) and puts the former value back.
class Variable {
 public:
  Variable(const char *name, const char *value) : m_name(name) {
    const char *before = std::getenv(name);
    m_wasSet = before != nullptr;
    if (m_wasSet) m_before = before;
    set(value);
  }
  ~Variable() { set(m_wasSet ? m_before.c_str() : nullptr); }
  Variable(const Variable &) = delete;
  Variable &operator=(const Variable &) = delete;

 private:
  void set(const char *value) {
    if (value != nullptr) {
      setenv(m_name, value, 1);
    } else {
      unsetenv(m_name);
    }
  }

  const char *m_name;
  bool m_wasSet = false;
  std::string m_before;
};

// What `procedure` writes to standard error.
template <typename Procedure>
std::string errorOutputOf(Procedure &&procedure) {
  testing::internal::CaptureStderr();
  procedure();
  return testing::internal::GetCapturedStderr();
}

// What `procedure` writes to standard output.
template <typename Procedure>
std::string outputOf(Procedure &&procedure) {
  testing::internal::CaptureStdout();
  procedure();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

}  // namespace sampled
