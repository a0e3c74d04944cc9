// The descriptors of processes on this machine's kernel: what the program says of those that the
// test made itself, against what lsof and ss say of them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <set>

#include "harness/file_handle.h"
#include "harness/helper.h"
#include "harness/process_facts.h"
#include "harness/run.h"
#include "live/format.h"
#include "live/open_files.h"

namespace test {
namespace {

using testing::Contains;
using testing::IsSupersetOf;

// A directory that is gone after the test, with all in it.
class Folder {
 public:
  Folder() { EXPECT_NE(mkdtemp(path_.data()), nullptr); }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder &) = delete;
  Folder &operator=(const Folder &) = delete;
  const std::string &path() const { return path_; }
  std::string operator/(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_ = "/tmp/descriptors_test.XXXXXX";
};

Steps filesIn(const Folder &folder) {
  return {"file",
          "r",
          "/etc/passwd",
          "100",
          "file",
          "w",
          folder / "written",
          "4660",
          "file",
          "u",
          folder / "both",
          "4294967296",
          "file",
          "path",
          "/etc/passwd",
          "0",
          "file",
          "u",
          folder / "a (deleted)",
          "0",
          "file",
          "u",
          "/dev/null",
          "0",
          "gone-file",
          folder / "gone",
          "directory",
          folder.path(),
          "pipe"};
}

Steps internetSockets() {
  return {"listen",
          "tcp4",
          "accept",
          "accept-end",
          "listen",
          "tcp6",
          "accept",
          "datagrams",
          "udp4",
          "connect-datagrams",
          "datagrams",
          "udp6",
          "connect-datagrams",
          "tcp-socket"};
}

Steps localSocketsIn(const Folder &folder) {
  return {"listen",
          folder / "stream",
          "accept",
          "listen",
          "@" + uniqueName("abst"),
          "accept",
          "datagrams",
          folder / "datagrams",
          "connect-datagrams",
          "pair",
          "netlink"};
}

Steps otherKinds() {
  return {"memfd",    "a memory", "shared-memory", "/" + uniqueName("shm"),
          "pipe",     "epoll",    "eventfd",       "timerfd",
          "signalfd", "pidfd",    "inotify"};
}

std::string nameOf(pid_t pid) {
  std::string name = readFile("/proc/" + std::to_string(pid) + "/comm");
  if (name.ends_with('\n')) name.pop_back();
  return name;
}

// What lsof and ss call the states of a connection.
struct StateWords {
  const char *shown;
  const char *lsof;
  const char *ss;
};
constexpr StateWords kStates[] = {
    {"LISTEN", "LISTEN", "LISTEN"},
    {"ESTABLISHED", "ESTABLISHED", "ESTAB"},
    {"CLOSE_WAIT", "CLOSE_WAIT", "CLOSE-WAIT"},
    {"FIN_WAIT_2", "FIN_WAIT2", "FIN-WAIT-2"},
};

// What the program should say of a process's descriptors, from what lsof and ss say of them and of
// all sockets.
class Expected {
 public:
  explicit Expected(pid_t pid) : pid_(pid), files_(askLsof(pid)), sockets_(askSS()) {}

  std::vector<std::string> lines() const {
    std::vector<std::string> lines;
    for (const OpenFile &file : files_) lines.push_back(lineOf(file));
    return lines;
  }
  std::vector<std::string> socketLines() const {
    std::vector<std::string> lines;
    for (const OpenFile &file : files_) {
      if (isSocket(file)) lines.push_back(lineOf(file));
    }
    return lines;
  }
  const std::vector<OpenFile> &files() const { return files_; }

 private:
  static bool isSocket(const OpenFile &file) {
    static const std::set<std::string> types = {"IPv4", "IPv6", "unix", "netlink", "pack", "sock"};
    return types.contains(file.type);
  }

  std::string start() const { return format("%-16s %5d FD", nameOf(pid_).c_str(), pid_); }

  std::string lineOf(const OpenFile &file) const {
    if (file.type == "a_inode") return queueLine(file);
    // lsof does not tell one that is open for neither from one for both.
    const char access = (file.flags & O_PATH) != 0 ? ' ' : file.access;
    return start() + format("%3d%c  ", file.fd, access) + detailsOf(file);
  }

