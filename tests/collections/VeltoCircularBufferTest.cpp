#include <velto/collections/VeltoCircularBuffer.hpp>

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <optional>
#include <random>

namespace {

// Random pushes and pops against a deque holding at most `capacity` elements: a push onto a full
// ring returns the oldest, a pop returns the oldest or nothing, at every position of the storage.
TEST(VeltoCircularBuffer, behavesAsABoundedQueueThatHandsBackTheOldest) {
  std::mt19937 random(3);
  for (std::ptrdiff_t capacity = 1; capacity <= 5; ++capacity) {
    auto ring = VeltoCircularBuffer<int>::create(capacity);
    std::deque<int> model;
    for (int step = 0; step < 2000; ++step) {
      std::optional<int> oldest;
      const bool push = random() % 3 != 0;
      if ((!push || static_cast<std::ptrdiff_t>(model.size()) == capacity) && !model.empty()) {
        oldest = model.front();
        model.pop_front();
      }
      if (push) model.push_back(step);
      ASSERT_EQ(push ? ring->pushAndPop(step) : ring->pop(), oldest) << "capacity " << capacity << " step " << step;
      ASSERT_EQ(ring->count(), static_cast<std::ptrdiff_t>(model.size()));
    }
  }
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
