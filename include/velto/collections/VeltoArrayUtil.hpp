// VeltoArrayUtil: array utilities: work split into partitions run in parallel on the global
// queue, uniqueness, and order-insensitive comparison.
//
//   std::vector<double> samples = load();
//   auto done = VeltoArrayUtil::parallelPartitionedWork(std::span(samples), 8,
//       [](std::span<double> part, const VeltoArrayUtil::Partition&) { for (double& s : part) s = std::sqrt(s); });
//   if (!done) return VeltoResult<void>::fromError(done.error());
//
//   auto ids = VeltoArrayUtil::uniqued(orders, &Order::customerId);   // first order of each customer
//   bool same = VeltoArrayUtil::isSimilar(expected, actual);           // same elements, any order
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <functional>
#include <ranges>
#include <span>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/dispatch/VeltoQualityOfService.hpp"

namespace velto::detail {

/// A non-owning reference to a callable `VeltoResult<void>(std::size_t partition)`.
class PartitionWorkRef {
 public:
  template <class F>
    requires(!std::same_as<std::remove_cv_t<F>, PartitionWorkRef>)
  explicit PartitionWorkRef(F& work) noexcept
      : object_(static_cast<void*>(std::addressof(work))),
        call_([](void* object, std::size_t partition) { return (*static_cast<F*>(object))(partition); }) {}
  VeltoResult<void> operator()(std::size_t partition) const { return call_(object_, partition); }

 private:
  void* object_;
  VeltoResult<void> (*call_)(void*, std::size_t);
};

/// Runs work(0) ... work(partitionCount - 1) on the calling thread and on up to one helper per
/// pool thread submitted to the global queue of `qualityOfService`; see
/// VeltoArrayUtil::parallelPartitionedWork for the contract. REQUIRES: partitionCount > 0.
VeltoResult<void> runPartitionedWork(std::size_t partitionCount, VeltoQualityOfService qualityOfService,
                                     PartitionWorkRef work, VeltoCodeSite site);

}  // namespace velto::detail

/// Static operations only; holds no state.
/// Thread safety: every operation may be called from any thread, pool threads included.
class VeltoArrayUtil {
 public:
  VeltoArrayUtil() = delete;

  /// One contiguous part of [0, count): indices begin ... end - 1.
  struct Partition {
    std::size_t index;
    std::size_t begin;
    std::size_t end;
    friend bool operator==(const Partition&, const Partition&) = default;
  };

  /// Splits [0, count) into min(partitionCount, count) contiguous partitions of sizes differing
  /// by at most one, in order, and calls `work(partition)` once for each, in parallel: the
  /// partitions are claimed one at a time by the calling thread and by helpers submitted to
  /// `VeltoDispatchQueue::global(qualityOfService)`, and the call returns when every claimed
  /// partition has finished. The calling thread works too, so the call completes even when every
  /// pool thread is busy or blocked, and from work running on the pool itself; it never waits
  /// for a helper to start. Helpers that start late find nothing left and end.
  ///
  /// `work` returns VeltoResult<void> or void. After the first failure no further partition is
  /// started (those running finish) and that failure is returned with one frame more: args
  /// {"partition": its index, "partitionCount"}, invoker `site`, code site "Util/VeltoArrayUtil"
  /// / "parallelPartitionedWork(count:partitionCount:work:)". An exception thrown by `work`
  /// stops further partitions the same way and is rethrown on the calling thread once the
  /// running ones have finished (the first of failures and exceptions wins).
  ///
  /// A count of 0 succeeds without calling `work`. A partitionCount of 0 is the failure
  /// "Invalid partition count" (argument "partitionCount", frame at `site`).
  /// Cost: one allocation and, per partition, one atomic claim and a group enter/leave; choose
  /// partitions of at least tens of microseconds of work.
  template <class Work>
    requires std::invocable<Work&, const Partition&>
  [[nodiscard]] static VeltoResult<void> parallelPartitionedWork(std::size_t count, std::size_t partitionCount, Work&& work,
                                                                VeltoQualityOfService qualityOfService = VeltoQualityOfService::default_,
                                                                VeltoCodeSite site = VeltoCodeSite::current()) {
    if (partitionCount == 0) {
      return VeltoResult<void>::fromMessage("Invalid partition count", {{"partitionCount", partitionCount}}, nullptr, site);
    }
    if (count == 0) return VeltoResultVoidSuccess;
    const std::size_t parts = std::min(partitionCount, count);
    const std::size_t base = count / parts;
    const std::size_t extra = count % parts;
    auto one = [&](std::size_t index) -> VeltoResult<void> {
      const std::size_t begin = index * base + std::min(index, extra);
      const Partition partition{index, begin, begin + base + (index < extra ? 1 : 0)};
      if constexpr (std::is_void_v<std::invoke_result_t<Work&, const Partition&>>) {
        std::invoke(work, partition);
        return VeltoResultVoidSuccess;
      } else {
        return std::invoke(work, partition);
      }
    };
    return velto::detail::runPartitionedWork(parts, qualityOfService, velto::detail::PartitionWorkRef(one), site);
  }

