#include <velto/collections/VeltoLazyFiniteCountCache.hpp>

#include <gtest/gtest.h>

#include <list>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "support/FiniteCacheModel.hpp"

namespace {

using velto::test::FiniteCacheModel;
using Cache = VeltoLazyFiniteCountCache<int, int>;
using Threshold = Cache::Threshold;

std::set<int> keysOf(const Cache& cache) {
  const auto keys = cache.keys();
  return {keys.begin(), keys.end()};
}

// Thousands of random single and set gets per run against the reference model, thresholds
// with a gap, without one, at zero and with the target above the trigger.
TEST(VeltoLazyFiniteCountCache, followsTheModelOverRandomGets) {
  struct Case {
    long long target;
    long long trigger;
    int keyRange;
  };
  unsigned seed = 10;
  for (const Case c : {Case{2, 4, 12}, Case{0, 0, 5}, Case{5, 5, 30}, Case{10, 3, 20}, Case{30, 45, 90}, Case{1, 60, 70}}) {
    for (const bool locked : {true, false}) {
      auto report = velto::test::checkAgainstModel(
          {++seed, c.keyRange, FiniteCacheModel::Bound::count, c.target, c.trigger, locked},
          [&](const velto::test::FiniteCacheParts& parts) {
            return Cache::create(parts.dateProducer, parts.locked, parts.itemProducer,
                                 Threshold(static_cast<std::size_t>(c.target), static_cast<std::size_t>(c.trigger)));
          });
      EXPECT_EQ(report.divergence, "") << "target " << c.target << " trigger " << c.trigger;
      EXPECT_GT(report.seen["purge"], 5) << "target " << c.target << " trigger " << c.trigger;
      EXPECT_GT(report.seen["clock NaN"], 50);
    }
  }
}

// With a clock that never moves, stamps always tie and the access order decides: the cache
// with target == trigger == N is then exactly a least-recently-used cache of N entries.
TEST(VeltoLazyFiniteCountCache, aStoppedClockGivesExactLeastRecentlyUsedOrder) {
  for (const std::size_t limit : {1u, 3u, 16u}) {
    auto cache = Cache::create([] { return 42.0; }, false, [](const int& key) { return VeltoResult<int>(key); },
                               Threshold(limit, limit));
    std::list<int> recency;  // most recent first
    std::mt19937 random(static_cast<unsigned>(limit));
    for (int step = 0; step < 5'000; ++step) {
      const int key = static_cast<int>(random() % (limit * 2 + 1));
      ASSERT_TRUE(cache->get(key));
      recency.remove(key);
      recency.push_front(key);
      if (recency.size() > limit) recency.pop_back();
      ASSERT_EQ(keysOf(*cache), std::set<int>(recency.begin(), recency.end())) << "limit " << limit << " step " << step;
    }
  }
}

}  // namespace
