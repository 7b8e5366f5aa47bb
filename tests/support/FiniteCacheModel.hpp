// A reference model of the finite caches (base, lazy count, lazy cost) and a driver that runs
// thousands of random gets against a real cache and the model side by side: single and set
// gets, a clock that ties, steps back and reads NaN, failing producers, costs above the
// trigger. After every step it compares the result, the producer calls, `count`, every entry
// (key, item, stamp) and `totalCost`. The driver returns the first divergence as text, so that it
// needs no test framework.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <unordered_set>
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
  struct Outcome {
    std::string message;       // "" on success
    std::map<int, int> items;  // the items returned
  };

  Bound bound = Bound::none;
  long long target = 0;
  long long trigger = 0;
  std::function<long long(int key)> cost = [](int) { return 1LL; };

  std::vector<Entry> entries;  // in no particular order
  std::uint64_t accesses = 0;
  std::size_t count = 0;
  long long totalCost = 0;
  int producerCalls = 0;

  // The producer's rule, shared with the real producer of the driver: the n-th call makes
  // key + 1000 * n, and fails for the keys in `failing`.
  static int itemFor(int key, int call) { return key + 1000 * call; }

  Outcome get(int key, double now, const std::set<int>& failing) {
    Outcome outcome;
    if (Entry* entry = find(key)) {
      touch(*entry, now);
      outcome.items[key] = entry->item;
      return outcome;
    }
    const int item = itemFor(key, ++producerCalls);
    if (failing.contains(key)) return {"Cannot produce", {}};
    if (!valid(key)) return {"Node is not valid", {}};
    store(key, item, now);
    purge();
    outcome.items[key] = item;
    return outcome;
  }

  // `keys` in the real set's iteration order.
  Outcome get(const std::vector<int>& keys, double now, const std::set<int>& failing) {
    Outcome outcome;
    bool stored = false;
    for (const int key : keys) {
      if (Entry* entry = find(key)) {
        touch(*entry, now);
        outcome.items[key] = entry->item;
        continue;
      }
      const int item = itemFor(key, ++producerCalls);
      if (failing.contains(key)) {
        outcome.message = "Cannot produce";
        break;
      }
      if (!valid(key)) {
        outcome.message = "Item is not valid";
        break;
      }
      store(key, item, now);
      stored = true;
      outcome.items[key] = item;
    }
    if (stored) purge();
    if (!outcome.message.empty()) outcome.items.clear();
    return outcome;
  }

  Entry* find(int key) {
    for (Entry& entry : entries) {
      if (entry.key == key) return &entry;
    }
    return nullptr;
  }

  void touch(Entry& entry, double now) {
    entry.stamp = now;
    entry.order = ++accesses;
  }

  [[nodiscard]] bool valid(int key) const { return bound != Bound::cost || cost(key) <= trigger; }

  void store(int key, int item, double now) {
    entries.push_back({key, item, now, ++accesses});
    ++count;
    totalCost += cost(key);
  }

  // Most recent first: NaN least recent, greater stamps first, equal stamps by later access.
  static bool moreRecent(const Entry& a, const Entry& b) {
    if (std::isnan(a.stamp) || std::isnan(b.stamp)) {
      if (std::isnan(a.stamp) != std::isnan(b.stamp)) return std::isnan(b.stamp);
      return a.order > b.order;
    }
    if (a.stamp != b.stamp) return a.stamp > b.stamp;
    return a.order > b.order;
  }

  bool purgedLastTime = false;
  void purge() {
    purgedLastTime = false;
    const bool required = bound == Bound::count   ? static_cast<long long>(count) > trigger
                          : bound == Bound::cost ? totalCost > trigger
                                                 : false;
    if (!required) return;
    purgedLastTime = true;
    std::sort(entries.begin(), entries.end(), moreRecent);
    std::size_t keep = entries.size();
    if (bound == Bound::count) {
      keep = std::min<std::size_t>(keep, static_cast<std::size_t>(target));
    } else {
      long long running = totalCost;
      while (keep > 0 && running > target) running -= cost(entries[--keep].key);
    }
    entries.resize(keep);
    count = keep;
    totalCost = 0;
    for (const Entry& entry : entries) totalCost += cost(entry.key);
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
  std::map<std::string, int> seen;  // how often each situation came up
};

// What the driver needs to build a cache of any of the three kinds over int keys and items.
struct FiniteCacheParts {
  std::function<double()> dateProducer;
  bool locked;
  std::function<VeltoResult<int>(const int&)> itemProducer;
  std::function<long long(int key)> cost;
};

