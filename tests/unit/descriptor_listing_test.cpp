#include "fds/listing.h"

#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "host/darwin/errors.h"
#include "terminal/drawing_lock.h"
#include "tests/unit/curses_screen.h"
#include "tests/unit/fake_machine.h"
#include "tests/unit/sampled_machine.h"
#include "tests/unit/socket_details.h"
#include "tests/unit/wrapped_calls.h"

namespace {

using namespace sondex;
using sampled::errorOutputOf;
using sampled::kPid;
using sampled::outputOf;
using sampled::Variable;

// A machine of one process, which answers with the details put down here.
class DescriptorMachine : public fake_machine::FakeMachine {
 public:
  std::map<int, darwin::vnode_fdinfowithpath> vnodes;
  std::map<int, darwin::socket_fdinfo> sockets;
  std::map<int, darwin::psem_fdinfo> semaphores;
  std::map<int, darwin::pshm_fdinfo> sharedMemory;
  std::map<int, darwin::pipe_fdinfo> pipes;
  std::map<int, darwin::channel_fdinfo> channels;
  std::map<int, std::vector<darwin::kevent_extinfo>> kqueues;
  host::Errno refusal = darwin::DARWIN_EBADF;  // for what is not open
  std::vector<int> asked;

  host::Errno vnodeDescriptor(pid_t pid, int fd, darwin::vnode_fdinfowithpath &out) override {
    return give(pid, fd, vnodes, out);
  }
  host::Errno socketDescriptor(pid_t pid, int fd, darwin::socket_fdinfo &out) override {
    return give(pid, fd, sockets, out);
  }
  host::Errno semaphoreDescriptor(pid_t pid, int fd, darwin::psem_fdinfo &out) override {
    return give(pid, fd, semaphores, out);
  }
  host::Errno sharedMemoryDescriptor(pid_t pid, int fd, darwin::pshm_fdinfo &out) override {
    return give(pid, fd, sharedMemory, out);
  }
  host::Errno pipeDescriptor(pid_t pid, int fd, darwin::pipe_fdinfo &out) override {
    return give(pid, fd, pipes, out);
  }
  host::Errno channelDescriptor(pid_t pid, int fd, darwin::channel_fdinfo &out) override {
    return give(pid, fd, channels, out);
  }
  host::Errno kqueueEvents(pid_t pid, int fd, std::vector<darwin::kevent_extinfo> &out) override {
    return give(pid, fd, kqueues, out);
  }

 private:
  template <typename T>
  host::Errno give(pid_t pid, int fd, const std::map<int, T> &open, T &out) {
    asked.push_back(fd);
    if (pid != kPid) return darwin::DARWIN_ESRCH;
    const auto found = open.find(fd);
    if (found == open.end()) return refusal;
    out = found->second;
    return host::kAnswered;
  }
};

class DescriptorListing : public fake_machine::MachineTest<DescriptorMachine> {
 protected:
  static std::string listingOf(const std::vector<darwin::proc_fdinfo> &fds, int32_t mode,
                               int32_t detailed) {
    return outputOf([&] {
      EXPECT_EQ(showProcessFDs(kPid, fds.data(), static_cast<int32_t>(fds.size()), mode, detailed,
                               "sshd"),
                0);
    });
  }

  static std::string lineOf(int32_t fd, int32_t flavour, const char *name = "sshd",
                            int32_t pid = kPid) {
    return outputOf([&] { EXPECT_GE(do_pidfdinfo(pid, fd, flavour, 0, name), 0); });
  }

  void addVnode(int fd, const char *path, uint32_t openFlags = 3) {
    std::strcpy(machine.vnodes[fd].pvip.vip_path, path);
    machine.vnodes[fd].pfi.fi_openflags = openFlags;
  }

