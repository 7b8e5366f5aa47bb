// VeltoRawRepresentable: types with exactly one raw value per value (an enumeration whose cases
// stand for strings or integers), converted both ways through VeltoRawValueTraits.
//
//   rawValue(VeltoSupportedHttpVerb::post);                  // "POST"
//   fromRawValue<VeltoHttpStatusCode>(418);                  // VeltoHttpStatusCode::imATeapot
//   fromRawValue<VeltoKnownMimeType>("text/plain");          // std::nullopt
//
// A type becomes raw-representable by specialising VeltoRawValueTraits:
//
//   template <> struct VeltoRawValueTraits<Planet> {
//     using RawValue = std::int64_t;
//     static constexpr RawValue rawValue(Planet planet) noexcept;
//     static constexpr std::optional<Planet> fromRawValue(RawValue raw) noexcept;   // none: no such case
//   };
#pragma once

#include <concepts>
#include <optional>

/// Specialise for a type with raw values (see above). The primary template is never defined.
template <class T>
struct VeltoRawValueTraits;

/// A type whose VeltoRawValueTraits give its raw value and, from a raw value, the value or none.
template <class T>
concept VeltoRawRepresentable = requires(const T& value, const typename VeltoRawValueTraits<T>::RawValue& raw) {
  { VeltoRawValueTraits<T>::rawValue(value) } -> std::convertible_to<typename VeltoRawValueTraits<T>::RawValue>;
  { VeltoRawValueTraits<T>::fromRawValue(raw) } -> std::same_as<std::optional<T>>;
};

/// The raw value of `value`.
template <VeltoRawRepresentable T>
[[nodiscard]] constexpr typename VeltoRawValueTraits<T>::RawValue rawValue(const T& value) noexcept(
    noexcept(VeltoRawValueTraits<T>::rawValue(value))) {
  return VeltoRawValueTraits<T>::rawValue(value);
}

/// The value whose raw value is `raw`, or none when there is no such value.
template <VeltoRawRepresentable T>
[[nodiscard]] constexpr std::optional<T> fromRawValue(const typename VeltoRawValueTraits<T>::RawValue& raw) noexcept(
    noexcept(VeltoRawValueTraits<T>::fromRawValue(raw))) {
  return VeltoRawValueTraits<T>::fromRawValue(raw);
}
