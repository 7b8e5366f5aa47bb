#include <velto/collections/VeltoArrayUtil.hpp>
#include <velto/dispatch/VeltoDispatchQueue.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <atomic>
#include <chrono>
#include <future>
#include <latch>
#include <memory>
#include <numeric>
#include <random>
#include <ranges>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Partition = VeltoArrayUtil::Partition;

TEST(VeltoArrayUtil, partitionsCoverEveryIndexOnceInBalancedOrderedRuns) {
  std::mt19937 random(8);
  for (int round = 0; round < 300; ++round) {
    const std::size_t count = random() % 3 == 0 ? random() % 5 : random() % 2000;
    const std::size_t partitions = 1 + random() % (random() % 2 ? 4 : 40);
    std::vector<std::atomic<int>> visits(count);
    std::vector<Partition> seen(std::min(count, partitions), Partition{99, 0, 0});
    const auto done = VeltoArrayUtil::parallelPartitionedWork(count, partitions, [&](const Partition& partition) {
      seen[partition.index] = partition;  // each index is run once, so no two writers
      for (std::size_t i = partition.begin; i < partition.end; ++i) visits[i].fetch_add(1);
    });
    ASSERT_TRUE(done.hasValue());
    for (std::size_t i = 0; i < count; ++i) ASSERT_EQ(visits[i].load(), 1) << "index " << i << " of " << count;
    for (std::size_t p = 0; p < seen.size(); ++p) {
      ASSERT_EQ(seen[p].index, p);
      ASSERT_EQ(seen[p].begin, p == 0 ? 0 : seen[p - 1].end) << "contiguous and in order";
      const std::size_t size = seen[p].end - seen[p].begin;
      ASSERT_TRUE(size == count / seen.size() || size == count / seen.size() + 1) << "balanced";
    }
  }
}

TEST(VeltoArrayUtil, emptyWorkAndZeroPartitions) {
  int calls = 0;
  EXPECT_TRUE(VeltoArrayUtil::parallelPartitionedWork(0, 8, [&](const Partition&) { ++calls; }).hasValue());
  EXPECT_EQ(calls, 0);
  const auto none = VeltoArrayUtil::parallelPartitionedWork(10, 0, [&](const Partition&) { ++calls; });
  ASSERT_TRUE(none.isFailure());
  EXPECT_EQ(none.error().message(), "Invalid partition count");
  EXPECT_EQ(calls, 0);
}

TEST(VeltoArrayUtil, spansGiveEachPartitionItsElements) {
  std::vector<long> values(100001);
  std::iota(values.begin(), values.end(), 0L);
  const auto done = VeltoArrayUtil::parallelPartitionedWork(std::span(values), 7, [](std::span<long> part, const Partition&) {
    for (long& v : part) v = v * v;
  });
  ASSERT_TRUE(done.hasValue());
  for (std::size_t i = 0; i < values.size(); ++i) ASSERT_EQ(values[i], static_cast<long>(i * i));
}

// With every pool thread held, the caller runs the partitions alone and in order, so the stop is
// exact: the failing partition is the last to start, and helpers that get a thread later find the
// run stopped.
TEST(VeltoArrayUtil, aFailureStopsFurtherPartitionsAndIsWrapped) {
  const auto poolThreads = static_cast<std::ptrdiff_t>(std::max(2u, std::thread::hardware_concurrency()));
  std::latch held(poolThreads);
  auto release = std::make_shared<std::promise<void>>();
  std::shared_future<void> released = release->get_future().share();
  for (std::ptrdiff_t i = 0; i < poolThreads; ++i) {
    VeltoDispatchQueue::global()->async([&held, released] {
      held.count_down();
      released.wait();
    });
  }
  held.wait();
  std::atomic<int> started = 0;
  const auto done = VeltoArrayUtil::parallelPartitionedWork(1000, 1000, [&](const Partition& partition) -> VeltoResult<void> {
    started.fetch_add(1);
    if (partition.index == 5) return VeltoResult<void>::fromMessage("Bad sample");
    return VeltoResultVoidSuccess;
  });
  const int startedBeforeTheReturn = started.load();
  release->set_value();
  ASSERT_TRUE(done.isFailure());
  EXPECT_EQ(done.error().message(), "Bad sample");
  const VeltoStackFrame& wrap = done.error().stackFrames().back();
  EXPECT_EQ(*wrap.args().get<VeltoArgs>()->find("partition")->get<std::size_t>(), 5u);
  EXPECT_EQ(wrap.codeSite().fileName(), "Util/VeltoArrayUtil");
  EXPECT_EQ(startedBeforeTheReturn, 6);
}

