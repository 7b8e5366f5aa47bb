// VeltoScalarInterpolable: values that stand for one double, so that a domain can turn them into
// positions and make them again from interpolated doubles.
//
//   const VeltoDomain<int> pixels(0, 1920);
//   int x = VeltoDoubleDomain::normal.lerpOpen(0.25, pixels);           // 480
//
//   struct Meters {                                                      // a type of your own
//     double value;
//     explicit Meters(double v) : value(v) {}
//     explicit operator double() const { return value; }
//     auto operator<=>(const Meters&) const = default;
//   };
//   Meters m = VeltoDoubleDomain::normal.lerpClamped(2, VeltoDomain<Meters>(Meters(0), Meters(5)));  // 5 m
#pragma once

#include <cmath>
#include <concepts>
#include <limits>
#include <type_traits>

/// Satisfied by arithmetic types other than bool, and by copyable class types that convert
/// explicitly to double (`static_cast<double>(value)`) and are constructible from a double.
///
/// The arithmetic of interpolation is done in doubles and converted back:
/// - integers: to the nearest value, halves away from zero, saturated at the type's limits; a
///   result that is not a number becomes 0. Integers beyond 2^53 lose precision on the way.
/// - float: as the conversion rounds, with values beyond its range becoming infinities.
/// - class types: through their own constructor from double.
template <class T>
concept VeltoScalarInterpolable = (std::is_arithmetic_v<T> && !std::same_as<T, bool>) ||
                                  (std::is_class_v<T> && std::copy_constructible<T> && std::constructible_from<T, double> &&
                                   requires(const T& value) {
                                     { static_cast<double>(value) } -> std::same_as<double>;
                                   });

namespace velto::detail {

template <VeltoScalarInterpolable T>
[[nodiscard]] constexpr double toScalar(const T& value) noexcept(std::is_arithmetic_v<T>) {
  return static_cast<double>(value);
}

/// The value of T nearest `scalar`, by the rules of VeltoScalarInterpolable; never undefined
/// behaviour, whatever the double.
template <VeltoScalarInterpolable T>
[[nodiscard]] T fromScalar(double scalar) noexcept(std::is_arithmetic_v<T>) {
  if constexpr (std::is_integral_v<T>) {
    if (std::isnan(scalar)) return T{};
    const double rounded = std::round(scalar);
    // Both limits are powers of two (or zero) as doubles, so the comparisons are exact; the
    // upper one is one past the maximum.
    constexpr double lowest = static_cast<double>(std::numeric_limits<T>::lowest());
    constexpr double pastMax = static_cast<double>(std::numeric_limits<T>::max() / 2 + 1) * 2.0;
    if (rounded <= lowest) return std::numeric_limits<T>::lowest();
    if (rounded >= pastMax) return std::numeric_limits<T>::max();
    return static_cast<T>(rounded);
  } else if constexpr (std::is_floating_point_v<T>) {
    if constexpr (sizeof(T) < sizeof(double)) {
      if (scalar > static_cast<double>(std::numeric_limits<T>::max())) return std::numeric_limits<T>::infinity();
      if (scalar < static_cast<double>(std::numeric_limits<T>::lowest())) return -std::numeric_limits<T>::infinity();
    }
    return static_cast<T>(scalar);
  } else {
    return T(scalar);
  }
}

}  // namespace velto::detail
