#include <velto/collections/VeltoLinkListBasedFiniteCountCache.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <list>
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

// A producer that counts its calls per key and returns "<key>#<call number>", so a test can
// tell a stored item from a fresh one; it fails for keys in `failing`.
struct Producer {
  std::map<std::string, int> calls;
  std::set<std::string> failing;
  VeltoResult<std::string> operator()(const std::string& key) {
    const int call = ++calls[key];
    if (failing.contains(key)) return VeltoResult<std::string>::fromMessage("Cannot produce", {{"key", key}});
    return key + "#" + std::to_string(call);
  }
};

using Cache = VeltoLinkListBasedFiniteCountCache<std::string, std::string>;

std::shared_ptr<Cache> makeCache(Producer& producer, std::size_t limit) {
  return Cache::create([&producer](const std::string& key) { return producer(key); }, limit);
}

std::set<std::string> keysOf(Cache& cache) {
  const auto keys = cache.keys();
  return {keys.begin(), keys.end()};
}

TEST(VeltoLinkListBasedFiniteCountCache, aProducerFailureIsWrappedTwiceAndStoresNothing) {
  Producer producer;
  producer.failing = {"X"};
  auto cache = makeCache(producer, 2);
  ASSERT_TRUE(cache->get("A"));
  auto failed = cache->get("X");
  ASSERT_TRUE(failed.isFailure());
  const VeltoError& error = failed.error();
  EXPECT_EQ(error.message(), "Cannot produce");
  EXPECT_EQ(functionNames(error.stackFrames()),
            (std::vector<std::string_view>{"operator()", "get(key:)", "protected(_:)", "get(key:)"}));
  EXPECT_EQ(error.stackFrames()[1].codeSite().fileName(), "Data Structures/VeltoLinkListBasedFiniteCountCache");
  EXPECT_EQ(argNames(error, 1), std::vector<std::string>{"key"});
  EXPECT_EQ(*arg<std::string>(error, "key", 3), "X");
  EXPECT_EQ(cache->count(), 1u);
  EXPECT_EQ(keysOf(*cache), std::set<std::string>{"A"});
}

// Kept on purpose: the hit on B (interior) leaves C without a back link; once C is evicted the
// list has no tail, and the next eviction fails while F stays cached.
TEST(VeltoLinkListBasedFiniteCountCache, anInteriorHitLeadsToNoTailToRemove) {
  Producer producer;
  auto cache = makeCache(producer, 3);
  for (const char* key : {"A", "B", "C", "B", "D", "E"}) ASSERT_TRUE(cache->get(key)) << key;
  EXPECT_EQ(keysOf(*cache), (std::set<std::string>{"B", "D", "E"}));
  auto failed = cache->get("F");
  ASSERT_TRUE(failed.isFailure());
  const VeltoError& error = failed.error();
  EXPECT_EQ(error.message(), "No tail to remove");
  EXPECT_EQ(functionNames(error.stackFrames()),
            (std::vector<std::string_view>{"removeTail()", "get(key:)", "protected(_:)", "get(key:)"}));
  EXPECT_EQ(argNames(error, 1), (std::vector<std::string>{"key", "newNode"}));
  EXPECT_EQ((*arg<std::shared_ptr<Cache::Node>>(error, "newNode", 1))->item(), "F#1");
  EXPECT_EQ(argNames(error, 3), std::vector<std::string>{"key"});
  EXPECT_EQ(cache->count(), 4u);
  EXPECT_EQ(keysOf(*cache), (std::set<std::string>{"B", "D", "E", "F"}));
  EXPECT_EQ(cache->get("F").value(), "F#1");  // a hit still works
}

struct IntProducer {
  int produced = 0;
  bool failNext = false;
  VeltoResult<int> operator()(int key) {
    ++produced;
    if (failNext) return VeltoResult<int>::fromMessage("Cannot produce", {{"key", key}});
    return key * 100'000 + produced;
  }
};

using IntCache = VeltoLinkListBasedFiniteCountCache<int, int>;

