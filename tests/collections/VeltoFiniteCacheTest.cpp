#include <velto/collections/VeltoFiniteCache.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/FiniteCacheModel.hpp"
#include "support/FrameNames.hpp"

namespace {

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

template <class T>
const T* arg(const VeltoError& error, std::string_view name, std::size_t frame) {
  const VeltoAny* value = argsOf(error, frame).find(name);
  return value != nullptr ? value->get<T>() : nullptr;
}

using Cache = VeltoFiniteCache<std::string, std::string>;

// Every hook, recorded; isValid refuses items starting with "bad", shrink keeps `keep` nodes.
class RecordingCache : public VeltoFiniteCache<std::string, std::string> {
 public:
  using Base = VeltoFiniteCache<std::string, std::string>;
  RecordingCache(DateProducer clock, bool locked, ItemProducer producer)
      : Base(Passkey{}, std::move(clock), locked, std::move(producer)) {}

  std::vector<std::string> calls;
  std::size_t keep = 100;
  bool misbehave = false;
  std::vector<std::string> lastSorted;

 protected:
  bool isValid(const Node& node) override {
    calls.push_back("isValid " + node.key());
    return node.item().rfind("bad", 0) != 0;
  }
  void added(NodeRefs nodes) override {
    for (const Node* node : nodes) calls.push_back("added " + node->key());
    Base::added(nodes);
  }
  bool isShrinkRequired(const Nodes& nodes) override {
    calls.push_back("isShrinkRequired " + std::to_string(nodes.size()));
    return nodes.size() > keep;
  }
  NodeRefs shrink(NodeRefs nodes) override {
    lastSorted.clear();
    for (const Node* node : nodes) lastSorted.push_back(node->key());
    calls.push_back("shrink");
    if (misbehave) return nodes.subspan(1);
    return nodes.first(keep);
  }
  void replacedAllNodes(NodeRefs nodes) override {
    calls.push_back("replacedAllNodes " + std::to_string(nodes.size()));
    Base::replacedAllNodes(nodes);
  }
};

std::shared_ptr<RecordingCache> makeRecording(double& clock, bool locked, std::map<std::string, int>& produced) {
  return std::make_shared<RecordingCache>([&clock] { return clock; }, locked, [&produced](const std::string& key) {
    ++produced[key];
    if (key == "fail") return VeltoResult<std::string>::fromMessage("Cannot produce", {{"key", key}});
    return VeltoResult<std::string>(key == "refused" ? "bad item" : key + "!");
  });
}

std::set<std::string> keysOf(const Cache& cache) {
  const auto keys = cache.keys();
  return {keys.begin(), keys.end()};
}

// The base cache never purges; a random walk over single and set gets with a clock that ties,
// steps back and reads NaN must match the reference model step by step.
TEST(VeltoFiniteCache, followsTheModelWithoutEverPurging) {
  using velto::test::FiniteCacheModel;
  for (const bool locked : {true, false}) {
    for (const unsigned seed : {1u, 2u}) {
      auto report = velto::test::checkAgainstModel({seed, 250, FiniteCacheModel::Bound::none, 0, 0, locked, 2000},
                                                   [](const velto::test::FiniteCacheParts& parts) {
                                                     return VeltoFiniteCache<int, int>::create(parts.dateProducer, parts.locked,
                                                                                               parts.itemProducer);
                                                   });
      EXPECT_EQ(report.divergence, "") << (locked ? "locked" : "unlocked");
      EXPECT_EQ(report.seen["purge"], 0);
      EXPECT_GT(report.seen["Cannot produce"], 10);
    }
  }
}

TEST(VeltoFiniteCache, aHitRestampsAndReturnsTheFirstItem) {
  double clock = 10;
  int calls = 0;
  auto cache = Cache::create([&clock] { return clock; }, false, [&calls](const std::string& key) {
    return VeltoResult<std::string>(key + "#" + std::to_string(++calls));
  });
  EXPECT_EQ(cache->get("a").value(), "a#1");
  clock = 20;
  EXPECT_EQ(cache->get("a").value(), "a#1");
  EXPECT_EQ(calls, 1);
  double stamp = 0;
  (void)cache->filter([&](const std::string&, const Cache::Node& node) {
    stamp = node.lastAccessed();
    return true;
  });
  EXPECT_EQ(stamp, 20);
  auto mapped = cache->map([](const std::string& key, const std::string& item) { return key + "=" + item; });
  EXPECT_EQ(mapped, std::vector<std::string>{"a=a#1"});
  EXPECT_FALSE(cache->enforceThreadSafety());
}

// Without a date producer the cache stamps with the wall clock.
TEST(VeltoFiniteCache, anEmptyDateProducerStampsWithTheWallClock) {
  auto cache = Cache::create({}, true, [](const std::string& key) { return VeltoResult<std::string>(key); });
  const double before = velto::detail::coarseWallClockEpochSeconds();
  ASSERT_TRUE(cache->get("a"));
  const double after = velto::detail::coarseWallClockEpochSeconds();
  const auto stamped = cache->filter([&](const std::string&, const Cache::Node& node) {
    return node.lastAccessed() >= before && node.lastAccessed() <= after;
  });
  EXPECT_EQ(stamped.size(), 1u);
}

TEST(VeltoFiniteCache, aProducerFailureIsWrappedWithTheKeyAndStoresNothing) {
  for (const bool locked : {true, false}) {
    double clock = 1;
    std::map<std::string, int> produced;
    auto cache = makeRecording(clock, locked, produced);
    auto failed = cache->get("fail");
    ASSERT_TRUE(failed.isFailure());
    const VeltoError& error = failed.error();
    EXPECT_EQ(error.message(), "Cannot produce");
    const auto expectedFrames = locked ? std::vector<std::string_view>{"operator()", "get(key:)", "protected(_:)", "get(key:)"}
                                       : std::vector<std::string_view>{"operator()", "get(key:)", "get(key:)"};
    EXPECT_EQ(functionNames(error.stackFrames()), expectedFrames);
    EXPECT_EQ(error.stackFrames()[1].codeSite().fileName(), "Data Structures/VeltoFiniteCache");
    EXPECT_EQ(argNames(error, 1), std::vector<std::string>{"key"});
    EXPECT_EQ(*arg<std::string>(error, "key", expectedFrames.size() - 1), "fail");
    EXPECT_EQ(cache->count(), 0u);
    EXPECT_TRUE(cache->keys().empty());
    EXPECT_EQ(cache->calls, std::vector<std::string>{});
    // Asked again next time: failures are not remembered.
    EXPECT_TRUE(cache->get("fail").isFailure());
    EXPECT_EQ(produced["fail"], 2);
  }
}

TEST(VeltoFiniteCache, aRefusedNodeFailsWithTheProposedNode) {
  double clock = 5;
  std::map<std::string, int> produced;
  auto cache = makeRecording(clock, true, produced);
  auto refused = cache->get("refused");
  ASSERT_TRUE(refused.isFailure());
  const VeltoError& error = refused.error();
  EXPECT_EQ(error.message(), "Node is not valid");
  EXPECT_EQ(functionNames(error.stackFrames()), (std::vector<std::string_view>{"get(key:)", "protected(_:)", "get(key:)"}));
  EXPECT_EQ(error.stackFrames()[0].codeSite().fileName(), "Data Structures/VeltoFiniteCache");
  EXPECT_EQ(argNames(error, 0), (std::vector<std::string>{"key", "proposed"}));
  const auto* proposed = arg<RecordingCache::Node>(error, "proposed", 0);
  ASSERT_NE(proposed, nullptr);
  EXPECT_EQ(proposed->key(), "refused");
  EXPECT_EQ(proposed->item(), "bad item");
  EXPECT_EQ(proposed->lastAccessed(), 5);
  EXPECT_EQ(argNames(error, 2), std::vector<std::string>{"key"});
  EXPECT_EQ(cache->count(), 0u);
  EXPECT_EQ(cache->calls, std::vector<std::string>{"isValid refused"});
}

// The set form: "Item is not valid" with "keys" and "proposed"; what was stored before the
// failure stays, and the purge still runs once at the end.
TEST(VeltoFiniteCache, aSetGetStopsAtTheFirstFailureAndStillPurges) {
  double clock = 1;
  std::map<std::string, int> produced;
  auto cache = makeRecording(clock, true, produced);
  cache->keep = 0;
  RecordingCache::KeySet keys{"refused"};
  for (int i = 0; i < 20; ++i) keys.insert("k" + std::to_string(i));
  auto result = cache->get(keys);
  ASSERT_TRUE(result.isFailure());
  const VeltoError& error = result.error();
  EXPECT_EQ(error.message(), "Item is not valid");
  EXPECT_EQ(functionNames(error.stackFrames()), (std::vector<std::string_view>{"get(keys:)", "protected(_:)", "get(keys:)"}));
  EXPECT_EQ(argNames(error, 0), (std::vector<std::string>{"keys", "proposed"}));
  EXPECT_EQ(*arg<RecordingCache::KeySet>(error, "keys", 0), keys);
  EXPECT_EQ(arg<RecordingCache::Node>(error, "proposed", 0)->key(), "refused");
  EXPECT_EQ(argNames(error, 2), std::vector<std::string>{"keys"});
  // The keys walked before "refused" were stored, then one purge (keep 0) dropped them all.
  std::size_t before = 0;
  for (const auto& key : keys) {
    if (key == "refused") break;
    ++before;
  }
  std::vector<std::string> expected;
  for (std::size_t i = 0; i < before; ++i) expected.push_back("isValid");
  expected.push_back("isValid");
  std::vector<std::string> validations;
  for (const auto& call : cache->calls) {
    if (call.rfind("isValid", 0) == 0) validations.push_back("isValid");
  }
  EXPECT_EQ(validations, expected);
  const auto shrinks = std::count(cache->calls.begin(), cache->calls.end(), "shrink");
  EXPECT_EQ(shrinks, before > 0 ? 1 : 0);
  EXPECT_EQ(cache->count(), 0u);
}

TEST(VeltoFiniteCache, aSetGetReturnsEveryItemAndTakesTheClockOnce) {
  int clockReads = 0;
  auto cache = Cache::create([&clockReads] { return static_cast<double>(++clockReads); }, true,
                             [](const std::string& key) { return VeltoResult<std::string>(key + "!"); });
  ASSERT_TRUE(cache->get("a"));
  auto items = cache->get(Cache::KeySet{"a", "b", "c"});
  ASSERT_TRUE(items);
  EXPECT_EQ(items.value(), (Cache::ItemMap{{"a", "a!"}, {"b", "b!"}, {"c", "c!"}}));
  EXPECT_EQ(clockReads, 2);
  auto none = cache->get(Cache::KeySet{});
  ASSERT_TRUE(none);
  EXPECT_TRUE(none.value().empty());
  EXPECT_EQ(keysOf(*cache), (std::set<std::string>{"a", "b", "c"}));
}

// The hooks see, in order: the proposal, the stored node, all nodes, the sorted nodes (most
// recent first, ties by later access), then the kept ones.
TEST(VeltoFiniteCache, callsItsHooksInOrderWithTheSortedNodes) {
  double clock = 1;
  std::map<std::string, int> produced;
  auto cache = makeRecording(clock, false, produced);
  cache->keep = 2;
  ASSERT_TRUE(cache->get("a"));
  clock = 3;
  ASSERT_TRUE(cache->get("b"));
  ASSERT_TRUE(cache->get("a"));  // a: 3, later than b
  clock = 2;
  cache->calls.clear();
  ASSERT_TRUE(cache->get("c"));  // the clock stepped back: c sorts last and is dropped
  EXPECT_EQ(cache->calls, (std::vector<std::string>{"isValid c", "added c", "isShrinkRequired 3", "shrink", "replacedAllNodes 2"}));
  EXPECT_EQ(cache->lastSorted, (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(keysOf(*cache), (std::set<std::string>{"a", "b"}));
  EXPECT_EQ(cache->count(), 2u);
  cache->calls.clear();
  ASSERT_TRUE(cache->get("b"));  // hits call no hook
  EXPECT_TRUE(cache->calls.empty());
}

// A key that hashes and compares with a view of itself: a hit builds no key at all.
struct CountedKey {
  static inline int made = 0;
  std::string text;
  explicit CountedKey(std::string_view view) : text(view) { ++made; }
  CountedKey(const CountedKey& other) : text(other.text) { ++made; }
  CountedKey& operator=(const CountedKey&) = default;
  friend bool operator==(const CountedKey&, const CountedKey&) = default;
};
struct CountedHash {
  using is_transparent = void;
  std::size_t operator()(const CountedKey& key) const { return std::hash<std::string_view>()(key.text); }
  std::size_t operator()(std::string_view view) const { return std::hash<std::string_view>()(view); }
};
struct CountedEqual {
  using is_transparent = void;
  bool operator()(const CountedKey& a, const CountedKey& b) const { return a.text == b.text; }
  bool operator()(std::string_view a, const CountedKey& b) const { return a == b.text; }
  bool operator()(const CountedKey& a, std::string_view b) const { return a.text == b; }
};

TEST(VeltoFiniteCache, aTransparentLookupBuildsNoKeyOnAHit) {
  using ViewCache = VeltoFiniteCache<CountedKey, int, CountedHash, CountedEqual>;
  auto cache = ViewCache::create([] { return 1.0; }, true, [](const CountedKey& key) {
    if (key.text == "fail") return VeltoResult<int>::fromMessage("Cannot produce");
    return VeltoResult<int>(static_cast<int>(key.text.size()));
  });
  EXPECT_EQ(cache->get(std::string_view("four")).value(), 4);
  const int madeAfterMiss = CountedKey::made;
  for (int i = 0; i < 10; ++i) EXPECT_EQ(cache->get(std::string_view("four")).value(), 4);
  EXPECT_EQ(CountedKey::made, madeAfterMiss);
  auto failed = cache->get(std::string_view("fail"));
  ASSERT_TRUE(failed.isFailure());
  EXPECT_EQ(arg<CountedKey>(failed.error(), "key", 3)->text, "fail");
  EXPECT_EQ(cache->count(), 1u);
}

// An exception from the producer leaves nothing stored and the cache usable (lock released,
// no re-entry mark left behind).
TEST(VeltoFiniteCache, aThrowingProducerLeavesTheCacheUsable) {
  for (const bool locked : {true, false}) {
    auto cache = Cache::create([] { return 1.0; }, locked, [](const std::string& key) -> VeltoResult<std::string> {
      if (key == "throw") throw std::runtime_error("boom");
      return key;
    });
    EXPECT_THROW((void)cache->get("throw"), std::runtime_error);
    EXPECT_THROW((void)cache->get(Cache::KeySet{"throw"}), std::runtime_error);
    EXPECT_EQ(cache->get("fine").value(), "fine");
    EXPECT_EQ(keysOf(*cache), std::set<std::string>{"fine"});
  }
}

// Threads share one locked cache; the producer notices any overlap with another producer call,
// items must match their keys, and `count` is read lock-free meanwhile. Run under
// ThreadSanitizer.
TEST(VeltoFiniteCache, serialisesEverythingUnderItsLock) {
  std::atomic<int> inside{0};
  std::atomic<bool> overlapped{false};
  auto cache = VeltoFiniteCache<int, std::string>::create({}, true, [&](int key) -> VeltoResult<std::string> {
    if (inside.fetch_add(1) != 0) overlapped = true;
    std::string item(32, static_cast<char>('a' + key % 26));
    if (inside.fetch_sub(1) != 1) overlapped = true;
    return item;
  });
  constexpr int kThreads = 4;
  std::latch start(kThreads);
  std::vector<std::thread> threads;
  std::atomic<std::size_t> maxCount{0};
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      for (int i = 0; i < 2'000; ++i) {
        const int key = (i * 7 + t) % 300;
        auto item = cache->get(key);
        if (!item || item.value() != std::string(32, static_cast<char>('a' + key % 26))) overlapped = true;
        if (i % 100 == 0) {
          (void)cache->map([](int, const std::string& item) { return item.size(); });
          (void)cache->get(VeltoFiniteCache<int, std::string>::KeySet{key, key + 1, key + 2});
        }
        maxCount = std::max(maxCount.load(), cache->count());
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_FALSE(overlapped.load());
  EXPECT_EQ(cache->count(), cache->keys().size());
  EXPECT_GE(cache->count(), 300u);
  EXPECT_LE(maxCount.load(), cache->count());
}

void reenterFromTheProducer(bool locked) {
  std::shared_ptr<VeltoFiniteCache<int, int>> cache;
  cache = VeltoFiniteCache<int, int>::create({}, locked, [&cache](int key) -> VeltoResult<int> {
    (void)cache->keys();
    return key;
  });
  (void)cache->get(1);
}

void reenterFromMap() {
  auto cache = VeltoFiniteCache<int, int>::create({}, false, [](int key) { return VeltoResult<int>(key); });
  (void)cache->get(1);
  (void)cache->map([&](int key, int) { return cache->get(key + 1).value(); });
}

void shrinkToOtherThanAPrefix() {
  double clock = 1;
  std::map<std::string, int> produced;
  auto cache = makeRecording(clock, true, produced);
  cache->keep = 1;
  cache->misbehave = true;
  (void)cache->get("a");
  (void)cache->get("b");
}

TEST(VeltoFiniteCacheDeathTest, aProducerCallingBackIntoALockedCacheStops) {
  EXPECT_DEATH(reenterFromTheProducer(true), "re-entered");
}

TEST(VeltoFiniteCacheDeathTest, aProducerOrCallbackCallingBackIntoAnUnlockedCacheStops) {
  EXPECT_DEATH(reenterFromTheProducer(false), "VeltoFiniteCache: called back from its own producer");
  EXPECT_DEATH(reenterFromMap(), "VeltoFiniteCache: called back");
}

TEST(VeltoFiniteCacheDeathTest, aShrinkReturningOtherThanAPrefixStops) {
  EXPECT_DEATH(shrinkToOtherThanAPrefix(), "returned other than a prefix");
}

TEST(VeltoFiniteCacheDeathTest, anEmptyItemProducerStops) {
  EXPECT_DEATH((void)Cache::create({}, true, nullptr), "empty item producer");
}

}  // namespace
