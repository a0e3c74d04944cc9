// The table of the ports that lead to tasks and threads.
#include "host/entry/ports.h"

#include <map>
#include <mutex>

namespace host {

namespace {

// Above the processors' names. Low bits as the kernel's names have them.
constexpr darwin::mach_port_t kFirstProcessPort = 0x20003;
constexpr darwin::mach_port_t kNextName = 0x100;

struct Entry {
  ProcessPort port;
  size_t references = 0;
};

struct Table {
  std::mutex mutex;
  std::map<darwin::mach_port_t, Entry> entries;
  std::map<ProcessPort, darwin::mach_port_t> names;
  size_t references = 0;
  darwin::mach_port_t next = kFirstProcessPort;
};

Table &table() {
  static Table *const kTable = new Table;  // outlives every thread
  return *kTable;
}

// Names come round again after some millions of them.
darwin::mach_port_t takeName(Table &ports) {
  do {
    ports.next += kNextName;
    if (ports.next < kFirstProcessPort || ports.next >= 0xFFF00000) ports.next = kFirstProcessPort;
  } while (ports.entries.count(ports.next) != 0);
  return ports.next;
}

}  // namespace

darwin::mach_port_t openPort(const ProcessPort &port) {
  Table &ports = table();
  const std::lock_guard<std::mutex> lock(ports.mutex);
  auto known = ports.names.find(port);
  if (known == ports.names.end()) {
    known = ports.names.emplace(port, takeName(ports)).first;
    ports.entries[known->second].port = port;
  }
  ports.entries[known->second].references++;
  ports.references++;
  return known->second;
}

std::optional<ProcessPort> findPort(darwin::mach_port_t name) {
  Table &ports = table();
  const std::lock_guard<std::mutex> lock(ports.mutex);
  const auto entry = ports.entries.find(name);
  if (entry == ports.entries.end()) return std::nullopt;
  return entry->second.port;
}

bool closePort(darwin::mach_port_t name) {
  Table &ports = table();
  const std::lock_guard<std::mutex> lock(ports.mutex);
  const auto entry = ports.entries.find(name);
  if (entry == ports.entries.end()) return false;
  ports.references--;
  if (--entry->second.references == 0) {
    ports.names.erase(entry->second.port);
    ports.entries.erase(entry);
  }
  return true;
}

size_t openPorts() {
  Table &ports = table();
  const std::lock_guard<std::mutex> lock(ports.mutex);
  return ports.references;
}

}  // namespace host
