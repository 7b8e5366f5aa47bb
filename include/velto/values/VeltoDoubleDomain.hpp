// VeltoDoubleDomain: an oriented interval of doubles for mapping values between scales
// (normalise, denormalise, interpolate), clamping or wrapping them into a scale, and
// interpolating the shorter way round a wrapping scale such as angles.
//
//   const VeltoDoubleDomain celsius(0, 100), fahrenheit(32, 212);
//   double f = celsius.lerpOpen(37, fahrenheit);                          // 98.6
//   double angle = VeltoDoubleDomain::degreesSplit.modulo(190);          // -170
//   double t = VeltoDoubleDomain::normal.normalizeModulo(1.25);          // 0.25
//   double heading = VeltoDoubleDomain::degreesPositive.denormalizeShortest(t, VeltoDoubleDomain(350, 10));
//
// Orientation matters: a domain whose min is greater than its max runs backwards, its range is
// negative, and every operation honours that instead of reordering the bounds.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <boost/describe/enum.hpp>

#include "velto/core/VeltoResult.hpp"
#include "velto/values/VeltoPrecision.hpp"
#include "velto/values/VeltoScalarInterpolable.hpp"

class VeltoKeyedEncodingContainer;
class VeltoDynamicDebugEncoder;
template <class T>
class VeltoResult;
template <class T>
class VeltoDomain;

/// An oriented interval: `min` (the start), `max` (the end) and `range` (max - min, computed at
/// construction and stored). Regular, immutable value type; every operation is pure arithmetic
/// on doubles, never fails and never stops the program (a zero range is special-cased, values
/// that are not numbers pass through the comparisons as documented per operation).
/// Thread safety: immutable; the static domains are constants initialised before any code runs.
class VeltoDoubleDomain {
 public:
  /// Which bounds count as inside for `contains(value, eligibility)`. "Min" and "max" always
  /// mean the fields of those names, whatever the orientation.
  enum class BoundsEligibility { allowBothBounds, allowMin, allowMax, excludeBothBounds };

  static const VeltoDoubleDomain normal;          ///< 0 ... 1
  static const VeltoDoubleDomain normalReversed;  ///< 1 ... 0, range -1
  static const VeltoDoubleDomain radiansPositive;  ///< 0 ... 2 pi
  static const VeltoDoubleDomain degreesPositive;  ///< 0 ... 360
  static const VeltoDoubleDomain degreesSplit;     ///< -180 ... 180
  /// -DBL_MAX ... DBL_MAX; its range overflows to positive infinity, which is intended.
  static const VeltoDoubleDomain greatestFiniteMagnitude;

  /// min ... max in that orientation; range = max - min.
  constexpr VeltoDoubleDomain(double min, double max) noexcept : min_(min), max_(max), range_(max - min) {}

  /// The closed range lower ... upper. REQUIRES: lower <= upper (neither is NaN); a fatal stop
  /// otherwise, as forming such a range is.
  [[nodiscard]] static VeltoDoubleDomain fromClosedRange(double lower, double upper) noexcept;
  /// The point domain value ... value, range 0.
  [[nodiscard]] static constexpr VeltoDoubleDomain fromDiscrete(double value) noexcept { return {value, value}; }

  [[nodiscard]] constexpr double min() const noexcept { return min_; }
  [[nodiscard]] constexpr double max() const noexcept { return max_; }
  [[nodiscard]] constexpr double range() const noexcept { return range_; }
  /// min when min < max, else max.
  [[nodiscard]] constexpr double trueMin() const noexcept { return min_ < max_ ? min_ : max_; }
  /// max when min < max, else min.
  [[nodiscard]] constexpr double trueMax() const noexcept { return min_ < max_ ? max_ : min_; }
  [[nodiscard]] constexpr double mid() const noexcept { return min_ + range_ * 0.5; }

  /// The same max with a new min (range recomputed).
  [[nodiscard]] constexpr VeltoDoubleDomain replacingMin(double min) const noexcept { return {min, max_}; }
  /// The same min with a new max (range recomputed).
  [[nodiscard]] constexpr VeltoDoubleDomain replacingMax(double max) const noexcept { return {min_, max}; }
  /// min and max swapped.
  [[nodiscard]] constexpr VeltoDoubleDomain reversed() const noexcept { return {max_, min_}; }

  // ---- set operations (results always run upwards) ----

  /// Whether `other` lies within this domain, both compared by their true bounds.
  [[nodiscard]] bool contains(const VeltoDoubleDomain& other) const noexcept;
  /// The overlap, or none; touching domains intersect in a point domain.
  [[nodiscard]] std::optional<VeltoDoubleDomain> intersecting(const VeltoDoubleDomain& other) const noexcept;
  /// The smallest domain covering both.
  [[nodiscard]] VeltoDoubleDomain unioning(const VeltoDoubleDomain& other) const noexcept;

