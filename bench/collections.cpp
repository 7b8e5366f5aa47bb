// ==== Sorted array ============================================================================
// VeltoSortedArray beside what a user would write instead: firstIndex(matching:) beside
// std::partition_point over a sorted std::vector, insert beside std::upper_bound plus
// vector::insert. This section is self-contained (its own includes and namespace).
#include <velto/collections/VeltoSortedArray.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <vector>

#include "support/BenchMain.hpp"

namespace {

using SortedInts = VeltoSortedArray<int>;

constexpr std::size_t kSortedBoundCount = 1 << 16;  // a power of two, cycled through by masking; too many for the branch predictor to learn

// n distinct even values 0, 2, 4, ... and random bounds spread a little past both ends, so
// queries land everywhere, none-matching and all-matching included.
struct SortedSearchData {
  std::vector<int> values;
  std::vector<int> bounds;
};

const SortedSearchData& sortedSearchData(int n) {
  static std::map<int, SortedSearchData> cache;
  auto [it, inserted] = cache.try_emplace(n);
  if (inserted) {
    std::mt19937 random(42);
    for (int i = 0; i < n; ++i) it->second.values.push_back(2 * i);
    std::uniform_int_distribution<int> bound(-10, 2 * n + 10);
    for (std::size_t i = 0; i < kSortedBoundCount; ++i) it->second.bounds.push_back(bound(random));
  }
  return it->second;
}

// A query as a user writes it: a comparator made per call, its projection a lambda kept inline.
// At a million elements the bottom of each search misses the caches, as partition_point's does.
void BM_VeltoSortedArrayFirstIndex(benchmark::State& state) {
  const auto& data = sortedSearchData(static_cast<int>(state.range(0)));
  const SortedInts array = SortedInts::fromSorted(data.values);
  const auto self = [](int x) { return x; };
  std::size_t next = 0;
  for (auto _ : state) {
    const int bound = data.bounds[next++ & (kSortedBoundCount - 1)];
    benchmark::DoNotOptimize(array.firstIndex(SortedInts::FirstElementComparator<int>::greaterThanOrEqualTo(self, bound)));
  }
}
BENCHMARK(BM_VeltoSortedArrayFirstIndex)->Arg(64)->Arg(1'000'000);

// The same with the comparator's type-erased form: the projection goes through std::function.
void BM_VeltoSortedArrayFirstIndexErased(benchmark::State& state) {
  const auto& data = sortedSearchData(static_cast<int>(state.range(0)));
  const SortedInts array = SortedInts::fromSorted(data.values);
  const auto self = [](int x) { return x; };
  std::size_t next = 0;
  for (auto _ : state) {
    const int bound = data.bounds[next++ & (kSortedBoundCount - 1)];
    const SortedInts::FirstElementComparator<int> erased = SortedInts::FirstElementComparator<int>::greaterThanOrEqualTo(self, bound);
    benchmark::DoNotOptimize(array.firstIndex(erased));
  }
}
BENCHMARK(BM_VeltoSortedArrayFirstIndexErased)->Arg(64)->Arg(1'000'000);

// The anchor: the first element >= bound of a sorted vector, answered as an optional index.
void BM_StdPartitionPointFirstIndex(benchmark::State& state) {
  const auto& data = sortedSearchData(static_cast<int>(state.range(0)));
  const std::vector<int>& values = data.values;
  std::size_t next = 0;
  for (auto _ : state) {
    const int bound = data.bounds[next++ & (kSortedBoundCount - 1)];
    const auto cut = std::partition_point(values.begin(), values.end(), [bound](int x) { return !(x >= bound); });
    benchmark::DoNotOptimize(cut == values.end() ? std::optional<std::ptrdiff_t>() : std::optional(cut - values.begin()));
  }
}
BENCHMARK(BM_StdPartitionPointFirstIndex)->Arg(64)->Arg(1'000'000);

const std::vector<int>& insertKeys(int n) {
  static std::map<int, std::vector<int>> cache;
  auto [it, inserted] = cache.try_emplace(n);
  if (inserted) {
    std::mt19937 random(7);
    std::uniform_int_distribution<int> key(0, n / 4);  // about four of each key: many equal runs
    for (int i = 0; i < n; ++i) it->second.push_back(key(random));
  }
  return it->second;
}

// Fills an empty array with n random keys, one insert at a time: bisection through the
// std::function ordering, then the move of the later elements.
void BM_VeltoSortedArrayInsert(benchmark::State& state) {
  const auto& keys = insertKeys(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    SortedInts array;
    for (int key : keys) benchmark::DoNotOptimize(array.insert(key));
    benchmark::DoNotOptimize(array.count());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_VeltoSortedArrayInsert)->Arg(100)->Arg(1'000)->Arg(10'000);

// The anchor: upper_bound with the inlined `<`, then vector::insert.
void BM_StdUpperBoundInsert(benchmark::State& state) {
  const auto& keys = insertKeys(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::vector<int> values;
    for (int key : keys) {
      const auto at = values.insert(std::upper_bound(values.begin(), values.end(), key), key);
      benchmark::DoNotOptimize(at - values.begin());
    }
    benchmark::DoNotOptimize(values.size());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_StdUpperBoundInsert)->Arg(100)->Arg(1'000)->Arg(10'000);

}  // namespace

VELTO_BENCH_RATIO(BM_VeltoSortedArrayFirstIndex/1000000, BM_StdPartitionPointFirstIndex/1000000,
                  "sorted array firstIndex(matching:), 1,000,000 ints, inline projection (target <= 1.2)");
VELTO_BENCH_RATIO(BM_VeltoSortedArrayFirstIndexErased/1000000, BM_StdPartitionPointFirstIndex/1000000,
                  "sorted array firstIndex(matching:), 1,000,000 ints, std::function projection (report)");
VELTO_BENCH_RATIO(BM_VeltoSortedArrayFirstIndex/64, BM_StdPartitionPointFirstIndex/64,
                  "sorted array firstIndex(matching:), 64 ints (report)");
VELTO_BENCH_RATIO(BM_VeltoSortedArrayInsert/100, BM_StdUpperBoundInsert/100, "sorted array insert, 100 keys (report)");
VELTO_BENCH_RATIO(BM_VeltoSortedArrayInsert/1000, BM_StdUpperBoundInsert/1000, "sorted array insert, 1,000 keys (report)");
VELTO_BENCH_RATIO(BM_VeltoSortedArrayInsert/10000, BM_StdUpperBoundInsert/10000,
                  "sorted array insert, 10,000 keys (report)");
// ==== End of sorted array =====================================================================

// ==== Link-list-based caches ==================================================================
// The count cache beside a textbook LRU (std::list plus std::unordered_map of list iterators,
// one std::mutex), both get-or-produce with a std::function producer: hits on random resident
// keys, and misses that each evict the least recently used entry. A bare
// std::unordered_map::find is reported as the floor under both. This section is
// self-contained (its own includes and namespace).
#include <velto/collections/VeltoLinkListBasedFiniteCountCache.hpp>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <functional>
#include <list>
#include <mutex>
#include <random>
#include <unordered_map>
#include <utility>
#include <vector>

#include "support/BenchMain.hpp"

namespace {

constexpr std::size_t kCacheCapacity = 1024;
constexpr std::size_t kCacheKeyCount = 1 << 16;  // random keys cycled through by masking

// What a user writes instead: the classic LRU, returning the item by value.
class TextbookLru {
 public:
  TextbookLru(std::function<int(int)> producer, std::size_t capacity) : producer_(std::move(producer)), capacity_(capacity) {}

  int get(int key) {
    std::lock_guard guard(mutex_);
    if (const auto found = index_.find(key); found != index_.end()) {
      recency_.splice(recency_.begin(), recency_, found->second);
      return found->second->second;
    }
    const int item = producer_(key);
    recency_.emplace_front(key, item);
    index_.emplace(key, recency_.begin());
    if (recency_.size() > capacity_) {
      index_.erase(recency_.back().first);
      recency_.pop_back();
    }
    return item;
  }

 private:
  std::function<int(int)> producer_;
  std::size_t capacity_;
  std::list<std::pair<int, int>> recency_;
  std::unordered_map<int, std::list<std::pair<int, int>>::iterator> index_;
  std::mutex mutex_;
};

const std::vector<int>& residentKeys() {
  static const std::vector<int> keys = [] {
    std::mt19937 random(7);
    std::vector<int> keys(kCacheKeyCount);
    for (int& key : keys) key = static_cast<int>(random() % kCacheCapacity);
    return keys;
  }();
  return keys;
}

using CountCache = VeltoLinkListBasedFiniteCountCache<int, int>;

// Hits only: every key of 0..1023 is resident; the hit moves a random entry to the head.
void BM_VeltoCountCacheHit(benchmark::State& state) {
  auto cache = CountCache::create([](int key) -> VeltoResult<int> { return key * 2; }, kCacheCapacity);
  for (int key = 0; key < static_cast<int>(kCacheCapacity); ++key) (void)cache->get(key);
  const auto& keys = residentKeys();
  std::size_t next = 0;
  std::size_t failures = 0;
  for (auto _ : state) {
    auto item = cache->get(keys[next++ & (kCacheKeyCount - 1)]);
    failures += item.isFailure() ? 1 : 0;
    benchmark::DoNotOptimize(item);
  }
  state.counters["failures"] = static_cast<double>(failures);
}
BENCHMARK(BM_VeltoCountCacheHit);

void BM_TextbookLruHit(benchmark::State& state) {
  TextbookLru cache([](int key) { return key * 2; }, kCacheCapacity);
  for (int key = 0; key < static_cast<int>(kCacheCapacity); ++key) (void)cache.get(key);
  const auto& keys = residentKeys();
  std::size_t next = 0;
  for (auto _ : state) benchmark::DoNotOptimize(cache.get(keys[next++ & (kCacheKeyCount - 1)]));
}
BENCHMARK(BM_TextbookLruHit);

// The floor: the same lookups in a bare hash map, no lock, no recency.
void BM_UnorderedMapFindHit(benchmark::State& state) {
  std::unordered_map<int, int> map;
  for (int key = 0; key < static_cast<int>(kCacheCapacity); ++key) map.emplace(key, key * 2);
  const auto& keys = residentKeys();
  std::size_t next = 0;
  for (auto _ : state) benchmark::DoNotOptimize(map.find(keys[next++ & (kCacheKeyCount - 1)])->second);
}
BENCHMARK(BM_UnorderedMapFindHit);

// Hits that cycle through the resident keys in insertion order: each get hits the least
// recently used entry, so every hit relinks the tail to the head and the recency list stays
// whole (random hits, above, strand former heads without back links and then cost less).
void BM_VeltoCountCacheHitCycling(benchmark::State& state) {
  auto cache = CountCache::create([](int key) -> VeltoResult<int> { return key * 2; }, kCacheCapacity);
  for (int key = 0; key < static_cast<int>(kCacheCapacity); ++key) (void)cache->get(key);
  std::size_t next = 0;
  std::size_t failures = 0;
  for (auto _ : state) {
    auto item = cache->get(static_cast<int>(next++ & (kCacheCapacity - 1)));
    failures += item.isFailure() ? 1 : 0;
    benchmark::DoNotOptimize(item);
  }
  state.counters["failures"] = static_cast<double>(failures);
}
BENCHMARK(BM_VeltoCountCacheHitCycling);

void BM_TextbookLruHitCycling(benchmark::State& state) {
  TextbookLru cache([](int key) { return key * 2; }, kCacheCapacity);
  for (int key = 0; key < static_cast<int>(kCacheCapacity); ++key) (void)cache.get(key);
  std::size_t next = 0;
  for (auto _ : state) benchmark::DoNotOptimize(cache.get(static_cast<int>(next++ & (kCacheCapacity - 1))));
}
BENCHMARK(BM_TextbookLruHitCycling);

// Misses only, each with a key never seen before, so every get produces, stores and evicts the
// tail (no hit ever promotes an interior entry, which would end the run with "No tail to remove").
void BM_VeltoCountCacheMissEvicting(benchmark::State& state) {
  auto cache = CountCache::create([](int key) -> VeltoResult<int> { return key * 2; }, kCacheCapacity);
  int key = 0;
  for (; key < static_cast<int>(kCacheCapacity); ++key) (void)cache->get(key);
  std::size_t failures = 0;
  for (auto _ : state) {
    auto item = cache->get(key++);
    failures += item.isFailure() ? 1 : 0;
    benchmark::DoNotOptimize(item);
  }
  state.counters["failures"] = static_cast<double>(failures);
}
BENCHMARK(BM_VeltoCountCacheMissEvicting);

void BM_TextbookLruMissEvicting(benchmark::State& state) {
  TextbookLru cache([](int key) { return key * 2; }, kCacheCapacity);
  int key = 0;
  for (; key < static_cast<int>(kCacheCapacity); ++key) (void)cache.get(key);
  for (auto _ : state) benchmark::DoNotOptimize(cache.get(key++));
}
BENCHMARK(BM_TextbookLruMissEvicting);

}  // namespace

VELTO_BENCH_RATIO(BM_VeltoCountCacheHit, BM_TextbookLruHit, "count cache hit vs textbook LRU + mutex (target <= 1)");
VELTO_BENCH_RATIO(BM_VeltoCountCacheHitCycling, BM_TextbookLruHitCycling,
                  "count cache hit on the tail (whole relink) vs textbook LRU + mutex (target <= 1)");
VELTO_BENCH_RATIO(BM_UnorderedMapFindHit, BM_TextbookLruHit, "bare unordered_map::find vs textbook LRU hit (floor, report)");
VELTO_BENCH_RATIO(BM_VeltoCountCacheMissEvicting, BM_TextbookLruMissEvicting,
                  "count cache miss with eviction vs textbook LRU + mutex (target <= 1)");
// ==== End of link-list-based caches ===========================================================

// ==== Keyed sorted array ======================================================================
// VeltoSortedTupleArray::find beside std::map::find over the same int keys, half of the lookups
// missing: the flat array's bisection against the tree's pointer chase. Self-contained section.
#include <velto/collections/VeltoSortedTupleArray.hpp>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <map>
#include <random>
#include <vector>

#include "support/BenchMain.hpp"

namespace {

constexpr std::size_t kKeyedProbeCount = 1 << 16;  // cycled through by masking

// n even keys 0, 2, 4, ... and probes spread over them and the odd gaps (misses).
struct KeyedData {
  std::vector<int> keys;
  std::vector<int> probes;
};

const KeyedData& keyedData(int n) {
  static std::map<int, KeyedData> cache;
  auto [it, inserted] = cache.try_emplace(n);
  if (inserted) {
    std::mt19937 random(7);
    for (int i = 0; i < n; ++i) it->second.keys.push_back(2 * i);
    std::uniform_int_distribution<int> probe(0, 2 * n - 1);
    for (std::size_t i = 0; i < kKeyedProbeCount; ++i) it->second.probes.push_back(probe(random));
  }
  return it->second;
}

void BM_VeltoSortedTupleArrayFind(benchmark::State& state) {
  const KeyedData& data = keyedData(static_cast<int>(state.range(0)));
  VeltoSortedTupleArray<int, int> table;
  for (int key : data.keys) table.setValue(key, key);
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.find(data.probes[next++ & (kKeyedProbeCount - 1)]));
  }
}
BENCHMARK(BM_VeltoSortedTupleArrayFind)->Arg(64)->Arg(1'000'000);

void BM_StdMapFind(benchmark::State& state) {
  const KeyedData& data = keyedData(static_cast<int>(state.range(0)));
  std::map<int, int> table;
  for (int key : data.keys) table.emplace(key, key);
  std::size_t next = 0;
  for (auto _ : state) {
    const auto found = table.find(data.probes[next++ & (kKeyedProbeCount - 1)]);
    benchmark::DoNotOptimize(found == table.end() ? nullptr : &found->second);
  }
}
BENCHMARK(BM_StdMapFind)->Arg(64)->Arg(1'000'000);

}  // namespace

