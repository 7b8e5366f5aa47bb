// VeltoRangeSequence<Bound>: a set of values kept as the sorted sequence of disjoint closed
// ranges that cover them (the downloaded byte ranges of a file, the selected rows of a table).
//
//   VeltoRangeSequence<std::uint64_t> received;
//   received.insert(VeltoClosedRange<std::uint64_t>(0, 1023));
//   received.insert(VeltoClosedRange<std::uint64_t>(1024, 2047));   // joins: 0 ... 2047
//   received.insert(VeltoClosedRange<std::uint64_t>(4096, 8191));
//   bool have = received.contains(5000);                               // true
//   auto missing = received.gaps(VeltoClosedRange<std::uint64_t>(0, 8191));  // 2048 ... 4095
//   received.remove(VeltoClosedRange<std::uint64_t>(100, 199));       // splits 0 ... 2047
#pragma once

#include <concepts>
#include <cstddef>
#include <limits>
#include <optional>
#include <ranges>
#include <vector>

#include "velto/collections/detail/SortedArraySearch.hpp"
#include "velto/values/VeltoClosedRange.hpp"

/// Ranges in increasing order, pairwise disjoint and never touching: inserting a range that
/// overlaps or touches others (shares a bound with one, or, for integers, begins right after one
/// ends) joins them into one, so the sequence is the one shortest description of the values it
/// holds. Regular value type over any totally ordered, copyable Bound; removal, which may split
/// a range, exists for integers only (a floating range cannot lose an inner stretch and stay
/// closed).
///
/// Cost: lookups bisect the ranges (O(log n), the bisection of VeltoSortedArray); an insertion
/// or removal also moves the later ranges (O(n)). Integer bounds at the type's limits are
/// handled without overflow.
/// Thread safety: as for std::vector: const calls may run concurrently, mutation needs
/// exclusive access.
template <class Bound>
class VeltoRangeSequence {
 public:
  using Range = VeltoClosedRange<Bound>;
  using Index = std::ptrdiff_t;
  using value_type = Range;
  using const_iterator = typename std::vector<Range>::const_iterator;

  VeltoRangeSequence() = default;

  /// The union of `ranges`, in any order, overlapping or not.
  template <std::ranges::input_range Ranges>
    requires std::convertible_to<std::ranges::range_reference_t<Ranges>, Range>
  [[nodiscard]] static VeltoRangeSequence fromRanges(Ranges&& ranges) {
    VeltoRangeSequence sequence;
    for (auto&& range : ranges) sequence.insert(Range(range));
    return sequence;
  }

  /// Adds the values of `range`, joining it with every range it overlaps or touches.
  void insert(const Range& range) {
    const Index first = firstReaching(range.lowerBound());
    const Index last = lastReaching(range.upperBound());
    if (first == velto::detail::sorted_array::kNoIndex) {
      ranges_.push_back(range);
    } else if (last == velto::detail::sorted_array::kNoIndex || last < first) {
      ranges_.insert(ranges_.begin() + first, range);
    } else {
      const Bound& lower = std::min(range.lowerBound(), ranges_[static_cast<std::size_t>(first)].lowerBound());
      const Bound& upper = std::max(range.upperBound(), ranges_[static_cast<std::size_t>(last)].upperBound());
      const Range joined(lower, upper);
      ranges_.erase(ranges_.begin() + first + 1, ranges_.begin() + last + 1);
      ranges_[static_cast<std::size_t>(first)] = joined;
    }
  }
  /// Adds one value. REQUIRES: the value is ordered with itself (not a NaN; fatal stop).
  void insert(const Bound& value) { insert(Range::fromDiscrete(value)); }

  /// Removes the values of `range`; a range it cuts through is split in two.
  void remove(const Range& range)
    requires std::integral<Bound>
  {
    const Index first = firstReaching(range.lowerBound(), false);
    const Index last = lastReaching(range.upperBound(), false);
    if (first == velto::detail::sorted_array::kNoIndex || last == velto::detail::sorted_array::kNoIndex || last < first) return;
    const Range head = ranges_[static_cast<std::size_t>(first)];
    const Range tail = ranges_[static_cast<std::size_t>(last)];
    std::vector<Range> kept;
    // Bounds strictly inside a stored range, so neither step can overflow.
    if (head.lowerBound() < range.lowerBound()) kept.emplace_back(head.lowerBound(), static_cast<Bound>(range.lowerBound() - 1));
    if (range.upperBound() < tail.upperBound()) kept.emplace_back(static_cast<Bound>(range.upperBound() + 1), tail.upperBound());
    ranges_.erase(ranges_.begin() + first, ranges_.begin() + last + 1);
    ranges_.insert(ranges_.begin() + first, kept.begin(), kept.end());
  }
  void remove(const Bound& value)
    requires std::integral<Bound>
  {
    remove(Range::fromDiscrete(value));
  }

