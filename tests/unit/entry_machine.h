// A machine for tests of the C entry points: it has an answer to every question about processes,
// and counts how often it was asked.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/darwin/errors.h"
#include "tests/unit/fake_machine.h"

namespace entry_test {

using fake_machine::kForeignErrno;

class EntryMachine : public fake_machine::FakeMachine {
 public:
  std::atomic<int> asked{0};

  std::set<std::string, std::less<>> entryPoints;

  std::vector<int32_t> pids;
  // bsdInfo is answered for these, taskAllInfo too.
  std::map<int32_t, darwin::proc_bsdinfo> processes;
  std::set<int32_t> zombies;
  std::map<pid_t, pid_t> groups;
  darwin::proc_taskinfo task{};
  std::string path;
  darwin::proc_workqueueinfo queue{};
  std::vector<uint64_t> handles;
  std::vector<uint64_t> threadNumbers;
  darwin::proc_pidcoalitioninfo coalitions{};
  darwin::rusage_info_v4 usage{};
  int sandboxed = 0;
  uint32_t signing = 0;
  pid_t signingAsked = -1;
  std::vector<uint8_t> signature;
  std::string container;
  int32_t state = 0;
  pid_t stateAsked = -1;
  host::ProcessArguments started;
  darwin::proc_regionwithpathinfo memoryRegion{};
  uint64_t addressAsked = 0;
  uint32_t user = 0;
  int64_t seconds = 0;
  int samples = 0;

  std::vector<darwin::proc_fdinfo> open;
  size_t limitAsked = 0;
  size_t slots = 0;
  // Left out, a machine does not tell types.
  std::map<int, uint32_t> types;
  bool tellsTypes = true;
  std::vector<darwin::kevent_extinfo> events;

  unsigned int processors = 0;

  bool hasEntryPoint(std::string_view wanted) override {
    return told(entryPoints.count(wanted) != 0);
  }
  uint32_t callerUser() override { return told(user); }
  int64_t timeOfDay() override { return told(seconds); }
  void beginSample() override { samples++; }
  host::Errno processIDs(std::vector<int32_t> &out) override { return give(out, pids); }

  host::Errno taskAllInfo(pid_t pid, darwin::proc_taskallinfo &out) override {
    const host::Errno error = bsdInfo(pid, false, out.pbsd);
    if (error == host::kAnswered) out.ptinfo = task;
    return error;
  }
  host::Errno bsdInfo(pid_t pid, bool zombiesToo, darwin::proc_bsdinfo &out) override {
    const auto process = processes.find(pid);
    if (process == processes.end()) return darwin::DARWIN_ESRCH;
    if (zombies.count(pid) != 0 && !zombiesToo) return darwin::DARWIN_ESRCH;
    return give(out, process->second);
  }
  host::Errno processGroup(pid_t pid, pid_t &out) override {
    const auto group = groups.find(pid);
    return group == groups.end() ? refuse(darwin::DARWIN_ESRCH) : give(out, group->second);
  }
  host::Errno executablePath(pid_t, std::string &out) override { return give(out, path); }
  host::Errno workQueue(pid_t, darwin::proc_workqueueinfo &out) override {
    return give(out, queue);
  }
  host::Errno threadHandles(pid_t, std::vector<uint64_t> &out) override {
    return give(out, handles);
  }
  host::Errno threadIDs(pid_t, std::vector<uint64_t> &out) override {
    return give(out, threadNumbers);
  }
  host::Errno threadInfo(pid_t, uint64_t key, darwin::proc_threadinfo &out) override {
    return giveThread(handles, key, out);
  }
  host::Errno threadInfoByID(pid_t, uint64_t key, darwin::proc_threadinfo &out) override {
    return giveThread(threadNumbers, key, out);
  }
  host::Errno coalition(pid_t, darwin::proc_pidcoalitioninfo &out) override {
    return give(out, coalitions);
  }
  host::Errno resourceUsage(pid_t, darwin::rusage_info_v4 &out) override {
    return give(out, usage);
  }
  int sandboxCheck(pid_t) override { return told(sandboxed); }
  host::Errno codeSigningFlags(pid_t pid, uint32_t &out) override {
    signingAsked = pid;
    return give(out, signing);
  }
  host::Errno codeSignature(pid_t, std::vector<uint8_t> &out) override {
    return give(out, signature);
  }
  host::Errno containerPath(pid_t, std::string &out) override { return give(out, container); }
  host::Errno applicationState(pid_t pid, int32_t &out) override {
    stateAsked = pid;
    return give(out, state);
  }
  host::Errno arguments(pid_t, host::ProcessArguments &out) override { return give(out, started); }
  host::Errno region(pid_t, uint64_t address, darwin::proc_regionwithpathinfo &out) override {
    addressAsked = address;
    return give(out, memoryRegion);
  }

