#include <velto/concurrency/VeltoSerialQueue.hpp>

#include <gtest/gtest.h>

#include <future>
#include <latch>
#include <thread>
#include <tuple>
#include <vector>

#include "support/FrameNames.hpp"
#include "support/RecordingLogger.hpp"

namespace {

using Via = std::shared_ptr<const VeltoVia>;
using velto::test::RecordingLogger;

using velto::test::functionNames;

struct SerialQueueTest : testing::Test {
  std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
  std::shared_ptr<VeltoSerialQueue> queue = VeltoSerialQueue::create("com.velto.test", logger);
  Via impetus = VeltoImpetus::create("tap", {}, VeltoCodeSite("App", "tap()", 1));
};
using VeltoSerialQueueTest = SerialQueueTest;

TEST_F(VeltoSerialQueueTest, ensureOnQueueHoldsInsideSyncOnly) {
  EXPECT_TRUE(queue->sync([&] { return queue->ensureOnQueue().hasValue(); }));
  EXPECT_TRUE(queue->sync([&] { return queue->ensureOffQueue().isFailure(); }));

  const VeltoResult<void> off = queue->ensureOnQueue();
  ASSERT_TRUE(off.isFailure());
  EXPECT_EQ(off.error().message(), "should be on serial queue");
  EXPECT_EQ(off.error().stackFrames().front().codeSite().fileName(), "VeltoSerialQueue");
  EXPECT_EQ(off.error().stackFrames().front().codeSite().functionName(), "ensureOnQueue()");
  EXPECT_TRUE(queue->ensureOffQueue().hasValue());

  const VeltoResult<void> on = queue->sync([&] { return queue->ensureOffQueue(); });
  ASSERT_TRUE(on.isFailure());
  EXPECT_EQ(on.error().message(), "should NOT be on serial queue");
  EXPECT_EQ(on.error().stackFrames().front().codeSite().functionName(), "ensureOffQueue()");
  EXPECT_EQ(functionNames(on.error().stackFrames()),
            (std::vector<std::string_view>{"ensureOffQueue()", "sync(execute:)"}));
}

TEST_F(VeltoSerialQueueTest, anotherQueueEvenWithTheSameLabelCountsAsOff) {
  auto twin = VeltoSerialQueue::create("com.velto.test", logger);
  EXPECT_EQ(twin->label(), queue->label());
  const VeltoResult<void> fromTwin = twin->sync([&] { return queue->ensureOnQueue(); });
  ASSERT_TRUE(fromTwin.isFailure());
  EXPECT_EQ(fromTwin.error().message(), "should be on serial queue");
  EXPECT_TRUE(twin->sync([&] { return queue->ensureOffQueue(); }).hasValue());
}

TEST_F(VeltoSerialQueueTest, asyncKeepsOrderAcrossProducersAndRunsOnTheQueue) {
  constexpr int kProducers = 4;
  constexpr int kItems = 2000;
  std::vector<int> next(kProducers, 0);  // queue-confined
  int disorder = 0;
  int offQueue = 0;
  std::latch done(kProducers * kItems);
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&, p] {
      for (int i = 0; i < kItems; ++i) {
        if (i % 2 == 0) {
          queue->async([&, p, i] {
            if (next[p]++ != i) ++disorder;
            if (queue->ensureOnQueue().isFailure()) ++offQueue;
            done.count_down();
          });
        } else {
          queue->async(impetus, [&, p, i] {
            if (next[p]++ != i) ++disorder;
            done.count_down();
            return VeltoResultVoidSuccess;
          });
        }
      }
    });
  }
  for (auto& producer : producers) producer.join();
  done.wait();
  queue->sync([&] {
    EXPECT_EQ(disorder, 0);
    EXPECT_EQ(offQueue, 0);
  });
  EXPECT_TRUE(logger->errors().empty());
}

TEST_F(VeltoSerialQueueTest, failingAsyncClosureIsLoggedOnceWithTheWholeTrail) {
  std::promise<Via> received;
  queue->async(impetus, [&](const Via& via) {
    received.set_value(via);
    return VeltoResult<void>::fromMessage("queued work failed");
  });
  const auto reports = logger->waitForErrors(1);
  ASSERT_EQ(reports.size(), 1u);
  const auto frames = reports[0].dispatchRoot->stackFrames();
  EXPECT_EQ(functionNames(frames),
            (std::vector<std::string_view>{"async(via:) inner",
                                           "async(errorLogger:via:fileName:functionName:lineNumber:execute:)",
                                           "async(via:execute:)", "tap()"}));
  ASSERT_TRUE(frames[1].invokerSite());
  EXPECT_EQ(frames[1].invokerSite()->fileName(), "VeltoSerialQueue");
  EXPECT_EQ(frames[1].invokerSite()->functionName(), "async(via:execute:)");
  EXPECT_EQ(frames[2].codeSite().fileName(), "VeltoSerialQueue");
  EXPECT_FALSE(frames[2].invokerSite());
  EXPECT_EQ(received.get_future().get()->stackFrames().size(), 3u) << "the closure gets J, without the inner frame";
  std::promise<void> drained;
  queue->async([&] { drained.set_value(); });
  drained.get_future().wait();
  EXPECT_EQ(logger->errors().size(), 1u);
}