  /// The same over the elements of `elements`: `work(slice, partition)` receives the partition's
  /// elements (mutable when T is).
  template <class T, class Work>
    requires std::invocable<Work&, std::span<T>, const Partition&>
  [[nodiscard]] static VeltoResult<void> parallelPartitionedWork(std::span<T> elements, std::size_t partitionCount, Work&& work,
                                                                VeltoQualityOfService qualityOfService = VeltoQualityOfService::default_,
                                                                VeltoCodeSite site = VeltoCodeSite::current()) {
    return parallelPartitionedWork(
        elements.size(), partitionCount,
        [&](const Partition& partition) { return std::invoke(work, elements.subspan(partition.begin, partition.end - partition.begin), partition); },
        qualityOfService, site);
  }

  /// The elements of `range` without the later ones whose key (`projection(element)`, the
  /// element itself by default) equals an earlier one's: first occurrences, in order. O(n)
  /// average; the keys must be hashable.
  template <std::ranges::input_range Range, class Projection = std::identity>
    requires std::copy_constructible<std::ranges::range_value_t<Range>>
  [[nodiscard]] static std::vector<std::ranges::range_value_t<Range>> uniqued(Range&& range, Projection projection = {}) {
    using Key = std::remove_cvref_t<std::invoke_result_t<Projection&, const std::ranges::range_value_t<Range>&>>;
    std::vector<std::ranges::range_value_t<Range>> kept;
    std::unordered_set<Key> seen;
    for (auto&& element : range) {
      const auto& stored = static_cast<const std::ranges::range_value_t<Range>&>(element);
      if (seen.insert(std::invoke(projection, stored)).second) kept.push_back(std::forward<decltype(element)>(element));
    }
    return kept;
  }

  /// Whether no two elements of `range` have equal keys (see uniqued). Stops at the first
  /// repeat.
  template <std::ranges::input_range Range, class Projection = std::identity>
  [[nodiscard]] static bool isUnique(Range&& range, Projection projection = {}) {
    using Key = std::remove_cvref_t<std::invoke_result_t<Projection&, std::ranges::range_reference_t<Range>>>;
    std::unordered_set<Key> seen;
    for (auto&& element : range) {
      if (!seen.insert(std::invoke(projection, element)).second) return false;
    }
    return true;
  }

  /// Whether `lhs` and `rhs` hold the same elements the same number of times, in any order
  /// (multiset equality). O(n) average; the elements must be hashable.
  template <std::ranges::input_range Lhs, std::ranges::input_range Rhs>
    requires std::same_as<std::ranges::range_value_t<Lhs>, std::ranges::range_value_t<Rhs>>
  [[nodiscard]] static bool isSimilar(Lhs&& lhs, Rhs&& rhs) {
    using Value = std::ranges::range_value_t<Lhs>;
    std::unordered_map<Value, std::ptrdiff_t> counts;
    std::ptrdiff_t unmatched = 0;
    for (auto&& element : lhs) {
      ++counts[element];
      ++unmatched;
    }
    for (auto&& element : rhs) {
      const auto found = counts.find(element);
      if (found == counts.end() || found->second == 0) return false;
      --found->second;
      --unmatched;
    }
    return unmatched == 0;
  }
};
