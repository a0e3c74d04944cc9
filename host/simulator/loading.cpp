#include "host/simulator/loading.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "host/darwin/proc_info.h"
#include "host/simulator/descriptor_reader.h"
#include "host/simulator/limits.h"
#include "host/simulator/wide.h"

namespace host::simulator {

namespace {

struct LimitRow {
  uint64_t most;
  std::string_view of;
};
constexpr LimitRow kLimits[] = {
    {kMostProcesses, "processes"},
    {kMostThreads, "threads"},
    {kMostDescriptors, "descriptors"},
    {kMostRegions, "regions"},
    {100'000, "events"},
    {uint64_t{128} << 20, "bytes of texts, contents and queued events"},
};

// Handles look like addresses, and are apart from those that the machine chooses.
constexpr uint64_t kFirstPeerHandle = 0x4000000000000100;
constexpr uint64_t kPeerHandleDistance = 0x100;

}  // namespace

void Loading::take(Limit limit, uint64_t count, uint64_t times, const Place &place) {
  const LimitRow &row = kLimits[static_cast<size_t>(limit)];
  uint64_t &taken = taken_[static_cast<size_t>(limit)];
  const Wide sum = Wide{taken} + Wide{count} * times;
  if (sum > Wide{row.most}) {
    const std::string most = std::to_string(row.most) + " " + std::string(row.of);
    failAt(place, "makes more than " + most, "at most that many in all");
  }
  taken = static_cast<uint64_t>(sum);
}

void Loading::addName(const std::string &name, std::optional<int32_t> pid) {
  const auto [place, isNew] = names_.try_emplace(name, Named{pid});
  if (!isNew && (!pid || place->second.pid != pid)) place->second.isAmbiguous = true;
}

void Loading::addListed(Process process) {
  addName(process.name, process.pid);
  listed_.emplace(process.pid, device.processes.size());
  device.processes.push_back(std::move(process));
}

const Process *Loading::findListed(int32_t pid) const {
  const auto place = listed_.find(pid);
  return place != listed_.end() ? &device.processes[place->second] : nullptr;
}

const Process *Loading::findListed(const Field &field) const {
  if (const int64_t *pid = field.as<int64_t>()) {
    return findListed(static_cast<int32_t>(std::min(*pid, kLargestPid)));
  }
  const std::string *name = field.as<std::string>();
  const auto place = name != nullptr ? names_.find(*name) : names_.end();
  if (place == names_.end()) return nullptr;
  const std::optional<int32_t> pid = place->second.pid;
  return pid ? findListed(*pid) : nullptr;
}

void Loading::withProcess(const Field &field, std::function<void(Device &, int32_t)> put) {
  if (const int64_t *pid = field.as<int64_t>();
      pid != nullptr && *pid >= 0 && *pid <= kLargestPid) {
    put(device, static_cast<int32_t>(*pid));
    return;
  }
  if (field.as<std::string>() == nullptr) field.fail("a PID from 0 to 99999, or a process's name");
  references_.push_back({field.text(kLongestName), field.place(), std::move(put)});
}

int32_t Loading::pidOf(const Reference &reference) const {
  constexpr std::string_view kExpected = "a PID, or the name of one process alone";
  const auto place = names_.find(reference.name);
  if (place == names_.end()) {
    failAt(reference.place, "no process is called " + quoted(reference.name), kExpected);
  }
  if (place->second.isAmbiguous) {
    failAt(reference.place, "several processes are called " + quoted(reference.name), kExpected);
  }
  const std::optional<int32_t> pid = place->second.pid;
  if (!pid) {
    failAt(reference.place,
           quoted(reference.name) + " gets its PID only when it starts, as the event names none",
           "a process whose PID is known");
  }
  return *pid;
}

void Loading::settle() {
  for (const Reference &reference : references_) reference.put(device, pidOf(reference));
  settlePeers();
}

void Loading::settlePeers() {
  std::unordered_map<std::string, Descriptor *> labelled;
  uint64_t handle = kFirstPeerHandle;
  for (const End &end : ends_) {
    Descriptor &descriptor = end.reach(device);
    if (descriptor.handle == 0) descriptor.handle = handle;
    handle += kPeerHandleDistance;
    if (end.label.text.empty()) continue;
    if (!labelled.emplace(end.label.text, &descriptor).second) {
      failAt(*end.label.place,
             quoted(end.label.text) + " is the label of another descriptor already",
             "a label of its own");
    }
  }
  for (const End &end : ends_) {
    if (end.peer.text.empty()) continue;
    const auto place = labelled.find(end.peer.text);
    if (place == labelled.end()) {
      failAt(*end.peer.place, "nothing has the label " + quoted(end.peer.text),
             "the label of its peer");
    }
    Descriptor &descriptor = end.reach(device);
    if (descriptor.object.index() != place->second->object.index()) {
      failAt(*end.peer.place, quoted(end.peer.text) + " is the label of another type",
             "a socket as the peer of a socket, a pipe of a pipe");
    }
    descriptor.peer = place->second->handle;
    Socket *socket = std::get_if<Socket>(&descriptor.object);
    if (socket != nullptr && socket->kind == darwin::SOCKINFO_UN) socket->state = kSocketConnected;
    Socket *other = std::get_if<Socket>(&place->second->object);
    if (other != nullptr && other->kind == darwin::SOCKINFO_UN) other->state = kSocketConnected;
  }
}

}  // namespace host::simulator
