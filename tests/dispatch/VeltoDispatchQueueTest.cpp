#include <velto/dispatch/VeltoDispatchQueue.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <latch>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

// A gate that work can block on until the test opens it.
struct Gate {
  std::promise<void> promise;
  std::shared_future<void> future = promise.get_future().share();
  void open() { promise.set_value(); }
  void pass() const { future.wait(); }
};

TEST(VeltoDispatchQueue, serialQueueKeepsEachProducersOrderAndNeverOverlaps) {
  auto queue = VeltoDispatchQueue::createSerial("fifo");
  constexpr int kProducers = 4;
  constexpr int kItems = 5000;
  std::vector<int> lastSeen(kProducers, -1);  // touched only by queue work: a race shows under TSan
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};
  std::atomic<bool> outOfOrder{false};
  std::latch done(kProducers * kItems);

  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&, p] {
      for (int i = 0; i < kItems; ++i) {
        queue->async([&, p, i] {
          if (running.fetch_add(1) != 0) overlapped = true;
          if (lastSeen[p] != i - 1) outOfOrder = true;
          lastSeen[p] = i;
          running.fetch_sub(1);
          done.count_down();
        });
      }
    });
  }
  for (auto& producer : producers) producer.join();
  done.wait();
  EXPECT_FALSE(overlapped.load()) << "two items of one serial queue ran at once";
  EXPECT_FALSE(outOfOrder.load()) << "a producer's items ran out of submission order";
}

// Syncs from many threads interleaved with async work: every hand-over of the queue between a
// pool drain and a waiting caller is exercised, and any overlap loses an increment.
TEST(VeltoDispatchQueue, mixedSyncAndAsyncFromManyThreadsNeverOverlap) {
  auto queue = VeltoDispatchQueue::createSerial("mixed");
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  long counter = 0;  // queue-confined
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};
  auto body = [&] {
    if (running.fetch_add(1) != 0) overlapped = true;
    ++counter;
    running.fetch_sub(1);
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        queue->async(body);
        queue->sync(body);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(queue->sync([&] { return counter; }), 2L * kThreads * kRounds);
  EXPECT_FALSE(overlapped.load());
}

TEST(VeltoDispatchQueue, asyncNeverRunsInlineEvenFromTheQueueItself) {
  auto queue = VeltoDispatchQueue::createSerial("inline");
  std::promise<std::thread::id> ranOn;
  bool ranBeforeReturn = true;
  bool ran = false;  // outlives the sync body: the async work writes it later
  queue->sync([&] {
    queue->async([&] {
      ran = true;
      ranOn.set_value(std::this_thread::get_id());
    });
    ranBeforeReturn = ran;
  });
  EXPECT_FALSE(ranBeforeReturn);
  EXPECT_NE(ranOn.get_future().get(), std::this_thread::get_id()) << "async work ran on the submitting thread";
}

TEST(VeltoDispatchQueue, syncOnAnIdleQueueRunsInlineAsTheCurrentQueue) {
  auto queue = VeltoDispatchQueue::createSerial("sync");
  EXPECT_FALSE(queue->isCurrent());
  EXPECT_EQ(VeltoDispatchQueue::current(), nullptr);
  const auto [thread, current] = queue->sync([&] { return std::pair(std::this_thread::get_id(), queue->isCurrent()); });
  EXPECT_EQ(thread, std::this_thread::get_id());
  EXPECT_TRUE(current);
  EXPECT_FALSE(queue->isCurrent());
}

TEST(VeltoDispatchQueue, syncOnABusyQueueWaitsForEarlierWorkAndRunsOnTheCaller) {
  auto queue = VeltoDispatchQueue::createSerial("busy");
  Gate gate;
  std::vector<std::string> order;  // queue-confined
  queue->async([&] {
    gate.pass();
    order.push_back("first");
  });
  queue->async([&] { order.push_back("second"); });
  auto caller = std::async(std::launch::async, [&] {
    return queue->sync([&] {
      order.push_back("sync");
      return std::this_thread::get_id();
    });
  });
  gate.open();
  const std::thread::id callerThread = caller.get();
  queue->sync([&] { EXPECT_EQ(order, (std::vector<std::string>{"first", "second", "sync"})); });
  EXPECT_NE(callerThread, std::this_thread::get_id());
}

TEST(VeltoDispatchQueue, workSubmittedDuringSyncRunsAfterIt) {
  auto queue = VeltoDispatchQueue::createSerial("after-sync");
  std::vector<int> order;
  std::promise<void> done;
  queue->sync([&] {
    queue->async([&] {
      order.push_back(2);
      done.set_value();
    });
    order.push_back(1);
  });
  done.get_future().wait();
  queue->sync([&] { EXPECT_EQ(order, (std::vector<int>{1, 2})); });
}

TEST(VeltoDispatchQueue, exceptionFromSyncWorkReachesTheCallerAndTheQueueMovesOn) {
  auto queue = VeltoDispatchQueue::createSerial("throws");
  EXPECT_THROW(queue->sync([]() -> int { throw std::runtime_error("no"); }), std::runtime_error);
  EXPECT_FALSE(queue->isCurrent());
  EXPECT_EQ(queue->sync([] { return 7; }), 7) << "the queue stayed owned after the exception";
}