VELTO_BENCH_RATIO(BM_VeltoSortedTupleArrayFind/64, BM_StdMapFind/64, "keyed sorted array find vs std::map::find, 64 keys (target <= 1)");
VELTO_BENCH_RATIO(BM_VeltoSortedTupleArrayFind/1000000, BM_StdMapFind/1000000,
                  "keyed sorted array find vs std::map::find, 1,000,000 keys (target <= 1)");
// ==== End of keyed sorted array ===============================================================

// ==== Parallel partitioned work ===============================================================
// VeltoArrayUtil::parallelPartitionedWork beside the plain loop it replaces: a sum of a few
// transcendental functions over 4 million doubles, in 2, 8 and 64 partitions. Wall-clock time on both
// sides; the ratio is the inverse of the speed-up. Self-contained section.
#include <velto/collections/VeltoArrayUtil.hpp>

#include <benchmark/benchmark.h>

#include <cmath>
#include <numeric>
#include <span>
#include <vector>

#include "support/BenchMain.hpp"

namespace {

constexpr std::size_t kPartitionedCount = 4'000'000;

const std::vector<double>& partitionedInput() {
  static const std::vector<double> input = [] {
    std::vector<double> values(kPartitionedCount);
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = 1.0 + static_cast<double>(i % 1000) / 7.0;
    return values;
  }();
  return input;
}

double weigh(std::span<const double> values) {
  double sum = 0;
  for (double v : values) sum += std::sqrt(v) * std::log(v) + std::sin(v);
  return sum;
}

void BM_VeltoParallelPartitionedWork(benchmark::State& state) {
  const std::vector<double>& input = partitionedInput();
  const auto partitions = static_cast<std::size_t>(state.range(0));
  for (auto _ : state) {
    std::vector<double> sums(partitions);
    const auto done = VeltoArrayUtil::parallelPartitionedWork(
        std::span(input), partitions,
        [&sums](std::span<const double> part, const VeltoArrayUtil::Partition& partition) { sums[partition.index] = weigh(part); });
    benchmark::DoNotOptimize(done.hasValue());
    benchmark::DoNotOptimize(std::accumulate(sums.begin(), sums.end(), 0.0));
  }
}
BENCHMARK(BM_VeltoParallelPartitionedWork)->Arg(2)->Arg(8)->Arg(64)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_SequentialLoop(benchmark::State& state) {
  const std::vector<double>& input = partitionedInput();
  for (auto _ : state) benchmark::DoNotOptimize(weigh(input));
}
BENCHMARK(BM_SequentialLoop)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

VELTO_BENCH_RATIO(BM_VeltoParallelPartitionedWork/2/real_time, BM_SequentialLoop/real_time,
                  "parallel partitioned work vs sequential loop, 2 partitions (1/speed-up; 0.5 is ideal on 2 idle cores)");
VELTO_BENCH_RATIO(BM_VeltoParallelPartitionedWork/8/real_time, BM_SequentialLoop/real_time,
                  "parallel partitioned work vs sequential loop, 8 partitions (1/speed-up; 0.5 is ideal on 2 idle cores)");
VELTO_BENCH_RATIO(BM_VeltoParallelPartitionedWork/64/real_time, BM_SequentialLoop/real_time,
                  "parallel partitioned work vs sequential loop, 64 partitions (1/speed-up; 0.5 is ideal on 2 idle cores)");
// ==== End of parallel partitioned work ========================================================

// ==== Lazy caches and the formatted-number cache ==============================================
// The lazy count cache beside the same textbook LRU (defined above): hits on random resident
// keys, where the lazy cache only stamps the entry, and misses on fresh keys, where it pays a
// sort of the whole cache once every (trigger - target) misses instead of an eviction each time.
// Then the formatted-number cache's hit beside formatting with ICU directly: with one localized
// formatter reused (what a careful caller does), and with the formatter built per call (what a
// careless one does).
#include <velto/collections/VeltoLazyFiniteCountCache.hpp>
#include <velto/text/VeltoFormattedNumberCache.hpp>
#include <velto/text/VeltoICUNumberFormat.hpp>

#include <unicode/numberformatter.h>
#include <unicode/unistr.h>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>
#include <vector>

#include "support/BenchMain.hpp"

namespace {

using LazyCountCache = VeltoLazyFiniteCountCache<int, int>;

// Hits only: all 1,024 keys resident, the cache locked, the default (coarse wall) clock read
// once per get.
void BM_VeltoLazyCountCacheHit(benchmark::State& state) {
  auto cache = LazyCountCache::create({}, true, [](const int& key) { return VeltoResult<int>(key * 2); },
                                      LazyCountCache::Threshold(kCacheCapacity, kCacheCapacity));
  for (int key = 0; key < static_cast<int>(kCacheCapacity); ++key) (void)cache->get(key);
  const auto& keys = residentKeys();
  std::size_t next = 0;
  std::size_t failures = 0;
  for (auto _ : state) {
    auto item = cache->get(keys[next++ & (kCacheKeyCount - 1)]);
    failures += item.isFailure() ? 1 : 0;
    benchmark::DoNotOptimize(item);
  }
  state.counters["failures"] = static_cast<double>(failures);
}
BENCHMARK(BM_VeltoLazyCountCacheHit);

// Misses only, each a key never seen: trigger 1,024 and target 768, so every 257th miss sorts
// 1,025 entries and drops 257; the time per get is that purge amortised over the misses.
void BM_VeltoLazyCountCacheMissPurging(benchmark::State& state) {
  auto cache = LazyCountCache::create({}, true, [](const int& key) { return VeltoResult<int>(key * 2); },
                                      LazyCountCache::Threshold(kCacheCapacity * 3 / 4, kCacheCapacity));
  int key = 0;
  for (; key < static_cast<int>(kCacheCapacity); ++key) (void)cache->get(key);
  std::size_t failures = 0;
  for (auto _ : state) {
    auto item = cache->get(key++);
    failures += item.isFailure() ? 1 : 0;
    benchmark::DoNotOptimize(item);
  }
  state.counters["failures"] = static_cast<double>(failures);
}
BENCHMARK(BM_VeltoLazyCountCacheMissPurging);

constexpr std::size_t kFormattedValueCount = 256;  // a table's worth of distinct prices, cycled

const std::vector<double>& prices() {
  static const std::vector<double> values = [] {
    std::vector<double> made;
    for (std::size_t i = 0; i < kFormattedValueCount; ++i) made.push_back(1000.0 + static_cast<double>(i) * 17.25);
    return made;
  }();
  return values;
}

// Hits only: 256 prices in "de_DE" with two fraction digits, all cached.
void BM_VeltoFormattedNumberCacheHit(benchmark::State& state) {
  auto cache = VeltoFormattedNumberCache::create(VeltoFormattedNumberCache::Threshold(1024, 1024));
  const std::shared_ptr<const VeltoDoubleFormattable> format = VeltoICUNumberFormat::makeDecimal(2).value();
  const std::string locale = "de_DE";
  const auto& values = prices();
  for (const double value : values) (void)cache->formatDouble(value, format, locale);
  std::size_t next = 0;
  std::size_t failures = 0;
  for (auto _ : state) {
    auto text = cache->formatDouble(values[next++ & (kFormattedValueCount - 1)], format, locale);
    failures += text.isFailure() ? 1 : 0;
    benchmark::DoNotOptimize(text);
  }
  state.counters["failures"] = static_cast<double>(failures);
}
BENCHMARK(BM_VeltoFormattedNumberCacheHit);

std::string formatWithIcu(const icu::number::LocalizedNumberFormatter& formatter, double value) {
  UErrorCode status = U_ZERO_ERROR;
  std::string text;
  formatter.formatDouble(value, status).toString(status).toUTF8String(text);
  return text;
}

// The anchor: the same prices through one ICU localized formatter made once.
void BM_ICUReusedFormatterFormat(benchmark::State& state) {
  const auto formatter = icu::number::NumberFormatter::with()
                             .precision(icu::number::Precision::fixedFraction(2))
                             .locale(icu::Locale("de_DE"));
  const auto& values = prices();
  std::size_t next = 0;
  for (auto _ : state) benchmark::DoNotOptimize(formatWithIcu(formatter, values[next++ & (kFormattedValueCount - 1)]));
}
BENCHMARK(BM_ICUReusedFormatterFormat);

// The same with the formatter built for every call.
void BM_ICUFormatterPerCallFormat(benchmark::State& state) {
  const auto& values = prices();
  std::size_t next = 0;
  for (auto _ : state) {
    const auto formatter = icu::number::NumberFormatter::with()
                               .precision(icu::number::Precision::fixedFraction(2))
                               .locale(icu::Locale("de_DE"));
    benchmark::DoNotOptimize(formatWithIcu(formatter, values[next++ & (kFormattedValueCount - 1)]));
  }
}
BENCHMARK(BM_ICUFormatterPerCallFormat);

}  // namespace

VELTO_BENCH_RATIO(BM_VeltoLazyCountCacheHit, BM_TextbookLruHit,
                  "lazy count cache hit vs textbook LRU + mutex (report: both are mostly their lock's two atomic "
                  "operations; the lazy hit adds its clock read)");
VELTO_BENCH_RATIO(BM_VeltoLazyCountCacheMissPurging, BM_TextbookLruMissEvicting,
                  "lazy count cache miss, purge amortised, vs textbook LRU miss with eviction (report)");
VELTO_BENCH_RATIO(BM_VeltoFormattedNumberCacheHit, BM_ICUReusedFormatterFormat,
                  "formatted-number cache hit vs ICU with a reused formatter (target <= 0.2)");
VELTO_BENCH_RATIO(BM_VeltoFormattedNumberCacheHit, BM_ICUFormatterPerCallFormat,
                  "formatted-number cache hit vs ICU with a formatter built per call (report)");
// ==== End of lazy caches and the formatted-number cache =======================================
