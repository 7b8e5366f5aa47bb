#include <velto/collections/VeltoCircularBuffer.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

namespace {

TEST(VeltoCircularBuffer, returnsTheOldestOnceFull) {
  VeltoCircularBuffer<int> ring(3);
  EXPECT_EQ(ring.pushAndPop(1), std::nullopt);
  EXPECT_EQ(ring.pushAndPop(2), std::nullopt);
  EXPECT_EQ(ring.pushAndPop(3), std::nullopt);
  EXPECT_EQ(ring.count(), 3);
  EXPECT_EQ(ring.pushAndPop(4), 1);
  EXPECT_EQ(ring.pushAndPop(5), 2);
  EXPECT_EQ(ring.pop(), 3);
  EXPECT_EQ(ring.pop(), 4);
  EXPECT_EQ(ring.pop(), 5);
  EXPECT_EQ(ring.pop(), std::nullopt);
  EXPECT_EQ(ring.count(), 0);
}

TEST(VeltoCircularBuffer, wrapsAroundAfterCapacity) {
  VeltoCircularBuffer<int> ring(3);
  for (int i = 1; i <= 3; ++i) (void)ring.pushAndPop(i);
  for (int i = 4; i <= 10; ++i) EXPECT_EQ(ring.pushAndPop(i), i - 3) << "push " << i;
  EXPECT_EQ(ring.pop(), 8);
  EXPECT_EQ(ring.pop(), 9);
  EXPECT_EQ(ring.pop(), 10);
}

TEST(VeltoCircularBuffer, pushAfterPopFillsTheGapBeforeTheOldest) {
  VeltoCircularBuffer<int> ring(3);
  for (int i = 1; i <= 4; ++i) (void)ring.pushAndPop(i);  // storage 4 2 3, oldest at 1
  EXPECT_EQ(ring.pop(), 2);                              // storage 4 3, oldest at 1
  EXPECT_EQ(ring.pushAndPop(5), std::nullopt);           // storage 4 5 3, oldest at 2
  EXPECT_EQ(ring.count(), 3);
  EXPECT_EQ(ring.pushAndPop(6), 3);
  EXPECT_EQ(ring.pop(), 4);
  EXPECT_EQ(ring.pop(), 5);
  EXPECT_EQ(ring.pop(), 6);
  EXPECT_EQ(ring.pop(), std::nullopt);
}

TEST(VeltoCircularBuffer, popOfTheLastStoredElementWrapsToTheStart) {
  VeltoCircularBuffer<int> ring(2);
  for (int i = 1; i <= 3; ++i) (void)ring.pushAndPop(i);  // storage 3 2, oldest at 1
  EXPECT_EQ(ring.pop(), 2);                              // oldest wraps to 0
  EXPECT_EQ(ring.pushAndPop(4), std::nullopt);
  EXPECT_EQ(ring.pushAndPop(5), 3);
  EXPECT_EQ(ring.pop(), 4);
  EXPECT_EQ(ring.pop(), 5);
}

TEST(VeltoCircularBuffer, capacityOneSwapsEveryPush) {
  auto ring = VeltoCircularBuffer<std::string>::create(1);
  EXPECT_EQ(ring->pushAndPop("a"), std::nullopt);
  EXPECT_EQ(ring->pushAndPop("b"), "a");
  EXPECT_EQ(ring->pushAndPop("c"), "b");
  EXPECT_EQ(ring->maxCount(), 1);
  EXPECT_EQ(ring->pop(), "c");
}

TEST(VeltoCircularBuffer, holdsMoveOnlyElements) {
  VeltoCircularBuffer<std::unique_ptr<int>> ring(1);
  EXPECT_EQ(ring.pushAndPop(std::make_unique<int>(1)), std::nullopt);
  const auto out = ring.pushAndPop(std::make_unique<int>(2));
  ASSERT_TRUE(out && *out);
  EXPECT_EQ(**out, 1);
}

TEST(VeltoCircularBufferDeathTest, capacityZeroStopsOnPushDeliberately) {
  VeltoCircularBuffer<int> empty(0);
  EXPECT_EQ(empty.pop(), std::nullopt);
  EXPECT_DEATH((void)empty.pushAndPop(1), "out of range");
  VeltoCircularBuffer<int> negative(-2);
  EXPECT_DEATH((void)negative.pushAndPop(1), "out of range");
}

}  // namespace
