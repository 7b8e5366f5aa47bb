#include <velto/collections/VeltoFiniteCache.hpp>

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/FailureArgs.hpp"
#include "support/FiniteCacheModel.hpp"
#include "support/FrameNames.hpp"

namespace {

using velto::test::arg;
using velto::test::argNames;
using velto::test::functionNames;

using Cache = VeltoFiniteCache<std::string, std::string>;

// Every hook recorded; isValid refuses items starting with "bad", shrink keeps `keep` nodes
// (or, misbehaving, drops the first).
class RecordingCache : public Cache {
 public:
  RecordingCache(DateProducer clock, bool locked, ItemProducer producer) : Cache(Passkey{}, std::move(clock), locked, std::move(producer)) {}
  std::vector<std::string> calls;
  std::vector<std::string> lastSorted;
  std::size_t keep = 100;
  bool misbehave = false;

 protected:
  bool isValid(const Node& node) override {
    calls.push_back("isValid " + node.key());
    return node.item().rfind("bad", 0) != 0;
  }
  void added(NodeRefs nodes) override {
    for (const Node* node : nodes) calls.push_back("added " + node->key());
    Cache::added(nodes);
  }
  bool isShrinkRequired(const Nodes& nodes) override {
    calls.push_back("isShrinkRequired " + std::to_string(nodes.size()));
    return nodes.size() > keep;
  }
  NodeRefs shrink(NodeRefs nodes) override {
    lastSorted.clear();
    for (const Node* node : nodes) lastSorted.push_back(node->key());
    calls.emplace_back("shrink");
    return misbehave ? nodes.subspan(1) : nodes.first(keep);
  }
  void replacedAllNodes(NodeRefs nodes) override {
    calls.push_back("replacedAllNodes " + std::to_string(nodes.size()));
    Cache::replacedAllNodes(nodes);
  }
};

std::shared_ptr<RecordingCache> makeRecording(double& clock, bool locked) {
  return std::make_shared<RecordingCache>([&clock] { return clock; }, locked, [](const std::string& key) {
    if (key == "fail") return VeltoResult<std::string>::fromMessage("Cannot produce", {{"key", key}});
    return VeltoResult<std::string>(key == "refused" ? "bad item" : key + "!");
  });
}

std::set<std::string> keysOf(const Cache& cache) {
  const auto keys = cache.keys();
  return {keys.begin(), keys.end()};
}

// The base cache never purges; random single and set gets with a clock that ties, steps back
// and reads NaN must match the reference model step by step.
TEST(VeltoFiniteCache, followsTheModelWithoutEverPurging) {
  for (const bool locked : {true, false}) {
    auto report = velto::test::checkAgainstModel(
        {locked ? 1u : 2u, 250, velto::test::FiniteCacheModel::Bound::none, 0, 0, locked, 2000},
        [](const velto::test::FiniteCacheParts& parts) {
          return VeltoFiniteCache<int, int>::create(parts.dateProducer, parts.locked, parts.itemProducer);
        });
    EXPECT_EQ(report.divergence, "") << (locked ? "locked" : "unlocked");
    EXPECT_EQ(report.seen["purge"], 0);
    EXPECT_GT(report.seen["Cannot produce"], 10);
  }
}

TEST(VeltoFiniteCache, wrapsFailuresWithTheKeyAndStoresNothing) {
  for (const bool locked : {true, false}) {
    double clock = 5;
    auto cache = makeRecording(clock, locked);
    auto failed = cache->get("fail");
    ASSERT_TRUE(failed.isFailure());
    const VeltoError& error = failed.error();
    EXPECT_EQ(error.message(), "Cannot produce");
    EXPECT_EQ(functionNames(error.stackFrames()),
              (locked ? std::vector<std::string_view>{"operator()", "get(key:)", "protected(_:)", "get(key:)"}
                      : std::vector<std::string_view>{"operator()", "get(key:)", "get(key:)"}));
    EXPECT_EQ(error.stackFrames()[1].codeSite().fileName(), "Data Structures/VeltoFiniteCache");
    EXPECT_EQ(argNames(error, 1), std::vector<std::string>{"key"});
    EXPECT_EQ(*arg<std::string>(error, "key", error.stackFrames().size() - 1), "fail");

    auto refused = cache->get("refused");
    ASSERT_TRUE(refused.isFailure());
    EXPECT_EQ(refused.error().message(), "Node is not valid");
    EXPECT_EQ(argNames(refused.error(), 0), (std::vector<std::string>{"key", "proposed"}));
    const auto* proposed = arg<Cache::Node>(refused.error(), "proposed", 0);
    ASSERT_NE(proposed, nullptr);
    EXPECT_EQ(proposed->item(), "bad item");
    EXPECT_EQ(proposed->lastAccessed(), 5);

    auto refusedInSet = cache->get(Cache::KeySet{"refused"});
    ASSERT_TRUE(refusedInSet.isFailure());
    EXPECT_EQ(refusedInSet.error().message(), "Item is not valid");
    EXPECT_EQ(refusedInSet.error().stackFrames()[0].codeSite().functionName(), "get(keys:)");
    EXPECT_EQ(argNames(refusedInSet.error(), 0), (std::vector<std::string>{"keys", "proposed"}));
    EXPECT_EQ(*arg<Cache::KeySet>(refusedInSet.error(), "keys", 0), Cache::KeySet{"refused"});
    EXPECT_EQ(argNames(refusedInSet.error(), refusedInSet.error().stackFrames().size() - 1), std::vector<std::string>{"keys"});

    EXPECT_EQ(cache->count(), 0u);
    EXPECT_EQ(cache->calls, (std::vector<std::string>{"isValid refused", "isValid refused"}));
  }
}

// The hooks see, in order: the proposal, the stored node, all nodes, the sorted nodes (most
// recent first, ties by later access, a stamp from a clock that stepped back last), the kept.
TEST(VeltoFiniteCache, callsItsHooksInOrderWithTheSortedNodes) {
  double clock = 1;
  auto cache = makeRecording(clock, false);
  cache->keep = 2;
  ASSERT_TRUE(cache->get("a"));
  clock = 3;
  ASSERT_TRUE(cache->get("b"));
  ASSERT_TRUE(cache->get("a"));
  clock = 2;
  cache->calls.clear();
  EXPECT_EQ(cache->get("c").value(), "c!");  // returned although the purge drops it at once
  EXPECT_EQ(cache->calls, (std::vector<std::string>{"isValid c", "added c", "isShrinkRequired 3", "shrink", "replacedAllNodes 2"}));
  EXPECT_EQ(cache->lastSorted, (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(keysOf(*cache), (std::set<std::string>{"a", "b"}));
  cache->calls.clear();
  ASSERT_TRUE(cache->get("b"));
  ASSERT_TRUE(cache->get(Cache::KeySet{"a", "b"}));
  EXPECT_TRUE(cache->calls.empty()) << "hits call no hook and never purge";
}

TEST(VeltoFiniteCache, readsTheClockOncePerGetAndDefaultsToTheWallClock) {
  int clockReads = 0;
  auto counted = Cache::create([&clockReads] { return static_cast<double>(++clockReads); }, true,
                               [](const std::string& key) { return VeltoResult<std::string>(key + "!"); });
  ASSERT_TRUE(counted->get("a"));
  EXPECT_EQ(counted->get(Cache::KeySet{"a", "b", "c"}).value(), (Cache::ItemMap{{"a", "a!"}, {"b", "b!"}, {"c", "c!"}}));
  EXPECT_EQ(clockReads, 2);

  auto walled = Cache::create({}, true, [](const std::string& key) { return VeltoResult<std::string>(key); });
  const double before = velto::detail::coarseWallClockEpochSeconds();
  ASSERT_TRUE(walled->get("a"));
  const auto stamped = walled->filter([&](const std::string&, const Cache::Node& node) {
    return node.lastAccessed() >= before && node.lastAccessed() <= velto::detail::coarseWallClockEpochSeconds();
  });
  EXPECT_EQ(stamped.size(), 1u);
}

// A key that hashes and compares with a view of itself: a hit builds no key at all.
struct CountedKey {
  static inline int made = 0;
  std::string text;
  explicit CountedKey(std::string_view view) : text(view) { ++made; }
  CountedKey(const CountedKey& other) : text(other.text) { ++made; }
  CountedKey& operator=(const CountedKey&) = default;
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
  auto cache = VeltoFiniteCache<CountedKey, int, CountedHash, CountedEqual>::create([] { return 1.0; }, true, [](const CountedKey& key) {
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
}

// An exception from the producer stores nothing and leaves the cache usable: the lock released
// and no re-entry mark left behind.
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
  auto cache = makeRecording(clock, true);
  cache->keep = 1;
  cache->misbehave = true;
  (void)cache->get("a");
  (void)cache->get("b");
}

TEST(VeltoFiniteCacheDeathTest, stopsOnReentryAMisbehavingShrinkAndAMissingProducer) {
  EXPECT_DEATH(reenterFromTheProducer(true), "re-entered");
  EXPECT_DEATH(reenterFromTheProducer(false), "VeltoFiniteCache: called back from its own producer");
  EXPECT_DEATH(reenterFromMap(), "VeltoFiniteCache: called back");
  EXPECT_DEATH(shrinkToOtherThanAPrefix(), "returned other than a prefix");
  EXPECT_DEATH((void)Cache::create({}, true, nullptr), "empty item producer");
}

}  // namespace
