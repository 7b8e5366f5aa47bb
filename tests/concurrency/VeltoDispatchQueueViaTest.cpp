#include <velto/concurrency/VeltoDispatchQueueVia.hpp>

#include <gtest/gtest.h>

#include <future>

#include "support/FrameNames.hpp"
#include "support/RecordingLogger.hpp"

namespace {

using Via = std::shared_ptr<const VeltoVia>;
using velto::test::RecordingLogger;

using velto::test::functionNames;

constexpr char kAsyncFork[] = "async(errorLogger:via:fileName:functionName:lineNumber:execute:)";
constexpr char kDelayFork[] = "delay(by:errorLogger:via:fileName:functionName:lineNumber:execute:)";
constexpr char kSyncFork[] = "sync(via:fileName:functionName:lineNumber:execute:)";

struct VeltoDispatchQueueVia : testing::Test {
  std::shared_ptr<VeltoDispatchQueue> queue = VeltoDispatchQueue::createSerial("via");
  std::shared_ptr<RecordingLogger> logger = std::make_shared<RecordingLogger>();
  Via impetus = VeltoImpetus::create("tap", {}, VeltoCodeSite("App", "tap()", 1));
};

TEST_F(VeltoDispatchQueueVia, failingAsyncWorkLogsOnceWithTheInnerJunctionAsRoot) {
  std::promise<Via> received;
  const unsigned line = __LINE__ + 1;
  async(*queue, logger, impetus, [&](const Via& via) {
    received.set_value(via);
    return VeltoResult<void>::fromMessage("async failed");
  });
  const auto reports = logger->waitForErrors(1);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].error.message(), "async failed");
  const auto frames = reports[0].dispatchRoot->stackFrames();
  EXPECT_EQ(functionNames(frames), (std::vector<std::string_view>{"async(via:) inner", kAsyncFork, "tap()"}));
  EXPECT_EQ(frames[0].codeSite().fileName(), "Via/DispatchQueue+VeltoVia");
  EXPECT_FALSE(frames[0].invokerSite());
  ASSERT_TRUE(frames[1].invokerSite());
  EXPECT_EQ(frames[1].invokerSite()->lineNumber(), line) << "the caller's site is J's invoker site";
  EXPECT_NE(frames[1].invokerSite()->fileName().find("VeltoDispatchQueueViaTest"), std::string_view::npos);
  // Deliberate: the closure receives J, not the inner junction that becomes the dispatch root.
  EXPECT_EQ(functionNames(received.get_future().get()->stackFrames()),
            (std::vector<std::string_view>{kAsyncFork, "tap()"}));
}

TEST_F(VeltoDispatchQueueVia, successfulAsyncWorkLogsNothing) {
  async(*queue, logger, impetus, [] { return VeltoResultVoidSuccess; });
  async(*queue, logger, impetus, [] { return VeltoResult<void>::fromMessage("second"); });
  const auto reports = logger->waitForErrors(1);
  // The queue is serial: once the second item logged, the first has run too.
  ASSERT_EQ(logger->errors().size(), 1u);
  EXPECT_EQ(reports[0].error.message(), "second");
}

TEST_F(VeltoDispatchQueueVia, asyncNeverRunsTheClosureInline) {
  std::promise<void> ran;
  bool ranBeforeReturn = true;
  bool flag = false;  // outlives the sync body: the async work writes it later
  queue->sync([&] {
    async(*queue, logger, impetus, [&] {
      flag = true;
      ran.set_value();
      return VeltoResultVoidSuccess;
    });
    ranBeforeReturn = flag;
  });
  ran.get_future().wait();
  EXPECT_FALSE(ranBeforeReturn);
}

TEST_F(VeltoDispatchQueueVia, delayHandsTheClosureTheInnerJunctionAndLogsWithIt) {
  std::promise<Via> received;
  delay(*queue, 0.0, logger, impetus, [&](const Via& via) {
    received.set_value(via);
    return VeltoResult<void>::fromMessage("delayed failure");
  });
  const auto reports = logger->waitForErrors(1);
  ASSERT_EQ(reports.size(), 1u);
  const Via via = received.get_future().get();
  EXPECT_EQ(via, reports[0].dispatchRoot);
  EXPECT_EQ(functionNames(via->stackFrames()), (std::vector<std::string_view>{"async(via:) inner", kDelayFork, "tap()"}));
}

TEST_F(VeltoDispatchQueueVia, zeroDelayStillRunsAsynchronouslyAndBareDelayRuns) {
  std::promise<void> bare;
  std::promise<void> logged;
  bool ranBeforeReturn = true;
  bool flag = false;  // outlives the sync body: the async work writes it later
  queue->sync([&] {
    delay(*queue, 0.0, [&] {
      flag = true;
      bare.set_value();
    });
    delay(*queue, -1.0, logger, impetus, [&] {
      logged.set_value();
      return VeltoResultVoidSuccess;
    });
    ranBeforeReturn = flag;
  });
  bare.get_future().wait();
  logged.get_future().wait();
  EXPECT_FALSE(ranBeforeReturn);
}

TEST_F(VeltoDispatchQueueVia, syncReturnsTheClosuresResult) {
  const VeltoResult<int> value = sync(*queue, [] { return VeltoResult<int>(9); });
  EXPECT_EQ(value.value(), 9);
  const VeltoResult<int> unspecified = sync(*queue, [] { return std::optional<VeltoResult<int>>(); });
  ASSERT_TRUE(unspecified.isFailure());
  EXPECT_EQ(unspecified.error().message(), "sync closure did not specify a result");
  EXPECT_EQ(unspecified.error().stackFrames().front().codeSite().functionName(), "sync(execute:)");
  EXPECT_EQ(unspecified.error().stackFrames().front().codeSite().fileName(), "Via/DispatchQueue+VeltoVia");
}

TEST_F(VeltoDispatchQueueVia, syncWithTrailHandsTheClosureTheInnerJunctionOnTheQueue) {
  const unsigned line = __LINE__ + 1;
  const VeltoResult<bool> onQueue = sync(*queue, impetus, [&](const Via& via) {
    EXPECT_EQ(functionNames(via->stackFrames()), (std::vector<std::string_view>{"sync(via:) inner", kSyncFork, "tap()"}));
    EXPECT_EQ(via->stackFrames()[1].invokerSite()->lineNumber(), line);
    return VeltoResult<bool>(queue->isCurrent());
  });
  EXPECT_TRUE(onQueue.value());
  const VeltoResult<void> unspecified =
      sync(*queue, impetus, [](const Via&) { return std::optional<VeltoResult<void>>(); });
  ASSERT_TRUE(unspecified.isFailure());
  EXPECT_EQ(unspecified.error().message(), "sync closure did not specify a result");
  EXPECT_EQ(unspecified.error().stackFrames().front().codeSite().functionName(), kSyncFork);
}

TEST(VeltoDispatchQueueViaDeathTest, nullLoggerStops) {
  auto queue = VeltoDispatchQueue::createSerial("null");
  EXPECT_DEATH(async(*queue, nullptr, VeltoImpetus::create("x"), [] { return VeltoResultVoidSuccess; }),
               "errorLogger is null");
}

}  // namespace
