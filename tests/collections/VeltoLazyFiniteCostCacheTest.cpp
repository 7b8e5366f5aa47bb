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
#include "support/FrameNames.hpp"

namespace {

using velto::test::FiniteCacheModel;
using velto::test::functionNames;

const VeltoArgs& argsOf(const VeltoError& error, std::size_t frame) {
  static const VeltoArgs empty;
  const VeltoArgs* args = error.stackFrames().at(frame).args().get<VeltoArgs>();
  return args != nullptr ? *args : empty;
}

std::vector<std::string> argNames(const VeltoError& error, std::size_t frame) {
  std::vector<std::string> names;
  for (const auto& [name, value] : argsOf(error, frame)) names.push_back(name);
  return names;
}

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
// boxed costs; every seventh key costs more than the trigger and is refused.
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

struct Costs {
  std::map<std::string, int> byKey;
  int asked = 0;
};

std::shared_ptr<Cache> makeCache(Costs& costs, double& clock, int target, int trigger) {
  return Cache::create(
      [&costs](const Cache::Node& node) {
        ++costs.asked;
        return costs.byKey.at(node.key());
      },
      [&clock] { return clock; }, true, [](const std::string& key) { return VeltoResult<std::string>(key + "!"); },
      Cache::Threshold(target, trigger));
}

TEST(VeltoLazyFiniteCostCache, acceptsACostEqualToTheTriggerAndRefusesMore) {
  Costs costs{{{"equal", 10}, {"more", 11}}};
  double clock = 1;
  auto cache = makeCache(costs, clock, 5, 10);
  EXPECT_EQ(cache->get("equal").value(), "equal!");
  EXPECT_EQ(cache->totalCost(), 10);

  auto refused = cache->get("more");
  ASSERT_TRUE(refused.isFailure());
  const VeltoError& error = refused.error();
  EXPECT_EQ(error.message(), "Node is not valid");
  EXPECT_EQ(functionNames(error.stackFrames()), (std::vector<std::string_view>{"get(key:)", "protected(_:)", "get(key:)"}));
  EXPECT_EQ(argNames(error, 0), (std::vector<std::string>{"key", "proposed"}));
  EXPECT_EQ(argsOf(error, 0).find("proposed")->get<Cache::Node>()->item(), "more!");
  EXPECT_EQ(cache->count(), 1u);
  EXPECT_EQ(cache->totalCost(), 10);

  auto refusedInSet = cache->get(Cache::KeySet{"more"});
  ASSERT_TRUE(refusedInSet.isFailure());
  EXPECT_EQ(refusedInSet.error().message(), "Item is not valid");
  EXPECT_EQ(argNames(refusedInSet.error(), 0), (std::vector<std::string>{"keys", "proposed"}));
}

// A purge starts from totalCost, drops from the least recent end until the running total is at
// or below the target, then recomputes totalCost from the kept nodes; every cost is asked anew.
TEST(VeltoLazyFiniteCostCache, trimsFromTheLeastRecentEndAndAsksCostsEachTime) {
  Costs costs{{{"a", 4}, {"b", 4}, {"c", 5}}};
  double clock = 1;
  auto cache = makeCache(costs, clock, 5, 10);
  ASSERT_TRUE(cache->get("a"));
  clock = 2;
  ASSERT_TRUE(cache->get("b"));
  EXPECT_EQ(costs.asked, 4);  // isValid and added, twice
  EXPECT_EQ(cache->totalCost(), 8);
  clock = 3;
  costs.asked = 0;
  ASSERT_TRUE(cache->get("c"));
  // isValid, added, shrink asks a then b (13 -> 9 -> 5), replacedAllNodes asks c.
  EXPECT_EQ(costs.asked, 5);
  EXPECT_EQ(cache->totalCost(), 5);
  EXPECT_EQ(cache->count(), 1u);
  const auto keys = cache->keys();
  EXPECT_EQ(std::set<std::string>(keys.begin(), keys.end()), std::set<std::string>{"c"});
  costs.asked = 0;
  ASSERT_TRUE(cache->get("c"));
  EXPECT_EQ(costs.asked, 0);  // a hit asks nothing
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
