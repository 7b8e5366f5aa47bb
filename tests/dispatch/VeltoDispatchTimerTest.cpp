#include <velto/dispatch/VeltoDispatchTimer.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace {

using namespace std::chrono_literals;

// Counts handler calls and lets a test wait for a number of them.
struct FiringCounter {
  std::mutex mutex;
  std::condition_variable fired;
  int count = 0;

  void hit() {
    {
      std::lock_guard guard(mutex);
      ++count;
    }
    fired.notify_all();
  }
  bool waitFor(int atLeast) {
    std::unique_lock guard(mutex);
    return fired.wait_for(guard, 10s, [&] { return count >= atLeast; });
  }
  int value() {
    std::lock_guard guard(mutex);
    return count;
  }
};

std::shared_ptr<VeltoDispatchTimer> startedTimer(FiringCounter& counter, bool resume,
                                                 std::chrono::milliseconds interval = 1ms) {
  auto timer = VeltoDispatchTimer::create();
  timer->setEventHandler([&counter] { counter.hit(); });
  timer->schedule(std::chrono::steady_clock::now(), interval);
  if (resume) timer->resume();
  return timer;
}

TEST(VeltoDispatchTimer, deliversNothingUntilResumed) {
  FiringCounter idle;
  FiringCounter control;
  auto never = startedTimer(idle, false);
  auto ticking = startedTimer(control, true);
  ASSERT_TRUE(control.waitFor(5));
  EXPECT_EQ(idle.value(), 0);
}

TEST(VeltoDispatchTimer, handlerNeverOverlapsItselfOnAConcurrentQueue) {
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};
  FiringCounter counter;
  auto timer = VeltoDispatchTimer::create(VeltoDispatchQueue::global());
  timer->setEventHandler([&] {
    if (running.fetch_add(1) != 0) overlapped = true;
    const auto busyUntil = std::chrono::steady_clock::now() + 300us;  // longer than the period
    while (std::chrono::steady_clock::now() < busyUntil) {
    }
    running.fetch_sub(1);
    counter.hit();
  });
  timer->schedule(std::chrono::steady_clock::now(), 100us);
  timer->resume();
  ASSERT_TRUE(counter.waitFor(10));
  timer->cancel();
  EXPECT_FALSE(overlapped.load());
}

TEST(VeltoDispatchTimer, suspendHoldsEventsBackAndResumeLetsThemThrough) {
  FiringCounter counter;
  FiringCounter control;
  auto timer = startedTimer(counter, true);
  ASSERT_TRUE(counter.waitFor(1));
  timer->suspend();
  // An event already submitted may still arrive; after that, nothing while suspended.
  auto ticking = startedTimer(control, true);
  ASSERT_TRUE(control.waitFor(10));
  const int held = counter.value();
  ASSERT_TRUE(control.waitFor(15));
  EXPECT_EQ(counter.value(), held);
  timer->resume();
  EXPECT_TRUE(counter.waitFor(held + 2));
}

TEST(VeltoDispatchTimer, cancelStopsDeliveryForGood) {
  FiringCounter counter;
  FiringCounter control;
  auto timer = startedTimer(counter, true);
  ASSERT_TRUE(counter.waitFor(2));
  timer->cancel();
  EXPECT_TRUE(timer->isCancelled());
  auto ticking = startedTimer(control, true);
  ASSERT_TRUE(control.waitFor(10));
  const int after = counter.value();
  timer->resume();
  ASSERT_TRUE(control.waitFor(15));
  EXPECT_EQ(counter.value(), after);
}

TEST(VeltoDispatchTimer, zeroIntervalFiresOnce) {
  FiringCounter counter;
  FiringCounter control;
  auto once = VeltoDispatchTimer::create();
  once->setEventHandler([&] { counter.hit(); });
  once->schedule(std::chrono::steady_clock::now(), std::chrono::steady_clock::duration::zero());
  once->resume();
  ASSERT_TRUE(counter.waitFor(1));
  auto ticking = startedTimer(control, true);
  ASSERT_TRUE(control.waitFor(5));
  EXPECT_EQ(counter.value(), 1);
}

}  // namespace
