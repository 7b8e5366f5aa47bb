// Compile-time tests on VeltoResult types, for the templates that treat a closure returning a
// VeltoResult differently from one returning a plain value.
#pragma once

#include <optional>
#include <type_traits>

#include "velto/core/VeltoResult.hpp"

namespace velto::detail {

template <class T>
struct IsVeltoResultType : std::false_type {};
template <class T>
struct IsVeltoResultType<VeltoResult<T>> : std::true_type {};

/// True for every VeltoResult<T>.
template <class T>
inline constexpr bool isVeltoResult = IsVeltoResultType<std::remove_cvref_t<T>>::value;

template <class T>
struct IsOptionalVeltoResultType : std::false_type {};
template <class T>
struct IsOptionalVeltoResultType<std::optional<VeltoResult<T>>> : std::true_type {};

/// True for every std::optional<VeltoResult<T>>.
template <class T>
inline constexpr bool isOptionalVeltoResult = IsOptionalVeltoResultType<std::remove_cvref_t<T>>::value;

}  // namespace velto::detail