  /// Membership by orientation: for a reversed domain allowMin admits min (the upper bound) and
  /// excludes max. A point domain contains its point only with allowBothBounds. NaN is never in.
  [[nodiscard]] bool contains(double value, BoundsEligibility boundsEligibility) const noexcept;

  /// True when both min and max differ from `other`'s by strictly less than the tolerance;
  /// range is not compared.
  [[nodiscard]] bool equals(const VeltoDoubleDomain& other, VeltoPrecision tolerance) const noexcept;

  // ---- mapping to and from positions (t = 0 at min, 1 at max) ----

  /// (x - min) / range, unbounded; 0 for a zero range.
  [[nodiscard]] double normalizeOpen(double x) const noexcept;
  /// The position limited to 0 ... 1; NaN gives 1; 0 for a zero range.
  [[nodiscard]] double normalizeClamped(double x) const noexcept;
  /// The position wrapped into 0 ... 1 by subtracting its floor, except that exactly 1 stays 1
  /// (the end of the domain is not wrapped to its start). The asymmetry is deliberate and kept
  /// for compatibility. 0 for a zero range.
  [[nodiscard]] double normalizeModulo(double x) const noexcept;
  /// t x range + min.
  [[nodiscard]] double denormalizeOpen(double t) const noexcept;
  /// denormalizeOpen(t) clamped into the domain (see clamp).
  [[nodiscard]] double denormalizeClamped(double t) const noexcept;
  /// x limited to the domain; NaN, a zero range or a NaN range give min.
  [[nodiscard]] double clamp(double x) const noexcept;
  /// x wrapped into the domain by whole ranges: for 0 ... 10, 13 gives 3, -3 gives 7 and both
  /// 10 and -10 give 0. A point domain gives min.
  [[nodiscard]] double modulo(double x) const noexcept;

  /// x mapped from this domain into `into` without limits; `into.min()` for a zero range.
  [[nodiscard]] double lerpOpen(double x, const VeltoDoubleDomain& into) const noexcept;
  /// x mapped into `into` with the position limited to 0 ... 1 (NaN gives 1); `into.min()` for
  /// a zero range.
  [[nodiscard]] double lerpClamped(double x, const VeltoDoubleDomain& into) const noexcept;
  /// x wrapped into this domain, then mapped: into.denormalizeOpen(normalizeModulo(x)).
  [[nodiscard]] double lerpModulo(double x, const VeltoDoubleDomain& into) const noexcept;
  /// The same three mappings into a domain of any scalar type (defined in VeltoDomain.hpp): the
  /// double result converted by VeltoScalarInterpolable's rules, so into integers it rounds to
  /// nearest and saturates.
  template <VeltoScalarInterpolable T>
  [[nodiscard]] T lerpOpen(double x, const VeltoDomain<T>& into) const;
  template <VeltoScalarInterpolable T>
  [[nodiscard]] T lerpClamped(double x, const VeltoDomain<T>& into) const;
  template <VeltoScalarInterpolable T>
  [[nodiscard]] T lerpModulo(double x, const VeltoDomain<T>& into) const;
  /// Each bound moved `ratio` of the way towards the target's bound of the same name.
  [[nodiscard]] VeltoDoubleDomain lerpOpenTowards(double ratio, const VeltoDoubleDomain& towards) const noexcept;

  /// |from - to|, or range - |from - to| when that is more than half the range.
  [[nodiscard]] double shortestWrappingDistance(double from, double to) const noexcept;
  /// x mapped into `subset`, a stretch of the wrapping domain `wrapping`, going the shorter way
  /// round: a subset covering more than half of `wrapping` is walked backwards over its
  /// complement from `subset.min()`, and the result is wrapped into `wrapping` (see modulo).
  /// Rounding may put a result that is mathematically `wrapping.min()` on `wrapping.max()` (the
  /// same point of the wrapping scale): from normal into 10 ... 350 of 0 ... 360, 0.5 gives 360.
  [[nodiscard]] double lerpShortest(double x, const VeltoDoubleDomain& subset, const VeltoDoubleDomain& wrapping) const noexcept;
  /// lerpShortest from `normal`, with this domain as the wrapping one.
  [[nodiscard]] double denormalizeShortest(double t, const VeltoDoubleDomain& subset) const noexcept;

  // ---- weighting curves over the clamped position ----

