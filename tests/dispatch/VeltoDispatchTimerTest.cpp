#include <velto/dispatch/VeltoDispatchTimer.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace {

using namespace std::chrono_literals;

// Counts handler calls and lets a test wait for a number of them. Handlers hold it by shared_ptr:
// an event submitted before a cancel may still run after the test returned.
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

using Counter = std::shared_ptr<FiringCounter>;
Counter makeCounter() { return std::make_shared<FiringCounter>(); }

std::shared_ptr<VeltoDispatchTimer> startedTimer(const Counter& counter, bool resume,
                                                 std::chrono::milliseconds interval = 1ms) {
  auto timer = VeltoDispatchTimer::create();
  timer->setEventHandler([counter] { counter->hit(); });
  timer->schedule(std::chrono::steady_clock::now(), interval);
  if (resume) timer->resume();
  return timer;
}

TEST(VeltoDispatchTimer, deliversNothingUntilResumed) {
  auto idle = makeCounter();
  auto control = makeCounter();
  auto never = startedTimer(idle, false);
  auto ticking = startedTimer(control, true);
  ASSERT_TRUE(control->waitFor(5));
  EXPECT_EQ(idle->value(), 0);
}

TEST(VeltoDispatchTimer, handlerNeverOverlapsItselfOnAConcurrentQueue) {
  struct Shared {
    std::atomic<int> running{0};
    std::atomic<bool> overlapped{false};
    FiringCounter counter;
  };
  auto shared = std::make_shared<Shared>();
  auto timer = VeltoDispatchTimer::create(VeltoDispatchQueue::global());
  timer->setEventHandler([shared] {
    if (shared->running.fetch_add(1) != 0) shared->overlapped = true;
    const auto busyUntil = std::chrono::steady_clock::now() + 300us;  // longer than the period
    while (std::chrono::steady_clock::now() < busyUntil) {
    }
    shared->running.fetch_sub(1);
    shared->counter.hit();
  });
  timer->schedule(std::chrono::steady_clock::now(), 100us);
  timer->resume();
  ASSERT_TRUE(shared->counter.waitFor(10));
  timer->cancel();
  EXPECT_FALSE(shared->overlapped.load());
}

TEST(VeltoDispatchTimer, suspendHoldsEventsBackAndResumeLetsThemThrough) {
  auto counter = makeCounter();
  auto control = makeCounter();
  auto timer = startedTimer(counter, true);
  ASSERT_TRUE(counter->waitFor(1));
  timer->suspend();
  // An event already submitted may still arrive; after that, nothing while suspended.
  auto ticking = startedTimer(control, true);
  ASSERT_TRUE(control->waitFor(10));
  const int held = counter->value();
  ASSERT_TRUE(control->waitFor(15));
  EXPECT_EQ(counter->value(), held);
  timer->resume();
  EXPECT_TRUE(counter->waitFor(held + 2));
}

TEST(VeltoDispatchTimer, cancelStopsDeliveryForGood) {
  auto counter = makeCounter();
  auto control = makeCounter();
  auto timer = startedTimer(counter, true);
  ASSERT_TRUE(counter->waitFor(2));
  timer->cancel();
  EXPECT_TRUE(timer->isCancelled());
  auto ticking = startedTimer(control, true);
  ASSERT_TRUE(control->waitFor(10));
  const int after = counter->value();
  timer->resume();
  ASSERT_TRUE(control->waitFor(15));
  EXPECT_EQ(counter->value(), after);
}

TEST(VeltoDispatchTimer, zeroIntervalFiresOnce) {
  auto counter = makeCounter();
  auto control = makeCounter();
  auto once = VeltoDispatchTimer::create();
  once->setEventHandler([counter] { counter->hit(); });
  once->schedule(std::chrono::steady_clock::now(), std::chrono::steady_clock::duration::zero());
  once->resume();
  ASSERT_TRUE(counter->waitFor(1));
  auto ticking = startedTimer(control, true);
  ASSERT_TRUE(control->waitFor(5));
  EXPECT_EQ(counter->value(), 1);
}

}  // namespace
