// Memory pressure from Linux's figures: over tables, in made-up directories, and on this machine.
#include "host/darwin/errors.h"
#include "host/linux/pressure.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

namespace host::linux_machine {
namespace {

constexpr char kZones[] =
    "Node 0, zone      DMA\n"
    "  per-node stats\n"
    "      nr_inactive_anon 3567\n"
    "  pages free     2816\n"
    "        boost    0\n"
    "        min      8\n"
    "        low      10\n"
    "        high     12\n"
    "        spanned  4095\n"
    "        protection: (0, 2956, 24105, 24105, 24105)\n"
    "      nr_free_pages 2816\n"
    "  pagesets\n"
    "    cpu: 0\n"
    "              count: 7\n"
    "              high:  900\n"
    "              high_min: 800\n"
    "  node_unreclaimable:  0\n"
    "Node 0, zone   Normal\n"
    "  pages free     100\n"
    "        min      400\n"
    "        low      500\n"
    "        high     600\n"
    "Node 0, zone  Movable\n"
    "  pages free     0\n"
    "        min      0\n"
    "        low      0\n"
    "        high     0\n";

// One zone that has `free` pages of the 600 that it should have.
std::string zoneWith(uint64_t free) {
  return "Node 0, zone   Normal\n  pages free     " + std::to_string(free) +
         "\n        min      400\n        low      500\n        high     600\n";
}

std::string vmstatWith(uint64_t reclaimed) {
  return "nr_free_pages 1\npgsteal_kswapd " + std::to_string(reclaimed) +
         "\npgsteal_direct 0\npgsteal_khugepaged 0\npgsteal_proactive 0\npgscan_kswapd 77\n"
         "pgsteal_anon 5\npgsteal_file 6\n";
}

std::string stallsOf(uint64_t microseconds) {
  return "some avg10=0.00 avg60=0.00 avg300=0.00 total=" + std::to_string(microseconds) +
         "\nfull avg10=0.00 avg60=0.00 avg300=0.00 total=3\n";
}

TEST(LinuxWatermarks, SumsOfAllZones) {
  Watermarks marks{};
  ASSERT_TRUE(parseWatermarks(kZones, marks));
  EXPECT_EQ(marks.free, 2916u);
  EXPECT_EQ(marks.low, 510u);
  EXPECT_EQ(marks.high, 612u);
}

TEST(LinuxWatermarks, BrokenTexts) {
  Watermarks marks{1, 2, 3};
  for (const char *text :
       {"", "Node 0, zone DMA\n", "  pages free\n", "  pages free x\n", "  pages lost 5\n",
        "  pages free 5\n        low\n", "  pages free 5", "  pages free 99999999999999999999\n",
        "  pages free 18446744073709551615\n  pages free 1\n"}) {
    EXPECT_FALSE(parseWatermarks(text, marks)) << text;
  }
  EXPECT_EQ(marks.free, 1u);
  EXPECT_EQ(marks.high, 3u);
}

TEST(LinuxReclaimedPages, SumOfAllKinds) {
  uint64_t pages = 0;
  ASSERT_TRUE(
      parseReclaimedPages("a 1\npgsteal_kswapd 10\npgsteal_direct 200\npgsteal_khugepaged 3000\n"
                          "pgsteal_proactive 40000\npgsteal_anon 5\npgsteal_file 6\n",
                          pages));
  EXPECT_EQ(pages, 43210u);
  ASSERT_TRUE(parseReclaimedPages("pgsteal_kswapd 10\npgsteal_direct 200\n", pages));
  EXPECT_EQ(pages, 210u);
}

TEST(LinuxReclaimedPages, BrokenTexts) {
  uint64_t pages = 7;
  for (const char *text : {"", "pgsteal_kswapd 10\n", "pgsteal_kswapd x\npgsteal_direct 2\n",
                           "pgsteal_kswapd 10\npgsteal_direct 2"}) {
    EXPECT_FALSE(parseReclaimedPages(text, pages)) << text;
  }
  EXPECT_EQ(pages, 7u);
}

TEST(LinuxStalledTime, OfSomeTasks) {
  uint64_t stalled = 0;
  ASSERT_TRUE(parseStalledTime(stallsOf(123456), stalled));
  EXPECT_EQ(stalled, 123456u);
}

TEST(LinuxStalledTime, BrokenTexts) {
  uint64_t stalled = 7;
  for (const char *text : {"", "some\n", "some avg10=0.00\n", "some total=\n", "some total=x\n",
                           "full avg10=0.00 total=5\n"}) {
    EXPECT_FALSE(parseStalledTime(text, stalled)) << text;
  }
  EXPECT_EQ(stalled, 7u);
}

TEST(LinuxPressurePages, AreOfFourKibibytes) {
  EXPECT_EQ(inPresentedPages(5, 4096), 5u);
  EXPECT_EQ(inPresentedPages(5, 16384), 20u);
  EXPECT_EQ(inPresentedPages(5, 65536), 80u);
  EXPECT_EQ(inPresentedPages(UINT64_MAX, 16384), UINT32_MAX);
  EXPECT_EQ(inPresentedPages(uint64_t{1} << 32, 4096), UINT32_MAX);
}

// A directory with the files of /proc that matter here.
class MadeUpProc : public testing::Test {
 protected:
  MadeUpProc() : root_("/tmp/linux_pressure_test.XXXXXX") {
    EXPECT_NE(mkdtemp(root_.data()), nullptr);
    proc_ = openDirectory(AT_FDCWD, root_.c_str());
    put("zoneinfo", zoneWith(1000));
    put("vmstat", vmstatWith(0));
    put("meminfo", meminfoWith(1'000'000));
  }
  ~MadeUpProc() override { std::filesystem::remove_all(root_); }

