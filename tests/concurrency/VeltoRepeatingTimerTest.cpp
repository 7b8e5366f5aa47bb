#include <velto/concurrency/VeltoRepeatingTimer.hpp>

#include <velto/dispatch/VeltoDispatchTimer.hpp>

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "support/RecordingLogger.hpp"

namespace {

using namespace std::chrono_literals;
using Via = std::shared_ptr<const VeltoVia>;
using velto::test::RecordingLogger;

// Records the trails the handler got and lets a test wait for a number of firings.
struct Firings {
  std::mutex mutex;
  std::condition_variable fired;
  std::vector<Via> vias;

  void record(const Via& via) {
    {
      std::lock_guard guard(mutex);
      vias.push_back(via);
    }
    fired.notify_all();
  }
  bool waitFor(std::size_t count) {
    std::unique_lock guard(mutex);
    return fired.wait_for(guard, 10s, [&] { return vias.size() >= count; });
  }
  std::size_t count() {
    std::lock_guard guard(mutex);
    return vias.size();
  }
};

// A 1 ms timer source independent of the one under test: waiting for its ticks bounds how long
// a test watches for firings that must not happen, without sleeping. Handlers hold what they
// touch by shared_ptr: an event already submitted may run after the test returned.
struct Ticker {
  std::shared_ptr<Firings> ticks = std::make_shared<Firings>();
  std::shared_ptr<VeltoDispatchTimer> source = VeltoDispatchTimer::create();
  Ticker() {
    source->setEventHandler([ticks = ticks] { ticks->record(nullptr); });
    source->schedule(std::chrono::steady_clock::now(), 1ms);
    source->resume();
  }
  ~Ticker() { source->cancel(); }
  void waitTicks(std::size_t count) { ASSERT_TRUE(ticks->waitFor(ticks->count() + count)); }
};

std::shared_ptr<VeltoRepeatingTimer> recordingTimer(const std::shared_ptr<Firings>& firings,
                                                    std::shared_ptr<VeltoLogging> logger,
                                                    VeltoResult<void> outcome = VeltoResultVoidSuccess) {
  return VeltoRepeatingTimer::create(
      [firings, outcome](const Via& via) {
        firings->record(via);
        return outcome;
      },
      std::move(logger), 0.0, 0.001);
}

TEST(VeltoRepeatingTimer, neverFiresUnlessResumed) {
  auto firings = std::make_shared<Firings>();
  auto timer = recordingTimer(firings, std::make_shared<RecordingLogger>());
  timer->suspend();  // before any resume: nothing to do
  EXPECT_TRUE(timer->isSuspended());
  Ticker ticker;
  ticker.waitTicks(5);
  EXPECT_EQ(firings->count(), 0u);
  timer->resume();
  EXPECT_FALSE(timer->isSuspended());
  EXPECT_TRUE(firings->waitFor(2)) << "a suspend before the first resume must not stop the timer";
}

TEST(VeltoRepeatingTimer, eachFiringStartsAFreshTrailAndFailuresAreLoggedWithIt) {
  auto firings = std::make_shared<Firings>();
  auto logger = std::make_shared<RecordingLogger>();
  auto timer = recordingTimer(firings, logger, VeltoResult<void>::fromMessage("tick failed"));
  timer->resume();
  ASSERT_TRUE(firings->waitFor(2));
  const auto reports = logger->waitForErrors(2);
  timer.reset();
  ASSERT_GE(reports.size(), 2u);
  std::lock_guard guard(firings->mutex);
  const Via& first = firings->vias[0];
  EXPECT_EQ(first->impetus().name(), "Repeatig timer fired");
  ASSERT_EQ(first->stackFrames().size(), 1u);
  EXPECT_EQ(first->stackFrames()[0].codeSite().fileName(), "VeltoRepeatingTimer");
  EXPECT_NE(firings->vias[0], firings->vias[1]) << "every firing has its own impetus";
  EXPECT_EQ(reports[0].dispatchRoot, firings->vias[0]);
  EXPECT_EQ(reports[0].error.message(), "tick failed");
}

TEST(VeltoRepeatingTimer, secondResumeAndSuspendCyclesKeepOneSource) {
  auto firings = std::make_shared<Firings>();
  auto timer = recordingTimer(firings, std::make_shared<RecordingLogger>());
  timer->resume();
  timer->resume();
  ASSERT_TRUE(firings->waitFor(2));
  timer->suspend();
  EXPECT_TRUE(timer->isSuspended());
  Ticker ticker;
  ticker.waitTicks(10);  // lets an event submitted before the suspension finish
  const std::size_t held = firings->count();
  ticker.waitTicks(5);
  EXPECT_EQ(firings->count(), held) << "fired while suspended";
  timer->resume();
  EXPECT_TRUE(firings->waitFor(held + 2));
}

TEST(VeltoRepeatingTimer, stopsFiringOnceItsOwnerReleasesIt) {
  auto firings = std::make_shared<Firings>();
  auto timer = recordingTimer(firings, std::make_shared<RecordingLogger>());
  std::weak_ptr<VeltoRepeatingTimer> weak = timer;
  timer->resume();
  ASSERT_TRUE(firings->waitFor(3));
  timer.reset();
  Ticker ticker;
  // A firing that held the timer when it was released finishes and lets go of it.
  for (int i = 0; i < 10000 && !weak.expired(); ++i) ticker.waitTicks(1);
  EXPECT_TRUE(weak.expired()) << "the timer source must not keep its owner alive";
  const std::size_t after = firings->count();
  ticker.waitTicks(5);
  EXPECT_EQ(firings->count(), after);
}

// Loggers are swapped while a failing timer fires every millisecond: every failure reaches exactly
// one of them, the last one set receives the later failures, and TSan sees no unguarded access.
TEST(VeltoRepeatingTimer, loggerCanBeReplacedWhileTheTimerFires) {
  auto firings = std::make_shared<Firings>();
  std::vector<std::shared_ptr<RecordingLogger>> loggers;
  for (int i = 0; i < 4; ++i) loggers.push_back(std::make_shared<RecordingLogger>());
  auto timer = recordingTimer(firings, loggers[0], VeltoResult<void>::fromMessage("tick failed"));
  std::weak_ptr<VeltoRepeatingTimer> weak = timer;
  EXPECT_EQ(timer->logger(), loggers[0]);
  timer->resume();
  for (std::size_t i = 1; i < 200; ++i) {
    const auto& next = loggers[i % loggers.size()];
    timer->setLogger(next);
    EXPECT_EQ(timer->logger(), next);
    if (i % 20 == 0) {
      ASSERT_TRUE(firings->waitFor(firings->count() + 1));
    }
  }
  auto last = std::make_shared<RecordingLogger>();
  timer->setLogger(last);
  EXPECT_GE(last->waitForErrors(3).size(), 3u) << "the replacement logger got no failures";
  timer.reset();
  Ticker ticker;
  for (int i = 0; i < 10000 && !weak.expired(); ++i) ticker.waitTicks(1);
  ASSERT_TRUE(weak.expired());
  std::size_t reported = last->errors().size();
  for (const auto& logger : loggers) reported += logger->errors().size();
  EXPECT_EQ(reported, firings->count()) << "a failure was lost or reported twice";
}

TEST(VeltoRepeatingTimerDeathTest, nullLoggerIsRefusedBySetLogger) {
  auto timer = VeltoRepeatingTimer::create([](const Via&) { return VeltoResultVoidSuccess; },
                                           std::make_shared<RecordingLogger>(), 0.0, 1.0);
  EXPECT_DEATH(timer->setLogger(nullptr), "logger is null");
}

}  // namespace
