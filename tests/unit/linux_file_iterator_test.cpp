// The kernel's records of what a task has open, beside its files; and that descriptors which are
// answered by them are told as they are one by one.
#include "host/linux/file_iterator.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/darwin/errors.h"
#include "host/darwin/proc_info.h"
#include "host/linux/descriptors.h"
#include "host/linux/kernel_looks.h"
#include "host/linux/linux_machine.h"
#include "tests/unit/child_process.h"
#include "tests/unit/waiting.h"

namespace host::linux_machine {
namespace {

using testing::IsEmpty;

void require(bool isGood) {
  if (!isGood) _exit(1);
}

constexpr int kFirstKind = 60;
constexpr int kLastOfRow = 70;
constexpr int kApart = 37;

// Whether openAllKinds() has this number. What has others is inherited: who else has it open may
// write to it.
bool isOfAKind(int fd) {
  return fd >= kFirstKind && (fd <= kLastOfRow || (fd - kLastOfRow) % kApart == 0);
}

// Opens something of each kind, with numbers in several words of the kernel's bitmaps.
void openAllKinds() {
  auto keep = [number = kFirstKind](int fd) mutable {
    require(fd >= 0 && dup3(fd, number, number % 2 == 0 ? O_CLOEXEC : 0) == number);
    close(fd);
    number += number < kLastOfRow ? 1 : kApart;
  };
  keep(open("/etc/passwd", O_RDONLY));
  keep(open("/dev/null", O_WRONLY | O_APPEND));
  keep(open("/usr", O_RDONLY | O_DIRECTORY));
  keep(open("/etc/passwd", O_PATH));
  const int deleted = open("/tmp", O_TMPFILE | O_RDWR, 0640);
  struct stat asked;
  require(deleted >= 0 && write(deleted, "12345", 5) == 5 && fstat(deleted, &asked) == 0);
  keep(deleted);
  int ends[2];
  require(pipe2(ends, O_NONBLOCK) == 0);
  keep(ends[0]);
  keep(ends[1]);
  require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
  keep(ends[0]);
  keep(ends[1]);
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  require(listen(listener, 1) == 0);
  keep(listener);
  keep(socket(AF_INET6, SOCK_DGRAM, 0));
  keep(epoll_create1(0));
  keep(eventfd(7, 0));
  keep(timerfd_create(CLOCK_MONOTONIC, 0));
  keep(inotify_init1(0));
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGUSR1);
  keep(signalfd(-1, &signals, 0));
  keep(memfd_create("a name that is longer than what a record has room for", 0));
  keep(memfd_create("short", 0));
}

void sleepWithAllKinds(const std::function<void()> &ready) {
  openAllKinds();
  sleeping(ready);
}

class LinuxFileIteratorTest : public testing::Test {
 protected:
  void SetUp() override {
    iterator_ = KernelLooks::load(proc_.get()).files;
    if (!iterator_) GTEST_SKIP() << "this kernel gives no look at all files to this user";
  }
  std::vector<FileRecord> look(pid_t pid, size_t most = SIZE_MAX) {
    std::vector<FileRecord> files;
    EXPECT_TRUE(iterator_->read(pid, most, files));
    return files;
  }