  // As a whole, as the kernel's files change.
  void put(const std::string &name, const std::string &text) const {
    const std::filesystem::path path = std::filesystem::path(root_) / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path.string() + ".new") << text;
    std::filesystem::rename(path.string() + ".new", path);
  }
  static std::string meminfoWith(uint64_t availableKiB) {
    return "MemTotal:       24684092 kB\nMemFree:          10000 kB\nMemAvailable:   " +
           std::to_string(availableKiB) + " kB\n";
  }
  static uint64_t inPages(uint64_t pages) {
    return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 4096;
  }

  // Asks in another thread, and calls `meanwhile` until there is an answer.
  Errno askWhile(const std::function<void()> &meanwhile) {
    std::atomic<bool> answered{false};
    Errno error = -1;
    std::thread asking([&] {
      error = pressure().ask(true, 1, wanted_, reclaimed_);
      answered = true;
    });
    while (!answered) {
      meanwhile();
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    asking.join();
    return error;
  }

  MemoryPressure &pressure() {
    if (!pressure_) pressure_.emplace(proc_.get());
    return *pressure_;
  }

  std::string root_;
  FileHandle proc_;
  std::optional<MemoryPressure> pressure_;
  uint32_t wanted_ = 99;
  uint32_t reclaimed_ = 99;
};

TEST_F(MadeUpProc, NothingIsWantedWhileEnoughIsFree) {
  ASSERT_EQ(pressure().ask(false, 1, wanted_, reclaimed_), kAnswered);
  EXPECT_EQ(wanted_, 0u);
  EXPECT_EQ(reclaimed_, 0u);
  put("zoneinfo", zoneWith(600));
  ASSERT_EQ(pressure().ask(false, 1, wanted_, reclaimed_), kAnswered);
  EXPECT_EQ(wanted_, 0u);
}

TEST_F(MadeUpProc, WhatIsMissingIsWanted) {
  put("zoneinfo", zoneWith(450));
  ASSERT_EQ(pressure().ask(false, 1, wanted_, reclaimed_), kAnswered);
  EXPECT_EQ(wanted_, inPages(150));
}

TEST_F(MadeUpProc, ReclaimedIsTheGrowth) {
  put("vmstat", vmstatWith(1000));
  ASSERT_EQ(pressure().ask(false, 1, wanted_, reclaimed_), kAnswered);
  EXPECT_EQ(reclaimed_, 0u) << "nothing is known of before";
  put("vmstat", vmstatWith(1030));
  ASSERT_EQ(pressure().ask(false, 1, wanted_, reclaimed_), kAnswered);
  EXPECT_EQ(reclaimed_, inPages(30));
  // A counter that falls is no growth.
  put("vmstat", vmstatWith(10));
  ASSERT_EQ(pressure().ask(false, 1, wanted_, reclaimed_), kAnswered);
  EXPECT_EQ(reclaimed_, 0u);
}

TEST_F(MadeUpProc, ReclaimedIsNotKnownWithoutCounters) {
  std::filesystem::remove(root_ + "/vmstat");
  ASSERT_EQ(pressure().ask(false, 1, wanted_, reclaimed_), kAnswered);
  EXPECT_EQ(reclaimed_, 0u);
}

TEST_F(MadeUpProc, FailsWithoutWatermarks) {
  put("zoneinfo", "nothing\n");
  EXPECT_EQ(pressure().ask(false, 1, wanted_, reclaimed_), darwin::DARWIN_EIO);
  std::filesystem::remove(root_ + "/zoneinfo");
  EXPECT_EQ(pressure().ask(false, 1, wanted_, reclaimed_), darwin::DARWIN_ENOENT);
  EXPECT_EQ(wanted_, 99u);
}

TEST_F(MadeUpProc, StallsArePressure) {
  uint64_t stalled = 1000;
  put("pressure/memory", stallsOf(stalled));
  put("zoneinfo", zoneWith(590));
  EXPECT_EQ(askWhile([&] { put("pressure/memory", stallsOf(stalled += 1'000'000)); }), kAnswered);
  EXPECT_EQ(wanted_, inPages(10));
}

TEST_F(MadeUpProc, AFileThatIsNotOfTheKernelGetsNoTrigger) {
  put("pressure/memory", stallsOf(1000));
  uint64_t reclaimed = 0;
  bool raised = false;
  EXPECT_EQ(askWhile([&] {
              // Enough looks for the wait to have set a trigger if it were to.
              put("vmstat", vmstatWith(++reclaimed));
              if (reclaimed < 20) return;
              if (!raised) {
                std::ifstream file(root_ + "/pressure/memory");
                std::string line;
                std::getline(file, line);
                EXPECT_EQ(line + "\n", stallsOf(1000).substr(0, line.size() + 1));
                raised = true;
              }
              put("pressure/memory", stallsOf(1000 + reclaimed * 1'000'000));
            }),
            kAnswered);
}

TEST_F(MadeUpProc, WithoutStallAccountingLittleMemoryIsPressure) {
  uint64_t asked = 0;
  EXPECT_EQ(askWhile([&] {
              if (++asked == 20) put("meminfo", meminfoWith(inPages(499) * 4));
            }),
            kAnswered);
  EXPECT_GE(asked, 20u) << "before there was no pressure";
}

// How a wait is to be ended by a test: by a signal whose handler does nothing.
class Waiting : public testing::Test {
 protected:
  Waiting() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, &before_);
    proc_ = openDirectory(AT_FDCWD, "/proc");
    pressure_.emplace(proc_.get());
    waiter_ = std::thread([this] {
      error_ = pressure_->ask(true, 1, wanted_, reclaimed_);
      ended_ = true;
    });
  }
  ~Waiting() override {
    interrupt();
    sigaction(SIGUSR1, &before_, nullptr);
  }

