// VeltoKnownMimeType: the two request-body content types the library can encode.
//
//   rawValue(VeltoKnownMimeType::json);                          // "application/json"
//   fromRawValue<VeltoKnownMimeType>("Application/JSON");        // std::nullopt: exact, case-sensitive
#pragma once

#include <optional>
#include <string_view>

#include <boost/describe/enum.hpp>

#include "velto/encoding/VeltoRawRepresentable.hpp"

/// Body content types, raw values "application/x-www-form-urlencoded" and "application/json".
/// Debug output shows the case name ("form").
enum class VeltoKnownMimeType { form, json };
BOOST_DESCRIBE_ENUM(VeltoKnownMimeType, form, json)

template <>
struct VeltoRawValueTraits<VeltoKnownMimeType> {
  using RawValue = std::string_view;
  [[nodiscard]] static constexpr std::string_view rawValue(VeltoKnownMimeType type) noexcept {
    return type == VeltoKnownMimeType::form ? "application/x-www-form-urlencoded" : "application/json";
  }
  /// Only the exact strings convert.
  [[nodiscard]] static constexpr std::optional<VeltoKnownMimeType> fromRawValue(std::string_view raw) noexcept {
    if (raw == "application/x-www-form-urlencoded") return VeltoKnownMimeType::form;
    if (raw == "application/json") return VeltoKnownMimeType::json;
    return std::nullopt;
  }
};
