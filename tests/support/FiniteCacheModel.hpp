// A reference model of the finite caches (base, lazy count, lazy cost) and a driver that runs
// thousands of random gets against a real cache and the model side by side: single and set
// gets, a clock that ties, steps back and reads NaN, infinities and signed zeros, failing
// producers, costs above the trigger. After every step it compares what the get returned and
// the whole state (producer calls, count, totalCost, every entry's item and stamp). It returns
// the first divergence as text, so it needs no test framework.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <velto/core/VeltoResult.hpp>

namespace velto::test {

struct FiniteCacheModel {
  enum class Bound { none, count, cost };
  struct Entry {
    int key;
    int item;
    double stamp;
    std::uint64_t order;
  };

  Bound bound = Bound::none;
  long long target = 0;
  long long trigger = 0;
  std::function<long long(int key)> cost;
  std::vector<Entry> entries;
  std::uint64_t accesses = 0;
  std::size_t count = 0;
  long long totalCost = 0;
  int producerCalls = 0;
  int purges = 0;

  // The producer's rule, shared with the driver's real producer: the n-th call makes
  // key + 1000 * n; it fails for the keys in `failing`.
  static int itemFor(int key, int call) { return key + 1000 * call; }

  // `keys` in the real set's iteration order; `single` for get(key). Returns the failure
  // message ("" on success) and fills `items`.
  std::string get(const std::vector<int>& keys, bool single, double now, const std::set<int>& failing, std::map<int, int>& items) {
    std::string message;
    bool stored = false;
    for (const int key : keys) {
      const auto found = std::find_if(entries.begin(), entries.end(), [&](const Entry& e) { return e.key == key; });
      if (found != entries.end()) {
        found->stamp = now;
        found->order = ++accesses;
        items[key] = found->item;
        continue;
      }
      const int item = itemFor(key, ++producerCalls);
      if (failing.contains(key)) {
        message = "Cannot produce";
        break;
      }
      if (bound == Bound::cost && cost(key) > trigger) {
        message = single ? "Node is not valid" : "Item is not valid";
        break;
      }
      entries.push_back({key, item, now, ++accesses});
      ++count;
      totalCost += cost(key);
      stored = true;
      items[key] = item;
    }
    if (stored) purge();
    if (!message.empty()) items.clear();
    return message;
  }

  void purge() {
    const bool required = bound == Bound::count ? static_cast<long long>(count) > trigger
                                                : bound == Bound::cost && totalCost > trigger;
    if (!required) return;
    ++purges;
    // Most recent first: NaN least recent, greater stamps first, equal stamps by later access.
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
      if (std::isnan(a.stamp) != std::isnan(b.stamp)) return std::isnan(b.stamp);
      if (!std::isnan(a.stamp) && a.stamp != b.stamp) return a.stamp > b.stamp;
      return a.order > b.order;
    });
    std::size_t keep = entries.size();
    if (bound == Bound::count) {
      keep = std::min<std::size_t>(keep, static_cast<std::size_t>(target));
    } else {
      for (long long running = totalCost; keep > 0 && running > target;) running -= cost(entries[--keep].key);
    }
    entries.resize(keep);
    count = keep;
    totalCost = 0;
    for (const Entry& entry : entries) totalCost += cost(entry.key);
  }

  // The state as the driver prints it for the real cache: calls, measures, then entries by key.
  [[nodiscard]] std::string describe() const {
    std::map<int, std::pair<int, double>> byKey;
    for (const Entry& entry : entries) byKey[entry.key] = {entry.item, entry.stamp};
    return describe(producerCalls, count, totalCost, byKey);
  }
  static std::string describe(int calls, std::size_t count, long long totalCost, const std::map<int, std::pair<int, double>>& byKey) {
    std::ostringstream text;
    text.precision(17);
    text << "calls " << calls << " count " << count << " totalCost " << totalCost << " entries";
    for (const auto& [key, entry] : byKey) text << ' ' << key << '=' << entry.first << '@' << entry.second;
    return text.str();
  }
};

struct FiniteCacheModelRun {
  unsigned seed;
  int keyRange;
  FiniteCacheModel::Bound bound;
  long long target;
  long long trigger;
  bool locked;
  int steps = 3000;
};

struct FiniteCacheModelReport {
  std::string divergence;          // "" when the cache followed the model throughout
  std::map<std::string, int> seen;  // how often each failure, purge and odd clock came up
};

