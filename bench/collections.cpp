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
