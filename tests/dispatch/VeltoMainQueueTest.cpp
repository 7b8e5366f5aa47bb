#include <velto/dispatch/VeltoMainQueue.hpp>

#include <velto/dispatch/VeltoDispatchQueue.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <future>
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

TEST(VeltoMainQueue, syncFromAnotherThreadRunsWhenTheMainThreadDrains) {
  bool ranInSync = false;  // main-queue confined
  bool workerBack = false;  // main-queue confined
  auto worker = std::async(std::launch::async, [&] {
    const bool current = VeltoDispatchQueue::main()->sync([&] {
      ranInSync = true;
      return VeltoDispatchQueue::main()->isCurrent();
    });
    VeltoDispatchQueue::main()->async([&] { workerBack = true; });  // wakes the main thread's loop
    return current;
  });
  EXPECT_TRUE(VeltoMainQueue::runUntil([&] { return workerBack; }, std::chrono::steady_clock::now() + 10s));
  EXPECT_TRUE(worker.get());
  EXPECT_TRUE(ranInSync);
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

TEST(VeltoMainQueueDeathTest, drainingOffTheMainThreadStops) {
  EXPECT_DEATH(std::thread([] { (void)VeltoMainQueue::drainPending(); }).join(), "off the main thread");
}

}  // namespace
