// VeltoToleranceComparable: the concept of values that compare equal within a tolerance.
//
//   template <VeltoToleranceComparable T>
//   bool settled(const T& previous, const T& next) { return previous.equals(next, VeltoPrecision(1e-6)); }
//
// Numbers satisfy it too (compared by their distance), so that containers and domains of plain
// doubles or integers offer `equals(other, tolerance)` as well.
#pragma once

#include <cmath>
#include <concepts>
#include <limits>
#include <type_traits>

#include "velto/values/VeltoPrecision.hpp"

/// Satisfied by arithmetic types other than bool, equal within a tolerance when their distance
/// is strictly below it, and by a type with `bool equals(const T& other, VeltoPrecision
/// tolerance) const`.
template <class T>
concept VeltoToleranceComparable = (std::is_arithmetic_v<T> && !std::same_as<T, bool>) ||
                                   requires(const T& lhs, const T& rhs, VeltoPrecision tolerance) {
                                     { lhs.equals(rhs, tolerance) } -> std::same_as<bool>;
                                   };

namespace velto::detail {

/// `lhs.equals(rhs, tolerance)` for a type that has it; for numbers |lhs - rhs| < tolerance,
/// with integer distances taken exactly (no overflow at the extremes) and then compared as a
/// double. A NaN, or two infinities, are never equal within any tolerance.
template <VeltoToleranceComparable T>
[[nodiscard]] constexpr bool equalsWithin(const T& lhs, const T& rhs, VeltoPrecision tolerance) {
  if constexpr (std::is_integral_v<T>) {
    using Unsigned = std::make_unsigned_t<T>;
    const Unsigned distance = lhs < rhs ? static_cast<Unsigned>(static_cast<Unsigned>(rhs) - static_cast<Unsigned>(lhs))
                                        : static_cast<Unsigned>(static_cast<Unsigned>(lhs) - static_cast<Unsigned>(rhs));
    return static_cast<double>(distance) < tolerance.value();
  } else if constexpr (std::is_floating_point_v<T>) {
    return std::abs(lhs - rhs) < tolerance.value();
  } else {
    return lhs.equals(rhs, tolerance);
  }
}

}  // namespace velto::detail
