#include <velto/dispatch/VeltoDispatchGroup.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <future>

namespace {

using namespace std::chrono_literals;

TEST(VeltoDispatchGroup, waitReturnsOnceEveryPieceOfWorkLeft) {
  auto group = VeltoDispatchGroup::create();
  auto queue = VeltoDispatchQueue::createSerial("group");
  std::atomic<int> ran{0};
  for (int i = 0; i < 50; ++i) group->async(*queue, [&] { ++ran; });
  group->wait();
  EXPECT_EQ(ran.load(), 50);
  EXPECT_EQ(group->count(), 0);
}

TEST(VeltoDispatchGroup, notifyRunsOnItsQueueAfterTheLastLeave) {
  auto group = VeltoDispatchGroup::create();
  auto queue = VeltoDispatchQueue::createSerial("notify");
  group->enter();
  group->enter();
  std::promise<bool> notified;
  bool leftBoth = false;  // set before the last leave; read by the notification
  group->notify(queue, [&] { notified.set_value(leftBoth && queue->isCurrent()); });
  group->leave();
  leftBoth = true;
  group->leave();
  EXPECT_TRUE(notified.get_future().get());
}

TEST(VeltoDispatchGroup, notifyOnAnEmptyGroupRunsAtOnceButAsynchronously) {
  auto group = VeltoDispatchGroup::create();
  auto queue = VeltoDispatchQueue::createSerial("empty");
  std::promise<void> ran;
  group->notify(queue, [&] { ran.set_value(); });
  ran.get_future().wait();
}

TEST(VeltoDispatchGroup, waitUntilReportsATimeOut) {
  VeltoDispatchGroup group;
  EXPECT_TRUE(group.waitUntil(std::chrono::steady_clock::now())) << "an empty group never times out";
  group.enter();
  EXPECT_FALSE(group.waitUntil(std::chrono::steady_clock::now() - 1s));
  EXPECT_FALSE(group.waitUntil(std::chrono::steady_clock::now() + 5ms));
  auto leaver = std::async(std::launch::async, [&] { group.leave(); });
  EXPECT_TRUE(group.waitUntil(std::chrono::steady_clock::now() + 10s));
}

TEST(VeltoDispatchGroupDeathTest, leaveWithoutEnterStops) {
  VeltoDispatchGroup group;
  EXPECT_DEATH(group.leave(), "leave\\(\\) without a matching enter\\(\\)");
}

}  // namespace