  // The kinds of queue differ in how many events they have.
  std::string queueLine(const OpenFile &file) const {
    if (file.name.find("inotify") != std::string::npos) {
      return "Can't get info (6) - Error Bad file descriptor";
    }
    const int events = file.name.find("signalfd") != std::string::npos ? 2 : 1;
    return start() + format("    NPOLICY (Not handled yet - rc %d)", events);
  }

  std::string detailsOf(const OpenFile &file) const {
    if (file.type == "FIFO" && file.name == "pipe") return "pipe ";
    if (!isSocket(file)) return fileDetails(file);
    if (file.type == "sock") return "socket tcp4   *:0";
    if (file.type == "pack") return "socket NDRV ";
    if (file.type == "netlink") return "socket system Control: netlink:route ";
    return "socket " + (file.type == "unix" ? localSocket(file) : internetSocket(file));
  }

  std::string fileDetails(const OpenFile &file) const {
    std::string name = file.name;
    if (name.starts_with("/memfd:")) name = name.substr(0, name.rfind(" (deleted)"));
    for (const std::string prefix : {"/memfd:", "/dev/shm"}) {
      if (!name.starts_with(prefix)) continue;
      return format("shmem %s@0x%llx", name.substr(prefix.size()).c_str(),
                    static_cast<unsigned long long>(addressOf(file)));
    }
    return format("%s @0x%-8llx ", name.c_str(), static_cast<unsigned long long>(file.offset));
  }

  // Where the process has the file mapped, as the kernel says.
  uint64_t addressOf(const OpenFile &file) const {
    for (const std::string &line :
         splitLines(readFile("/proc/" + std::to_string(pid_) + "/maps"))) {
      if (line.find(" " + std::to_string(file.inode) + " ") != std::string::npos) {
        return std::stoull(line, nullptr, 16);
      }
    }
    return 0;
  }

  // Of several processes with one port or socket the newest comes first.
  static std::string ownerOf(const std::vector<const SocketRow *> &rows) {
    std::map<pid_t, std::string> holders;
    for (const SocketRow *row : rows) {
      for (const auto &[pid, name] : row->holders) holders.emplace(pid, name);
    }
    if (holders.empty()) return "";
    return format("%s (PID: %d)", holders.rbegin()->second.c_str(), holders.rbegin()->first);
  }

  std::string ownerOfPort(const std::string &port) const {
    std::vector<const SocketRow *> rows;
    for (const SocketRow &row : sockets_) {
      const bool isIPv4 = !row.kind.starts_with("u_") && !row.local.first.starts_with("[");
      if (isIPv4 && row.local.second == port) rows.push_back(&row);
    }
    return ownerOf(rows);
  }

  std::string internetSocket(const OpenFile &file) const {
    const bool isIPv6 = file.type == "IPv6";
    const bool isTcp = file.protocol == "TCP";
    const size_t arrow = file.name.find("->");
    const auto [address, port] = splitPort(file.name.substr(0, arrow));
    std::string text = std::string(isTcp ? "tcp" : "udp") + (isIPv6 ? "6" : "4") + "   ";
    text += (isIPv6 ? "[::]" : address) + ":" + port;
    auto [foreignAddress, foreignPort] = arrow == std::string::npos
                                             ? std::pair<std::string, std::string>("*", "0")
                                             : splitPort(file.name.substr(arrow + 2));
    if (!isIPv6 && foreignAddress == "*") return text;
    if (isIPv6) foreignAddress = "[::]";
    text += format("->%16s:%-5d", foreignAddress.c_str(), std::stoi(foreignPort));
    if (foreignAddress == "127.0.0.1") text += " " + ownerOfPort(foreignPort);
    if (isTcp) text += " " + stateOf(file, port, foreignPort);
    return text;
  }

  // On which lsof and ss agree.
  std::string stateOf(const OpenFile &file, const std::string &port,
                      const std::string &foreignPort) const {
    const auto words = std::find_if(std::begin(kStates), std::end(kStates),
                                    [&](const StateWords &row) { return row.lsof == file.state; });
    if (words == std::end(kStates)) return "unexpected state " + file.state;
    const std::string peer = foreignPort == "0" ? "*" : foreignPort;
    const bool agrees = std::any_of(sockets_.begin(), sockets_.end(), [&](const SocketRow &row) {
      return row.kind == "tcp" && row.local.second == port && row.peer.second == peer &&
             row.state == words->ss;
    });
    return agrees ? words->shown : "a state that ss does not tell";
  }

