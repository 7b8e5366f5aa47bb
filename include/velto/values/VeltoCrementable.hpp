// VeltoCrementable: values that step up or down by one and stop at their limits instead of
// wrapping round, and the two calls that step them.
//
//   std::uint8_t retries = 254;
//   veltoIncrement(retries);                 // true: 255
//   veltoIncrement(retries);                 // false: still 255, no wrap to 0
//
//   enum class Quality { low, medium, high };
//   BOOST_DESCRIBE_ENUM(Quality, low, medium, high)
//   Quality q = Quality::high;
//   veltoIncrement(q);                       // false: already the last case
//   veltoDecrement(q);                       // true: medium
#pragma once

#include <boost/describe/enumerators.hpp>
#include <boost/mp11/algorithm.hpp>

#include <concepts>
#include <cstddef>
#include <limits>
#include <type_traits>

/// Satisfied by:
/// - integers other than bool: one up or down, saturating at the type's limits;
/// - enumerations described with BOOST_DESCRIBE_ENUM: the next or previous case in declaration
///   order, saturating at the first and last case; a value that is none of the cases does not
///   move;
/// - a type with members `bool increment()` and `bool decrement()` that step in place and return
///   false, leaving the value as it was, when it cannot move.
template <class T>
concept VeltoCrementable = (std::is_integral_v<T> && !std::same_as<T, bool>) ||
                           (std::is_enum_v<T> && boost::describe::has_describe_enumerators<T>::value) ||
                           requires(T& value) {
                             { value.increment() } -> std::same_as<bool>;
                             { value.decrement() } -> std::same_as<bool>;
                           };

namespace velto::detail {

// The index of `value` among T's described cases, or -1.
template <class T>
[[nodiscard]] constexpr std::ptrdiff_t enumCaseIndex(T value) noexcept {
  std::ptrdiff_t index = -1;
  std::ptrdiff_t position = 0;
  boost::mp11::mp_for_each<boost::describe::describe_enumerators<T>>([&](auto descriptor) {
    if (index < 0 && descriptor.value == value) index = position;
    ++position;
  });
  return index;
}

template <class T>
[[nodiscard]] constexpr T enumCaseAt(std::ptrdiff_t wanted) noexcept {
  T found{};
  std::ptrdiff_t position = 0;
  boost::mp11::mp_for_each<boost::describe::describe_enumerators<T>>([&](auto descriptor) {
    if (position == wanted) found = descriptor.value;
    ++position;
  });
  return found;
}

template <class T>
[[nodiscard]] constexpr bool stepEnum(T& value, std::ptrdiff_t step) noexcept {
  constexpr auto count = static_cast<std::ptrdiff_t>(boost::mp11::mp_size<boost::describe::describe_enumerators<T>>::value);
  const std::ptrdiff_t index = enumCaseIndex(value);
  if (index < 0 || index + step < 0 || index + step >= count) return false;
  value = enumCaseAt<T>(index + step);
  return true;
}

}  // namespace velto::detail

/// Adds one to `value` unless it is at its limit; true when it moved. Cost: O(1) for integers,
/// O(number of cases) for enumerations.
template <VeltoCrementable T>
constexpr bool veltoIncrement(T& value) noexcept(!std::is_class_v<T>) {
  if constexpr (std::is_integral_v<T>) {
    if (value == std::numeric_limits<T>::max()) return false;
    ++value;
    return true;
  } else if constexpr (std::is_enum_v<T>) {
    return velto::detail::stepEnum(value, 1);
  } else {
    return value.increment();
  }
}

/// Subtracts one from `value` unless it is at its limit; true when it moved.
template <VeltoCrementable T>
constexpr bool veltoDecrement(T& value) noexcept(!std::is_class_v<T>) {
  if constexpr (std::is_integral_v<T>) {
    if (value == std::numeric_limits<T>::lowest()) return false;
    --value;
    return true;
  } else if constexpr (std::is_enum_v<T>) {
    return velto::detail::stepEnum(value, -1);
  } else {
    return value.decrement();
  }
}