TEST(VeltoArrayUtil, anExceptionReachesTheCallerAfterTheRunningPartitionsFinish) {
  std::atomic<int> running = 0;
  const auto run = [&] {
    return VeltoArrayUtil::parallelPartitionedWork(64, 64, [&](const Partition& partition) {
      running.fetch_add(1);
      std::this_thread::yield();
      running.fetch_sub(1);
      if (partition.index == 20) throw std::runtime_error("disk gone");
    });
  };
  EXPECT_THROW((void)run(), std::runtime_error);
  EXPECT_EQ(running.load(), 0) << "no partition may still touch the caller's state";
}

// The caller is one pool thread while every other pool thread is blocked: its helpers can
// never start, so it must do all the work itself rather than wait for them.
TEST(VeltoArrayUtil, completesFromThePoolWhenEveryOtherPoolThreadIsBlocked) {
  const auto poolThreads = static_cast<std::ptrdiff_t>(std::max(2u, std::thread::hardware_concurrency()));
  std::latch othersBlocked(poolThreads - 1);
  auto release = std::make_shared<std::promise<void>>();
  std::shared_future<void> released = release->get_future().share();
  for (std::ptrdiff_t i = 0; i < poolThreads - 1; ++i) {
    VeltoDispatchQueue::global()->async([&othersBlocked, released] {
      othersBlocked.count_down();
      released.wait();
    });
  }
  std::promise<std::size_t> result;
  std::future<std::size_t> finished = result.get_future();
  VeltoDispatchQueue::global()->async([&] {
    othersBlocked.wait();
    std::atomic<std::size_t> sum = 0;
    const auto done = VeltoArrayUtil::parallelPartitionedWork(1000, 16, [&](const Partition& partition) {
      for (std::size_t i = partition.begin; i < partition.end; ++i) sum.fetch_add(i);
    });
    result.set_value(done.hasValue() ? sum.load() : 0);
  });
  const bool completed = finished.wait_for(std::chrono::seconds(60)) == std::future_status::ready;
  release->set_value();
  ASSERT_TRUE(completed) << "the caller waited for helpers that could not start";
  EXPECT_EQ(finished.get(), 999u * 1000u / 2);
}

TEST(VeltoArrayUtil, nestedPartitionedWorkCompletes) {
  std::atomic<int> cells = 0;
  const auto done = VeltoArrayUtil::parallelPartitionedWork(8, 8, [&](const Partition&) {
    return VeltoArrayUtil::parallelPartitionedWork(8, 8, [&](const Partition&) { cells.fetch_add(1); });
  });
  ASSERT_TRUE(done.hasValue());
  EXPECT_EQ(cells.load(), 64);
}

TEST(VeltoArrayUtil, uniquedKeepsFirstOccurrencesInOrder) {
  std::mt19937 random(12);
  for (int round = 0; round < 2000; ++round) {
    std::vector<int> values(random() % 30);
    for (int& v : values) v = static_cast<int>(random() % 12) - 6;
    std::vector<int> expected;
    for (int v : values) {
      if (std::find(expected.begin(), expected.end(), v) == expected.end()) expected.push_back(v);
    }
    ASSERT_EQ(VeltoArrayUtil::uniqued(values), expected);
    ASSERT_EQ(VeltoArrayUtil::isUnique(values), expected.size() == values.size());
    // By a projection: one element per absolute value, the first.
    std::vector<int> byMagnitude;
    for (int v : values) {
      if (std::none_of(byMagnitude.begin(), byMagnitude.end(), [&](int kept) { return std::abs(kept) == std::abs(v); })) {
        byMagnitude.push_back(v);
      }
    }
    ASSERT_EQ(VeltoArrayUtil::uniqued(values, [](int v) { return std::abs(v); }), byMagnitude);
  }
  // A range of temporaries, and a member as the key.
  struct Order {
    std::string customer;
    int number;
  };
#if !defined(__clang__) || __clang_major__ >= 15  // clang 14 cannot build libstdc++ 12's range adaptors
  const auto firsts = VeltoArrayUtil::uniqued(
      std::views::iota(0, 6) | std::views::transform([](int i) { return Order{i % 2 ? "ann" : "bob", i}; }), &Order::customer);
  ASSERT_EQ(firsts.size(), 2u);
  EXPECT_EQ(firsts[1].number, 1);
#endif
  EXPECT_TRUE(VeltoArrayUtil::isUnique(std::vector<Order>{{"a", 1}, {"a", 2}}, &Order::number));
}

TEST(VeltoArrayUtil, similarityIsEqualityOfSortedCopies) {
  std::mt19937 random(14);
  for (int round = 0; round < 3000; ++round) {
    std::vector<int> lhs(random() % 8), rhs(random() % 8);
    for (int& v : lhs) v = static_cast<int>(random() % 4);
    for (int& v : rhs) v = static_cast<int>(random() % 4);
    if (round % 3 == 0) {
      rhs = lhs;
      std::shuffle(rhs.begin(), rhs.end(), random);
    }
    std::vector<int> a = lhs, b = rhs;
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    ASSERT_EQ(VeltoArrayUtil::isSimilar(lhs, rhs), a == b);
  }
}

}  // namespace
