// VeltoToleranceComparable: the concept of values that compare equal within a tolerance.
//
//   template <VeltoToleranceComparable T>
//   bool settled(const T& previous, const T& next) { return previous.equals(next, VeltoPrecision(1e-6)); }
#pragma once

#include <concepts>

#include "velto/values/VeltoPrecision.hpp"

/// Satisfied by a type with `bool equals(const T& other, VeltoPrecision tolerance) const`.
template <class T>
concept VeltoToleranceComparable = requires(const T& lhs, const T& rhs, VeltoPrecision tolerance) {
  { lhs.equals(rhs, tolerance) } -> std::same_as<bool>;
};
