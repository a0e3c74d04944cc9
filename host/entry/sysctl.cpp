// Kernel state by name or number: which variables there are and how they are handed over. All of
// them are read-only.
#include "host/darwin/sysctl.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "host/darwin/errors.h"
#include "host/darwin/interfaces.h"
#include "host/darwin/socket.h"
#include "host/entry/answer.h"
#include "host/machine/host_figures.h"
#include "host/machine/networks.h"
#include "host/machine/processes.h"

namespace host {

namespace {

constexpr unsigned int kFewestNumbers = 2;
constexpr unsigned int kMostNumbers = 12;
constexpr size_t kLargestValue = 32;

template <typename T>
Errno read(Errno (HostQuestions::*question)(T &), void *value) {
  static_assert(sizeof(T) <= kLargestValue);
  T answer{};
  const Errno error = (hostFigures().*question)(answer);
  if (error == kAnswered) std::memcpy(value, &answer, sizeof(T));
  return error;
}

struct Variable {
  std::string_view name;
  int numbers[2];
  size_t size;
  Errno (*read)(void *value);
};

constexpr Variable kVariables[] = {
    {"kern.boottime",
     {darwin::DARWIN_CTL_KERN, darwin::DARWIN_KERN_BOOTTIME},
     sizeof(darwin::timeval),
     [](void *value) { return read(&HostQuestions::bootTime, value); }},
    {"vm.loadavg",
     {darwin::DARWIN_CTL_VM, darwin::DARWIN_VM_LOADAVG},
     sizeof(darwin::loadavg),
     [](void *value) { return read(&HostQuestions::loadAverage, value); }},
    {"vm.swapusage",
     {darwin::DARWIN_CTL_VM, darwin::DARWIN_VM_SWAPUSAGE},
     sizeof(darwin::xsw_usage),
     [](void *value) { return read(&HostQuestions::swapUsage, value); }},
};

template <typename Condition>
const Variable *findVariable(Condition &&condition) {
  const Variable *found = std::find_if(std::begin(kVariables), std::end(kVariables), condition);
  return found == std::end(kVariables) ? nullptr : found;
}

Errno readVariable(const Variable *variable, void *old, size_t *oldlen, const void *newp) {
  if (variable == nullptr) return darwin::DARWIN_ENOENT;
  if (newp != nullptr) return darwin::DARWIN_EPERM;
  unsigned char value[kLargestValue] = {};
  const Errno error = guarded([&] { return variable->read(value); });
  // A kernel without the feature has no such variable.
  if (error == darwin::DARWIN_ENOTSUP) return darwin::DARWIN_ENOENT;
  if (error != kAnswered) return error;
  if (old != nullptr) {
    if (oldlen == nullptr || *oldlen < variable->size) return darwin::DARWIN_ENOMEM;
    std::memcpy(old, value, variable->size);
  }
  if (oldlen != nullptr) *oldlen = variable->size;
  return kAnswered;
}

// The argument area of a process: a count, then the path, the arguments and the environment.
constexpr int kArgumentsName[] = {darwin::DARWIN_CTL_KERN, darwin::DARWIN_KERN_PROCARGS2};
constexpr size_t kLargestArgumentArea = 262144;

void padTo(size_t multiple, std::string &area) {
  area.resize((area.size() + multiple - 1) / multiple * multiple);
}

// A text ends at its first NUL, and with one.
void addText(const std::string &text, std::string &area) {
  area.append(text, 0, text.find('\0'));
  area += '\0';
}

std::string argumentArea(const ProcessArguments &process) {
  const size_t pointerSize = process.is64Bit ? sizeof(uint64_t) : sizeof(uint32_t);
  std::string area;
  addText(process.path, area);
  padTo(pointerSize, area);
  for (const auto *texts : {&process.arguments, &process.environment}) {
    for (const std::string &text : *texts) addText(text, area);
  }
  padTo(pointerSize, area);
  if (area.size() > kLargestArgumentArea) area.resize(kLargestArgumentArea);
  return area;
}

// Whatever is in the way, the kernel says "invalid". Of an area that is too long for the buffer it
// gives the end.
Errno readArguments(pid_t pid, void *old, size_t *oldlen) {
  if (pid == 0) return darwin::DARWIN_EINVAL;  // it was started with none
  ProcessArguments process;
  const Errno error = guarded([&] { return processes().arguments(pid, process); });
  if (error == darwin::DARWIN_ENOTSUP) return darwin::DARWIN_ENOENT;
  if (error == darwin::DARWIN_ENOMEM) return error;
  if (error != kAnswered || oldlen == nullptr) return darwin::DARWIN_EINVAL;

  const int32_t count = static_cast<int32_t>(process.arguments.size());
  return guarded([&]() -> Errno {
    const std::string area = argumentArea(process);
    if (old == nullptr) {
      *oldlen = (sizeof count + area.size() + 3) / 4 * 4;
      return kAnswered;
    }
    if (*oldlen <= sizeof count || *oldlen > sizeof count + kLargestArgumentArea) {
      return darwin::DARWIN_EINVAL;
    }
    const size_t given = std::min(area.size(), *oldlen - sizeof count);
    std::memcpy(old, &count, sizeof count);
    std::memcpy(static_cast<char *>(old) + sizeof count, area.data() + area.size() - given, given);
    *oldlen = sizeof count + given;
    return kAnswered;
  });
}

// The interface list: a message for each, with its name behind it.
constexpr int kInterfacesName[] = {
    darwin::DARWIN_CTL_NET, darwin::DARWIN_AF_ROUTE, 0, 0, darwin::DARWIN_NET_RT_IFLIST2, 0};
constexpr size_t kLongestInterfaceName = 15;

void append(const void *bytes, size_t size, std::vector<uint8_t> &list) {
  const auto *first = static_cast<const uint8_t *>(bytes);
  list.insert(list.end(), first, first + size);
}

void appendInterface(const NetworkInterface &interface, std::vector<uint8_t> &list) {
  const size_t nameLength = std::min(interface.name.size(), kLongestInterfaceName);
  darwin::sockaddr_dl address{};
  const size_t addressSize =
      std::max(sizeof address, (offsetof(darwin::sockaddr_dl, sdl_data) + nameLength + 3) / 4 * 4);
  address.sdl_len = static_cast<uint8_t>(addressSize);
  address.sdl_family = darwin::DARWIN_AF_LINK;
  address.sdl_index = interface.index;
  address.sdl_type = interface.type;
  address.sdl_nlen = static_cast<uint8_t>(nameLength);

  darwin::if_msghdr2 message{};
  message.ifm_msglen = static_cast<uint16_t>(sizeof message + addressSize);
  message.ifm_version = darwin::RTM_VERSION;
  message.ifm_type = darwin::RTM_IFINFO2;
  message.ifm_addrs = darwin::RTA_IFP;
  message.ifm_flags = static_cast<int32_t>(interface.flags);
  message.ifm_index = interface.index;
  message.ifm_data.ifi_type = interface.type;
  message.ifm_data.ifi_mtu = interface.mtu;
  message.ifm_data.ifi_baudrate = interface.speed;
  message.ifm_data.ifi_ipackets = interface.receivedPackets;
  message.ifm_data.ifi_ierrors = interface.receivedErrors;
  message.ifm_data.ifi_opackets = interface.sentPackets;
  message.ifm_data.ifi_oerrors = interface.sentErrors;
  message.ifm_data.ifi_collisions = interface.collisions;
  message.ifm_data.ifi_ibytes = interface.receivedBytes;
  message.ifm_data.ifi_obytes = interface.sentBytes;
  message.ifm_data.ifi_imcasts = interface.receivedMulticasts;
  message.ifm_data.ifi_iqdrops = interface.droppedOnInput;

  const size_t end = list.size() + message.ifm_msglen;
  append(&message, sizeof message, list);
  append(&address, offsetof(darwin::sockaddr_dl, sdl_data), list);
  append(interface.name.data(), nameLength, list);
  list.resize(end);
}

Errno readInterfaces(void *old, size_t *oldlen) {
  return guarded([&]() -> Errno {
    std::vector<NetworkInterface> interfaces;
    const Errno error = networks().interfaces(interfaces);
    if (error == darwin::DARWIN_ENOTSUP) return darwin::DARWIN_ENOENT;
    if (error != kAnswered) return error;
    std::vector<uint8_t> list;
    for (const NetworkInterface &interface : interfaces) appendInterface(interface, list);
    if (old != nullptr) {
      if (oldlen == nullptr || *oldlen < list.size()) return darwin::DARWIN_ENOMEM;
      if (!list.empty()) std::memcpy(old, list.data(), list.size());
    }
    if (oldlen != nullptr) *oldlen = list.size();
    return kAnswered;
  });
}

Errno readByNumbers(const int *name, unsigned int count, void *old, size_t *oldlen,
                    const void *newp) {
  if (count < kFewestNumbers || count > kMostNumbers) return darwin::DARWIN_EINVAL;
  if (name == nullptr) return darwin::DARWIN_EFAULT;
  if (count == std::size(kArgumentsName) + 1 &&
      std::equal(std::begin(kArgumentsName), std::end(kArgumentsName), name)) {
    if (newp != nullptr) return darwin::DARWIN_EPERM;
    return readArguments(name[std::size(kArgumentsName)], old, oldlen);
  }
  if (count == std::size(kInterfacesName) &&
      std::equal(std::begin(kInterfacesName), std::end(kInterfacesName), name)) {
    if (newp != nullptr) return darwin::DARWIN_EPERM;
    return readInterfaces(old, oldlen);
  }
  const Variable *variable = findVariable([name, count](const Variable &row) {
    return count == std::size(row.numbers) && std::equal(name, name + count, row.numbers);
  });
  return readVariable(variable, old, oldlen, newp);
}

Errno readByName(const char *name, void *old, size_t *oldlen, const void *newp) {
  if (name == nullptr) return darwin::DARWIN_EFAULT;
  const Variable *variable = findVariable([name](const Variable &row) { return row.name == name; });
  return readVariable(variable, old, oldlen, newp);
}

}  // namespace

}  // namespace host

int darwin::sysctl(int *name, unsigned int namelen, void *old, size_t *oldlen, void *newp, size_t) {
  return host::libraryAnswer(host::readByNumbers(name, namelen, old, oldlen, newp), 0, -1);
}

int darwin::sysctlbyname(const char *name, void *old, size_t *oldlen, void *newp, size_t) {
  return host::libraryAnswer(host::readByName(name, old, oldlen, newp), 0, -1);
}
