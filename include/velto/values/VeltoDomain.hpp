// VeltoDomain<T>: an oriented interval of any type, the generic sibling of VeltoDoubleDomain:
// bounds that may run backwards, membership with chosen bounds, clamping, and for number-like
// types the normalising, wrapping and interpolating of the double domain.
//
//   const VeltoDomain<int> pixels(0, 1920);
//   const VeltoDomain<int> flipped(1080, 0);                         // runs backwards
//   double t = pixels.normalizeOpen(480);                            // 0.25
//   int y = pixels.lerpOpen(480, flipped);                           // 810
//   int wrapped = VeltoDomain<int>(0, 10).modulo(13);                // 3
//   bool inside = pixels.contains(1920, VeltoDomain<int>::BoundsEligibility::allowMin);  // false
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <functional>
#include <optional>
#include <type_traits>
#include <utility>

#include "velto/values/VeltoClosedRange.hpp"
#include "velto/values/VeltoDoubleDomain.hpp"
#include "velto/values/VeltoLinearInterpolable.hpp"
#include "velto/values/VeltoPrecision.hpp"
#include "velto/values/VeltoScalarInterpolable.hpp"
#include "velto/values/VeltoToleranceComparable.hpp"

/// `min` (the start) and `max` (the end) of an interval over T, in that orientation: a domain
/// whose max is below its min runs backwards, and every operation honours that instead of
/// reordering the bounds. Regular, immutable value type; construction never fails (any pair of
/// values is a domain).
///
/// What T must offer, per operation:
/// - any copyable T: the bounds, replacing and reversing them, equality;
/// - totally ordered T (`<` and friends): true bounds, membership, clamping, the set
///   operations and `<` between domains;
/// - VeltoScalarInterpolable T (numbers, or types that stand for one double): `range`,
///   normalising, denormalising, `modulo` and the `lerp` mappings into any scalar domain. These
///   are the double domain's operations, computed in doubles on the bounds converted to double
///   (VeltoDoubleDomain's rules apply, its special cases for a zero range included) and
///   converted back by VeltoScalarInterpolable's rules: integers round to nearest and saturate;
/// - VeltoLinearInterpolable T: `lerpOpenTowards`; VeltoToleranceComparable T: `equals`.
///
/// Bounds unordered with each other (a NaN) are allowed, as in the double domain: such a domain
/// is neither ascending nor reversed, contains nothing and clamps everything to min.
/// Thread safety: immutable; as safe as copying T.
template <class T>
class VeltoDomain {
  static_assert(std::copyable<T>, "a domain's bounds must be copyable");

 public:
  /// Which bounds count as inside for `contains(value, eligibility)`; the double domain's.
  using BoundsEligibility = VeltoDoubleDomain::BoundsEligibility;

  /// min ... max in that orientation.
  constexpr VeltoDomain(T min, T max) : min_(std::move(min)), max_(std::move(max)) {}
  /// lowerBound ... upperBound, ascending.
  constexpr explicit VeltoDomain(const VeltoClosedRange<T>& range)
    requires std::totally_ordered<T>
      : min_(range.lowerBound()), max_(range.upperBound()) {}
  /// The double domain's bounds (its stored range is recomputed when needed).
  constexpr explicit VeltoDomain(const VeltoDoubleDomain& domain)
    requires std::same_as<T, double>
      : min_(domain.min()), max_(domain.max()) {}

  /// The point domain value ... value.
  [[nodiscard]] static constexpr VeltoDomain fromDiscrete(const T& value) { return VeltoDomain(value, value); }

  [[nodiscard]] constexpr const T& min() const noexcept { return min_; }
  [[nodiscard]] constexpr const T& max() const noexcept { return max_; }

  [[nodiscard]] constexpr VeltoDomain replacingMin(T min) const { return VeltoDomain(std::move(min), max_); }
  [[nodiscard]] constexpr VeltoDomain replacingMax(T max) const { return VeltoDomain(min_, std::move(max)); }
  /// min and max swapped.
  [[nodiscard]] constexpr VeltoDomain reversed() const { return VeltoDomain(max_, min_); }