  host::Errno descriptors(pid_t, size_t limit, std::vector<darwin::proc_fdinfo> &out) override {
    limitAsked = limit;
    return give(out, open);
  }
  host::Errno descriptorTableSize(pid_t, size_t &out) override { return give(out, slots); }
  host::Errno descriptorType(pid_t pid, int fd, uint32_t &out) override {
    if (!tellsTypes) return host::Machine::descriptorType(pid, fd, out);
    const auto type = types.find(fd);
    return type == types.end() ? darwin::DARWIN_EBADF : give(out, type->second);
  }
  host::Errno vnodeDescriptor(pid_t, int fd, darwin::vnode_fdinfowithpath &out) override {
    return giveDescriptor(fd, darwin::PROX_FDTYPE_VNODE, out);
  }
  host::Errno socketDescriptor(pid_t, int fd, darwin::socket_fdinfo &out) override {
    const host::Errno error = giveDescriptor(fd, darwin::PROX_FDTYPE_SOCKET, out);
    return error == darwin::DARWIN_EBADF && types.count(fd) != 0 ? darwin::DARWIN_ENOTSOCK : error;
  }
  host::Errno semaphoreDescriptor(pid_t, int fd, darwin::psem_fdinfo &out) override {
    return giveDescriptor(fd, darwin::PROX_FDTYPE_PSEM, out);
  }
  host::Errno sharedMemoryDescriptor(pid_t, int fd, darwin::pshm_fdinfo &out) override {
    return giveDescriptor(fd, darwin::PROX_FDTYPE_PSHM, out);
  }
  host::Errno pipeDescriptor(pid_t, int fd, darwin::pipe_fdinfo &out) override {
    return giveDescriptor(fd, darwin::PROX_FDTYPE_PIPE, out);
  }
  host::Errno kqueueDescriptor(pid_t, int fd, darwin::kqueue_fdinfo &out) override {
    return giveDescriptor(fd, darwin::PROX_FDTYPE_KQUEUE, out);
  }
  host::Errno kqueueEvents(pid_t, int fd, std::vector<darwin::kevent_extinfo> &out) override {
    if (!isOpenAs(fd, darwin::PROX_FDTYPE_KQUEUE)) return refuse(darwin::DARWIN_EBADF);
    return give(out, events);
  }
  host::Errno channelDescriptor(pid_t, int fd, darwin::channel_fdinfo &out) override {
    return giveDescriptor(fd, darwin::PROX_FDTYPE_CHANNEL, out);
  }

  host::Errno memoryStatusList(std::vector<darwin::memorystatus_priority_entry> &out) override {
    const std::lock_guard<std::mutex> lock(entriesMutex);
    return FakeMachine::memoryStatusList(out);
  }
  host::Errno processorCount(unsigned int &out) override { return give(out, processors); }
  host::Errno processorLoad(unsigned int processor, darwin::processor_cpu_load_info &out) override {
    return give(out, darwin::processor_cpu_load_info{{processor, 20, 30, 0}});
  }

  std::mutex entriesMutex;

 protected:
  host::Errno admit(const char *question) override {
    ++asked;
    return FakeMachine::admit(question);
  }

 private:
  host::Errno refuse(host::Errno otherwise) {
    const host::Errno error = admit("");
    return error == host::kAnswered ? otherwise : error;
  }

  template <typename T>
  host::Errno give(T &out, const T &answer) {
    return FakeMachine::give("", out, answer);
  }

  bool isOpenAs(int fd, uint32_t type) const {
    const auto found = types.find(fd);
    return found != types.end() && found->second == type;
  }

  template <typename T>
  host::Errno giveDescriptor(int fd, uint32_t type, T &out) {
    if (!isOpenAs(fd, type)) return refuse(darwin::DARWIN_EBADF);
    T answer{};
    answer.pfi.fi_type = static_cast<int32_t>(type);
    answer.pfi.fi_offset = fd;
    return give(out, answer);
  }

  host::Errno giveThread(const std::vector<uint64_t> &keys, uint64_t key,
                         darwin::proc_threadinfo &out) {
    for (const uint64_t known : keys) {
      if (known != key) continue;
      darwin::proc_threadinfo answer{};
      answer.pth_user_time = key;
      return give(out, answer);
    }
    return refuse(darwin::DARWIN_ESRCH);
  }
};

using EntryTest = fake_machine::MachineTest<EntryMachine>;

}  // namespace entry_test