// 10,000 random gets per run against the model: items, producer calls, failures (the quirk's
// "No tail to remove" included, predicted exactly) and every link checked after every get.
TEST(VeltoLinkListBasedFiniteCountCache, followsTheModelOverRandomGets) {
  struct Run {
    unsigned seed;
    int keyRange;
    std::size_t limit;
  };
  std::map<std::string, int> seen;
  for (const Run run : {Run{1, 12, 5}, Run{2, 40, 30}, Run{3, 6, 1}, Run{4, 3, 0}, Run{5, 200, 150}}) {
    std::mt19937 random(run.seed);
    IntProducer producer;
    auto cache = IntCache::create([&producer](int key) { return producer(key); }, run.limit);
    velto::test::LinkedCacheModel model(static_cast<long>(run.limit), false);
    for (int step = 0; step < 10'000; ++step) {
      const int key = static_cast<int>(random() % static_cast<unsigned>(run.keyRange));
      producer.failNext = random() % 20 == 0;
      const int producedBefore = producer.produced;
      const auto expected = model.get(key, key * 100'000 + producedBefore + 1, 1, producer.failNext);
      auto result = cache->get(key);
      const std::string where = "seed " + std::to_string(run.seed) + " step " + std::to_string(step);
      ASSERT_EQ(result ? std::string() : result.error().message(), expected.message) << where;
      if (result) {
        ASSERT_EQ(result.value(), expected.item) << where;
      }
      ASSERT_EQ(producer.produced - producedBefore, expected.produced ? 1 : 0) << where;
      ++seen[expected.message];
      ASSERT_EQ(cache->count(), model.count) << where;
      const auto keyOr = [](const std::shared_ptr<IntCache::Node>& node) { return node ? node->key() : -1; };
      ASSERT_EQ(model.divergence(cache->map([&](int key, const std::shared_ptr<IntCache::Node>& node) {
        EXPECT_EQ(node->key(), key) << where;
        return std::tuple(key, node->item(), keyOr(node->tailward()), keyOr(node->headward()));
      })), "") << where;
    }
  }
  EXPECT_GT(seen["No tail to remove"], 0);
  EXPECT_GT(seen["Cannot produce"], 0);
}

// A sequence that never hits an interior entry (only the most and least recently used ones, or
// misses) must behave as a textbook LRU cache: this checks eviction order independently of the
// list model.
TEST(VeltoLinkListBasedFiniteCountCache, matchesATextbookLruWhenHitsAreAtTheEnds) {
  for (const std::size_t limit : {1u, 2u, 7u, 64u}) {
    std::mt19937 random(static_cast<unsigned>(limit));
    IntProducer producer;
    auto cache = IntCache::create([&producer](int key) { return producer(key); }, limit);
    std::list<int> recency;  // most recent first
    std::map<int, int> items;
    int nextKey = 0;
    std::vector<int> evicted;
    for (int step = 0; step < 10'000; ++step) {
      const unsigned choice = random() % 4;
      int key;
      if (choice == 0 && !recency.empty()) key = recency.front();
      else if (choice == 1 && !recency.empty()) key = recency.back();
      else if (choice == 2 && !evicted.empty()) key = evicted[random() % evicted.size()];
      else key = nextKey++;
      if (choice == 2 && items.contains(key) && key != recency.front() && key != recency.back()) key = nextKey++;
      const bool hit = items.contains(key);
      const int producedBefore = producer.produced;
      auto result = cache->get(key);
      ASSERT_TRUE(result) << result.error().message() << " limit " << limit << " step " << step;
      if (hit) {
        ASSERT_EQ(result.value(), items[key]);
        recency.remove(key);
      } else {
        items[key] = result.value();
      }
      ASSERT_EQ(producer.produced - producedBefore, hit ? 0 : 1);
      recency.push_front(key);
      while (recency.size() > limit) {
        evicted.push_back(recency.back());
        items.erase(recency.back());
        recency.pop_back();
      }
      const auto keys = cache->keys();
      ASSERT_EQ(std::set<int>(keys.begin(), keys.end()), std::set<int>(recency.begin(), recency.end()))
          << "limit " << limit << " step " << step;
      ASSERT_EQ(cache->count(), recency.size());
    }
  }
}

// Threads hammer one cache; the producer notices any overlap with another producer call, and
// `count` is read without the lock meanwhile. Run under ThreadSanitizer.
TEST(VeltoLinkListBasedFiniteCountCache, serialisesProducersAcrossThreads) {
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  std::atomic<int> produced{0};
  auto cache = VeltoLinkListBasedFiniteCountCache<int, std::string>::create(
      [&](int key) -> VeltoResult<std::string> {
        if (inside.fetch_add(1) != 0) overlapped = true;
        std::string item(64, static_cast<char>('a' + key % 26));  // some work while "inside"
        produced.fetch_add(1);
        if (inside.fetch_sub(1) != 1) overlapped = true;
        return item;
      },
      16);
  constexpr int kThreads = 4;
  std::latch start(kThreads + 1);
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  std::atomic<int> failures{0};
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937 random(static_cast<unsigned>(t));
      start.arrive_and_wait();
      for (int i = 0; i < 5'000; ++i) {
        const int key = static_cast<int>(random() % 24);
        auto item = cache->get(key);
        if (!item) {
          failures.fetch_add(1);  // the deliberate "No tail to remove" once the list has lost its tail
        } else if (item.value() != std::string(64, static_cast<char>('a' + key % 26))) {
          overlapped = true;
        }
      }
    });
  }
  std::size_t maxSeen = 0;
  std::thread reader([&] {
    start.arrive_and_wait();
    while (!done.load()) maxSeen = std::max(maxSeen, cache->count());
  });
  for (auto& thread : threads) thread.join();
  done = true;
  reader.join();
  EXPECT_FALSE(overlapped.load());
  EXPECT_EQ(cache->count(), cache->keys().size());
  EXPECT_GE(produced.load(), 16);
}

// A million cached entries are released without recursing down the recency chain.
TEST(VeltoLinkListBasedFiniteCountCache, releasesAMillionEntries) {
  auto cache = IntCache::create([](int key) -> VeltoResult<int> { return key; }, 1'000'000);
  for (int key = 0; key < 1'000'000; ++key) ASSERT_TRUE(cache->get(key));
  EXPECT_EQ(cache->count(), 1'000'000u);
  cache.reset();
}

TEST(VeltoLinkListBasedFiniteCountCacheDeathTest, aProducerCallingBackIntoItsCacheStops) {
  EXPECT_DEATH(
      {
        std::shared_ptr<IntCache> cache;
        cache = IntCache::create([&cache](int key) -> VeltoResult<int> { return cache->get(key + 1); }, 4);
        (void)cache->get(1);
      },
      "");
}

}  // namespace