// What the driver hands the factory to build a cache of any kind over int keys and items.
struct FiniteCacheParts {
  std::function<double()> dateProducer;
  bool locked;
  std::function<VeltoResult<int>(const int&)> itemProducer;
  std::function<long long(int key)> cost;
};

// Runs `run.steps` random gets on `makeCache(parts)` (a shared_ptr to one of the three caches)
// and on the model; totalCost is compared when the cache has one.
template <class MakeCache>
FiniteCacheModelReport checkAgainstModel(const FiniteCacheModelRun& run, MakeCache makeCache) {
  FiniteCacheModelReport report;
  std::mt19937 random(run.seed);
  FiniteCacheModel model;
  model.bound = run.bound;
  model.target = run.target;
  model.trigger = run.trigger;
  // Costs from 0 to 6; keys 3, 10, 17, ... cost more than the trigger.
  model.cost = [trigger = run.trigger](int key) { return key % 7 == 3 ? trigger + 1 + key % 3 : (key * 5) % 7; };
  double clock = 1000.0;
  int producerCalls = 0;
  std::set<int> failing;
  auto cache = makeCache(FiniteCacheParts{[&clock] { return clock; }, run.locked,
                                          [&](const int& key) -> VeltoResult<int> {
                                            const int item = FiniteCacheModel::itemFor(key, ++producerCalls);
                                            if (failing.contains(key)) return VeltoResult<int>::fromMessage("Cannot produce");
                                            return item;
                                          },
                                          model.cost});
  using Cache = typename decltype(cache)::element_type;
  const auto randomKey = [&] { return static_cast<int>(random() % static_cast<unsigned>(run.keyRange)); };

  for (int step = 0; step < run.steps; ++step) {
    switch (random() % 16) {
      case 0: case 1: case 2: break;  // a tie
      case 3: clock -= static_cast<double>(random() % 50); ++report.seen["clock back"]; break;
      case 4: clock = std::numeric_limits<double>::quiet_NaN(); ++report.seen["clock NaN"]; break;
      case 5: clock = (random() % 2 != 0) ? -0.0 : 0.0; break;
      case 6: clock = std::numeric_limits<double>::infinity() * ((random() % 2 != 0) ? 1 : -1); break;
      default: clock = (std::isfinite(clock) ? clock : 1000.0 + step) + static_cast<double>(1 + random() % 3);
    }
    const bool single = random() % 4 != 0;
    typename Cache::KeySet keys;
    for (unsigned i = 0, size = single ? 1 : random() % 6; i < size; ++i) keys.insert(randomKey());
    failing.clear();
    if (random() % 8 == 0 && !keys.empty()) failing.insert(*std::next(keys.begin(), static_cast<std::ptrdiff_t>(random() % keys.size())));

    std::map<int, int> expectedItems, items;
    const int purgesBefore = model.purges;
    const std::string expected = model.get(std::vector<int>(keys.begin(), keys.end()), single, clock, failing, expectedItems);
    std::string message;
    if (single) {
      auto result = cache->get(*keys.begin());
      if (result) items[*keys.begin()] = result.value();
      else message = result.error().message();
    } else {
      auto result = cache->get(keys);
      if (result) items.insert(result.value().begin(), result.value().end());
      else message = result.error().message();
    }
    ++report.seen[expected.empty() ? "success" : expected];
    if (model.purges != purgesBefore) ++report.seen["purge"];

    std::map<int, std::pair<int, double>> byKey;
    (void)cache->filter([&](const int& key, const typename Cache::Node& node) {
      byKey[key] = {node.item(), node.lastAccessed()};
      return false;
    });
    long long totalCost = 0;
    if constexpr (requires { cache->totalCost(); }) totalCost = static_cast<long long>(cache->totalCost());
    else totalCost = model.totalCost;
    const std::string state = FiniteCacheModel::describe(producerCalls, cache->count(), totalCost, byKey);
    if (message != expected || items != expectedItems || state != model.describe()) {
      std::ostringstream divergence;
      divergence << "seed " << run.seed << " step " << step << ": got \"" << message << "\", " << items.size()
                 << " items, " << state << "\nexpected \"" << expected << "\", " << expectedItems.size() << " items, "
                 << model.describe();
      report.divergence = divergence.str();
      return report;
    }
  }
  return report;
}

}  // namespace velto::test