TEST(VeltoDispatchQueue, pendingWorkStillRunsAfterTheLastHolderLetsGo) {
  auto queue = VeltoDispatchQueue::createSerial("released");
  std::weak_ptr<VeltoDispatchQueue> weak = queue;
  Gate gate;
  std::latch done(100);
  queue->async([&] { gate.pass(); });
  for (int i = 0; i < 100; ++i) queue->async([&] { done.count_down(); });
  queue.reset();
  EXPECT_FALSE(weak.expired()) << "pending work keeps its queue";
  gate.open();
  done.wait();
}

TEST(VeltoDispatchQueue, queuesWithOneLabelAreDistinct) {
  auto first = VeltoDispatchQueue::createSerial("same");
  auto second = VeltoDispatchQueue::createSerial("same");
  EXPECT_EQ(first->label(), second->label());
  first->sync([&] {
    EXPECT_TRUE(first->isCurrent());
    EXPECT_FALSE(second->isCurrent());
  });
}

TEST(VeltoDispatchQueue, nestedSyncMakesTheInnerQueueCurrentUntilItReturns) {
  auto outer = VeltoDispatchQueue::createSerial("outer");
  auto inner = VeltoDispatchQueue::createSerial("inner");
  outer->sync([&] {
    inner->sync([&] {
      EXPECT_TRUE(inner->isCurrent());
      EXPECT_FALSE(outer->isCurrent());
      EXPECT_EQ(VeltoDispatchQueue::current(), inner.get());
    });
    EXPECT_TRUE(outer->isCurrent());
  });
}

TEST(VeltoDispatchQueue, globalQueueRunsWorkConcurrently) {
  const auto& global = VeltoDispatchQueue::global(VeltoQualityOfService::utility);
  EXPECT_FALSE(global->isSerial());
  EXPECT_EQ(global->qualityOfService(), VeltoQualityOfService::utility);
  // Both items wait for each other: they can only finish if they run at the same time.
  std::latch together(2);
  std::latch done(2);
  for (int i = 0; i < 2; ++i) {
    global->async([&] {
      EXPECT_TRUE(global->isCurrent());
      together.arrive_and_wait();
      done.count_down();
    });
  }
  done.wait();
}

TEST(VeltoDispatchQueue, asyncAfterRunsNoEarlierThanItsDeadline) {
  auto queue = VeltoDispatchQueue::createSerial("after");
  const auto deadline = std::chrono::steady_clock::now() + 20ms;
  std::promise<std::chrono::steady_clock::time_point> ranAt;
  queue->asyncAfter(deadline, [&] { ranAt.set_value(std::chrono::steady_clock::now()); });
  EXPECT_GE(ranAt.get_future().get(), deadline);
}

TEST(VeltoDispatchQueue, asyncAfterWithAPastDeadlineStillRunsAsynchronously) {
  auto queue = VeltoDispatchQueue::createSerial("past");
  std::promise<void> ran;
  bool ranBeforeReturn = true;
  bool flag = false;  // outlives the sync body: the async work writes it later
  queue->sync([&] {
    queue->asyncAfter(std::chrono::steady_clock::now() - 1s, [&] {
      flag = true;
      ran.set_value();
    });
    ranBeforeReturn = flag;
  });
  ran.get_future().wait();
  EXPECT_FALSE(ranBeforeReturn);
}

TEST(VeltoDispatchQueueDeathTest, syncOntoTheQueueItRunsOnStops) {
  auto queue = VeltoDispatchQueue::createSerial("self");
  EXPECT_DEATH(queue->sync([&] { queue->sync([] {}); }), "sync onto serial queue \"self\" .*would deadlock");
}

TEST(VeltoDispatchQueueDeathTest, syncBackOntoAnOuterQueueThroughNestedSyncStops) {
  auto outer = VeltoDispatchQueue::createSerial("outer");
  auto inner = VeltoDispatchQueue::createSerial("inner");
  EXPECT_DEATH(outer->sync([&] { inner->sync([&] { outer->sync([] {}); }); }), "\"outer\" .*would deadlock");
}

TEST(VeltoDispatchQueueDeathTest, syncOntoItselfFromAsyncWorkStops) {
  EXPECT_DEATH(
      {
        auto queue = VeltoDispatchQueue::createSerial("pool-self");
        std::promise<void> never;
        queue->async([&] { queue->sync([] {}); });
        never.get_future().wait();
      },
      "would deadlock");
}

TEST(VeltoDispatchQueueDeathTest, exceptionEscapingAsyncWorkStopsNamingTheQueue) {
  EXPECT_DEATH(
      {
        auto queue = VeltoDispatchQueue::createSerial("thrower");
        std::promise<void> never;
        queue->async([] { throw std::runtime_error("escaped"); });
        never.get_future().wait();
      },
      "exception escaped .*\"thrower\"");
}

}  // namespace
