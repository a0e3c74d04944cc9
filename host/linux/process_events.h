// What happens to processes, for a kernel queue: forks and execs from the kernel's process
// connector, where the caller may listen to it, and exits from a descriptor of each process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "host/linux/procfs.h"
#include "host/machine/events.h"

namespace host::linux_machine {

// NOTE_FORK or NOTE_EXEC and the process concerned, of one message of the process connector; false
// for all that is neither or not whole. A new thread is no fork.
bool parseConnectorMessage(const void *message, size_t size, ProcessEvent &event);

// A message that starts or stops the connector's telling, ready to be sent. `number` comes back
// in the answer.
std::vector<uint8_t> makeConnectorRequest(bool listens, uint32_t number);
// Whether a message is the answer to that request, and the Linux error in it.
bool parseConnectorAnswer(const void *message, size_t size, uint32_t number, int &error);

class LinuxProcessEvents final : public ProcessEvents {
 public:
  // Null when there can be no descriptors. `usesConnector` false is for tests: as if not permitted.
  static Errno open(std::unique_ptr<ProcessEvents> &events, bool usesConnector = true);

  LinuxProcessEvents(FileHandle ready, FileHandle connector);
  ~LinuxProcessEvents() override;

  Errno watch(pid_t pid) override;
  void unwatch(pid_t pid) override;
  Errno wait(std::optional<std::chrono::nanoseconds> timeout,
             std::vector<ProcessEvent> &events) override;

  // Whether forks and execs are seen.
  bool hasConnector() const { return connector_.isOpen(); }

 private:
  void take(std::vector<ProcessEvent> &events);
  void takeMessages(std::vector<ProcessEvent> &events);
  void takeExits(std::vector<ProcessEvent> &events);
  void narrow();

  FileHandle ready_;      // an epoll descriptor of all others: readable when something happened
  FileHandle connector_;  // not open where the caller may not listen
  std::mutex mutex_;      // of what follows, and of reading
  std::map<pid_t, FileHandle> processes_;
};

}  // namespace host::linux_machine
