#include <velto/collections/VeltoLinkListBasedFiniteCostCache.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/FailureArgs.hpp"
#include "support/FrameNames.hpp"
#include "support/KeyedListModel.hpp"

namespace {

using velto::test::arg;
using velto::test::argNames;
using velto::test::functionNames;

using Cache = VeltoLinkListBasedFiniteCostCache<std::string, std::string, int>;

// Costs by key; "<key>#<call>" as items; fails for keys in `failing`.
struct Producer {
  std::map<std::string, int> costs;
  std::map<std::string, int> calls;
  std::set<std::string> failing;
  VeltoResult<Cache::CostedItem> operator()(const std::string& key) {
    const int call = ++calls[key];
    if (failing.contains(key)) return VeltoResult<Cache::CostedItem>::fromMessage("Cannot produce", {{"key", key}});
    return Cache::CostedItem(costs.contains(key) ? costs[key] : 1, key + "#" + std::to_string(call));
  }
};

std::shared_ptr<Cache> makeCache(Producer& producer, int maxCost) {
  return Cache::create([&producer](const std::string& key) { return producer(key); }, maxCost);
}

std::set<std::string> keysOf(Cache& cache) {
  const auto keys = cache.keys();
  return {keys.begin(), keys.end()};
}

TEST(VeltoLinkListBasedFiniteCostCache, anItemCostingTheWholeLimitIsRefused) {
  Producer producer;
  producer.costs = {{"big", 10}, {"almost", 9}};
  auto cache = makeCache(producer, 10);
  auto refused = cache->get("big");
  ASSERT_TRUE(refused.isFailure());
  const VeltoError& error = refused.error();
  EXPECT_EQ(error.message(), "Item cost exceeds entire cache's maxCost");
  EXPECT_EQ(functionNames(error.stackFrames()), (std::vector<std::string_view>{"get(key:)", "protected(_:)", "get(key:)"}));
  EXPECT_EQ(error.stackFrames()[0].codeSite().fileName(), "Data Structures/VeltoLinkListBasedFiniteCostCache");
  EXPECT_EQ(argNames(error, 0), (std::vector<std::string>{"key", "newItem"}));
  EXPECT_EQ(arg<Cache::CostedItem>(error, "newItem", 0)->cost(), 10);
  EXPECT_EQ(cache->get("almost").value(), "almost#1") << "one below the limit fits";
}

// The model checks what a failure leaves behind; here, the frames it passes through.
TEST(VeltoLinkListBasedFiniteCostCache, aProducerFailureIsWrappedTwice) {
  Producer producer;
  producer.failing = {"X"};
  auto cache = makeCache(producer, 10);
  auto failed = cache->get("X");
  ASSERT_TRUE(failed.isFailure());
  EXPECT_EQ(failed.error().message(), "Cannot produce");
  EXPECT_EQ(functionNames(failed.error().stackFrames()),
            (std::vector<std::string_view>{"operator()", "get(key:)", "protected(_:)", "get(key:)"}));
}

TEST(VeltoLinkListBasedFiniteCostCache, getOfASetKeepsItemsEvictedByLaterKeys) {
  Producer producer;
  producer.costs = {{"A", 6}, {"B", 6}};
  auto cache = makeCache(producer, 10);
  EXPECT_TRUE(cache->get(Cache::KeySet{}).value().empty());
  EXPECT_TRUE(producer.calls.empty()) << "an empty set asks nothing";
  auto items = cache->get(Cache::KeySet{"A", "B"});
  ASSERT_TRUE(items) << items.error().message();
  EXPECT_EQ(items.value(), (Cache::ItemMap{{"A", "A#1"}, {"B", "B#1"}}));
  EXPECT_EQ(cache->count(), 1u);
  EXPECT_EQ(cache->totalCost(), 6);
}

TEST(VeltoLinkListBasedFiniteCostCache, aFailureInASetNamesTheSetAndKeepsEarlierItems) {
  Producer producer;
  producer.failing = {"X"};
  auto cache = makeCache(producer, 100);
  const Cache::KeySet keys{"A", "B", "C", "X", "D", "E"};
  auto failed = cache->get(keys);
  ASSERT_TRUE(failed.isFailure());
  const VeltoError& error = failed.error();
  EXPECT_EQ(error.message(), "Cannot produce");
  EXPECT_EQ(functionNames(error.stackFrames()),
            (std::vector<std::string_view>{"operator()", "get(keys:)", "protected(_:)", "get(keys:)"}));
  EXPECT_EQ(argNames(error, 1), std::vector<std::string>{"keys"});
  EXPECT_EQ(*arg<Cache::KeySet>(error, "keys", 1), keys);
  EXPECT_EQ(*arg<Cache::KeySet>(error, "keys", 3), keys);
  // Exactly the keys before X in the set's own order were produced and kept.
  std::set<std::string> before;
  for (const auto& key : keys) {
    if (key == "X") break;
    before.insert(key);
  }
  EXPECT_EQ(keysOf(*cache), before);
  EXPECT_EQ(producer.calls.size(), before.size() + 1);
}

// The model reads the cache through map after every get, so map is known not to promote.
TEST(VeltoLinkListBasedFiniteCostCache, filterSeesEveryEntryWithoutPromoting) {
  Producer producer;
  producer.costs = {{"A", 1}, {"B", 2}, {"C", 3}};
  auto cache = makeCache(producer, 7);
  for (const char* key : {"A", "B", "C"}) ASSERT_TRUE(cache->get(key));
  auto costly = cache->filter([](const std::string&, const std::shared_ptr<Cache::Node>& node) { return node->item().cost() >= 2; });
  EXPECT_EQ(costly, (Cache::ItemMap{{"B", "B#1"}, {"C", "C#1"}}));
  // A was not promoted: it is still the first to go.
  producer.costs["D"] = 2;
  ASSERT_TRUE(cache->get("D"));
  EXPECT_EQ(keysOf(*cache), (std::set<std::string>{"B", "C", "D"}));
}

// Kept on purpose: the interior hit on B strands C without a back link, and the eviction that
// reaches it leaves the list without a tail.
TEST(VeltoLinkListBasedFiniteCostCache, anInteriorHitLeadsToNoTailToRemove) {
  Producer producer;
  auto cache = makeCache(producer, 3);  // cost 1 each: three fit
  for (const char* key : {"A", "B", "C", "B", "D", "E"}) ASSERT_TRUE(cache->get(key)) << key;
  auto failed = cache->get("F");
  ASSERT_TRUE(failed.isFailure());
  const VeltoError& error = failed.error();
  EXPECT_EQ(error.message(), "No tail to remove");
  EXPECT_EQ(functionNames(error.stackFrames()),
            (std::vector<std::string_view>{"removeTail()", "get(key:)", "protected(_:)", "get(key:)"}));
  EXPECT_EQ(argNames(error, 1), std::vector<std::string>{"key"});
  EXPECT_EQ(cache->totalCost(), 4);
  EXPECT_EQ(cache->count(), 4u);
}

using IntCache = VeltoLinkListBasedFiniteCostCache<int, int, long>;

// 10,000 random gets per run with random costs (some refused) and failing producers, against
// the model; after every get: items, count, totalCost (and that it is the sum of the cached
// costs), and every link.
TEST(VeltoLinkListBasedFiniteCostCache, followsTheModelOverRandomGets) {
  struct Run {
    unsigned seed;
    int keyRange;
    long maxCost;
  };
  std::map<std::string, int> seen;
  for (const Run run : {Run{1, 12, 10}, Run{2, 60, 100}, Run{3, 5, 3}, Run{4, 300, 1000}}) {
    std::mt19937 random(run.seed);
    int produced = 0;
    bool failNext = false;
    long nextCost = 1;
    auto cache = IntCache::create(
        [&](int key) -> VeltoResult<IntCache::CostedItem> {
          ++produced;
          if (failNext) return VeltoResult<IntCache::CostedItem>::fromMessage("Cannot produce");
          return IntCache::CostedItem(nextCost, key * 100'000 + produced);
        },
        run.maxCost);
    velto::test::LinkedCacheModel model(run.maxCost, true);
    for (int step = 0; step < 10'000; ++step) {
      const std::string where = "seed " + std::to_string(run.seed) + " step " + std::to_string(step);
      const int key = static_cast<int>(random() % static_cast<unsigned>(run.keyRange));
      failNext = random() % 25 == 0;
      nextCost = 1 + static_cast<long>(random() % static_cast<unsigned long>(run.maxCost / 3 + 1));
      if (random() % 50 == 0) nextCost = run.maxCost;
      const int producedBefore = produced;
      const auto expected = model.get(key, key * 100'000 + produced + 1, nextCost, failNext);
      auto result = random() % 3 == 0 ? cache->get(key) : [&]() -> VeltoResult<int> {
        auto items = cache->get(IntCache::KeySet{key});
        if (!items) return VeltoResult<int>::failure(items.error());
        return items.value().at(key);
      }();
      ASSERT_EQ(result ? std::string() : result.error().message(), expected.message) << where;
      if (result) {
        ASSERT_EQ(result.value(), expected.item) << where;
      }
      ASSERT_EQ(produced - producedBefore, expected.produced ? 1 : 0) << where;
      ++seen[expected.message];

      ASSERT_EQ(cache->count(), model.count) << where;
      ASSERT_EQ(cache->totalCost(), model.totalCost) << where;
      const auto keyOr = [](const std::shared_ptr<IntCache::Node>& node) { return node ? node->key() : -1; };
      long summed = 0;
      ASSERT_EQ(model.divergence(cache->map([&](int key, const std::shared_ptr<IntCache::Node>& node) {
        summed += node->item().cost();
        return std::tuple(key, node->item().item(), keyOr(node->tailward()), keyOr(node->headward()));
      })), "") << where;
      ASSERT_EQ(summed, model.totalCost) << where;
      // A stored item ends its get within the limit; a hit may follow an unfinished eviction.
      if (expected.produced && expected.message.empty()) {
        ASSERT_LE(cache->totalCost(), run.maxCost) << where;
      }
    }
  }
  EXPECT_GT(seen["Item cost exceeds entire cache's maxCost"], 0);
  EXPECT_GT(seen["Cannot produce"], 0);
  EXPECT_GT(seen["No tail to remove"], 0);
}

// A cost that is not trivially copyable: totalCost is then read under the lock.
struct Money {
  long cents = 0;
  std::string currency = "EUR";
  explicit Money(long cents) : cents(cents) {}
  Money& operator+=(const Money& other) {
    cents += other.cents;
    return *this;
  }
  Money& operator-=(const Money& other) {
    cents -= other.cents;
    return *this;
  }
  friend bool operator<(const Money& a, const Money& b) { return a.cents < b.cents; }
  friend bool operator>(const Money& a, const Money& b) { return a.cents > b.cents; }
};

TEST(VeltoLinkListBasedFiniteCostCache, acceptsACostThatIsNotTriviallyCopyable) {
  using MoneyCache = VeltoLinkListBasedFiniteCostCache<int, int, Money>;
  auto cache = MoneyCache::create([](int key) -> VeltoResult<MoneyCache::CostedItem> { return MoneyCache::CostedItem(Money(key), key); },
                                  Money(10));
  for (int key : {4, 4, 5, 3}) ASSERT_TRUE(cache->get(key));
  EXPECT_EQ(cache->totalCost().cents, 8);
  EXPECT_EQ(cache->count(), 2u);
}

// Threads mix single and set gets while another reads count and totalCost without the lock.
TEST(VeltoLinkListBasedFiniteCostCache, serialisesProducersAcrossThreads) {
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  auto cache = VeltoLinkListBasedFiniteCostCache<int, std::vector<int>, double>::create(
      [&](int key) -> VeltoResult<VeltoLinkListBasedFiniteCostCache<int, std::vector<int>, double>::CostedItem> {
        if (inside.fetch_add(1) != 0) overlapped = true;
        std::vector<int> item(32, key);
        if (inside.fetch_sub(1) != 1) overlapped = true;
        return {{0.5 + key % 3, std::move(item)}};
      },
      20.0);
  constexpr int kThreads = 4;
  std::latch start(kThreads + 1);
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937 random(static_cast<unsigned>(t));
      start.arrive_and_wait();
      for (int i = 0; i < 3'000; ++i) {
        const int key = static_cast<int>(random() % 30);
        if (i % 2 == 0) {
          auto item = cache->get(key);
          if (item && item.value() != std::vector<int>(32, key)) overlapped = true;
        } else {
          auto items = cache->get(std::unordered_set<int>{key, key + 1, key + 2});
          if (items && items.value().at(key + 1) != std::vector<int>(32, key + 1)) overlapped = true;
        }
      }
    });
  }
  double lastCost = 0;
  std::thread reader([&] {
    start.arrive_and_wait();
    while (!done.load()) lastCost = cache->totalCost() + static_cast<double>(cache->count());
  });
  for (auto& thread : threads) thread.join();
  done = true;
  reader.join();
  EXPECT_FALSE(overlapped.load());
  EXPECT_EQ(cache->count(), cache->keys().size());
  EXPECT_GE(lastCost, 0.0);
}

}  // namespace