  // ---- ordered T ----

  /// max < min.
  [[nodiscard]] constexpr bool isReversed() const
    requires std::totally_ordered<T>
  {
    return max_ < min_;
  }
  /// min when min < max, else max (as VeltoDoubleDomain::trueMin).
  [[nodiscard]] constexpr const T& trueMin() const
    requires std::totally_ordered<T>
  {
    return min_ < max_ ? min_ : max_;
  }
  /// max when min < max, else min.
  [[nodiscard]] constexpr const T& trueMax() const
    requires std::totally_ordered<T>
  {
    return min_ < max_ ? max_ : min_;
  }
  /// trueMin ... trueMax. REQUIRES: the bounds are ordered (no NaN; fatal stop otherwise).
  [[nodiscard]] constexpr VeltoClosedRange<T> closedRange() const
    requires std::totally_ordered<T>
  {
    return VeltoClosedRange<T>(trueMin(), trueMax());
  }

  /// Membership by orientation, as the double domain decides it: ascending, min is the lower
  /// bound; reversed, min is the upper bound (allowMin admits it and excludes max); a point
  /// domain contains its point only with allowBothBounds; a domain whose bounds are unordered
  /// (or, for floating point, whose range is not a number) contains nothing, nor is a value
  /// unordered with the bounds ever in.
  [[nodiscard]] constexpr bool contains(const T& value, BoundsEligibility boundsEligibility) const
    requires std::totally_ordered<T>
  {
    using enum VeltoDoubleDomain::BoundsEligibility;
    const bool withMin = boundsEligibility == allowBothBounds || boundsEligibility == allowMin;
    const bool withMax = boundsEligibility == allowBothBounds || boundsEligibility == allowMax;
    const Orientation bounds = orientation();
    if (bounds.ascending) return (withMin ? min_ <= value : min_ < value) && (withMax ? value <= max_ : value < max_);
    if (bounds.reversed) return (withMax ? max_ <= value : max_ < value) && (withMin ? value <= min_ : value < min_);
    return bounds.point && boundsEligibility == allowBothBounds && value == min_;
  }
  /// Whether `other` lies within this domain, both compared by their true bounds.
  [[nodiscard]] constexpr bool contains(const VeltoDomain& other) const
    requires std::totally_ordered<T>
  {
    return trueMin() <= other.trueMin() && other.trueMax() <= trueMax();
  }
  /// The overlap, ascending, or none; touching domains intersect in a point domain.
  [[nodiscard]] constexpr std::optional<VeltoDomain> intersecting(const VeltoDomain& other) const
    requires std::totally_ordered<T>
  {
    const T& lo = greater(trueMin(), other.trueMin());
    const T& hi = smaller(trueMax(), other.trueMax());
    if (!(lo <= hi)) return std::nullopt;
    return VeltoDomain(lo, hi);
  }
  /// The smallest ascending domain covering both.
  [[nodiscard]] constexpr VeltoDomain unioning(const VeltoDomain& other) const
    requires std::totally_ordered<T>
  {
    return VeltoDomain(smaller(trueMin(), other.trueMin()), greater(trueMax(), other.trueMax()));
  }
  /// `x` limited to the domain's true bounds; a value unordered with them (NaN), or bounds
  /// unordered with each other, give min (as the double domain's clamp does).
  [[nodiscard]] constexpr T clamp(const T& x) const
    requires std::totally_ordered<T>
  {
    const Orientation bounds = orientation();
    if (bounds.ascending) {
      const T& v = smaller(x, max_);
      return v >= min_ ? v : min_;
    }
    if (bounds.reversed) {
      const T& v = greater(x, max_);
      return v < min_ ? v : min_;
    }
    return min_;
  }

  // ---- scalar T: the double domain's arithmetic ----