inline bool sameStamp(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

// Runs `run.steps` random gets on `makeCache(parts)` and on the model. Cache is one of the
// three finite caches (a shared_ptr to it); totalCost is compared when the cache has one.
template <class MakeCache>
FiniteCacheModelReport checkAgainstModel(const FiniteCacheModelRun& run, MakeCache makeCache) {
  FiniteCacheModelReport report;
  std::mt19937 random(run.seed);
  FiniteCacheModel model;
  model.bound = run.bound;
  model.target = run.target;
  model.trigger = run.trigger;
  // Costs from 0 to 6, and every seventh key costs more than the trigger.
  model.cost = [trigger = run.trigger](int key) { return key % 7 == 3 ? trigger + 1 + key % 3 : (key * 5) % 7; };

  double clock = 1000.0;
  int producerCalls = 0;
  std::set<int> failing;
  FiniteCacheParts parts{
      [&clock] { return clock; }, run.locked,
      [&](const int& key) -> VeltoResult<int> {
        const int item = FiniteCacheModel::itemFor(key, ++producerCalls);
        if (failing.contains(key)) return VeltoResult<int>::fromMessage("Cannot produce", {{"key", key}});
        return item;
      },
      model.cost};
  auto cache = makeCache(parts);

  for (int step = 0; step < run.steps; ++step) {
    std::ostringstream where;
    where << "seed " << run.seed << " step " << step << ": ";
    // The clock: mostly forward, often tied, sometimes back, rarely NaN, infinite or signed zero.
    switch (random() % 16) {
      case 0: case 1: case 2: break;                                         // tie
      case 3: clock -= static_cast<double>(random() % 50); ++report.seen["clock back"]; break;
      case 4: clock = std::numeric_limits<double>::quiet_NaN(); ++report.seen["clock NaN"]; break;
      case 5: clock = (random() % 2 != 0) ? -0.0 : 0.0; break;
      case 6: clock = (random() % 2 != 0) ? std::numeric_limits<double>::infinity() : -std::numeric_limits<double>::infinity(); break;
      default:
        if (std::isnan(clock) || std::isinf(clock)) clock = 1000.0 + step;
        clock += static_cast<double>(1 + random() % 3);
    }
    failing.clear();
    const bool fail = random() % 8 == 0;  // the producer fails for one of the keys asked for

    using Cache = typename decltype(cache)::element_type;
    FiniteCacheModel::Outcome expected;
    std::string message;
    std::map<int, int> items;
    std::vector<std::string_view> frames;
    if (random() % 4 != 0) {
      const int key = static_cast<int>(random() % static_cast<unsigned>(run.keyRange));
      if (fail) failing.insert(key);
      expected = model.get(key, clock, failing);
      auto result = cache->get(key);
      if (result) {
        items[key] = result.value();
      } else {
        message = result.error().message();
        for (const auto& frame : result.error().stackFrames()) frames.push_back(frame.codeSite().functionName());
      }
    } else {
      typename Cache::KeySet keys;
      const unsigned size = random() % 6;
      for (unsigned i = 0; i < size; ++i) keys.insert(static_cast<int>(random() % static_cast<unsigned>(run.keyRange)));
      if (fail && !keys.empty()) failing.insert(*std::next(keys.begin(), static_cast<std::ptrdiff_t>(random() % keys.size())));
      expected = model.get(std::vector<int>(keys.begin(), keys.end()), clock, failing);
      auto result = cache->get(keys);
      if (result) {
        items.insert(result.value().begin(), result.value().end());
      } else {
        message = result.error().message();
        for (const auto& frame : result.error().stackFrames()) frames.push_back(frame.codeSite().functionName());
      }
      ++report.seen["set get"];
    }
    ++report.seen[expected.message.empty() ? "success" : expected.message];
    if (model.purgedLastTime) ++report.seen["purge"];

    if (message != expected.message) {
      report.divergence = where.str() + "message \"" + message + "\", expected \"" + expected.message + "\"";
      return report;
    }
    if (!message.empty()) {
      // The body's frame and the outer one, the lock's frame between them when locked.
      const bool set = frames.back() == "get(keys:)";
      const std::string_view name = set ? "get(keys:)" : "get(key:)";
      std::vector<std::string_view> expectedTail = {name, name};
      if (run.locked) expectedTail.insert(expectedTail.begin() + 1, "protected(_:)");
      const std::size_t innermost = message == "Cannot produce" ? 1 : 0;
      if (frames.size() != innermost + expectedTail.size() ||
          !std::equal(expectedTail.begin(), expectedTail.end(), frames.begin() + static_cast<std::ptrdiff_t>(innermost))) {
        report.divergence = where.str() + "unexpected frames for \"" + message + "\"";
        return report;
      }
    }
    if (items != expected.items) {
      report.divergence = where.str() + "items differ";
      return report;
    }
    if (producerCalls != model.producerCalls) {
      report.divergence = where.str() + "producer called " + std::to_string(producerCalls) + " times, expected " +
                          std::to_string(model.producerCalls);
      return report;
    }
    if (cache->count() != model.count) {
      report.divergence = where.str() + "count " + std::to_string(cache->count()) + ", expected " + std::to_string(model.count);
      return report;
    }
    if constexpr (requires { cache->totalCost(); }) {
      if (static_cast<long long>(cache->totalCost()) != model.totalCost) {
        report.divergence = where.str() + "totalCost " + std::to_string(static_cast<long long>(cache->totalCost())) +
                            ", expected " + std::to_string(model.totalCost);
        return report;
      }
    }
    std::map<int, std::pair<int, double>> entries;
    (void)cache->filter([&](const int& key, const typename Cache::Node& node) {
      entries[key] = {node.item(), node.lastAccessed()};
      return false;
    });
    if (entries.size() != model.entries.size()) {
      report.divergence = where.str() + std::to_string(entries.size()) + " entries, expected " +
                          std::to_string(model.entries.size());
      return report;
    }
    for (const auto& entry : model.entries) {
      const auto found = entries.find(entry.key);
      if (found == entries.end() || found->second.first != entry.item || !sameStamp(found->second.second, entry.stamp)) {
        report.divergence = where.str() + "entry for key " + std::to_string(entry.key) + " differs or is missing";
        return report;
      }
    }
  }
  return report;
}

}  // namespace velto::test