  const SocketRow *localRow(const std::string &inode) const {
    const auto found = std::find_if(sockets_.begin(), sockets_.end(), [&](const SocketRow &row) {
      return row.kind.starts_with("u_") && row.local.second == inode;
    });
    return found == sockets_.end() ? nullptr : &*found;
  }

  std::string localSocket(const OpenFile &file) const {
    const SocketRow *row = localRow(std::to_string(file.inode));
    if (row == nullptr) return "a socket that ss does not list";
    const auto handle = [](const std::string &inode) { return std::stoull(inode); };
    std::string text = row->kind == "u_str" ? "stream" : "dgram ";
    text += format(" %8llx", handle(row->local.second));
    const SocketRow *peer = nullptr;
    if (row->peer.second == "0") {
      text += "   (LISTENING)  ";
    } else {
      text += format("->%8llx ", handle(row->peer.second));
      peer = localRow(row->peer.second);
      if (peer != nullptr) text += ownerOf({peer});
    }
    if (peer != nullptr && peer->local.first != "*") return text + "\tclient: " + peer->local.first;
    return row->local.first == "*" ? text : text + "\t" + row->local.first;
  }

  pid_t pid_;
  std::vector<OpenFile> files_;
  std::vector<SocketRow> sockets_;
};

// What the program prints, as lines.
std::vector<std::string> linesOf(const std::vector<std::string> &arguments) {
  const Outcome outcome = runSondex(arguments);
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  const bool lacksStackshot = arguments.size() == 1 && !isRoot();
  EXPECT_EQ(withoutSampling(outcome.error), lacksStackshot ? kNoStackshot : "");
  return splitLines(outcome.output);
}

// `count` descriptors besides the three standard ones.
void expectAgreement(const Helper &helper, size_t count) {
  const std::string pid = std::to_string(helper.pid());
  const Expected expected(helper.pid());
  ASSERT_EQ(expected.files().size(), count + 3);
  EXPECT_EQ(linesOf({pid, "fds"}), expected.lines());
  EXPECT_EQ(linesOf({pid, "net"}), expected.socketLines());
  // In the report on everything the first line follows the count.
  std::vector<std::string> lines = expected.lines();
  const std::vector<std::string> report = linesOf({pid});
  EXPECT_THAT(report, Contains(format("%zu File descriptors: ", lines.size()) + lines[0]));
  lines.erase(lines.begin());
  EXPECT_THAT(report, IsSupersetOf(lines));
}

TEST(Descriptors, OfFilesAndPipes) {
  const Folder folder;
  expectAgreement(Helper(filesIn(folder)), 10);
}

TEST(Descriptors, OfInternetSockets) {
  const Helper helper(internetSockets());
  expectAgreement(helper, 10);
  for (const pid_t child : helper.children()) {
    const std::string pid = std::to_string(child);
    EXPECT_EQ(linesOf({pid, "net"}), Expected(child).socketLines());
  }
}

TEST(Descriptors, OfLocalSockets) {
  const Folder folder;
  const Helper helper(localSocketsIn(folder));
  expectAgreement(helper, 9);
  for (const pid_t child : helper.children()) {
    const std::string pid = std::to_string(child);
    EXPECT_EQ(linesOf({pid, "net"}), Expected(child).socketLines());
  }
}

TEST(Descriptors, OfMemoryQueuesAndWatches) {
  expectAgreement(Helper(otherKinds()), 10);
}

TEST(Descriptors, OfPacketSockets) {
  try {
    expectAgreement(Helper({"packet"}), 1);
  } catch (const Refused &) {
    GTEST_SKIP() << "packet sockets are not allowed here";
  }
}

TEST(Descriptors, OfAllKindsInOneProcess) {
  const Folder folder;
  Steps steps = filesIn(folder);
  for (const Steps &more : {internetSockets(), localSocketsIn(folder), otherKinds()}) {
    steps.insert(steps.end(), more.begin(), more.end());
  }
  const Helper helper(steps);
  expectAgreement(helper, 39);

  // The same among those of all processes, under a line with the process's name.
  const std::vector<std::string> expected = Expected(helper.pid()).lines();
  const std::vector<std::string> all = linesOf({"all", "fds"});
  const auto title = std::find(all.begin(), all.end(),
                               format("PID: %d (%s)", helper.pid(), nameOf(helper.pid()).c_str()));
  ASSERT_NE(title, all.end());
  ASSERT_GT(all.end() - title, static_cast<std::ptrdiff_t>(expected.size()));
  EXPECT_EQ(std::vector<std::string>(title + 1, title + 1 + static_cast<int>(expected.size())),
            expected);
}

TEST(Descriptors, AreOfTheProcessWithThatName) {
  const std::string name = uniqueName("byname");
  const Helper helper({"name", name, "listen", "tcp4"});
  EXPECT_EQ(linesOf({name, "fds"}), Expected(helper.pid()).lines());
}

TEST(Descriptors, AreListedUpTo128) {
  const Helper helper({"fds", "300"});
  std::vector<std::string> expected = Expected(helper.pid()).lines();
  ASSERT_EQ(expected.size(), 300u);
  expected.resize(128);
  EXPECT_EQ(linesOf({std::to_string(helper.pid()), "fds"}), expected);
}

TEST(Descriptors, OfAnotherUserAreNotTold) {
  if (!isRoot()) GTEST_SKIP() << "needs root to be another user";
  const Helper helper({"listen", "tcp4"});
  const Outcome outcome = runSondex({std::to_string(helper.pid()), "fds"}, {}, kNobody);
  EXPECT_TRUE(outcome.exitedWith(0)) << outcome;
  EXPECT_EQ(outcome.output, "");
}

// Neither control characters nor broken UTF-8, and no control character that UTF-8 has an own form
// of.
std::optional<size_t> findRawByte(const std::string &text) {
  for (size_t i = 0; i < text.size(); i++) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x80) {
      if ((byte < 0x20 && byte != '\n' && byte != '\t') || byte == 0x7f) return i;
      continue;
    }
    const size_t length = byte >= 0xf0 ? 4 : byte >= 0xe0 ? 3 : 2;
    if (byte < 0xc2 || byte > 0xf4 || i + length > text.size()) return i;
    const auto second = static_cast<unsigned char>(text[i + 1]);
    if (byte == 0xc2 && second < 0xa0) return i;
    for (size_t k = 1; k < length; k++) {
      if ((static_cast<unsigned char>(text[i + k]) & 0xc0) != 0x80) return i;
    }
    i += length - 1;
  }
  return std::nullopt;
}

