#include <velto/dispatch/VeltoMainQueue.hpp>

#include <velto/dispatch/VeltoDispatchQueue.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

// gtest runs every test on the process's initial thread.
TEST(VeltoMainQueue, mainThreadIsTheInitialThreadOnly) {
  EXPECT_TRUE(VeltoMainQueue::isMainThread());
  bool onOther = true;
  std::thread([&] { onOther = VeltoMainQueue::isMainThread(); }).join();
  EXPECT_FALSE(onOther);
}

TEST(VeltoMainQueue, workRunsOnlyWhenTheMainThreadDrains) {
  const auto& main = VeltoDispatchQueue::main();
  std::atomic<int> ran{0};
  bool onMain = false;
  bool current = false;
  std::thread([&] {
    main->async([&] {
      onMain = VeltoMainQueue::isMainThread();
      current = VeltoDispatchQueue::main()->isCurrent();
      ++ran;
    });
  }).join();
  EXPECT_EQ(ran.load(), 0) << "main-queue work ran without a drain";
  EXPECT_TRUE(VeltoMainQueue::drainPending());
  EXPECT_EQ(ran.load(), 1);
  EXPECT_TRUE(onMain);
  EXPECT_TRUE(current);
  EXPECT_FALSE(VeltoMainQueue::drainPending()) << "nothing was pending";
}

TEST(VeltoMainQueue, drainPendingLeavesWorkSubmittedDuringTheDrainForTheNextOne) {
  std::vector<int> order;
  VeltoDispatchQueue::main()->async([&] {
    order.push_back(1);
    VeltoDispatchQueue::main()->async([&] { order.push_back(2); });
  });
  EXPECT_TRUE(VeltoMainQueue::drainPending());
  EXPECT_EQ(order, std::vector<int>{1});
  EXPECT_TRUE(VeltoMainQueue::drainPending());
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

// Background threads sync onto the main queue between their own async posts: every closure runs
// on the main thread, as the main queue, after what the same thread posted before it, and its
// result or exception reaches the caller.
TEST(VeltoMainQueue, syncFromOtherThreadsRunsOnTheMainThreadInOrder) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 300;
  std::vector<int> lastPosted(kThreads, -1);  // main-queue confined
  std::atomic<int> wrong{0};
  std::atomic<int> finished{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      const auto& main = VeltoDispatchQueue::main();
      for (int round = 0; round < kRounds; ++round) {
        main->async([&, t, round] { lastPosted[static_cast<std::size_t>(t)] = round; });
        const int seen = main->sync([&, t] {
          if (!VeltoMainQueue::isMainThread() || !main->isCurrent()) ++wrong;
          return lastPosted[static_cast<std::size_t>(t)];
        });
        if (seen != round) ++wrong;
        if (round % 50 == 0) {
          try {
            main->sync([] { throw std::runtime_error("from main"); });
            ++wrong;
          } catch (const std::runtime_error&) {
          }
        }
      }
      ++finished;
      VeltoMainQueue::wakeUp();
    });
  }
  const auto deadline = std::chrono::steady_clock::now() + 60s;
  EXPECT_TRUE(VeltoMainQueue::runUntil([&] { return finished.load() == kThreads; }, deadline));
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0);
}

// A condition set by a pool thread followed by wakeUp() ends the wait at once, round after round;
// a lost wake-up would show as a wait that lasted until the deadline.
TEST(VeltoMainQueue, wakeUpEndsRunUntilWhenAPoolThreadSatisfiesTheCondition) {
  auto queue = VeltoDispatchQueue::createSerial("waker");
  for (int round = 0; round < 200; ++round) {
    std::atomic<bool> done{false};
    queue->async([&] {
      done = true;
      VeltoMainQueue::wakeUp();
    });
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    ASSERT_TRUE(VeltoMainQueue::runUntil([&] { return done.load(); }, deadline));
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "round " << round << " was noticed only at the deadline";
    queue->sync([] {});  // the work holding `done` has finished before the next round
  }
}

TEST(VeltoMainQueue, wakeUpWithoutAWaiterIsHarmless) {
  std::thread([] {
    for (int i = 0; i < 1000; ++i) VeltoMainQueue::wakeUp();
  }).join();
  EXPECT_FALSE(VeltoMainQueue::drainPending());
}

TEST(VeltoMainQueue, syncFromTheMainThreadRunsPendingWorkFirst) {
  std::vector<int> order;
  VeltoDispatchQueue::main()->async([&] { order.push_back(1); });
  VeltoDispatchQueue::main()->sync([&] { order.push_back(2); });
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(VeltoMainQueue, runReturnsAfterStop) {
  std::atomic<bool> ran{false};
  std::thread([&] {
    VeltoDispatchQueue::main()->async([&] {
      ran = true;
      VeltoMainQueue::stop();
    });
  }).join();
  VeltoMainQueue::run();
  EXPECT_TRUE(ran.load());
}

TEST(VeltoMainQueue, runUntilADeadlineReturnsWithoutWork) {
  const auto deadline = std::chrono::steady_clock::now() + 5ms;
  VeltoMainQueue::runUntil(deadline);
  EXPECT_GE(std::chrono::steady_clock::now(), deadline);
}

// Runs in a child process: the main thread stays adopted for the rest of the process.
TEST(VeltoMainQueueDeathTest, adoptedThreadBecomesTheMainThreadAndDrainsTheMainQueue) {
  EXPECT_EXIT(
      {
        bool adoptedIsMain = false;
        bool ran = false;
        VeltoDispatchQueue::main()->async([&] { ran = VeltoMainQueue::isMainThread(); });
        std::thread([&] {
          VeltoMainQueue::adoptCurrentThreadAsMain();
          adoptedIsMain = VeltoMainQueue::isMainThread();
          (void)VeltoMainQueue::drainPending();
        }).join();
        std::exit(adoptedIsMain && ran && !VeltoMainQueue::isMainThread() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST(VeltoMainQueueDeathTest, syncOntoTheMainQueueFromMainQueueWorkStops) {
  EXPECT_DEATH(
      {
        VeltoDispatchQueue::main()->async([] { VeltoDispatchQueue::main()->sync([] {}); });
        (void)VeltoMainQueue::drainPending();
      },
      "sync onto serial queue \"velto.main\" .*would deadlock");
}

TEST(VeltoMainQueueDeathTest, drainingOffTheMainThreadStops) {
  EXPECT_DEATH(std::thread([] { (void)VeltoMainQueue::drainPending(); }).join(), "off the main thread");
}

}  // namespace
