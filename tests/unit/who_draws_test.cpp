#include "ui/who_draws.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "ui/output.h"

namespace {

using namespace sondex;
using Clock = std::chrono::steady_clock;

constexpr int kLong = 60'000;

// Has the word on a thread of its own until it is destroyed.
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
    ASSERT_TRUE(startDrawing());
    m_drawing.store(true);
    while (!m_done.load()) std::this_thread::yield();
    stopDrawing();
  }};
};

TEST(WhoDraws, IsNobodyAtFirstAndAfterwards) {
  EXPECT_FALSE(isDrawing());
  ASSERT_TRUE(startDrawing());
  EXPECT_TRUE(isDrawing());
  stopDrawing();
  EXPECT_FALSE(isDrawing());
  ASSERT_TRUE(startDrawing());
  stopDrawing();
}

TEST(WhoDraws, IsRefusedAtOnceWhileAnotherDraws) {
  OtherDrawer other;
  EXPECT_FALSE(startDrawing());
  EXPECT_FALSE(isDrawing());
}

TEST(WhoDraws, MayWaitAgainForWhatItHas) {
  ASSERT_TRUE(waitToDraw(0));
  EXPECT_TRUE(waitToDraw(0));
  stopDrawing();
  EXPECT_FALSE(isDrawing());
}

TEST(WhoDraws, WaitIsOverInTime) {
  OtherDrawer other;
  const Clock::time_point start = Clock::now();
  EXPECT_FALSE(waitToDraw(50));
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(50));
  EXPECT_FALSE(waitToDraw(0));
}

TEST(WhoDraws, WaitEndsWithTheOthersFrame) {
  OtherDrawer other;
  std::thread leaving([&] { other.leave(); });
  EXPECT_TRUE(waitToDraw(kLong));
  EXPECT_TRUE(isDrawing());
  stopDrawing();
  leaving.join();
}

TEST(WhoDraws, WaitingGoesBeforeTheNextFrame) {
  std::atomic<bool> gotIt{false};
  std::thread waiting;
  {
    ASSERT_TRUE(startDrawing());
    waiting = std::thread([&] {
      gotIt.store(waitToDraw(kLong));
      if (gotIt.load()) stopDrawing();
    });
    // A loop that draws frame after frame without a rest gives way sooner or later.
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(60);
    bool drawing = true;
    while (!gotIt.load() && Clock::now() < deadline) {
      if (drawing) stopDrawing();
      drawing = startDrawing();
    }
    if (drawing) stopDrawing();
  }
  waiting.join();
  EXPECT_TRUE(gotIt.load());
}

TEST(WhoDraws, IsOneOfMany) {
  int frames = 0;  // plain on purpose: the word keeps the threads apart
  std::atomic<int> drawn{0};
  std::thread threads[4];
  for (std::thread &thread : threads) {
    thread = std::thread([&] {
      for (int i = 0; i < 20; i++) {
        if (!(i % 2 == 0 ? startDrawing() : waitToDraw(kLong))) continue;
        frames++;
        drawn++;
        stopDrawing();
      }
    });
  }
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(frames, drawn.load());
  EXPECT_GE(frames, 4 * 10);
}

}  // namespace