TEST(RawBytes, AreFound) {
  for (const char *good :
       {"", "a\tb\n", "\xc3\xa9", "\xe2\x94\x82", "\xf0\x9f\x98\x80", "\xc2\xa0"}) {
    EXPECT_FALSE(findRawByte(good)) << good;
  }
  for (const char *bad :
       {"\x1b", "\x7f", "\x9b", "\xc2\x9b", "\xc3", "\xc3(", "\xff", "\r", "\xc0\xaf"}) {
    EXPECT_TRUE(findRawByte(bad));
  }
}

// The program's own sequences, around the lines of the region map.
std::string withoutColours(std::string text) {
  for (const char *colour : {"37", "32", "36", "34", "31", "0"}) {
    const std::string sequence = std::string("\x1b[0;").append(colour).append("m");
    for (size_t at = 0; (at = text.find(sequence, at)) != std::string::npos;) {
      text.erase(at, sequence.size());
    }
  }
  return text;
}

constexpr char kHostile[] = "x\x1b[2J\n\r\x9b\xc2\x9b\x7f\xff\xc3";

TEST(HostileNames, DoNotReachTheOutput) {
  const Folder folder;
  const std::string name(kHostile);
  const Helper helper({"name",
                       name,
                       "file",
                       "u",
                       folder / name,
                       "0",
                       "directory",
                       folder.path(),
                       "gone-file",
                       folder / (name + "gone"),
                       "listen",
                       folder / (name + "s"),
                       "accept",
                       "datagrams",
                       "@" + uniqueName(name.substr(1, 4)),
                       "connect-datagrams",
                       "memfd",
                       name,
                       "shared-memory",
                       "/" + uniqueName("\x1b\x9b\xc3")});
  const std::string pid = std::to_string(helper.pid());
  for (const Steps &arguments :
       {Steps{pid, "fds"}, Steps{pid, "net"}, Steps{pid}, Steps{"all", "fds"},
        Steps{std::to_string(helper.children().at(0)), "net"}}) {
    const Outcome outcome = runSondex(arguments);
    EXPECT_TRUE(outcome.exitedWith(0));
    for (const std::string &text : {withoutColours(outcome.output), outcome.error}) {
      const std::optional<size_t> raw = findRawByte(text);
      EXPECT_FALSE(raw) << arguments[0] << ": byte " << *raw << " of\n" << text;
    }
  }
  // Each byte that is not shown has a "?" in its place, and no line is broken.
  const std::vector<std::string> lines = linesOf({pid, "fds"});
  ASSERT_EQ(lines.size(), 3u + 9);
  const std::string shown = "x?[2J????????";
  const std::string start = format("%-16s %5d FD", shown.c_str(), helper.pid());
  EXPECT_EQ(lines[3], start + "  3u  " + folder.path() + "/" + shown + " @0x0        ");
  EXPECT_EQ(lines[5],
            start + "  5u  " + folder.path() + "/" + shown + "gone (deleted) @0x0        ");
  EXPECT_THAT(lines[6], testing::EndsWith("\t" + folder.path() + "/" + shown + "s"));
  EXPECT_THAT(lines[10], testing::HasSubstr("shmem " + shown + "@0x"));
}

