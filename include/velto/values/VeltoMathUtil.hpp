// VeltoMathUtil: angles, rounding to a step, powers of a base and a least-squares helper.
//
//   double r = VeltoMathUtil::radiansFrom(90);                    // pi / 2
//   double q = VeltoMathUtil::roundTo(7.4, 0.5);                  // 7.5
//   std::uint64_t next = VeltoMathUtil::powerOfGreaterThan(std::uint64_t{2}, std::uint64_t{8});  // 16
//   std::optional<double> y = VeltoMathUtil::leastSquaresInterpolation(samples, 3);
#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <vector>

/// Static constants and functions; no state. The double forms follow IEEE arithmetic for bad
/// input (infinities, NaN); the integer and unsigned forms stop the program on the conditions
/// each one lists. Thread safety: pure functions.
class VeltoMathUtil {
 public:
  VeltoMathUtil() = delete;

  static constexpr double radiansInCircle = 6.283185307179586;
  static constexpr double radiansInHalfCircle = 3.141592653589793;
  static constexpr double radiansInQuarterCircle = 1.5707963267948966;
  static constexpr double degreesInHalfCircle = 180;
  static constexpr double degreesInCircle = 360;

  /// One sample of a least-squares fit.
  struct Sample {
    double x;
    double y;
  };

  [[nodiscard]] static constexpr double circumference(double radius) noexcept { return radius * radiansInCircle; }
  /// degrees / 180 x pi (divided first).
  [[nodiscard]] static constexpr double radiansFrom(double degrees) noexcept {
    return degrees / degreesInHalfCircle * radiansInHalfCircle;
  }
  /// radians / pi x 180.
  [[nodiscard]] static constexpr double degreesFrom(double radians) noexcept {
    return radians / radiansInHalfCircle * degreesInHalfCircle;
  }

  /// The multiple of `nearest` closest to `subject`, halves away from zero.
  [[nodiscard]] static double roundTo(double subject, double nearest) noexcept;
  /// ceil(value / step) x step; NaN for a zero step.
  [[nodiscard]] static double ceil(double value, double step) noexcept;
  /// floor(value / step) x step; NaN for a zero step.
  [[nodiscard]] static double floor(double value, double step) noexcept;
  /// value + (step - r) with r the remainder of value / step truncated towards zero, or value
  /// when r is 0. For negative values this does not round up: ceil(-7, 5) is 0, not -5; the
  /// result is deliberate and kept for compatibility. REQUIRES: step != 0, not (INT64_MIN, -1),
  /// and no overflow in step - r or the sum; a fatal stop otherwise.
  [[nodiscard]] static std::int64_t ceil(std::int64_t value, std::int64_t step) noexcept;

  /// Whether log(value) / log(base) is a whole number (exactly, in doubles).
  [[nodiscard]] static bool is(double value, double base) noexcept;
  /// The same, with both integers converted to doubles (signed or unsigned as their types are).
  template <std::integral Value, std::integral Base>
  [[nodiscard]] static bool is(Value value, Base base) noexcept {
    return is(static_cast<double>(value), static_cast<double>(base));
  }

  // Powers of `base` relative to `x`, from p = log(x) / log(base) in doubles. No correction is
  // made where rounding makes p miss a whole number by a hair.

  /// The smallest power strictly above x: an exact power yields the next one (2, 8 gives 16).
  [[nodiscard]] static double powerOfGreaterThan(double base, double x) noexcept;
  /// base ^ ceil(p) (2, 8 gives 8; 2, 9 gives 16).
  [[nodiscard]] static double powerOfGreaterThanOrEqualTo(double base, double x) noexcept;
  /// The largest power strictly below x (2, 8 gives 4; 2, 9 gives 8).
  [[nodiscard]] static double powerOfLessThan(double base, double x) noexcept;
  /// base ^ floor(p).
  [[nodiscard]] static double powerOfLessThanOrEqualTo(double base, double x) noexcept;
  // Unsigned forms: computed as the double forms, converted back by truncation. REQUIRES: the
  // power is finite, above -1 and below 2^64; a fatal stop otherwise.
  [[nodiscard]] static std::uint64_t powerOfGreaterThan(std::uint64_t base, std::uint64_t x) noexcept;
  [[nodiscard]] static std::uint64_t powerOfGreaterThanOrEqualTo(std::uint64_t base, std::uint64_t x) noexcept;
  [[nodiscard]] static std::uint64_t powerOfLessThan(std::uint64_t base, std::uint64_t x) noexcept;
  [[nodiscard]] static std::uint64_t powerOfLessThanOrEqualTo(std::uint64_t base, std::uint64_t x) noexcept;

  /// None for no samples; the single y for one sample. Otherwise, with d = n x sum(x^2) -
  /// sum(x)^2: when d is not 0 the mean of the y values (`at` unused); when d is 0 the fitted
  /// line's value at `at`, which with d = 0 is an infinity or NaN. That a well-conditioned set
  /// yields the mean rather than the line is deliberate and kept for compatibility.
  [[nodiscard]] static std::optional<double> leastSquaresInterpolation(const std::vector<Sample>& samples, double at) noexcept;
};