  const FileHandle proc_ = openDirectory(AT_FDCWD, "/proc");
  std::optional<FileIterator> iterator_;
};

TEST_F(LinuxFileIteratorTest, RecordsAreWhatTheFilesSay) {
  Child child(sleepWithAllKinds);
  const std::string folder = "/proc/" + std::to_string(child.pid());
  const std::vector<FileRecord> files = look(child.pid());
  std::vector<int32_t> numbers;
  DirectoryReader lister;
  ASSERT_EQ(lister.readNumbers(openDirectory(AT_FDCWD, (folder + "/fd").c_str()).get(), numbers),
            kAnswered);
  numbers.push_back(0);
  std::ranges::sort(numbers);
  EXPECT_TRUE(std::ranges::equal(files, numbers, {}, &FileRecord::descriptor));
  EXPECT_GE(files.size(), 18u);
  int nameless = 0;
  for (const FileRecord &file : files) {
    if (!isOfAKind(file.descriptor)) continue;
    const std::string number = std::to_string(file.descriptor);
    std::ifstream info(folder + "/fdinfo/" + number);
    std::string word;
    int64_t position = -1;
    unsigned int flags = 0;
    info >> word >> position >> word >> std::oct >> flags;
    EXPECT_EQ(file.position, position) << number;
    EXPECT_EQ(file.flags & ~static_cast<unsigned int>(O_CLOEXEC),
              flags & ~static_cast<unsigned int>(O_CLOEXEC))
        << number;
    EXPECT_EQ(file.closesOnExec, (flags & O_CLOEXEC) != 0 ? 1 : 0) << number;
    EXPECT_EQ(file.isTaken, 0) << number;

    char link[256];
    const ssize_t length = readlink((folder + "/fd/" + number).c_str(), link, sizeof link - 1);
    ASSERT_GT(length, 0);
    const std::string text(link, static_cast<size_t>(length));
    if (text.starts_with("anon_inode:")) {
      EXPECT_EQ("anon_inode:" + std::string(file.name), text);
    }
    // Others' file systems may have figures of their own.
    if (!text.starts_with("socket:") && !text.starts_with("pipe:")) continue;
    nameless++;
    struct statx stat;
    ASSERT_EQ(statx(AT_FDCWD, (folder + "/fd/" + number).c_str(), 0, STATX_BASIC_STATS, &stat), 0);
    EXPECT_EQ(file.inode, stat.stx_ino) << number;
    EXPECT_EQ(file.mode, stat.stx_mode) << number;
    EXPECT_EQ(file.links, stat.stx_nlink) << number;
    EXPECT_EQ(file.user, stat.stx_uid) << number;
    EXPECT_EQ(file.group, stat.stx_gid) << number;
    EXPECT_EQ(file.size, static_cast<int64_t>(stat.stx_size)) << number;
    EXPECT_EQ(file.changeSeconds, stat.stx_ctime.tv_sec) << number;
    EXPECT_EQ(file.changeNanoseconds, stat.stx_ctime.tv_nsec) << number;
    EXPECT_EQ(file.modificationSeconds, stat.stx_mtime.tv_sec) << number;
    EXPECT_EQ(file.modificationNanoseconds, stat.stx_mtime.tv_nsec) << number;
    EXPECT_EQ(file.accessSeconds, stat.stx_atime.tv_sec) << number;
    EXPECT_EQ(file.accessNanoseconds, stat.stx_atime.tv_nsec) << number;
    EXPECT_EQ(file.blocks, stat.stx_blocks) << number;
    EXPECT_EQ(uint32_t{1} << file.blockBits, stat.stx_blksize) << number;
    EXPECT_EQ(file.device >> 20, stat.stx_dev_major) << number;
    EXPECT_EQ(file.device & 0xfffff, stat.stx_dev_minor) << number;
  }
  EXPECT_GE(nameless, 6);
}

// Where that matters, the kernel marks times of change that somebody has seen.
TEST_F(LinuxFileIteratorTest, ATimeOfChangeThatWasAskedForIsATime) {
  Child child(sleepWithAllKinds);
  const std::vector<FileRecord> files = look(child.pid());
  const auto file = std::ranges::find(files, 64, &FileRecord::descriptor);
  ASSERT_NE(file, files.end());
  struct stat stat;
  const std::string path = "/proc/" + std::to_string(child.pid()) + "/fd/64";
  ASSERT_EQ(::stat(path.c_str(), &stat), 0);
  EXPECT_EQ(file->size, 5);
  EXPECT_EQ(file->changeSeconds, stat.st_ctim.tv_sec);
  EXPECT_EQ(file->changeNanoseconds, stat.st_ctim.tv_nsec);
}

TEST_F(LinuxFileIteratorTest, AreAsManyAsAreWantedOfThoseThereAre) {
  Child child([](const std::function<void()> &ready) {
    const rlimit many = {2000, 2000};
    setrlimit(RLIMIT_NOFILE, &many);
    for (int fd = 100; fd < 900; fd++) require(dup2(STDIN_FILENO, fd) == fd);
    sleeping(ready);
  });
  const std::vector<FileRecord> files = look(child.pid());
  EXPECT_GE(files.size(), 803u) << "more than the kernel gives at a time";
  EXPECT_TRUE(std::ranges::is_sorted(files, {}, &FileRecord::descriptor));
  EXPECT_EQ(files.back().descriptor, 899);
  EXPECT_EQ(look(child.pid(), 5).size(), 5u);
  EXPECT_EQ(look(child.pid(), 700).size(), 700u);
  EXPECT_THAT(look(child.pid(), 0), IsEmpty());

  child.signalAndWait(SIGKILL, WEXITED);
  EXPECT_THAT(look(child.pid()), IsEmpty()) << "a zombie";
  const pid_t pid = child.pid();
  child.end();
  EXPECT_THAT(look(pid), IsEmpty());
}

template <typename T>
std::string bytesOf(const T &info) {
  return {reinterpret_cast<const char *>(&info), sizeof info};
}

// All that is told of what openAllKinds() opened, as bytes.
std::map<std::string, std::string> tellAll(Descriptors &descriptors, int process,
                                           const std::vector<darwin::proc_fdinfo> &list) {
  std::map<std::string, std::string> told;
  for (const darwin::proc_fdinfo &entry : list) {
    const int fd = entry.proc_fd;
    if (!isOfAKind(fd)) continue;
    const auto ask = [&](const char *what, auto question, auto info) {
      memset(static_cast<void *>(&info), 0, sizeof info);
      const Errno error = (descriptors.*question)(process, fd, info);
      told[std::to_string(fd) + what] = std::to_string(error) + bytesOf(info);
    };
    std::vector<darwin::kevent_extinfo> events;
    switch (entry.proc_fdtype) {
      case darwin::PROX_FDTYPE_VNODE:
        ask("file", &Descriptors::vnode, darwin::vnode_fdinfowithpath{});
        break;
      case darwin::PROX_FDTYPE_SOCKET:
        ask("socket", &Descriptors::socket, darwin::socket_fdinfo{});
        break;
      case darwin::PROX_FDTYPE_PIPE:
        ask("pipe", &Descriptors::pipe, darwin::pipe_fdinfo{});
        break;
      case darwin::PROX_FDTYPE_PSHM:
        ask("memory", &Descriptors::sharedMemory, darwin::pshm_fdinfo{});
        break;
      case darwin::PROX_FDTYPE_KQUEUE:
        // One question each time: the first is the one that is answered by a look at all.
        if (fd % 2 == 0) {
          ask("queue", &Descriptors::kqueue, darwin::kqueue_fdinfo{});
        } else {
          EXPECT_EQ(descriptors.kqueueEvents(process, fd, events), kAnswered);
          for (const auto &event : events) told[std::to_string(fd) + "events"] += bytesOf(event);
        }
        break;
      default:
        told[std::to_string(fd)] = std::to_string(entry.proc_fdtype);
    }
  }
  return told;
}

std::string listText(const std::vector<darwin::proc_fdinfo> &list) {
  std::string text;
  for (const auto &entry : list) {
    text += std::to_string(entry.proc_fd) + ":" + std::to_string(entry.proc_fdtype) + " ";
  }
  return text;
}

TEST_F(LinuxFileIteratorTest, DescriptorsAreToldAsOneByOne) {
  Child child(sleepWithAllKinds);
  const FileHandle process =
      openStartingPoint(AT_FDCWD, ("/proc/" + std::to_string(child.pid())).c_str());
  Descriptors descriptors;
  std::vector<darwin::proc_fdinfo> list;
  std::vector<uint64_t> sockets;
  ASSERT_EQ(descriptors.list(process.get(), 1000, list, &sockets), kAnswered);
  const auto oneByOne = tellAll(descriptors, process.get(), list);

  // The look at all has found them, or some of them, or none.
  for (const size_t found : {size_t{1000}, size_t{20}, size_t{0}}) {
    const size_t most = found == 0 ? 1000 : found;
    std::vector<FileRecord> files = look(child.pid(), found);
    descriptors.useFiles(files);
    std::vector<darwin::proc_fdinfo> listed;
    std::vector<uint64_t> inodes;
    ASSERT_EQ(descriptors.list(process.get(), most, listed, &inodes), kAnswered);
    std::vector<darwin::proc_fdinfo> wanted = list;
    wanted.resize(std::min(list.size(), most));
    EXPECT_EQ(listText(listed), listText(wanted));
    if (most == 1000) {
      EXPECT_EQ(inodes, sockets);
    }
    const auto together = tellAll(descriptors, process.get(), listed);
    for (const auto &[what, told] : together) EXPECT_EQ(told, oneByOne.at(what)) << what;
  }
}

TEST_F(LinuxFileIteratorTest, WhoAsksTwiceIsToldOfNow) {
  const FileHandle file(open("/etc/passwd", O_RDONLY | O_CLOEXEC));
  Child child(sleeping);
  const FileHandle process =
      openStartingPoint(AT_FDCWD, ("/proc/" + std::to_string(child.pid())).c_str());
  Descriptors descriptors;
  std::vector<FileRecord> files = look(child.pid());
  descriptors.useFiles(files);
  ASSERT_EQ(lseek(file.get(), 3, SEEK_SET), 3);
  const auto position = [&] {
    darwin::vnode_fdinfowithpath info{};
    EXPECT_EQ(descriptors.vnode(process.get(), file.get(), info), kAnswered);
    return info.pfi.fi_offset;
  };
  EXPECT_EQ(position(), 0);
  EXPECT_EQ(position(), 3);
}

TEST_F(LinuxFileIteratorTest, WhatHasBeenClosedSinceTheLookIsNotListed) {
  Child child(sleeping);
  const FileHandle process =
      openStartingPoint(AT_FDCWD, ("/proc/" + std::to_string(child.pid())).c_str());
  Descriptors descriptors;
  std::vector<FileRecord> files = look(child.pid());
  const size_t count = files.size();
  FileRecord closed = files.front();
  closed.descriptor = 5000;
  files.push_back(closed);
  descriptors.useFiles(files);
  std::vector<darwin::proc_fdinfo> list;
  ASSERT_EQ(descriptors.list(process.get(), 1000, list), kAnswered);
  EXPECT_EQ(list.size(), count);
}

// After so many that were looked at one by one the machine looks at all of a process's at once.
class ManyDescriptors : public testing::Test {
 protected:
  ManyDescriptors() {
    Child crowded([](const std::function<void()> &ready) {
      const rlimit many = {3000, 3000};
      setrlimit(RLIMIT_NOFILE, &many);
      for (int i = 0; i < 600; i++) {
        int ends[2];
        require(pipe(ends) == 0);
      }
      sleeping(ready);
    });
    EXPECT_GE(list(crowded.pid()).size(), 1200u);
  }
  std::vector<darwin::proc_fdinfo> list(pid_t pid) {
    std::vector<darwin::proc_fdinfo> list;
    EXPECT_EQ(machine_->descriptors(pid, 4000, list), kAnswered);
    return list;
  }
  void beginPass() {
    std::vector<int32_t> pids;
    EXPECT_EQ(machine_->processIDs(pids), kAnswered);
  }