// Many processes that hold the same, sockets among it.
class Crowd : public testing::Test {
 protected:
  static constexpr size_t kProcesses = 500;
  static constexpr size_t kDescriptors = 40;

  Helper helper_{{"listen", "tcp4", "accept", "pair", "pipe", "memfd", "crowd", "eventfd", "fds",
                  std::to_string(kDescriptors), "children", std::to_string(kProcesses)}};
};

TEST_F(Crowd, IsListedWhole) {
  std::map<pid_t, size_t> counts;
  pid_t pid = 0;
  for (const std::string &line : linesOf({"all", "fds"})) {
    if (sscanf(line.c_str(), "PID: %d (", &pid) == 1) continue;
    EXPECT_NE(pid, 0) << line;
    counts[pid]++;
  }
  ASSERT_EQ(helper_.children().size(), kProcesses + 1);
  for (size_t i = 1; i < helper_.children().size(); i++) {
    EXPECT_EQ(counts[helper_.children()[i]], kDescriptors) << "of child " << i;
  }
}

// As `sondex all fds | head -1` leaves it.
TEST(Listing, EndsQuietlyWhenNobodyReads) {
  const Helper helper(Steps{"memfd", "many", "fds", "100", "children", "20"});
  // More is listed than is held back for a pipe that is not read: that of one page.
  Pipe output = makePipe();
  ASSERT_GT(fcntl(output.writeEnd.get(), F_SETPIPE_SZ, 1), 0);
  Pipe error = makePipe();
  Launch launch;
  launch.program = sondexPath();
  launch.arguments = {"all", "fds"};
  launch.output = output.writeEnd.get();
  launch.error = error.writeEnd.get();
  Child child(launch);
  output.writeEnd.close();
  error.writeEnd.close();
  char byte = 0;
  ASSERT_EQ(read(output.readEnd.get(), &byte, 1), 1);
  output.readEnd.close();

  std::string message;
  pollfd waited = {error.readEnd.get(), POLLIN, 0};
  while (poll(&waited, 1, static_cast<int>(kPatience.count())) > 0 &&
         read(error.readEnd.get(), &byte, 1) == 1) {
    message += byte;
  }
  const std::optional<Ending> ending = child.waitForEnd();
  ASSERT_TRUE(ending.has_value()) << "it still runs";
  EXPECT_TRUE(ending->signal == SIGPIPE || ending->signal == 0) << *ending;
  EXPECT_EQ(withoutSampling(message), "");
}

}  // namespace
}  // namespace test
