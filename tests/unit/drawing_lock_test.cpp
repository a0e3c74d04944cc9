#include "terminal/drawing_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "terminal/output.h"

namespace {

using namespace sondex;
using Clock = std::chrono::steady_clock;

constexpr int kLong = 60'000;

// Has the lock on a thread of its own until it is destroyed.
class OtherDrawer {
 public:
  OtherDrawer() {
    while (!m_drawing.load()) std::this_thread::yield();
  }
  ~OtherDrawer() {
    leave();
    m_thread.join();
  }
  OtherDrawer(const OtherDrawer &) = delete;
  OtherDrawer &operator=(const OtherDrawer &) = delete;

  void leave() { m_done.store(true); }

 private:
  std::atomic<bool> m_drawing{false};
  std::atomic<bool> m_done{false};
  std::thread m_thread{[this] {
    ASSERT_TRUE(tryLockDrawing());
    m_drawing.store(true);
    while (!m_done.load()) std::this_thread::yield();
    unlockDrawing();
  }};
};

TEST(DrawingLock, IsNobodyAtFirstAndAfterwards) {
  EXPECT_FALSE(holdsDrawingLock());
  ASSERT_TRUE(tryLockDrawing());
  EXPECT_TRUE(holdsDrawingLock());
  unlockDrawing();
  EXPECT_FALSE(holdsDrawingLock());
  ASSERT_TRUE(tryLockDrawing());
  unlockDrawing();
}

TEST(DrawingLock, IsRefusedAtOnceWhileAnotherDraws) {
  OtherDrawer other;
  EXPECT_FALSE(tryLockDrawing());
  EXPECT_FALSE(holdsDrawingLock());
}

TEST(DrawingLock, MayWaitAgainForWhatItHas) {
  ASSERT_TRUE(lockDrawing(0));
  EXPECT_TRUE(lockDrawing(0));
  unlockDrawing();
  EXPECT_FALSE(holdsDrawingLock());
}

TEST(DrawingLock, WaitIsOverInTime) {
  OtherDrawer other;
  const Clock::time_point start = Clock::now();
  EXPECT_FALSE(lockDrawing(50));
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(50));
  EXPECT_FALSE(lockDrawing(0));
}

TEST(DrawingLock, WaitEndsWithTheOthersFrame) {
  OtherDrawer other;
  std::thread leaving([&] { other.leave(); });
  EXPECT_TRUE(lockDrawing(kLong));
  EXPECT_TRUE(holdsDrawingLock());
  unlockDrawing();
  leaving.join();
}

// Frames follow each other with next to no time between them, which a thread that only tried again
// and again would hardly ever hit upon.
TEST(DrawingLock, WaitingGoesBeforeTheNextFrame) {
  constexpr std::chrono::milliseconds kFrame{20};
  constexpr int kPatience = 5000;
  std::atomic<bool> hasEnded{false};
  bool gotIt = false;
  ASSERT_TRUE(tryLockDrawing());
  std::thread waiting([&] {
    gotIt = lockDrawing(kPatience);
    if (gotIt) unlockDrawing();
    hasEnded.store(true);
  });
  bool drawing = true;
  while (!hasEnded.load()) {
    if (drawing) {
      std::this_thread::sleep_for(kFrame);
      unlockDrawing();
    }
    drawing = tryLockDrawing();
  }
  if (drawing) unlockDrawing();
  waiting.join();
  EXPECT_TRUE(gotIt);
}

TEST(DrawingLock, IsOneOfMany) {
  int frames = 0;  // plain on purpose: the lock keeps the threads apart
  std::atomic<int> drawn{0};
  std::thread threads[4];
  for (std::thread &thread : threads) {
    thread = std::thread([&] {
      for (int i = 0; i < 20; i++) {
        if (!(i % 2 == 0 ? tryLockDrawing() : lockDrawing(kLong))) continue;
        frames++;
        drawn++;
        unlockDrawing();
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(frames, drawn.load());
  EXPECT_GE(frames, 4 * 10);
}

}  // namespace