  void removeAll() noexcept { ranges_.clear(); }

  /// The stored range holding `value`, or none (always none for a value unordered with the
  /// bounds, such as NaN).
  [[nodiscard]] std::optional<Range> rangeContaining(const Bound& value) const {
    const Range* data = ranges_.data();
    const Index at = velto::detail::sorted_array::lastMatchByBisection(
        0, count(), [&](Index i) { return static_cast<bool>(data[i].lowerBound() <= value); });
    if (at == velto::detail::sorted_array::kNoIndex || !data[at].contains(value)) return std::nullopt;
    return data[at];
  }
  [[nodiscard]] bool contains(const Bound& value) const { return rangeContaining(value).has_value(); }
  /// Whether every value of `range` is held (it lies within one stored range).
  [[nodiscard]] bool contains(const Range& range) const {
    const auto holder = rangeContaining(range.lowerBound());
    return holder && holder->contains(range);
  }
  /// Whether at least one value of `range` is held.
  [[nodiscard]] bool overlaps(const Range& range) const {
    const Index first = firstReaching(range.lowerBound(), false);
    return first != velto::detail::sorted_array::kNoIndex && ranges_[static_cast<std::size_t>(first)].overlaps(range);
  }

  /// The values of `within` that are not held, as ranges in increasing order.
  [[nodiscard]] VeltoRangeSequence gaps(const Range& within) const
    requires std::integral<Bound>
  {
    VeltoRangeSequence missing;
    Bound next = within.lowerBound();  // the first value not yet accounted for
    Index i = firstReaching(within.lowerBound(), false);
    if (i == velto::detail::sorted_array::kNoIndex) i = count();
    for (; i < count() && ranges_[static_cast<std::size_t>(i)].lowerBound() <= within.upperBound(); ++i) {
      const Range& held = ranges_[static_cast<std::size_t>(i)];
      if (next < held.lowerBound()) missing.ranges_.emplace_back(next, static_cast<Bound>(held.lowerBound() - 1));
      if (held.upperBound() >= within.upperBound()) return missing;  // covered to the end
      next = static_cast<Bound>(held.upperBound() + 1);
    }
    missing.ranges_.emplace_back(next, within.upperBound());
    return missing;
  }

  /// The number of stored ranges (not of values).
  [[nodiscard]] Index count() const noexcept { return static_cast<Index>(ranges_.size()); }
  [[nodiscard]] bool isEmpty() const noexcept { return ranges_.empty(); }
  [[nodiscard]] const std::vector<Range>& ranges() const noexcept { return ranges_; }
  [[nodiscard]] const_iterator begin() const noexcept { return ranges_.begin(); }
  [[nodiscard]] const_iterator end() const noexcept { return ranges_.end(); }

  friend bool operator==(const VeltoRangeSequence&, const VeltoRangeSequence&) = default;

 private:
  // The first stored range that reaches `lower`: ends at or after it, or (joining, integers)
  // ends right before it. A suffix of the ranges does.
  Index firstReaching(const Bound& lower, bool joining = true) const {
    const Range* data = ranges_.data();
    return velto::detail::sorted_array::firstMatchByBisection(0, count(), [&](Index i) {
      const Bound& upper = data[i].upperBound();
      return !(upper < lower) || (joining && endsRightBefore(upper, lower));
    });
  }
  // The last stored range that reaches back to `upper`: begins at or before it, or (joining,
  // integers) begins right after it. A prefix of the ranges does.
  Index lastReaching(const Bound& upper, bool joining = true) const {
    const Range* data = ranges_.data();
    return velto::detail::sorted_array::lastMatchByBisection(0, count(), [&](Index i) {
      const Bound& lower = data[i].lowerBound();
      return lower <= upper || (joining && endsRightBefore(upper, lower));
    });
  }
  // Whether `next` is the integer right after `end`.
  static bool endsRightBefore(const Bound& end, const Bound& next) {
    if constexpr (std::integral<Bound>) {
      return end != std::numeric_limits<Bound>::max() && static_cast<Bound>(end + 1) == next;
    } else {
      return false;
    }
  }

  std::vector<Range> ranges_;
};