  /// The same bounds as a double domain.
  [[nodiscard]] VeltoDoubleDomain doubleDomain() const
    requires VeltoScalarInterpolable<T>
  {
    return VeltoDoubleDomain(velto::detail::toScalar(min_), velto::detail::toScalar(max_));
  }
  /// max - min in doubles: negative when reversed, never overflowing the type of T.
  [[nodiscard]] double range() const
    requires VeltoScalarInterpolable<T>
  {
    return doubleDomain().range();
  }
  /// (x - min) / range, unbounded; 0 for a zero range.
  [[nodiscard]] double normalizeOpen(const T& x) const
    requires VeltoScalarInterpolable<T>
  {
    return doubleDomain().normalizeOpen(velto::detail::toScalar(x));
  }
  /// The position limited to 0 ... 1 (NaN gives 1); 0 for a zero range.
  [[nodiscard]] double normalizeClamped(const T& x) const
    requires VeltoScalarInterpolable<T>
  {
    return doubleDomain().normalizeClamped(velto::detail::toScalar(x));
  }
  /// The position wrapped into 0 ... 1, exactly 1 staying 1 (deliberately, as in the double
  /// domain); 0 for a zero range.
  [[nodiscard]] double normalizeModulo(const T& x) const
    requires VeltoScalarInterpolable<T>
  {
    return doubleDomain().normalizeModulo(velto::detail::toScalar(x));
  }
  /// t x range + min, as a T.
  [[nodiscard]] T denormalizeOpen(double t) const
    requires VeltoScalarInterpolable<T>
  {
    return velto::detail::fromScalar<T>(doubleDomain().denormalizeOpen(t));
  }
  /// denormalizeOpen(t) clamped into the domain, as a T.
  [[nodiscard]] T denormalizeClamped(double t) const
    requires VeltoScalarInterpolable<T>
  {
    return velto::detail::fromScalar<T>(doubleDomain().denormalizeClamped(t));
  }
  /// x wrapped into the domain by whole ranges (VeltoDoubleDomain::modulo): for 0 ... 10, 13
  /// gives 3 and -3 gives 7.
  [[nodiscard]] T modulo(const T& x) const
    requires VeltoScalarInterpolable<T>
  {
    return velto::detail::fromScalar<T>(doubleDomain().modulo(velto::detail::toScalar(x)));
  }

  /// x mapped from this domain into `into`, unbounded; `into.min()` for a zero range.
  template <VeltoScalarInterpolable U>
  [[nodiscard]] U lerpOpen(const T& x, const VeltoDomain<U>& into) const
    requires VeltoScalarInterpolable<T>
  {
    return velto::detail::fromScalar<U>(doubleDomain().lerpOpen(velto::detail::toScalar(x), into.doubleDomain()));
  }
  /// x mapped into `into` with the position limited to 0 ... 1 (NaN gives 1).
  template <VeltoScalarInterpolable U>
  [[nodiscard]] U lerpClamped(const T& x, const VeltoDomain<U>& into) const
    requires VeltoScalarInterpolable<T>
  {
    return velto::detail::fromScalar<U>(doubleDomain().lerpClamped(velto::detail::toScalar(x), into.doubleDomain()));
  }
  /// x wrapped into this domain, then mapped: into.denormalizeOpen(normalizeModulo(x)).
  template <VeltoScalarInterpolable U>
  [[nodiscard]] U lerpModulo(const T& x, const VeltoDomain<U>& into) const
    requires VeltoScalarInterpolable<T>
  {
    return velto::detail::fromScalar<U>(doubleDomain().lerpModulo(velto::detail::toScalar(x), into.doubleDomain()));
  }

  // ---- interpolable and tolerance-comparable T ----

  /// Each bound moved `ratio` of the way towards the target's bound of the same name
  /// (extrapolating outside 0 ... 1).
  [[nodiscard]] VeltoDomain lerpOpenTowards(double ratio, const VeltoDomain& towards) const
    requires VeltoLinearInterpolable<T>
  {
    return VeltoDomain(velto::detail::lerpOpenTowards(min_, ratio, towards.min_),
                       velto::detail::lerpOpenTowards(max_, ratio, towards.max_));
  }

