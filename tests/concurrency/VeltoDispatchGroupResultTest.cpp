#include <velto/concurrency/VeltoDispatchGroupResult.hpp>

#include <gtest/gtest.h>

#include <future>

namespace {

TEST(VeltoDispatchGroupResult, zeroTimeoutOnABusyGroupFailsAtOnceWithTheTimeout) {
  VeltoDispatchGroup group;
  EXPECT_TRUE(wait(group, 0.0).hasValue()) << "an empty group";
  group.enter();
  const VeltoResult<void> waited = wait(group, 0.0);
  ASSERT_TRUE(waited.isFailure());
  const VeltoError& error = waited.error();
  EXPECT_EQ(error.message(), "Dispatch Group timed out");
  ASSERT_EQ(error.stackFrames().size(), 1u);
  const VeltoStackFrame& frame = error.stackFrames().front();
  EXPECT_EQ(frame.codeSite().fileName(), "DispatchGroup+Result");
  EXPECT_EQ(frame.codeSite().functionName(), "wait(timeout:)");
  const VeltoArgs* args = frame.args().get<VeltoArgs>();
  ASSERT_NE(args, nullptr);
  ASSERT_EQ(args->size(), 1u);
  const VeltoAny* timeout = args->find("timeout");
  ASSERT_NE(timeout, nullptr);
  ASSERT_NE(timeout->get<double>(), nullptr);
  EXPECT_EQ(*timeout->get<double>(), 0.0);
  group.leave();
}

TEST(VeltoDispatchGroupResult, succeedsWhenTheGroupEmptiesInTime) {
  auto group = VeltoDispatchGroup::create();
  auto queue = VeltoDispatchQueue::createSerial("result");
  std::promise<void> release;
  auto released = release.get_future().share();
  group->async(*queue, [released] { released.wait(); });
  release.set_value();
  EXPECT_TRUE(wait(*group, 30.0).hasValue());
  group->async(*queue, [] {});
  EXPECT_TRUE(wait(*group, std::nullopt).hasValue()) << "no timeout waits as long as it takes";
}

TEST(VeltoDispatchGroupResult, shortTimeoutRecordsTheGivenSeconds) {
  VeltoDispatchGroup group;
  group.enter();
  const VeltoResult<void> waited = wait(group, 0.005);
  ASSERT_TRUE(waited.isFailure());
  EXPECT_EQ(*waited.error().stackFrames().front().args().get<VeltoArgs>()->find("timeout")->get<double>(), 0.005);
  group.leave();
}

}  // namespace