  void interrupt() {
    if (!waiter_.joinable()) return;
    while (!ended_) {
      pthread_kill(waiter_.native_handle(), SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    waiter_.join();
  }

  struct sigaction before_ {};
  FileHandle proc_;
  std::optional<MemoryPressure> pressure_;
  std::thread waiter_;
  std::atomic<bool> ended_{false};
  Errno error_ = -1;
  uint32_t wanted_ = 99;
  uint32_t reclaimed_ = 99;
};

TEST_F(Waiting, IsEndedByASignal) {
  interrupt();
  EXPECT_EQ(error_, darwin::DARWIN_EINTR);
  EXPECT_EQ(wanted_, 99u);
}

TEST_F(Waiting, OthersMayAskMeanwhile) {
  uint32_t wanted = 99;
  uint32_t reclaimed = 99;
  EXPECT_EQ(pressure_->ask(false, 1, wanted, reclaimed), kAnswered);
  EXPECT_NE(wanted, 99u);
}

bool hasTrigger() {
  for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    if (std::filesystem::read_symlink(entry, gone) == "/proc/pressure/memory") return true;
  }
  return false;
}

TEST_F(Waiting, IsOnATriggerOfTheKernel) {
  FileHandle file(openat(proc_.get(), "pressure/memory", O_RDWR | O_NONBLOCK | O_CLOEXEC));
  constexpr char kTrigger[] = "some 300000 2000000";
  if (!file.isOpen() || write(file.get(), kTrigger, sizeof kTrigger) < 0) {
    GTEST_SKIP() << "this kernel, or this user, has no triggers";
  }
  file.close();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!hasTrigger() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_TRUE(hasTrigger());
}

}  // namespace
}  // namespace host::linux_machine
