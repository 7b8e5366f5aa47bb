// VeltoLinearInterpolable: values that can be moved part of the way towards another value of
// their type, as `VeltoDoubleDomain::lerpOpenTowards` moves a domain.
//
//   struct Point {
//     double x, y;
//     Point lerpOpenTowards(double ratio, const Point& towards) const {
//       return {(towards.x - x) * ratio + x, (towards.y - y) * ratio + y};
//     }
//   };
//   VeltoDomain<Point> path(Point{0, 0}, Point{10, 0});   // a domain of any ordered type
//   auto halfway = path.lerpOpenTowards(0.5, VeltoDomain<Point>(Point{0, 10}, Point{10, 10}));
#pragma once

#include <concepts>

#include "velto/values/VeltoScalarInterpolable.hpp"

/// Satisfied by every VeltoScalarInterpolable type, interpolated in doubles as
/// (towards - from) x ratio + from and converted back, and by a type with
/// `T lerpOpenTowards(double ratio, const T& towards) const`. "Open": a ratio outside 0 ... 1
/// extrapolates; nothing is clamped.
template <class T>
concept VeltoLinearInterpolable = VeltoScalarInterpolable<T> || requires(const T& from, const T& towards, double ratio) {
  { from.lerpOpenTowards(ratio, towards) } -> std::convertible_to<T>;
};

namespace velto::detail {

/// `from` moved `ratio` of the way towards `towards`; a type's own lerpOpenTowards wins over
/// the scalar arithmetic.
template <VeltoLinearInterpolable T>
[[nodiscard]] T lerpOpenTowards(const T& from, double ratio, const T& towards) {
  if constexpr (requires { from.lerpOpenTowards(ratio, towards); }) {
    return from.lerpOpenTowards(ratio, towards);
  } else {
    const double start = toScalar(from);
    return fromScalar<T>((toScalar(towards) - start) * ratio + start);
  }
}

}  // namespace velto::detail