  DisplayStateGuard guard;
};

TEST(DescriptorTypeText, IsTheTypesWord) {
  const std::map<int32_t, std::string> kWords = {{0, "AppleTalk"},  {1, "File"},      {2, "Socket"},
                                                 {3, "Shared Mem"}, {4, "Semaphore"}, {5, "KQueue"},
                                                 {6, "Pipe/FIFO"},  {7, "FSEvents"}};
  for (int32_t type = -5; type < 20; type++) {
    const auto word = kWords.find(type);
    EXPECT_EQ(fdtype_to_txt(type), word != kWords.end() ? word->second : "?!?") << type;
  }
  EXPECT_STREQ(fdtype_to_txt(INT32_MIN), "?!?");
  EXPECT_STREQ(fdtype_to_txt(INT32_MAX), "?!?");
}

TEST_F(DescriptorListing, CountsFilesAndSockets) {
  const std::string kRest = " (press F for detailed information)\n";
  EXPECT_EQ(listingOf({}, 24, 0), std::string("0 files").append(kRest));
  EXPECT_EQ(listingOf({{0, 1}, {1, 1}, {2, 1}}, 24, 0), std::string("3 files").append(kRest));
  EXPECT_EQ(listingOf({{0, 1}, {1, 2}, {2, 1}, {3, 2}, {4, 1}}, 24, 0),
            std::string("3 files, 2 sockets").append(kRest));
  EXPECT_EQ(listingOf({{3, 2}}, 24, 0), std::string("0 files, 1 sockets").append(kRest));
  EXPECT_EQ(listingOf({{0, 3}, {1, 4}, {2, 5}, {3, 6}, {4, 7}, {5, 9}, {6, 10}, {7, 11}}, 24, 0),
            std::string("0 files").append(kRest));
  EXPECT_TRUE(machine.asked.empty()) << "counting asks the kernel nothing";
}

TEST_F(DescriptorListing, CountsWhatTheModePassesOver) {
  EXPECT_EQ(listingOf({{0, 1}, {1, 2}, {2, 1}}, 2, 0),
            "2 files, 1 sockets (press F for detailed information)\n");
  EXPECT_EQ(listingOf({{0, 1}, {1, 2}, {2, 1}}, 5, 0),
            "2 files, 1 sockets (press F for detailed information)\n");
}

TEST_F(DescriptorListing, ShowsALineForEach) {
  addVnode(0, "/dev/null");
  machine.sockets[3] = socket_details::onPort(22);
  machine.sockets[3].pfi.fi_openflags = 3;
  std::strcpy(machine.semaphores[4].pseminfo.psem_name, "/sem");
  machine.semaphores[4].pfi.fi_openflags = 1;
  std::strcpy(machine.sharedMemory[5].pshminfo.pshm_name, "/shm");
  machine.sharedMemory[5].pshminfo.pshm_mappaddr = 0x1000;
  machine.pipes[6].pfi.fi_openflags = 2;
  machine.pipes[7].pfi.fi_openflags = 1;
  machine.kqueues[8].resize(3);
  EXPECT_EQ(
      listingOf({{0, 1}, {3, 2}, {4, 4}, {5, 3}, {6, 6}, {7, 7}, {8, 5}, {9, 9}, {11, 11}}, 24, 1),
      "sshd               123 FD  0u  /dev/null @0x0        \n"
      "sshd               123 FD  3u  socket tcp4   *:22\n"
      "sshd               123 FD  4r  sem /sem\n"
      "sshd               123 FD  5   shmem /shm@0x1000\n"
      "sshd               123 FD  6w  pipe \n"
      "sshd               123 FD  7r  pipe \n"
      "sshd               123 FD    NPOLICY (Not handled yet - rc 3)\n"
      "sshd               123 FD    NPOLICY (Not handled yet - rc 0)\n"
      "sshd               123 FD    NEXUS (Not handled yet - rc 0)\n");
  EXPECT_EQ(machine.asked, (std::vector<int>{0, 3, 4, 5, 6, 7, 8, 9}))
      << "asked once each, by the descriptor's number; no kernel knows the last flavour";
}

TEST_F(DescriptorListing, OfOneTypeShowsOnlyThat) {
  addVnode(0, "/dev/null");
  machine.sockets[3] = socket_details::onPort(22);
  std::vector<darwin::proc_fdinfo> fds = {{0, 1}, {3, 2}, {4, 6}};
  EXPECT_EQ(listingOf(fds, 2, 1), "sshd               123 FD  3   socket tcp4   *:22\n");
  EXPECT_EQ(listingOf(fds, 1, 1), "sshd               123 FD  0u  /dev/null @0x0        \n");
  EXPECT_EQ(listingOf(fds, 5, 1), "");
  EXPECT_EQ(machine.asked, (std::vector<int>{3, 0}));
}

TEST_F(DescriptorListing, GoesOnAfterADescriptorThatIsRefused) {
  addVnode(0, "/a");
  addVnode(2, "/c");
  EXPECT_EQ(listingOf({{0, 1}, {1, 1}, {2, 1}}, 24, 1),
            "sshd               123 FD  0u  /a @0x0        \n"
            "Can't get info (2) - Error Bad file descriptor\n"
            "sshd               123 FD  2u  /c @0x0        \n");
}

TEST_F(DescriptorListing, OfTypesThatAreNotKnownSaysSo) {
  for (const uint32_t type : {0u, 8u, 12u, 24u, 255u}) {
    const std::string flavor = std::string("FLAVOR: ").append(std::to_string(type)).append("\n");
    EXPECT_EQ(listingOf({{0, type}}, 24, 1), std::string(flavor).append("UNknown"));
    EXPECT_EQ(listingOf({{0, type}}, 24, 0),
              std::string(flavor).append("UNknown0 files (press F for detailed information)\n"));
    EXPECT_EQ(listingOf({{0, type}}, 2, 1), flavor) << "filtered out, and still told of";
  }
  EXPECT_EQ(listingOf({{0, UINT32_MAX}}, 24, 1), "FLAVOR: -1\nUNknown");
  EXPECT_EQ(listingOf({{0, UINT32_MAX}}, -1, 1), "FLAVOR: -1\nUNknown");
  EXPECT_EQ(listingOf({{0, 8}}, 8, 1), "FLAVOR: 8\nUNknown");
  EXPECT_TRUE(machine.asked.empty());
}

TEST_F(DescriptorListing, OfMoreThanARecordHoldsStopsThere) {
  std::vector<darwin::proc_fdinfo> fds(1024, {0, 1});
  EXPECT_EQ(outputOf([&] { showProcessFDs(kPid, fds.data(), INT32_MAX, 24, 0, "sshd"); }),
            "1024 files (press F for detailed information)\n");
  EXPECT_EQ(outputOf([&] { showProcessFDs(kPid, fds.data(), -1, 24, 0, "sshd"); }),
            "0 files (press F for detailed information)\n");
}

TEST_F(DescriptorListing, ShowsHowEachIsOpen) {
  const struct {
    uint32_t flags;
    char letter;
  } kRows[] = {{0, ' '},         {1, 'r'},   {2, 'w'},          {3, 'u'},         {4, ' '},
               {0x1000009, 'r'}, {0xA, 'w'}, {0xFFFFFFFC, ' '}, {0xFFFFFFFF, 'u'}};
  for (const auto &row : kRows) {
    machine.pipes[5].pfi.fi_openflags = row.flags;
    EXPECT_EQ(
        lineOf(5, 6),
        std::string("sshd               123 FD  5").append(1, row.letter).append("  pipe \n"));
  }
}

TEST_F(DescriptorListing, KeepsItsColumnsForNamesAndNumbers) {
  machine.pipes[5] = {};
  machine.pipes[1234] = {};
  machine.pipes[INT32_MAX] = {};
  EXPECT_EQ(lineOf(5, 6, ""), "                   123 FD  5   pipe \n");
  EXPECT_EQ(lineOf(5, 6, "com.apple.WebKi"), "com.apple.WebKi    123 FD  5   pipe \n");
  EXPECT_EQ(lineOf(1234, 6), "sshd               123 FD1234   pipe \n");
  EXPECT_EQ(lineOf(INT32_MAX, 6), "sshd               123 FD2147483647   pipe \n");
  EXPECT_EQ(lineOf(5, 11, "sshd", 1234567),
            "sshd             1234567 FD    NEXUS (Not handled yet - rc 0)\n");
}

TEST_F(DescriptorListing, MakesTheNameSafe) {
  machine.pipes[5] = {};
  EXPECT_EQ(lineOf(5, 6, "\x1b[31m\n\xff%n"), "?[31m??%n          123 FD  5   pipe \n");
  // A short name without its NUL, as a hostile record may have it.
  EXPECT_EQ(lineOf(5, 6, "0123456789abcdefBEHIND"), "0123456789abcdef   123 FD  5   pipe \n");
}

TEST_F(DescriptorListing, TellsWhyTheKernelRefuses) {
  for (const int32_t flavour : {2, 3, 4, 5, 6}) {
    const std::string text =
        std::string("Can't get info (").append(std::to_string(flavour)).append(") - Error ");
    EXPECT_EQ(lineOf(5, flavour, "sshd", 99), std::string(text).append("No such process\n"));
    machine.refusal = darwin::DARWIN_EPERM;
    EXPECT_EQ(lineOf(5, flavour), std::string(text).append("Operation not permitted\n"));
    machine.refusal = darwin::DARWIN_EBADF;
    EXPECT_EQ(lineOf(5, flavour), std::string(text).append("Bad file descriptor\n"));
  }
  EXPECT_EQ(lineOf(5, 77), "Can't get info (77) - Error Invalid argument\n");
  EXPECT_EQ(lineOf(5, -1), "Can't get info (-1) - Error Invalid argument\n");
  EXPECT_EQ(lineOf(5, 9), "sshd               123 FD    NPOLICY (Not handled yet - rc 0)\n");
}

TEST_F(DescriptorListing, OfAFlavourWithoutALineSaysSo) {
  addVnode(5, "/a");
  machine.vnodes[5].pfi.fi_openflags = 1;
  EXPECT_EQ(lineOf(5, 1), "sshd               123 FD  5r  not handled yet (1) \n");
}

darwin::channel_fdinfo channel(uint32_t type, uint32_t port) {
  darwin::channel_fdinfo info{};
  for (size_t i = 0; i < 16; i++) info.channelinfo.chi_instance[i] = static_cast<uint8_t>(0xF0 + i);
  info.channelinfo.chi_type = type;
  info.channelinfo.chi_port = port;
  return info;
}

TEST_F(DescriptorListing, ShowsChannels) {
  const Variable variable("ZDEBUG", nullptr);
  const std::string kUUID = "F0F1F2F3-F4F5-F6F7-F8F9-FAFBFCFDFEFF";
  machine.channels[4] = channel(0, 7);
  const std::string line = "sshd               123 FD    CHANNEL ";
  EXPECT_EQ(lineOf(4, 10), std::string(line).append("upipe\t ").append(kUUID).append("[7]\n"));
  EXPECT_EQ(errorOutputOf([] { lineOf(4, 10); }), "");
  for (const uint32_t type : {1u, 2u, 3u, 0xFFFFFFFFu}) {
    machine.channels[4] = channel(type, UINT32_MAX);
    EXPECT_EQ(listingOf({{4, 10}}, 24, 1),
              std::string(line).append("kpipe\t ").append(kUUID).append("[-1]\n"));
  }
}

TEST_F(DescriptorListing, ShowsAChannelThatIsRefusedAsZeroes) {
  EXPECT_EQ(lineOf(4, 10),
            "sshd               123 FD    CHANNEL upipe\t "
            "00000000-0000-0000-0000-000000000000[0]\n");
}

TEST_F(DescriptorListing, DumpsChannelsWhenTraced) {
  const Variable variable("ZDEBUG", "1");
  machine.channels[4] = channel(1, 7);
  std::string shown;
  const std::string dump = errorOutputOf([&] { shown = lineOf(4, 10); });
  EXPECT_EQ(dump,
            "0x0000: 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 \t........\n"
            "0x   8: 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 \t........\n"
            "0x  10: 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 \t........\n"
            "0x  18: 0xF0 0xF1 0xF2 0xF3 0xF4 0xF5 0xF6 0xF7 \t........\n"
            "0x  20: 0xF8 0xF9 0xFA 0xFB 0xFC 0xFD 0xFE 0xFF \t........\n"
            "0x  28: 0x07 0x00 0x00 0x00 0x01 0x00 0x00 0x00 \t........\n"
            "0x  30: 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 \n");
  EXPECT_EQ(
      shown,
      "sshd               123 FD    CHANNEL kpipe\t F0F1F2F3-F4F5-F6F7-F8F9-FAFBFCFDFEFF[7]\n");
  EXPECT_EQ(errorOutputOf([&] { lineOf(5, 10); }), "0x0000: \n") << "nothing was written";
  EXPECT_EQ(errorOutputOf([&] { lineOf(5, 11); }), "");
}

TEST_F(DescriptorListing, BearsAHostileAnswer) {
  std::memset(&machine.vnodes[1], 0xFF, sizeof machine.vnodes[1]);
  std::memset(&machine.sockets[2], 0xFF, sizeof machine.sockets[2]);
  std::memset(&machine.semaphores[3], 0xFF, sizeof machine.semaphores[3]);
  std::memset(&machine.sharedMemory[4], 0xFF, sizeof machine.sharedMemory[4]);
  std::memset(&machine.channels[5], 0xFF, sizeof machine.channels[5]);
  const std::string start = "sshd               123 FD  ";
  EXPECT_EQ(lineOf(1, 2),
            std::string(start).append("1u  ").append(1024, '?').append(" @0xffffffffffffffff \n"));
  EXPECT_EQ(lineOf(2, 3), std::string(start).append("2u  socket Unknown type -1\n \n"));
  EXPECT_EQ(lineOf(3, 4), std::string(start).append("3u  sem ").append(1024, '?').append("\n"));
  EXPECT_EQ(
      lineOf(4, 5),
      std::string(start).append("4u  shmem ").append(1024, '?').append("@0xffffffffffffffff\n"));
  EXPECT_EQ(lineOf(5, 10),
            "sshd               123 FD    CHANNEL kpipe\t "
            "FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF[-1]\n");
}

// Answers of a kernel that is not sound.
class DescriptorAnswer : public DescriptorListing {
 protected:
  ~DescriptorAnswer() override { wrapped_calls::descriptorInfo = nullptr; }

