// VeltoClosedRange<Bound>: the values from a lower bound through an upper bound, both included,
// never empty and never reversed.
//
//   const VeltoClosedRange<int> percent(0, 100);
//   int shown = percent.clamp(130);                                        // 100
//   auto window = VeltoClosedRange<double>::make(lower, upper);           // fails when lower > upper
//   if (!window) return VeltoResult<void>::fromError(window.error());
//   std::optional<VeltoClosedRange<int>> both = percent.intersecting(VeltoClosedRange<int>(50, 150));  // 50 ... 100
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <functional>
#include <optional>
#include <utility>

#include "velto/core/VeltoCodeSite.hpp"
#include "velto/core/VeltoCustomDebugEncoding.hpp"
#include "velto/core/VeltoResult.hpp"
#include "velto/detail/Fatal.hpp"
#include "velto/values/VeltoPrecision.hpp"
#include "velto/values/VeltoToleranceComparable.hpp"

/// lowerBound ... upperBound with lowerBound <= upperBound, over any totally ordered, copyable
/// Bound (numbers, strings, time points). Regular, immutable value type; every operation is
/// O(1) comparisons of the bounds. For an oriented interval that may run backwards, use
/// VeltoDomain (or VeltoDoubleDomain).
///
/// Bounds that are unordered with each other (a NaN) cannot form a range: the constructor stops
/// the program, `make` returns a failure.
/// Thread safety: immutable; as safe as copying Bound.
template <class Bound>
class VeltoClosedRange {
  static_assert(std::totally_ordered<Bound> && std::copyable<Bound>, "a closed range needs ordered, copyable bounds");

 public:
  /// REQUIRES: lowerBound <= upperBound (a fatal stop otherwise, as forming a reversed range is
  /// a programming error). Use `make` for bounds that come from outside.
  constexpr VeltoClosedRange(Bound lowerBound, Bound upperBound) : lowerBound_(std::move(lowerBound)), upperBound_(std::move(upperBound)) {
    if (!(lowerBound_ <= upperBound_)) velto::detail::fatalStop("VeltoClosedRange: lowerBound > upperBound");
  }

  /// The range lowerBound ... upperBound, or the failure "Invalid range" (arguments
  /// "lowerBound", "upperBound") when lowerBound <= upperBound does not hold.
  [[nodiscard]] static VeltoResult<VeltoClosedRange> make(Bound lowerBound, Bound upperBound,
                                                         VeltoCodeSite site = VeltoCodeSite::current()) {
    if (!(lowerBound <= upperBound)) {
      return VeltoResult<VeltoClosedRange>::fromMessage(
          "Invalid range", {{"lowerBound", std::move(lowerBound)}, {"upperBound", std::move(upperBound)}}, nullptr, site);
    }
    return VeltoClosedRange(std::move(lowerBound), std::move(upperBound));
  }

  /// The one-value range value ... value. REQUIRES: value <= value (not a NaN; fatal stop).
  [[nodiscard]] static constexpr VeltoClosedRange fromDiscrete(Bound value) { return VeltoClosedRange(value, value); }

  [[nodiscard]] constexpr const Bound& lowerBound() const noexcept { return lowerBound_; }
  [[nodiscard]] constexpr const Bound& upperBound() const noexcept { return upperBound_; }

  /// lowerBound <= value <= upperBound; false for a value unordered with the bounds (NaN).
  [[nodiscard]] constexpr bool contains(const Bound& value) const { return lowerBound_ <= value && value <= upperBound_; }
  /// Whether every value of `other` lies in this range.
  [[nodiscard]] constexpr bool contains(const VeltoClosedRange& other) const {
    return lowerBound_ <= other.lowerBound_ && other.upperBound_ <= upperBound_;
  }
  /// Whether the two share at least one value (touching ranges do).
  [[nodiscard]] constexpr bool overlaps(const VeltoClosedRange& other) const {
    return lowerBound_ <= other.upperBound_ && other.lowerBound_ <= upperBound_;
  }

  /// `value` limited to the range; a value unordered with the bounds (NaN) gives lowerBound.
  [[nodiscard]] constexpr Bound clamp(const Bound& value) const {
    if (upperBound_ < value) return upperBound_;
    if (lowerBound_ <= value) return value;
    return lowerBound_;
  }
  /// This range with both bounds clamped into `limits`: the overlap when they overlap, else the
  /// single bound of `limits` nearest this range.
  [[nodiscard]] constexpr VeltoClosedRange clamped(const VeltoClosedRange& limits) const {
    return VeltoClosedRange(limits.clamp(lowerBound_), limits.clamp(upperBound_), Checked{});
  }
  /// The values in both ranges, or none; touching ranges meet in a one-value range.
  [[nodiscard]] constexpr std::optional<VeltoClosedRange> intersecting(const VeltoClosedRange& other) const {
    if (!overlaps(other)) return std::nullopt;
    return VeltoClosedRange(std::max(lowerBound_, other.lowerBound_), std::min(upperBound_, other.upperBound_), Checked{});
  }
  /// The smallest range holding both (and whatever lies between them).
  [[nodiscard]] constexpr VeltoClosedRange unioning(const VeltoClosedRange& other) const {
    return VeltoClosedRange(std::min(lowerBound_, other.lowerBound_), std::max(upperBound_, other.upperBound_), Checked{});
  }

  /// Both bounds equal to `other`'s within `tolerance` (see VeltoToleranceComparable).
  [[nodiscard]] constexpr bool equals(const VeltoClosedRange& other, VeltoPrecision tolerance) const
    requires VeltoToleranceComparable<Bound>
  {
    return velto::detail::equalsWithin(lowerBound_, other.lowerBound_, tolerance) &&
           velto::detail::equalsWithin(upperBound_, other.upperBound_, tolerance);
  }

  friend constexpr bool operator==(const VeltoClosedRange&, const VeltoClosedRange&) = default;

  /// Combines the hashes of both bounds.
  [[nodiscard]] std::size_t hash() const
    requires requires(const Bound& b) { std::hash<Bound>{}(b); }
  {
    const std::size_t lower = std::hash<Bound>{}(lowerBound_);
    return lower ^ (std::hash<Bound>{}(upperBound_) + 0x9e3779b97f4a7c15ULL + (lower << 6) + (lower >> 2));
  }

  /// Debug output: "lowerBound" and "upperBound". A template only so that the encoder's types
  /// are needed where a range is rendered, not here.
  template <class Container = VeltoKeyedEncodingContainer, class Encoder = VeltoDynamicDebugEncoder>
  VeltoResult<void> encodeChildrenForDynamicDebug(Container& container, Encoder& dynamicEncoder) const {
    VeltoResult<void> written = dynamicEncoder.encode(lowerBound_, container, "lowerBound");
    if (written.isFailure()) return written;
    return dynamicEncoder.encode(upperBound_, container, "upperBound");
  }

 private:
  struct Checked {};
  // For bounds already known to be in order.
  constexpr VeltoClosedRange(Bound lowerBound, Bound upperBound, Checked) : lowerBound_(std::move(lowerBound)), upperBound_(std::move(upperBound)) {}

  Bound lowerBound_;
  Bound upperBound_;
};

template <class Bound>
  requires requires(const VeltoClosedRange<Bound>& range) { range.hash(); }
struct std::hash<VeltoClosedRange<Bound>> {
  std::size_t operator()(const VeltoClosedRange<Bound>& range) const { return range.hash(); }
};
