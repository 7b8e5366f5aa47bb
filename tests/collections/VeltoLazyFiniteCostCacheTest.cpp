#include <velto/collections/VeltoLazyFiniteCostCache.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <latch>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/FiniteCacheModel.hpp"

namespace {

using velto::test::FiniteCacheModel;

// A cost with no lock-free atomic (its copy is user-provided), so `totalCost` takes its mutex.
struct BoxedCost {
  long long value;
  BoxedCost(int v) : value(v) {}  // NOLINT(google-explicit-constructor): "made from the literal 0"
  explicit BoxedCost(long long v) : value(v) {}
  BoxedCost(const BoxedCost& other) : value(other.value) {}
  BoxedCost& operator=(const BoxedCost& other) = default;
  BoxedCost& operator+=(const BoxedCost& other) {
    value += other.value;
    return *this;
  }
  BoxedCost& operator-=(const BoxedCost& other) {
    value -= other.value;
    return *this;
  }
  friend bool operator<=(const BoxedCost& a, const BoxedCost& b) { return a.value <= b.value; }
  friend bool operator>(const BoxedCost& a, const BoxedCost& b) { return a.value > b.value; }
  explicit operator long long() const { return value; }
};

template <class Cost>
velto::test::FiniteCacheModelReport runModel(unsigned seed, long long target, long long trigger, bool locked) {
  using Cache = VeltoLazyFiniteCostCache<int, int, Cost>;
  return velto::test::checkAgainstModel(
      {seed, 40, FiniteCacheModel::Bound::cost, target, trigger, locked}, [&](const velto::test::FiniteCacheParts& parts) {
        return Cache::create([cost = parts.cost](const typename Cache::Node& node) { return Cost(cost(node.key())); },
                             parts.dateProducer, parts.locked, parts.itemProducer,
                             typename Cache::Threshold(Cost(target), Cost(trigger)));
      });
}

// Thousands of random gets per run against the reference model, with integer, floating and
// boxed costs; every seventh key costs more than the trigger and is refused, and with a trigger
// of 6 the keys costing exactly 6 are accepted.
TEST(VeltoLazyFiniteCostCache, followsTheModelOverRandomGets) {
  struct Case {
    long long target;
    long long trigger;
  };
  unsigned seed = 100;
  for (const Case c : {Case{10, 20}, Case{0, 6}, Case{15, 15}, Case{40, 90}, Case{30, 8}}) {
    for (const bool locked : {true, false}) {
      const std::string where = "target " + std::to_string(c.target) + " trigger " + std::to_string(c.trigger);
      auto integral = runModel<long long>(++seed, c.target, c.trigger, locked);
      EXPECT_EQ(integral.divergence, "") << where;
      EXPECT_GT(integral.seen["purge"], 5) << where;
      EXPECT_GT(integral.seen["Node is not valid"], 5) << where;
      EXPECT_GT(integral.seen["Item is not valid"], 0) << where;
      EXPECT_EQ(runModel<double>(++seed, c.target, c.trigger, locked).divergence, "") << where;
      EXPECT_EQ(runModel<BoxedCost>(++seed, c.target, c.trigger, locked).divergence, "") << where;
    }
  }
}

using Cache = VeltoLazyFiniteCostCache<std::string, std::string, int>;

// A purge starts from totalCost, drops from the least recent end until the running total is at
// or below the target, then recomputes totalCost from the kept nodes; every cost is asked anew.
TEST(VeltoLazyFiniteCostCache, trimsFromTheLeastRecentEndAndAsksCostsEachTime) {
  const std::map<std::string, int> costs{{"a", 4}, {"b", 4}, {"c", 5}};
  int asked = 0;
  double clock = 1;
  auto cache = Cache::create(
      [&](const Cache::Node& node) {
        ++asked;
        return costs.at(node.key());
      },
      [&clock] { return clock; }, true, [](const std::string& key) { return VeltoResult<std::string>(key + "!"); },
      Cache::Threshold(5, 10));
  ASSERT_TRUE(cache->get("a"));
  clock = 2;
  ASSERT_TRUE(cache->get("b"));
  EXPECT_EQ(asked, 4);  // isValid and added, twice
  EXPECT_EQ(cache->totalCost(), 8);
  clock = 3;
  asked = 0;
  ASSERT_TRUE(cache->get("c"));
  EXPECT_EQ(asked, 5);  // isValid, added, shrink asks a then b (13 -> 9 -> 5), replacedAllNodes asks c
  EXPECT_EQ(cache->totalCost(), 5);
  EXPECT_EQ(cache->keys(), Cache::KeySet{"c"});
  asked = 0;
  ASSERT_TRUE(cache->get("c"));
  EXPECT_EQ(asked, 0) << "a hit asks nothing";
}

// Threads share one locked cost cache while another reads totalCost and count without the
// lock. Run under ThreadSanitizer.
TEST(VeltoLazyFiniteCostCache, readsItsMeasuresWithoutTheLockWhileThreadsGet) {
  using IntCache = VeltoLazyFiniteCostCache<int, int, std::uint64_t>;
  auto cache = IntCache::create([](const IntCache::Node& node) { return static_cast<std::uint64_t>(node.key() % 5 + 1); },
                                {}, true, [](const int& key) { return VeltoResult<int>(key * 3); },
                                IntCache::Threshold(40, 60));
  constexpr int kThreads = 3;
  std::latch start(kThreads + 1);
  std::atomic<bool> done{false};
  std::atomic<bool> wrong{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      for (int i = 0; i < 3'000; ++i) {
        const int key = (i * 13 + t * 7) % 200;
        auto item = cache->get(key);
        if (!item || item.value() != key * 3) wrong = true;
      }
    });
  }
  std::uint64_t maxSeen = 0;
  std::thread reader([&] {
    start.arrive_and_wait();
    while (!done.load()) {
      maxSeen = std::max(maxSeen, cache->totalCost());
      (void)cache->count();
    }
  });
  for (auto& thread : threads) thread.join();
  done = true;
  reader.join();
  EXPECT_FALSE(wrong.load());
  // Between purges the total may pass the trigger by at most one item's cost (5).
  EXPECT_LE(maxSeen, 65u);
  EXPECT_LE(cache->totalCost(), 60u);
}

void overflowAnEightBitTotal() {
  using Small = VeltoLazyFiniteCostCache<int, int, std::uint8_t>;
  auto cache = Small::create([](const Small::Node&) { return std::uint8_t{150}; }, {}, false,
                             [](const int& key) { return VeltoResult<int>(key); }, Small::Threshold(200, 200));
  (void)cache->get(1);
  (void)cache->get(2);
}

void createWithoutACostProducer() {
  (void)Cache::create(nullptr, {}, true, [](const std::string& key) { return VeltoResult<std::string>(key); },
                      Cache::Threshold(1, 2));
}

TEST(VeltoLazyFiniteCostCacheDeathTest, anIntegerTotalLeavingItsRangeStops) {
  EXPECT_DEATH(overflowAnEightBitTotal(), "totalCost overflow");
}

TEST(VeltoLazyFiniteCostCacheDeathTest, anEmptyCostProducerStops) {
  EXPECT_DEATH(createWithoutACostProducer(), "empty cost producer");
}

}  // namespace