  // Whatever is asked: leaves this behind and answers `result`.
  void answer(int result, uint8_t filling, int error = 0) {
    wrapped_calls::descriptorInfo = [=](void *buffer, int size) {
      EXPECT_EQ(size, 4096);
      EXPECT_EQ(std::string(static_cast<const char *>(buffer), 8192), std::string(8192, '\0'));
      std::memset(buffer, filling, static_cast<size_t>(size));
      errno = error;
      return result;
    };
  }
};

TEST_F(DescriptorAnswer, BelowZeroIsARefusal) {
  answer(-1, 0, darwin::DARWIN_EPERM);
  for (const int32_t flavour : {1, 2, 3, 4, 5, 6, 7}) {
    EXPECT_EQ(lineOf(5, flavour), std::string("Can't get info (")
                                      .append(std::to_string(flavour))
                                      .append(") - Error Operation not permitted\n"));
  }
  EXPECT_EQ(lineOf(5, 9), "sshd               123 FD    NPOLICY (Not handled yet - rc -1)\n");
  EXPECT_EQ(lineOf(5, 11), "sshd               123 FD    NEXUS (Not handled yet - rc -1)\n");
  EXPECT_EQ(lineOf(5, 10),
            "sshd               123 FD    CHANNEL upipe\t "
            "00000000-0000-0000-0000-000000000000[0]\n");
}

TEST_F(DescriptorAnswer, OfOneByteIsAnAnswer) {
  answer(1, 0);
  EXPECT_EQ(lineOf(5, 2), "sshd               123 FD  5    @0x0        \n");
  EXPECT_EQ(lineOf(5, 6), "sshd               123 FD  5   pipe \n");
  EXPECT_EQ(lineOf(5, 7), "sshd               123 FD  5   not handled yet (7) \n");
  EXPECT_EQ(lineOf(5, 11), "sshd               123 FD    NEXUS (Not handled yet - rc 1)\n");
}

TEST_F(DescriptorAnswer, ThatClaimsMoreThanFitsIsDumpedUpToTheBuffersEnd) {
  const Variable variable("ZDEBUG", "1");
  answer(INT32_MAX, 'A');
  const std::string dump = errorOutputOf([] { lineOf(4, 10); });
  constexpr char kLast[] = "0x1FF8: 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 \n";
  EXPECT_EQ(dump.find(kLast), dump.size() - std::strlen(kLast));
  answer(-1, 'A');
  EXPECT_EQ(errorOutputOf([] { lineOf(4, 10); }), "0x0000: \n");
}

TEST_F(DescriptorListing, CountsMoreEventsThanFit) {
  machine.kqueues[3].resize(5000);
  EXPECT_EQ(lineOf(3, 9), "sshd               123 FD    NPOLICY (Not handled yet - rc 5000)\n");
}

TEST_F(DescriptorListing, OnTheScreenBeginsWithTheNumber) {
  CursesScreen screen(10, 100);
  addVnode(0, "/dev/null");
  machine.sockets[3] = socket_details::onPort(22);
  machine.kqueues[4].resize(1);
  EXPECT_EQ(listingOf({{0, 1}, {3, 2}, {4, 5}, {9, 1}}, 24, 1), "");
  EXPECT_EQ(CursesScreen::text(0, 0, 30), "  0u  /dev/null @0x0          ");
  EXPECT_EQ(CursesScreen::text(1, 0, 30), "  3   socket tcp4   *:22      ");
  EXPECT_EQ(CursesScreen::text(2, 0, 64),
            "sshd               123 FD    NPOLICY (Not handled yet - rc 1)   ");
  EXPECT_EQ(CursesScreen::text(3, 0, 50), "Can't get info (2) - Error Bad file descriptor    ");
}

TEST_F(DescriptorListing, OfAnUnknownTypeClosesTheScreenUntilTheNextRefresh) {
  CursesScreen screen(10, 100);
  wrefresh(stdscr);
  ASSERT_FALSE(isendwin());
  EXPECT_EQ(listingOf({{0, 8}}, 24, 1), "FLAVOR: 8\n") << "past the sink, at once";
  EXPECT_TRUE(isendwin());
  EXPECT_EQ(CursesScreen::textBeforeCursor(), "UNknown");
  EXPECT_FALSE(holdsDrawingLock()) << "the word was nobody's before";
  wrefresh(stdscr);
  EXPECT_FALSE(isendwin());
}

TEST_F(DescriptorListing, OfAnUnknownTypeKeepsTheRightToDraw) {
  CursesScreen screen(10, 100);
  wrefresh(stdscr);
  ASSERT_TRUE(tryLockDrawing());
  EXPECT_EQ(listingOf({{0, 8}, {1, 12}}, 24, 1), "FLAVOR: 8\nFLAVOR: 12\n");
  EXPECT_TRUE(holdsDrawingLock());
  bool taken = true;
  std::thread([&] { taken = tryLockDrawing(); }).join();
  EXPECT_FALSE(taken) << "no other thread may enter curses meanwhile";
  unlockDrawing();
}

}  // namespace
