// The descriptors and sockets of processes as lsof and ss tell them, taken apart.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace test {

// What lsof says of an open descriptor. Fields that it leaves out are empty or 0.
struct OpenFile {
  int fd = -1;
  char access = ' ';  // r, w, u
  std::string type;   // "REG", "IPv4", "unix", ...
  uint64_t flags = 0;
  uint64_t inode = 0;  // of Internet sockets too
  uint64_t offset = 0;
  std::string name;
  std::string protocol;
  std::string state;
};

// Ascending. Fails the test that calls it when lsof can't be run.
std::vector<OpenFile> askLsof(pid_t pid);

// A socket and who holds it, as ss says.
struct SocketRow {
  std::string kind;  // "tcp", "udp", "u_str", "u_dgr"
  std::string state;
  // Of Internet sockets "address:port", of UNIX ones the name ("*" without one) and the inode.
  std::pair<std::string, std::string> local;
  std::pair<std::string, std::string> peer;
  std::vector<std::pair<pid_t, std::string>> holders;  // their names, too
};

// "127.0.0.1:22" as address and port.
std::pair<std::string, std::string> splitPort(const std::string &text);

// All sockets of these kinds. Fails the test that calls it when ss can't be run.
std::vector<SocketRow> askSS();

}  // namespace test