  std::unique_ptr<Machine> machine_ = makeLinuxMachine();
};

TEST_F(ManyDescriptors, AreListedAsTheyAreNow) {
  int orders[2];
  int answers[2];
  ASSERT_EQ(pipe(orders), 0);
  ASSERT_EQ(pipe(answers), 0);
  Child child([&](const std::function<void()> &ready) {
    openAllKinds();
    ready();
    for (char order = 0; read(orders[0], &order, 1) == 1;) {
      require(order == 'o' ? dup2(60, 500) == 500 : close(500) == 0);
      require(write(answers[1], "d", 1) == 1);
    }
  });
  const auto obey = [&](char order) {
    char done = 0;
    ASSERT_EQ(write(orders[1], &order, 1), 1);
    ASSERT_EQ(read(answers[0], &done, 1), 1);
  };
  const auto fresh = [&] {
    std::vector<darwin::proc_fdinfo> list;
    EXPECT_EQ(makeLinuxMachine()->descriptors(child.pid(), 4000, list), kAnswered);
    return listText(list);
  };
  for (int round = 0; round < 3; round++) {
    EXPECT_EQ(listText(list(child.pid())), fresh());
    obey('o');
    EXPECT_EQ(listText(list(child.pid())), fresh());
    darwin::vnode_fdinfowithpath info{};
    EXPECT_EQ(machine_->vnodeDescriptor(child.pid(), 500, info), kAnswered);
    EXPECT_STREQ(info.pvip.vip_path, "/etc/passwd");
    obey('c');
    beginPass();
    EXPECT_EQ(listText(list(child.pid())), fresh());
    EXPECT_EQ(machine_->vnodeDescriptor(child.pid(), 500, info), darwin::DARWIN_EBADF);
  }
  for (const int fd : {orders[0], orders[1], answers[0], answers[1]}) close(fd);
}

TEST_F(ManyDescriptors, OfOneProcessAreNotToldOfAnother) {
  Child first(sleepWithAllKinds);
  Child second(sleeping);
  ASSERT_GE(list(first.pid()).size(), 18u);
  darwin::pipe_fdinfo info{};
  EXPECT_EQ(machine_->pipeDescriptor(first.pid(), 65, info), kAnswered);
  EXPECT_EQ(machine_->pipeDescriptor(second.pid(), 66, info), darwin::DARWIN_EBADF);
  list(second.pid());
  EXPECT_EQ(machine_->pipeDescriptor(second.pid(), 66, info), darwin::DARWIN_EBADF);
  EXPECT_EQ(machine_->pipeDescriptor(first.pid(), 66, info), kAnswered);
  EXPECT_EQ(info.pipeinfo.pipe_handle % 2, 1u);
}

TEST_F(ManyDescriptors, OfThisProgramAreThoseItHas) {
  const std::vector<darwin::proc_fdinfo> own = list(getpid());
  std::vector<int32_t> numbers = {0};
  DirectoryReader lister;
  {
    const FileHandle directory = openDirectory(AT_FDCWD, "/proc/self/fd");
    ASSERT_EQ(lister.readNumbers(directory.get(), numbers), kAnswered);
    std::erase(numbers, directory.get());
  }
  std::ranges::sort(numbers);
  EXPECT_TRUE(std::ranges::equal(own, numbers, {}, &darwin::proc_fdinfo::proc_fd));
}

TEST_F(ManyDescriptors, OfAZombieAreNone) {
  Child child(sleeping);
  child.signalAndWait(SIGKILL, WEXITED);
  std::vector<darwin::proc_fdinfo> list;
  EXPECT_EQ(machine_->descriptors(child.pid(), 100, list), darwin::DARWIN_ESRCH);
}

}  // namespace
}  // namespace host::linux_machine