// Deferring the forks to the queue must not change a single frame: the work's trail and a
// failure's dispatch root equal those of forking on the calling thread and submitting with async.
TEST_F(VeltoSerialQueueTest, asyncForkingGivesTheTrailOfForkingFirst) {
  const auto fail = [](std::promise<Via>& seen) {
    return [&seen](const Via& via) {
      seen.set_value(via);
      return VeltoResult<void>::fromMessage("failed");
    };
  };
  const VeltoCodeSite invoker("App", "save()", 7);
  const VeltoCodeSite forkSite("Store/Box", "beginSave(via:)", 12);
  std::promise<Via> eager;
  std::promise<Via> deferred;
  queue->async(fork(impetus, {}, invoker, forkSite), fail(eager));
  queue->asyncForking(impetus, invoker, forkSite, fail(deferred));
  const auto reports = logger->waitForErrors(2);
  ASSERT_EQ(reports.size(), 2u);
  const auto frames = [](const Via& via) {
    std::vector<std::tuple<VeltoCodeSite, std::optional<VeltoCodeSite>, bool>> sites;
    for (const VeltoStackFrame& frame : via->stackFrames()) {
      sites.emplace_back(frame.codeSite(), frame.invokerSite(), frame.args().hasValue());
    }
    return sites;
  };
  EXPECT_EQ(frames(deferred.get_future().get()), frames(eager.get_future().get()));
  EXPECT_EQ(frames(reports[1].dispatchRoot), frames(reports[0].dispatchRoot));
  EXPECT_EQ(functionNames(reports[1].dispatchRoot->stackFrames()),
            (std::vector<std::string_view>{"async(via:) inner",
                                           "async(errorLogger:via:fileName:functionName:lineNumber:execute:)",
                                           "async(via:execute:)", "beginSave(via:)", "tap()"}));
}

TEST_F(VeltoSerialQueueTest, syncFormsReturnValuesAndAddTheirFrameToFailures) {
  EXPECT_EQ(queue->sync([] { return 4; }), 4);
  queue->sync([] {});

  const VeltoResult<int> failed = queue->sync([] { return VeltoResult<int>::fromMessage("sync failed"); });
  ASSERT_TRUE(failed.isFailure());
  ASSERT_EQ(failed.error().stackFrames().size(), 2u);
  EXPECT_EQ(failed.error().stackFrames()[1].codeSite().functionName(), "sync(execute:)");
  EXPECT_EQ(failed.error().stackFrames()[1].codeSite().fileName(), "VeltoSerialQueue");

  const VeltoResult<int> unspecified = queue->sync([] { return std::optional<VeltoResult<int>>(); });
  ASSERT_TRUE(unspecified.isFailure());
  EXPECT_EQ(unspecified.error().message(), "sync closure did not specify a result");
  EXPECT_EQ(functionNames(unspecified.error().stackFrames()),
            (std::vector<std::string_view>{"sync(execute:)", "sync(execute:)"}));
  EXPECT_EQ(unspecified.error().stackFrames()[0].codeSite().fileName(), "Via/DispatchQueue+VeltoVia");
}

TEST_F(VeltoSerialQueueTest, syncWithTrailRunsOnTheQueueWithTheInnerJunction) {
  const VeltoResult<void> failed = queue->sync(impetus, [&](const Via& via) {
    EXPECT_EQ(functionNames(via->stackFrames()),
              (std::vector<std::string_view>{"sync(via:) inner", "sync(via:fileName:functionName:lineNumber:execute:)",
                                             "sync(via:execute:)", "tap()"}));
    EXPECT_EQ(via->stackFrames()[1].invokerSite()->fileName(), "VeltoSerialQueue");
    EXPECT_TRUE(queue->ensureOnQueue().hasValue());
    return VeltoResult<void>::failure(VeltoError("inner").appending(via));
  });
  ASSERT_TRUE(failed.isFailure());
  const auto& frames = failed.error().stackFrames();
  EXPECT_EQ(frames.back().codeSite().functionName(), "sync(via:execute:)");
  EXPECT_EQ(frames.back().codeSite().fileName(), "VeltoSerialQueue");
  EXPECT_EQ(frames.size(), 6u) << "origin, the four frames of the trail, and the re-raise";
}

TEST_F(VeltoSerialQueueTest, withDispatchQueueExposesTheUnderlyingQueue) {
  EXPECT_EQ(queue->withDispatchQueue([](VeltoDispatchQueue& q) { return q.label(); }), "com.velto.test");
  EXPECT_TRUE(queue->withDispatchQueue([&](VeltoDispatchQueue& q) { return q.sync([&] { return queue->ensureOnQueue(); }); })
                  .hasValue());
}

TEST(VeltoSerialQueueDeathTest, syncFromItsOwnWorkStopsInsteadOfDeadlocking) {
  auto queue = VeltoSerialQueue::create("com.velto.self", std::make_shared<RecordingLogger>());
  EXPECT_DEATH(queue->sync([&] { queue->sync([] {}); }), "sync onto serial queue \"com.velto.self\"");
}

}  // namespace