  /// min and max each equal to `other`'s within `tolerance`.
  [[nodiscard]] bool equals(const VeltoDomain& other, VeltoPrecision tolerance) const
    requires VeltoToleranceComparable<T>
  {
    return velto::detail::equalsWithin(min_, other.min_, tolerance) && velto::detail::equalsWithin(max_, other.max_, tolerance);
  }

  /// Both bounds equal.
  friend constexpr bool operator==(const VeltoDomain& lhs, const VeltoDomain& rhs)
    requires std::equality_comparable<T>
  {
    return lhs.min_ == rhs.min_ && lhs.max_ == rhs.max_;
  }
  /// By min, then by max when the mins are equal.
  friend constexpr bool operator<(const VeltoDomain& lhs, const VeltoDomain& rhs)
    requires std::totally_ordered<T>
  {
    return lhs.min_ < rhs.min_ || (lhs.min_ == rhs.min_ && lhs.max_ < rhs.max_);
  }

  /// Combines the hashes of min and max, in that order.
  [[nodiscard]] std::size_t hash() const
    requires requires(const T& value) { std::hash<T>{}(value); }
  {
    const std::size_t lower = std::hash<T>{}(min_);
    return lower ^ (std::hash<T>{}(max_) + 0x9e3779b97f4a7c15ULL + (lower << 6) + (lower >> 2));
  }

  /// Debug output: "min" and "max". A template only so that the encoder's types are needed
  /// where a domain is rendered, not here.
  template <class Container = VeltoKeyedEncodingContainer, class Encoder = VeltoDynamicDebugEncoder>
  VeltoResult<void> encodeChildrenForDynamicDebug(Container& container, Encoder& dynamicEncoder) const {
    VeltoResult<void> written = dynamicEncoder.encode(min_, container, "min");
    if (written.isFailure()) return written;
    return dynamicEncoder.encode(max_, container, "max");
  }

 private:
  struct Orientation {
    bool ascending;
    bool reversed;
    bool point;
  };
  // For floating point by the sign of the range, as the double domain decides (infinite equal
  // bounds have a range that is not a number: none of the three); otherwise by comparing bounds.
  constexpr Orientation orientation() const {
    if constexpr (std::is_floating_point_v<T>) {
      const T range = max_ - min_;
      return {range > 0, range < 0, range == 0};
    } else {
      return {min_ < max_, max_ < min_, min_ == max_};
    }
  }

  // The double domain's choices on ties and unordered values (the second argument wins ties
  // for the greater, the first for the smaller), so that -0 and 0 come out as there.
  static constexpr const T& smaller(const T& x, const T& y) { return y < x ? y : x; }
  static constexpr const T& greater(const T& x, const T& y) { return y >= x ? y : x; }

  T min_;
  T max_;
};

template <class T>
  requires requires(const VeltoDomain<T>& domain) { domain.hash(); }
struct std::hash<VeltoDomain<T>> {
  std::size_t operator()(const VeltoDomain<T>& domain) const { return domain.hash(); }
};

// The double domain's mappings into a domain of any scalar type, declared in VeltoDoubleDomain.hpp.

template <VeltoScalarInterpolable T>
T VeltoDoubleDomain::lerpOpen(double x, const VeltoDomain<T>& into) const {
  return velto::detail::fromScalar<T>(lerpOpen(x, into.doubleDomain()));
}

template <VeltoScalarInterpolable T>
T VeltoDoubleDomain::lerpClamped(double x, const VeltoDomain<T>& into) const {
  return velto::detail::fromScalar<T>(lerpClamped(x, into.doubleDomain()));
}

template <VeltoScalarInterpolable T>
T VeltoDoubleDomain::lerpModulo(double x, const VeltoDomain<T>& into) const {
  return velto::detail::fromScalar<T>(lerpModulo(x, into.doubleDomain()));
}