  /// cos(t x pi): 1 at min (and for a zero range), -1 at and beyond max.
  [[nodiscard]] double halfCosInterpolateClamped(double x) const noexcept;
  /// cos(t x pi / 2): 1 at min (and for a zero range), cos(pi / 2) at and beyond max.
  [[nodiscard]] double quarterCosInterpolateClamped(double x) const noexcept;
  /// (1 - t)^2 / (2(t^2 - t) + 1): 1 at min, 0.5 halfway, 0 at max.
  [[nodiscard]] double quadraticInterpolateClamped(double x) const noexcept;

  // ---- encoding ----

  /// The JSON object {"min": min, "max": max} (range is not written), doubles in shortest
  /// round-trip form. Fails with "Non-finite bound" (arguments "min", "max") when a bound is
  /// infinite or NaN, which JSON cannot hold.
  [[nodiscard]] VeltoResult<std::string> encodedJson() const;
  /// The domain made from a JSON object's "min" and "max" numbers, as the (min, max) constructor
  /// makes it; other keys are ignored. Fails with "Invalid JSON" (argument "json") or "Missing
  /// bound" (arguments "json", "key").
  [[nodiscard]] static VeltoResult<VeltoDoubleDomain> makeFromJson(std::string_view json);

  // ---- arithmetic with a double (applied to both bounds; range recomputed) ----

  [[nodiscard]] friend constexpr VeltoDoubleDomain operator+(const VeltoDoubleDomain& d, double x) noexcept {
    return {d.min_ + x, d.max_ + x};
  }
  [[nodiscard]] friend constexpr VeltoDoubleDomain operator-(const VeltoDoubleDomain& d, double x) noexcept {
    return {d.min_ - x, d.max_ - x};
  }
  /// A negative factor reverses the orientation.
  [[nodiscard]] friend constexpr VeltoDoubleDomain operator*(const VeltoDoubleDomain& d, double x) noexcept {
    return {d.min_ * x, d.max_ * x};
  }
  /// A negative divisor reverses the orientation.
  [[nodiscard]] friend constexpr VeltoDoubleDomain operator/(const VeltoDoubleDomain& d, double x) noexcept {
    return {d.min_ / x, d.max_ / x};
  }

  /// All three fields equal (so -0 equals 0 and a NaN bound is never equal).
  [[nodiscard]] friend constexpr bool operator==(const VeltoDoubleDomain& lhs, const VeltoDoubleDomain& rhs) noexcept {
    return lhs.min_ == rhs.min_ && lhs.max_ == rhs.max_ && lhs.range_ == rhs.range_;
  }
  /// By min, then by max when the mins are equal.
  [[nodiscard]] friend constexpr bool operator<(const VeltoDoubleDomain& lhs, const VeltoDoubleDomain& rhs) noexcept {
    return lhs.min_ < rhs.min_ || (lhs.min_ == rhs.min_ && lhs.max_ < rhs.max_);
  }

  /// Combines min, max and range in that order, each by its bit pattern, -0 as 0.
  [[nodiscard]] std::size_t hash() const noexcept;

  /// Debug output of the stored fields: "min", "max", "range".
  VeltoResult<void> encodeChildrenForDynamicDebug(VeltoKeyedEncodingContainer& container,
                                                  VeltoDynamicDebugEncoder& dynamicEncoder) const;

 private:
  struct Stored {};
  constexpr VeltoDoubleDomain(double min, double max, double range, Stored) noexcept : min_(min), max_(max), range_(range) {}
  [[nodiscard]] double clampedPosition(double x) const noexcept;

  double min_;
  double max_;
  double range_;
};

BOOST_DESCRIBE_ENUM(VeltoDoubleDomain::BoundsEligibility, allowBothBounds, allowMin, allowMax, excludeBothBounds)

inline constexpr VeltoDoubleDomain VeltoDoubleDomain::normal{0.0, 1.0};
inline constexpr VeltoDoubleDomain VeltoDoubleDomain::normalReversed{1.0, 0.0};
inline constexpr VeltoDoubleDomain VeltoDoubleDomain::radiansPositive{0.0, 6.283185307179586};
inline constexpr VeltoDoubleDomain VeltoDoubleDomain::degreesPositive{0.0, 360.0};
inline constexpr VeltoDoubleDomain VeltoDoubleDomain::degreesSplit{-180.0, 180.0};
inline constexpr VeltoDoubleDomain VeltoDoubleDomain::greatestFiniteMagnitude{
    -1.7976931348623157e308, 1.7976931348623157e308, __builtin_huge_val(), VeltoDoubleDomain::Stored{}};

template <>
struct std::hash<VeltoDoubleDomain> {
  std::size_t operator()(const VeltoDoubleDomain& domain) const noexcept { return domain.hash(); }
};
